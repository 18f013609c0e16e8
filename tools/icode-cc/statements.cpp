// Statements.

#include <functional>

#include "clang/AST/DeclCXX.h"

#include "tools/icode-cc/lowering.h"

using namespace clang;

namespace {

// Case ranges are written out; one that is longer is refused.
constexpr std::int64_t MAX_CASE_RANGE = 4096;

} // namespace

PSN lowering::position(SourceLocation where) {
    const PresumedLoc at = sources_.getPresumedLoc(sources_.getExpansionLoc(where));
    if (at.isInvalid()) return {intern_text("<command line>"), 0, 0};
    return {intern_text(at.getFilename()), at.getLine(), at.getColumn()};
}

void lowering::emit(tree* t, SourceLocation where) {
    body_record record{};
    record.id = REC_EXPR;
    record.has_psn = where.isValid();
    if (record.has_psn) record.psn = position(where);
    record.tree = t;
    body_.push_back(record);
}

void lowering::emit_label(unsigned number) {
    body_record record{};
    record.id = REC_LABEL;
    record.label = number;
    body_.push_back(record);
}

void lowering::emit_jump(unsigned number, SourceLocation where) {
    emit(make(op::BRANCH, int_, label_ref(number)), where);
}

void lowering::emit_test(const Expr* cond, unsigned if_zero, SourceLocation where) {
    emit(make(op::CBRANCH, int_, condition(cond), label_ref(if_zero)), where);
}

unsigned lowering::label_of(const LabelDecl* decl) {
    const auto [entry, is_new] = labels_.emplace(decl, next_label_);
    if (is_new) next_label_++;
    return entry->second;
}

// The loop pragmas between the last loop and this one.
void lowering::emit_pragmas(SourceLocation where) {
    const SourceLocation loop = sources_.getExpansionLoc(where);
    for (source_pragma& pragma : pragmas_) {
        if (pragma.used || !pragma.symbol.empty()) continue;
        const SourceLocation at = sources_.getExpansionLoc(pragma.where);
        if (sources_.getFileID(at) != sources_.getFileID(loop) ||
            !(sources_.getFileOffset(at) < sources_.getFileOffset(loop)))
            continue;
        pragma.used = true;
        if (sources_.getFileOffset(at) <
            sources_.getFileOffset(sources_.getExpansionLoc(function_->getBeginLoc())))
            continue;
        body_record record{};
        record.id = REC_PRAGMA;
        record.pragma = pool_.new_pragma(pragma.kind, pragma.args);
        body_.push_back(record);
    }
}

// --- Scopes.

void lowering::declare_local(const VarDecl* decl, std::vector<symbol*>& out) {
    where_ = decl->getLocation();
    if (!decl->isLocalVarDecl() || decl->hasExternalStorage()) {
        symbol_of(decl);
        return;
    }
    if (decl->isStaticLocal()) {
        symbol* s = symbol_of(decl);
        add_pragma(s, PRAG_SCOPING_FUNC, {function_symbol_->name});
        define_variable(decl, s);
        return;
    }
    TYPE* type = type_of(static_cast<const ValueDecl*>(decl));
    symbol* s = new_local(decl->getName().str(), type,
                          decl->getStorageClass() == clang::SC_Register ? ::SC_REGISTER : ::SC_AUTO,
                          decl->getLocation());
    attribute_pragmas(decl, s);
    symbols_[decl] = s;
    out.push_back(s);
}

// The variables that a block declares itself, also behind labels and cases.
void lowering::collect_locals(const Stmt* stmt, std::vector<symbol*>& out) {
    if (stmt == nullptr) return;
    if (const auto* decls = dyn_cast<DeclStmt>(stmt)) {
        for (const Decl* decl : decls->decls())
            if (const auto* variable = dyn_cast<VarDecl>(decl)) declare_local(variable, out);
    } else if (const auto* label = dyn_cast<LabelStmt>(stmt)) {
        collect_locals(label->getSubStmt(), out);
    } else if (const auto* kase = dyn_cast<SwitchCase>(stmt)) {
        collect_locals(kase->getSubStmt(), out);
    } else if (const auto* attributed = dyn_cast<AttributedStmt>(stmt)) {
        collect_locals(attributed->getSubStmt(), out);
    }
}

void lowering::open_block(SourceLocation where, const std::vector<symbol*>& symbols) {
    body_record record{};
    record.id = REC_BEGIN_BLOCK;
    record.has_psn = true;
    record.psn = position(where);
    body_.push_back(record);
    for (symbol* s : symbols) {
        body_record declaration{};
        declaration.id = REC_SYMBOL;
        declaration.symbol = s;
        body_.push_back(declaration);
    }
}

void lowering::close_block(SourceLocation where) {
    body_record record{};
    record.id = REC_END_BLOCK;
    record.has_psn = true;
    record.psn = position(where);
    body_.push_back(record);
}

