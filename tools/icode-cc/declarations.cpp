// Symbols, functions, and the writing of the unit.

#include "clang/AST/Attr.h"
#include "clang/AST/DeclCXX.h"
#include "clang/Basic/Diagnostic.h"

#include "tools/icode-cc/lowering.h"

using namespace clang;

lowering::lowering(ASTContext& context, std::vector<source_pragma>& pragmas)
    : ast_(context), sources_(context.getSourceManager()), pragmas_(pragmas) {
    types_.init_type_pkg();
    int_ = types_.int_type(IK_INT);
    uint_ = types_.int_type(IK_UINT);
}

void lowering::refuse(SourceLocation where, const std::string& what) {
    failed_ = true;
    if (where.isInvalid()) where = where_;
    DiagnosticsEngine& engine = ast_.getDiagnostics();
    engine.Report(where, engine.getCustomDiagID(DiagnosticsEngine::Error, "%0")) << what;
}

// --- Symbols.

model::symbol* lowering::new_global(const std::string& symbol_name, TYPE* type, int sclass,
                                    SourceLocation where) {
    symbol* s = pool_.new_symbol();
    s->name = symbol_name;
    s->type = type;
    s->size = type->is_func() ? 0 : static_cast<unsigned>(type->size());
    s->align = std::max(16u, type->align());
    s->sclass = sclass;
    s->has_psn = where.isValid();
    if (s->has_psn) s->psn = position(where);
    file_->if_enter_global(s);
    return s;
}

model::symbol* lowering::new_local(const std::string& symbol_name, TYPE* type, int sclass,
                                   SourceLocation where) {
    symbol* s = pool_.new_symbol();
    s->name = symbol_name;
    s->type = type;
    s->size = static_cast<unsigned>(type->size());
    s->align = std::max(16u, type->align());
    s->sclass = sclass;
    s->has_psn = where.isValid();
    if (s->has_psn) s->psn = position(where);
    return s;
}

model::symbol* lowering::temporary(TYPE* type) {
    symbol* s = new_local("$F$" + std::to_string(next_temp_++), type, ::SC_AUTO, {});
    outer_locals_.push_back(s);
    return s;
}

void lowering::add_pragma(symbol* s, int kind, std::vector<std::string> args) {
    if (s->pragma(kind) != nullptr && args.empty()) return;
    PRAGMA* pragma = pool_.new_pragma(kind, std::move(args));
    pragma->next = s->pragmas;
    s->pragmas = pragma;
}

void lowering::attribute_pragmas(const Decl* decl, symbol* s) {
    const bool is_function = isa<FunctionDecl>(decl);
    for (const Decl* d : decl->redecls()) {
        for (const auto* aligned : d->specific_attrs<AlignedAttr>()) {
            std::int64_t units = 1;
            if (const Expr* expr = aligned->isAlignmentExpr() ? aligned->getAlignmentExpr() : nullptr)
                units = evaluate_integer(expr).value_or(1);
            else if (aligned->getAlignmentType() != nullptr)
                units = std::max<std::int64_t>(
                    1, type_of(aligned->getAlignmentType()->getTypeLoc())->align() / 16);
            if (s->pragma(PRAG_DATA_ALIGN) == nullptr)
                add_pragma(s, PRAG_DATA_ALIGN, {std::to_string(units)});
            s->align = std::max(s->align, static_cast<unsigned>(units * 16));
        }
        if (const auto* section = d->getAttr<SectionAttr>())
            if (s->pragma(is_function ? PRAG_CODE_SECTION : PRAG_DATA_SECTION) == nullptr)
                add_pragma(s, is_function ? PRAG_CODE_SECTION : PRAG_DATA_SECTION,
                           {section->getName().str()});
        if (d->hasAttr<UsedAttr>()) add_pragma(s, PRAG_SYM_IS_REFERENCED);
        if (d->hasAttr<WeakAttr>()) add_pragma(s, PRAG_NORVANE_WEAK);
        if (d->hasAttr<RetainAttr>()) add_pragma(s, PRAG_RETAIN);
        if (d->hasAttr<AlwaysInlineAttr>()) add_pragma(s, PRAG_FUNC_ALWAYS_INLINE);
        if (d->hasAttr<NoInlineAttr>()) add_pragma(s, PRAG_FUNC_CANNOT_INLINE);
        if (d->hasAttr<ConstAttr>()) add_pragma(s, PRAG_FUNC_IS_PURE);
        if (const auto* function = dyn_cast<FunctionDecl>(d)) {
            if (function->isNoReturn()) add_pragma(s, PRAG_FUNC_NEVER_RETURNS);
            if (function->isInlineSpecified()) add_pragma(s, PRAG_INLINE);
        }
    }
    for (source_pragma& pragma : pragmas_)
        if (pragma.symbol == s->name && !pragma.symbol.empty() &&
            (pragma.kind == PRAG_CODE_SECTION) == is_function) {
            pragma.used = true;
            if (s->pragma(pragma.kind) == nullptr) add_pragma(s, pragma.kind, pragma.args);
            if (pragma.kind == PRAG_DATA_ALIGN && !pragma.args.empty())
                s->align = std::max(
                    s->align, static_cast<unsigned>(std::strtoul(pragma.args[0].c_str(), nullptr, 0) * 16));
        }
}

