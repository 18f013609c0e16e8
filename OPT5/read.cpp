#include "read.h"

#include <cstring>

#include "bad_input.h"
#include "bblk.h"
#include "bbutils.h"
#include "buildcfg.h"
#include "copyprop.h"
#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "fl_statics.h"
#include "if_file.h"
#include "initialiser.h"
#include "instrument.h"
#include "integrate.h"
#include "integrate_stmts.h"
#include "ls.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "pool.h"
#include "pragma.h"
#include "seq_trees.h"
#include "simp.h"
#include "simpcfg.h"
#include "stack_sharing.h"
#include "symbol.h"
#include "synonyms.h"
#include "target_bif.h"
#include "types.h"
#include "verify.h"

OPT_CLIENT opt_client;

void OPT_CLIENT::set_here(const PSN* psn) {
    has_here_ = psn != nullptr;
    if (has_here_) here_ = *psn;
}

void OPT_CLIENT::need_function(const char* what) {
    if (currfunc == nullptr) bad_input(nullptr, "%s outside a function", what);
}

// --- Symbols.

BASE_NODE* OPT_CLIENT::cl_new_node(int op, TYPE* type) { return new_node(op, type); }

void OPT_CLIENT::cl_option_set(unsigned number, const std::vector<std::string>& words) {
    icode_optionlist.push_back({number, words});
}

namespace {

// What a function symbol says of its record as soon as it is read.
void note_function_symbol(SYMTAB* symbol) {
    FUNINFO* function = make_FUNINFO(symbol);
    const bool outside =
        symbol->sclass == SC_AUTO || (no_outside_callers == 0 && symbol->sclass != SC_STATIC);
    if (symbol->retention == I_SYMTAB::ALWAYS || (symbol->retention == I_SYMTAB::DEFAULT_C && outside))
        function->flags |= FUN_is_referenced;
    if ((symbol->cqual & CQ_INTERRUPT) != 0) function->flags |= FUN_is_interrupt;
}

} // namespace

I_SYMTAB* OPT_CLIENT::cl_symbol_create(const SYMBOL_RECORD& record) {
    if (record.level != 0) need_function("a local symbol");
    SYMTAB* symbol = mk_symbol(record);
    if (symbol->sclass == SC_VARARG) {
        symbol->sclass = SC_PARM;
        if (currfuninfo != nullptr)
            currfuninfo->flags |= FUN_cannot_beta | FUN_cannot_inline | FUN_cannot_suppress;
    }
    sym_def(symbol);
    if (symbol->level == 0) {
        if (symbol->otype->is_func()) note_function_symbol(symbol);
    } else if (currfuninfo->open_scope != nullptr) {
        currfuninfo->open_scope->add_symbol(symbol);
        add_stack_sharing_variable(symbol);
    }
    return symbol;
}

void opt_process_pragma(SYMTAB* symbol, PRAGMA* pragma) {
    if (symbol->level != 0 || !symbol->otype->is_func()) return;
    FUNINFO* function = make_FUNINFO(symbol);
    switch (pragma->kind) {
        case PRAG_INTERRUPT:
        case PRAG_INTR_FUNC:
        case PRAG_TRAP_FUNC:
        case PRAG_NMI_INTERRUPT: function->flags |= FUN_is_interrupt; return;
        case PRAG_FUNC_CANNOT_INLINE: function->flags |= FUN_cannot_inline; return;
        case PRAG_FUNC_EXT_CALLED:
        case PRAG_SYM_IS_REFERENCED:
        case PRAG_FUNC_IN_INIT_ARRAY:
        case PRAG_RETAIN: function->flags |= FUN_is_referenced; return;
        case PRAG_SRC_LANGUAGE:
            if (!pragma->args.empty() && pragma->args[0] == "C++") note_file_is_cpp(function);
            return;
        case PRAG_FUNC_IS_NONCONFORMING:
            // A library name with another meaning: nothing is known of it. What it is stays.
            function->flags &=
                FUN_is_main | FUN_is_referenced | FUN_is_interrupt | FUN_is_cpp | FUN_is_cg_root;
            function->is_nonconforming = true;
            return;
        default: break;
    }
    if (cache_sys_funinfo == 0 || function->is_nonconforming) return;
    switch (pragma->kind) {
        case PRAG_FUNC_NEVER_RETURNS: function->flags |= FUN_never_returns; break;
        case PRAG_FUNC_NO_GLOBAL_ASG: function->flags |= FUN_no_global_asg; break;
        case PRAG_FUNC_NO_IND_ASG: function->flags |= FUN_no_ind_asg; break;
        case PRAG_FUNC_IS_PURE: function->flags |= FUN_is_pure_fun; break;
        case PRAG_FUNC_IS_SYSTEM: function->flags |= FUN_is_SYSTEM; break;
        default: break;
    }
}