void lowering::block(const CompoundStmt* stmt, bool is_body) {
    std::vector<symbol*> symbols;
    for (const Stmt* s : stmt->body()) collect_locals(s, symbols);
    if (is_body) {
        outer_locals_.insert(outer_locals_.end(), symbols.begin(), symbols.end());
        for (const Stmt* s : stmt->body()) statement(s);
        return;
    }
    if (!symbols.empty()) open_block(stmt->getLBracLoc(), symbols);
    for (const Stmt* s : stmt->body()) statement(s);
    if (!symbols.empty()) close_block(stmt->getRBracLoc());
}

void lowering::local_variable(const VarDecl* decl) {
    if (decl->hasGlobalStorage() || decl->getInit() == nullptr) return;
    symbol* s = symbols_[decl];
    if (decl->isInvalidDecl() || s == nullptr) return;
    std::vector<tree*> effects;
    // Storing the initial value is no assignment to a const object.
    initialise(name(s), decl->getInit(), s->type, effects);
    for (tree* effect : effects) emit(effect, decl->getLocation());
}

void lowering::declarations(const DeclStmt* stmt) {
    for (const Decl* decl : stmt->decls()) {
        if (const auto* variable = dyn_cast<VarDecl>(decl))
            local_variable(variable);
        else if (const auto* assertion = dyn_cast<StaticAssertDecl>(decl))
            static_assertion(assertion);
        else if (const auto* function = dyn_cast<FunctionDecl>(decl))
            symbol_of(function);
    }
}

// --- Control.

void lowering::lower_if(const IfStmt* first) {
    // A chain of else-if is walked, since it may be long.
    const unsigned end = new_label();
    for (const IfStmt* stmt = first; stmt != nullptr;) {
        const Stmt* otherwise = stmt->getElse();
        const unsigned next = otherwise != nullptr ? new_label() : end;
        emit_test(stmt->getCond(), next, stmt->getIfLoc());
        statement(stmt->getThen());
        if (otherwise == nullptr) break;
        emit_jump(end, stmt->getElseLoc());
        emit_label(next);
        stmt = dyn_cast<IfStmt>(otherwise);
        if (stmt == nullptr) statement(otherwise);
    }
    emit_label(end);
}

void lowering::lower_loop(const Stmt* init, const Expr* cond, const Expr* step, const Stmt* body,
                          bool test_first, SourceLocation where) {
    std::vector<symbol*> symbols;
    collect_locals(init, symbols);
    if (!symbols.empty()) open_block(where, symbols);
    if (init != nullptr) statement(init);
    emit_pragmas(where);
    const unsigned top = new_label(), next = new_label(), end = new_label();
    break_labels_.push_back(end);
    continue_labels_.push_back(next);
    const auto known = cond != nullptr ? evaluate_integer(cond) : std::optional<std::int64_t>(1);
    emit_label(top);
    if (test_first) {
        if (!known || *known == 0) emit_test(cond, end, where);
        statement(body);
        emit_label(next);
        if (step != nullptr) emit(effects(step), step->getExprLoc());
        emit_jump(top, where);
    } else {
        statement(body);
        emit_label(next);
        if (!known) emit_test(cond, end, cond->getExprLoc());
        if (!known || *known != 0) emit_jump(top, where);
    }
    emit_label(end);
    break_labels_.pop_back();
    continue_labels_.pop_back();
    if (!symbols.empty()) close_block(where);
}

void lowering::lower_switch(const SwitchStmt* stmt) {
    tree* selector = value(stmt->getCond());
    const unsigned end = new_label();
    TYPE* type = selector->type->stqs();
    // The parser chains the cases from last to first.
    std::vector<const SwitchCase*> cases;
    for (const SwitchCase* c = stmt->getSwitchCaseList(); c != nullptr; c = c->getNextSwitchCase())
        cases.push_back(c);
    tree* list = nullptr;
    tree* otherwise = nullptr;
    unsigned count = 0;
    const auto append = [&](tree* item) {
        list = list == nullptr ? item : make(op::COMMA, int_, list, item);
    };
    for (auto c = cases.rbegin(); c != cases.rend(); ++c) {
        const unsigned label = new_label();
        case_labels_[*c] = label;
        const auto* kase = dyn_cast<CaseStmt>(*c);
        if (kase == nullptr) {
            otherwise = make(op::DEFAULT, int_, label_ref(label));
            continue;
        }
        const auto low = evaluate_integer(kase->getLHS());
        const auto high = kase->getRHS() != nullptr ? evaluate_integer(kase->getRHS()) : low;
        if (!low || !high) {
            refuse(kase->getCaseLoc(), "case label is not a constant");
            continue;
        }
        if (*high - *low >= MAX_CASE_RANGE) refuse(kase->getCaseLoc(), "case range is too long");
        for (std::int64_t v = *low; v <= *high && v - *low < MAX_CASE_RANGE; v++) {
            append(make(op::CASE, int_, icon(type, v), label_ref(label)));
            count++;
        }
    }
    if (otherwise != nullptr) append(otherwise);
    if (list == nullptr) {
        emit(selector, stmt->getSwitchLoc());
        emit_jump(end, stmt->getSwitchLoc());
    } else {
        tree* t = make(op::SWITCH, int_, selector, list);
        t->value = count;
        emit(t, stmt->getSwitchLoc());
        if (otherwise == nullptr) emit_jump(end, stmt->getSwitchLoc());
    }
    break_labels_.push_back(end);
    statement(stmt->getBody());
    break_labels_.pop_back();
    emit_label(end);
}