model::symbol* lowering::function_symbol(const FunctionDecl* decl) {
    const FunctionDecl* definition = nullptr;
    decl->isDefined(definition);
    const FunctionDecl* source = definition != nullptr ? definition : decl;
    int sclass = source->getFormalLinkage() == InternalLinkage ? ::SC_STATIC
                 : definition != nullptr                       ? ::SC_EXTDEF
                                                               : ::SC_EXTERN;
    // An inline definition without extern serves this unit alone.
    if (definition != nullptr && sclass == ::SC_EXTDEF && definition->isInlined() &&
        !definition->isInlineDefinitionExternallyVisible())
        sclass = ::SC_STATIC;
    symbol*& known = named_functions_[decl->getName().str()];
    if (known != nullptr) return known;
    symbol* s = new_global(decl->getName().str(), type_of(static_cast<const ValueDecl*>(source)), sclass,
                           source->getLocation());
    known = s;
    add_pragma(s, PRAG_SRC_LANGUAGE, {"C"});
    attribute_pragmas(source, s);
    return s;
}

model::symbol* lowering::global_symbol(const VarDecl* decl) {
    const VarDecl* source = decl->getDefinition();
    if (source == nullptr) source = decl->getActingDefinition();
    const bool defined = source != nullptr;
    if (source == nullptr) source = decl->getMostRecentDecl();
    const int sclass = source->isStaticLocal() || source->getFormalLinkage() == InternalLinkage ? ::SC_STATIC
                       : defined                                                                ? ::SC_EXTDEF
                                                                                                : ::SC_EXTERN;
    TYPE* type = type_of(static_cast<const ValueDecl*>(source));
    if (!type->is_complete() && defined && type->is_array()) type = types_.mk_array(type->elem_type(), 1);
    symbol* s = new_global(source->getName().str(), type, sclass, source->getLocation());
    attribute_pragmas(source, s);
    return s;
}

model::symbol* lowering::symbol_of(const ValueDecl* decl) {
    const auto* canonical = cast<ValueDecl>(decl->getCanonicalDecl());
    const auto known = symbols_.find(canonical);
    if (known != symbols_.end() && known->second != nullptr) return known->second;
    const auto own = symbols_.find(decl);
    if (own != symbols_.end() && own->second != nullptr) return own->second;
    symbol* s = nullptr;
    if (const auto* function = dyn_cast<FunctionDecl>(decl)) {
        s = function_symbol(function);
    } else if (const auto* variable = dyn_cast<VarDecl>(decl)) {
        if (variable->hasGlobalStorage()) {
            if (variable->getTLSKind() != VarDecl::TLS_None)
                refuse(variable->getLocation(), "thread-local variables are not supported");
            s = global_symbol(variable);
        } else {
            // A jump into its block can name a variable ahead of its declaration record.
            s = new_local(variable->getName().str(), type_of(static_cast<const ValueDecl*>(variable)),
                          ::SC_AUTO, variable->getLocation());
            outer_locals_.push_back(s);
        }
    }
    if (s == nullptr) {
        refuse(decl->getLocation(), "declaration is not supported");
        s = temporary(int_);
    }
    symbols_[canonical] = s;
    return s;
}

void lowering::define_variable(const VarDecl* decl, symbol* s) {
    const Expr* init = decl->getAnyInitializer();
    if (init == nullptr || !s->init.empty()) return;
    s->init = static_initialiser(init, s->type);
    with_initialiser_.push_back(s);
    // A flexible member makes the object as long as its initialiser.
    std::int64_t bits = 0;
    for (const tree* t : s->init) {
        if (t->op == op::SKIP)
            bits += t->value;
        else if (t->op != op::ENDINIT)
            bits += static_cast<std::int64_t>(t->type->size());
    }
    s->size = std::max(s->size, static_cast<unsigned>(bits));
}

// --- Functions.