void OPT_CLIENT::cl_pragma(I_SYMTAB* owner, PRAGMA* pragma) {
    if (owner != nullptr) {
        auto* symbol = static_cast<SYMTAB*>(owner);
        pragma->next = symbol->pragmas;
        symbol->pragmas = pragma;
        if (symbol->level != 0) currfuninfo->owned_pragmas.push_back(pragma);
        opt_process_pragma(symbol, pragma);
    } else if (currfunc != nullptr) {
        auto* statement = new NODE(op::PPRAGMA, tp->void_type());
        statement->u.rval = pragma;
        currfuninfo->owned_pragmas.push_back(pragma);
        append(statement, nullptr);
    } else {
        if (pragma->kind == PRAG_SRC_LANGUAGE && !pragma->args.empty() && pragma->args[0] == "C++")
            note_file_is_cpp(nullptr);
        if (o_file != nullptr) o_file->if_write_pragma(pragma);
        delete pragma;
    }
}

void OPT_CLIENT::cl_symbol_init(I_SYMTAB* owner, INIT_TREES&& trees) {
    auto* symbol = static_cast<SYMTAB*>(owner);
    if (symbol->init != nullptr) bad_input(symbol->psn, "symbol %s has two initialisers", symbol->name);
    for (BASE_NODE* tree : trees) {
        NODE* value = name_cleanup(static_cast<NODE*>(tree));
        scan_initialiser(value);
        append_to_initialiser(symbol->init, value);
    }
}

// --- Functions.

void OPT_CLIENT::cl_begin_func(I_SYMTAB* owner, const PSN* psn) {
    auto* symbol = static_cast<SYMTAB*>(owner);
    if (currfunc != nullptr) bad_input(psn, "another function begins inside it");
    if (symbol == nullptr || symbol->level != 0 || !symbol->otype->is_func())
        bad_input(psn, "the body of %s, which is no function",
                  symbol != nullptr ? symbol->name : "a null symbol");
    FUNINFO* function = make_FUNINFO(symbol);
    if (function->is_defined) bad_input(psn, "function %s has two bodies", symbol->name);
    currfunc = symbol;
    currfuninfo = function;
    function->symbol = symbol;
    function->return_type = symbol->otype->return_type();
    function->psn = mk_psn(psn);
    function->source_file = psn == nullptr ? "NO_PSN_FILE" : psn->file == nullptr ? "NO_FILE" : psn->file;
    labels_ = {}; // a fresh table: clearing costs as much as the largest function so far
    label_numbers_.clear();
    set_here(psn);
    lex_ = 1;
    is_first_expr_ = true;
    args_ended_ = false;
    init_stack_sharing();
    LS::open(function); // the file's scope
    LS::open(function);
}

void OPT_CLIENT::cl_end_args(const PSN* psn) {
    need_function("an end of arguments");
    if (args_ended_) bad_input(psn, "a second end of arguments");
    args_ended_ = true;
    currfuninfo->args_psn = mk_psn(psn);
    lex_++;
    LS::open(currfuninfo);
    begin_stack_sharing_scope(lex_);
}

void OPT_CLIENT::cl_end_locals(const PSN* psn) {
    need_function("an end of locals");
    currfuninfo->locals_psn = mk_psn(psn);
}

void OPT_CLIENT::cl_begin_block(const PSN*) {
    need_function("a block");
    lex_++;
    LS::open(currfuninfo);
    begin_stack_sharing_scope(lex_);
}

void OPT_CLIENT::cl_end_block(const PSN* psn) {
    need_function("the end of a block");
    if (lex_ <= 2) bad_input(psn, "the end of a block that is not open");
    lex_--;
    LS::close(currfuninfo);
    end_stack_sharing_scope();
}

void OPT_CLIENT::append(NODE* statement, const PSN* psn) {
    currfuninfo->statements = mkelist(statement, currfuninfo->statements, psn);
}

void OPT_CLIENT::cl_expr(BASE_NODE* tree, const PSN* psn) {
    need_function("a statement");
    set_here(psn);
    LBL* behind = nullptr;
    NODE* statement = expr_cleanup(static_cast<NODE*>(tree), behind);
    if (is_first_expr_ && currfuninfo->params != nullptr && statement != nullptr) mark_arg_prolog(statement);
    is_first_expr_ = false;
    if (statement != nullptr) append(statement, psn);
    if (behind != nullptr) append(mk_LABELDEF(behind), nullptr);
}