void lowering::lower_return(const ReturnStmt* stmt) {
    const Expr* result = stmt->getRetValue();
    if (result == nullptr || result->getType()->isVoidType()) {
        if (result != nullptr) emit(effects(result), stmt->getReturnLoc());
        emit(make(op::URETURN, types_.mk_void(), name(function_symbol_)), stmt->getReturnLoc());
        return;
    }
    tree* v = value(result);
    TYPE* type = function_symbol_->type->return_type()->stqs();
    emit(make(op::RETURN, type, name(function_symbol_), v), stmt->getReturnLoc());
}

void lowering::lower_asm(const GCCAsmStmt* stmt) {
    if (stmt->getNumInputs() != 0 || stmt->getNumOutputs() != 0 || stmt->getNumClobbers() != 0 ||
        stmt->isAsmGoto()) {
        refuse(stmt->getAsmLoc(), "asm operands are not supported");
        return;
    }
    body_record record{};
    record.id = REC_INLINE_ASM;
    record.has_psn = true;
    record.psn = position(stmt->getAsmLoc());
    record.text = stmt->getAsmString()->getBytes().str();
    body_.push_back(record);
}

void lowering::statement(const Stmt* stmt) {
    if (stmt == nullptr) return;
    where_ = stmt->getBeginLoc();
    switch (stmt->getStmtClass()) {
        case Stmt::NullStmtClass: break;
        case Stmt::CompoundStmtClass: block(cast<CompoundStmt>(stmt), false); break;
        case Stmt::DeclStmtClass: declarations(cast<DeclStmt>(stmt)); break;
        case Stmt::IfStmtClass: lower_if(cast<IfStmt>(stmt)); break;
        case Stmt::WhileStmtClass: {
            const auto* loop = cast<WhileStmt>(stmt);
            lower_loop(nullptr, loop->getCond(), nullptr, loop->getBody(), true, loop->getWhileLoc());
            break;
        }
        case Stmt::DoStmtClass: {
            const auto* loop = cast<DoStmt>(stmt);
            lower_loop(nullptr, loop->getCond(), nullptr, loop->getBody(), false, loop->getDoLoc());
            break;
        }
        case Stmt::ForStmtClass: {
            const auto* loop = cast<ForStmt>(stmt);
            lower_loop(loop->getInit(), loop->getCond(), loop->getInc(), loop->getBody(), true,
                       loop->getForLoc());
            break;
        }
        case Stmt::SwitchStmtClass: lower_switch(cast<SwitchStmt>(stmt)); break;
        case Stmt::CaseStmtClass:
        case Stmt::DefaultStmtClass: {
            // A run of labels nests: each is the statement of the one before.
            const Stmt* inner = stmt;
            while (const auto* label = dyn_cast<SwitchCase>(inner)) {
                emit_label(case_labels_[label]);
                inner = label->getSubStmt();
            }
            statement(inner);
            break;
        }
        case Stmt::BreakStmtClass: emit_jump(break_labels_.back(), stmt->getBeginLoc()); break;
        case Stmt::ContinueStmtClass: emit_jump(continue_labels_.back(), stmt->getBeginLoc()); break;
        case Stmt::GotoStmtClass:
            emit_jump(label_of(cast<GotoStmt>(stmt)->getLabel()), stmt->getBeginLoc());
            break;
        case Stmt::LabelStmtClass:
            emit_label(label_of(cast<LabelStmt>(stmt)->getDecl()));
            statement(cast<LabelStmt>(stmt)->getSubStmt());
            break;
        case Stmt::AttributedStmtClass: statement(cast<AttributedStmt>(stmt)->getSubStmt()); break;
        case Stmt::ReturnStmtClass: lower_return(cast<ReturnStmt>(stmt)); break;
        case Stmt::GCCAsmStmtClass: lower_asm(cast<GCCAsmStmt>(stmt)); break;
        case Stmt::IndirectGotoStmtClass:
            refuse(stmt->getBeginLoc(), "computed goto is not supported");
            break;
        default:
            if (const auto* expr = dyn_cast<Expr>(stmt))
                emit(effects(expr), expr->getExprLoc());
            else
                refuse(stmt->getBeginLoc(),
                       std::string("statement of kind ") + stmt->getStmtClassName() + " is not supported");
            break;
    }
}