void lowering::define_function(const FunctionDecl* decl) {
    function_ = decl;
    where_ = decl->getLocation();
    function_symbol_ = symbol_of(decl);
    body_.clear();
    params_.clear();
    outer_locals_.clear();
    labels_.clear();
    case_labels_.clear();
    next_label_ = next_call_ = 1;
    next_temp_ = 0;

    const auto* proto = decl->getType()->getAs<FunctionProtoType>();
    const bool vararg = proto != nullptr && proto->isVariadic();
    tree* prolog = nullptr;
    for (const ParmVarDecl* param : decl->parameters()) {
        TYPE* type = type_of(static_cast<const ValueDecl*>(param));
        const bool last = param == decl->parameters().back();
        symbol* s = new_local(param->getName().str(), type, vararg && last ? ::SC_VARARG : ::SC_PARM,
                              param->getLocation());
        symbols_[param] = s;
        params_.push_back(s);
        tree* receive = assign(name(s), name(s));
        prolog = prolog == nullptr ? receive : make(op::PCOMMA, int_, prolog, receive);
    }
    if (prolog != nullptr) emit(prolog, decl->getLocation());
    const auto* body = cast<CompoundStmt>(decl->getBody());
    block(body, true);
    // Falling off the end of main returns 0.
    if (decl->isMain() && function_symbol_->type->return_type()->is_integral())
        emit(make(op::RETURN, int_, name(function_symbol_), int_icon(0)), body->getRBracLoc());
    if (!failed_) write_function(decl, function_symbol_);
    function_ = nullptr;
    function_symbol_ = nullptr;
}

void lowering::write_function(const FunctionDecl* decl, symbol* s) {
    const PSN start = position(decl->getLocation());
    const PSN opening = position(decl->getBody()->getBeginLoc());
    const PSN end = position(decl->getBody()->getEndLoc());
    const auto declare = [this](symbol* local) {
        file_->if_enter_local(local);
        file_->if_write_symbol(local);
    };
    file_->if_write_begin_func(s, &start);
    for (symbol* param : params_) declare(param);
    file_->if_write_end_args(&opening);
    for (symbol* local : outer_locals_) declare(local);
    file_->if_write_end_locals(&opening);
    for (const body_record& record : body_) {
        const PSN* psn = record.has_psn ? &record.psn : nullptr;
        switch (record.id) {
            case REC_SYMBOL: declare(record.symbol); break;
            case REC_EXPR: file_->if_write_expr(record.tree, psn); break;
            case REC_LABEL: file_->if_write_label(record.label); break;
            case REC_PRAGMA: file_->if_write_pragma(record.pragma); break;
            case REC_INLINE_ASM: file_->if_write_assembly(record.text.c_str(), psn); break;
            default: file_->if_write_control(record.id, psn); break;
        }
    }
    file_->if_write_end_func(&end);
}

// --- The unit.

void lowering::static_assertion(const StaticAssertDecl* decl) {
    const auto holds = evaluate_integer(decl->getAssertExpr());
    if (!holds)
        refuse(decl->getLocation(), "static assertion is not a constant");
    else if (*holds == 0)
        refuse(decl->getLocation(),
               "static assertion failed" + (decl->getMessage() != nullptr
                                                ? ": " + decl->getMessage()->getString().str()
                                                : std::string()));
}

void lowering::top_level(const Decl* decl) {
    where_ = decl->getLocation();
    if (const auto* assertion = dyn_cast<StaticAssertDecl>(decl)) {
        static_assertion(assertion);
    } else if (const auto* function = dyn_cast<FunctionDecl>(decl)) {
        if (function->doesThisDeclarationHaveABody() && !function->isInvalidDecl())
            pending_functions_.push_back(function);
    } else if (const auto* variable = dyn_cast<VarDecl>(decl)) {
        // The definition, or the tentative definition that acts as one; a mere declaration is written when
        // used.
        const VarDecl* definition = variable->getDefinition();
        if (definition == nullptr) definition = const_cast<VarDecl*>(variable)->getActingDefinition();
        if (definition != variable || variable->isInvalidDecl()) return;
        symbol* s = symbol_of(variable);
        define_variable(variable, s);
    } else if (isa<FileScopeAsmDecl>(decl)) {
        refuse(decl->getLocation(), "asm outside a function is not supported");
    }
}

bool lowering::run(const std::string& file_name, const std::vector<std::string>& option_words) {
    std::FILE* stream = std::fopen(file_name.c_str(), "wb");
    if (stream == nullptr) {
        std::perror(file_name.c_str());
        failed_ = true;
        return false;
    }
    file_ = I_FILE::if_create(stream, &types_, "icode-cc", file_name.c_str());
    if (!option_words.empty()) file_->if_enter_option_set(0, option_words);
    for (const Decl* decl : ast_.getTranslationUnitDecl()->decls()) top_level(decl);
    for (const FunctionDecl* function : pending_functions_) symbol_of(function);
    for (const FunctionDecl* function : pending_functions_) define_function(function);
    if (!failed_)
        // An initialiser can ask for further nameless objects.
        for (std::size_t i = 0; i < with_initialiser_.size(); i++) {
            file_->if_write_init(with_initialiser_[i]);
            for (tree* t : with_initialiser_[i]->init) file_->if_write_expr_node(t);
        }
    if (I_FILE::if_close(file_, failed_) != 0) {
        std::perror(file_name.c_str());
        failed_ = true;
    }
    return !failed_;
}