LBL* OPT_CLIENT::label_of_file(unsigned number) {
    FILE_LABEL& entry = labels_[number];
    if (entry.label == nullptr) {
        entry.label = currfuninfo->labels =
            mklabel(static_cast<int>(number & 0x7fffffffu), currfuninfo->labels, nullptr);
        entry.first_line = has_here_ ? here_.line : 0;
        label_numbers_.push_back(number);
    }
    return entry.label;
}

LBL* OPT_CLIENT::fresh_label() {
    return currfuninfo->labels = mklabel(next_internal_label(), currfuninfo->labels, nullptr);
}

void OPT_CLIENT::cl_label(unsigned number) {
    need_function("a label");
    LBL* label = label_of_file(number);
    FILE_LABEL& entry = labels_[number];
    if (entry.defined) bad_input(here(), "label %u is defined twice", number);
    entry.defined = true;
    append(mk_LABELDEF(label), nullptr);
}

void OPT_CLIENT::append_text(int record, const char* text, const PSN* psn) {
    auto* statement = new NODE(op::ASM, tp->void_type());
    statement->u.lval = INT65::from_signed(record);
    statement->text = current_pool().copy_text(text);
    append(statement, psn);
}

void OPT_CLIENT::cl_inline_asm(const char* text, const PSN* psn) {
    if (currfunc != nullptr) {
        append_text(REC_INLINE_ASM, text, psn);
    } else {
        note_names_in_assembly(text);
        if (o_file != nullptr) o_file->if_write_assembly(text, psn);
    }
}

void OPT_CLIENT::cl_comment(const char* text) {
    if (currfunc != nullptr) {
        append_text(REC_COMMENT, text, nullptr);
    } else if (o_file != nullptr) {
        o_file->if_write_comment(text);
    }
}

void OPT_CLIENT::cl_func_eht(std::vector<EHT_ENTRY>&& entries) {
    need_function("an exception table");
    currfuninfo->eht = std::move(entries);
    for (EHT_ENTRY& entry : currfuninfo->eht)
        if (entry.tree != nullptr) entry.tree = name_cleanup(static_cast<NODE*>(entry.tree));
}

void OPT_CLIENT::check_labels() {
    for (unsigned number : label_numbers_) {
        const FILE_LABEL& entry = labels_[number];
        if (entry.defined) continue;
        const PSN where{nullptr, entry.first_line, 0};
        bad_input(entry.first_line != 0 ? &where : nullptr, "a jump to label %u, which is not there", number);
    }
}

void OPT_CLIENT::build_flow_graph(const PSN* psn) {
    need_function("an end of function");
    set_here(psn);
    if (!args_ended_) cl_end_args(nullptr);
    if (lex_ > 2) bad_input(psn, "a block is left open");
    check_labels();
    FUNINFO* function = currfuninfo;
    function->end_psn = mk_psn(psn);
    while (LS::close(function)) {
    }
    for (SYMTAB* symbol = function->params; symbol != nullptr; symbol = symbol->next)
        if (symbol->type->is_const()) symbol->type = tp->remove_known_qual(symbol->type, QUAL_CONST);
    for (LIST* cell = function->statements; cell != nullptr; cell = cell->next)
        cell->first = simp_tree(fix_BIF_types(cell->first), nullptr);
    check_for_synonym_function_in_pass_1();
    const bool inline_statements = pass_debug("inline_statements") != 0;
    if (inline_statements) integrate_calls_in_statements();
    check_integrable_definition(function);
    seq_trees();
    if (inline_statements && is_asked_for(function->symbol)) make_integrable_definition(function);
    buildcfg();
}

void OPT_CLIENT::cl_end_func(const PSN* psn) {
    build_flow_graph(psn);
    simpcfg(false, false);
    fast_CP(4, 1);
    FUNINFO* function = currfuninfo;
    preprocess_fundef(function);
    function->is_defined = true;
    functions.push_back(currfunc);
    if (pass_debug("verify_each") != 0) verify_function("reading");
    currfunc = nullptr;
    currfuninfo = fileinfo.root;
    lex_ = 0;
}

void OPT_CLIENT::end_of_input() {
    if (currfunc != nullptr) bad_input(here(), "the file ends inside the function");
    change_fl_statics_to_auto();
    finish_instrumentation();
}
