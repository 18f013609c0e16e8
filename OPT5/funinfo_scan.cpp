// What a function's trees say of it: effects on memory, size, calls.
//
// Every function starts optimistic, with all "does not" flags set, and each node takes away what it proves
// wrong. Globals collect their marks (referenced, written, address taken) on the way; marks are never taken
// back, so they are right for every part of the file that may still be written.

#include <cctype>
#include <string>
#include <vector>

#include "bblk.h"
#include "bbutils.h"
#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "pragma.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

constexpr std::uint32_t ALL_EFFECTS = FUN_no_ind_use | FUN_no_ind_asg | FUN_is_pure_fun | FUN_no_byref_asg |
                                      FUN_no_global_asg | FUN_no_global_use;
constexpr std::uint32_t INDIRECT_STORE = FUN_no_byref_asg | FUN_is_pure_fun | FUN_no_ind_asg;

// The variable that the lvalue certainly lies in, null when it is reached through a pointer.
SYMTAB* known_object(const NODE* lvalue) {
    for (const NODE* node = lvalue; node != nullptr;) {
        switch (node->op) {
            case NAME: return node->symbol();
            case STDOT: node = node->left; break;
            case UMULT:
            case STREF:
                if (node->left->op != UAND) return nullptr;
                node = node->left->left;
                break;
            default: return nullptr;
        }
    }
    return nullptr;
}

void note_anonymous(SYMTAB* symbol) {
    FUNINFO* function = make_FUNINFO(symbol);
    function->address_uses++;
    if (TEST_FLAG(function, FUN_is_interrupt)) return;
    if ((symbol->cqual & CQ_INTERRUPT) != 0) {
        function->flags |= FUN_is_interrupt;
        return;
    }
    if (TEST_FLAG(function, FUN_is_anonymous)) return;
    function->flags |= FUN_is_anonymous;
    fileinfo.anonymous.push_back(function);
}

// What one tree or several say of a function. With `marks_only` nothing but the marks of globals is taken
// from them: the record stays as it is.
class SCAN {
  public:
    explicit SCAN(FUNINFO* function, bool marks_only = false) : f_(function), marks_only_(marks_only) {}
    // `conditional` tells that the tree may be left out when control passes.
    void run(NODE* tree, bool stmt_level, bool in_prolog, bool conditional = false);

  private:
    struct ITEM {
        NODE* node;
        bool discarded; // the value is not used
        bool in_prolog;
        bool free;        // adds nothing to the size
        bool conditional; // may be left out when its statement is reached
    };

    void clear(std::uint32_t flags) {
        if (!marks_only_) f_->flags &= ~flags;
    }
    void push(NODE* node, const ITEM& parent) {
        if (node != nullptr)
            pending_.push_back({node, false, parent.in_prolog, parent.free, parent.conditional});
    }
    void push_operands(const ITEM& item) {
        push(item.node->right, item);
        push(item.node->left, item);
    }
    void visit(ITEM item);
    void note_fl_static(SYMTAB* symbol);
    void visit_object(SYMTAB* symbol);
    void visit_name(const NODE* node);
    void visit_indirect(const ITEM& item);
    void visit_address(const ITEM& item);
    void visit_target(NODE* target, const ITEM& item);
    void visit_call(const ITEM& item);
    void visit_arguments(NODE* arguments, const ITEM& item, bool argrefs_are_targets);
    void visit_text(const NODE* node);
    bool costs_nothing(const ITEM& item) const;

    FUNINFO* f_;
    const bool marks_only_;
    std::vector<ITEM> pending_;
};

void SCAN::note_fl_static(SYMTAB* symbol) {
    if (marks_only_ || symbol->sclass != SC_STATIC || symbol->scanned_by == f_ ||
        !symbol_has_pragma(symbol, PRAG_SCOPING_FUNC))
        return;
    symbol->scanned_by = f_;
    f_->fl_statics.push_back(symbol);
}

void SCAN::visit_object(SYMTAB* symbol) {
    if (symbol->level == 0) {
        symbol->cqual |= CQ_REFERENCED;
        clear(FUN_no_global_use);
        note_fl_static(symbol);
    }
    if (!is_immutable(symbol) && (symbol->level == 0 || symbol->otype->is_volatile())) clear(FUN_is_pure_fun);
}

void SCAN::visit_name(const NODE* node) {
    SYMTAB* symbol = node->symbol();
    if (!symbol->otype->is_func()) {
        visit_object(symbol);
    } else if (symbol->level == 0) {
        symbol->cqual |= CQ_REFERENCED;
        if (!marks_only_) note_anonymous(symbol);
    }
}

void SCAN::visit_indirect(const ITEM& item) {
    const NODE* node = item.node;
    if (SYMTAB* object = known_object(node)) {
        if (!object->otype->is_func()) visit_object(object);
    } else {
        const NODE* pointer = node->left;
        if (pointer->op != NAME || pointer->symbol()->name[0] != '.') clear(FUN_no_ind_use | FUN_is_pure_fun);
    }
    if (node_is_volatile_access(node)) clear(FUN_is_pure_fun);
    push(node->left, item);
}

// UAND and ARGREF: the operand is not read.
void SCAN::visit_address(const ITEM& item) {
    NODE* object = item.node->left;
    while (object != nullptr && object->op == STDOT) object = object->left;
    if (object == nullptr) return;
    if (object->op == NAME) {
        SYMTAB* symbol = object->symbol();
        if (symbol->otype->is_func()) {
            visit_name(object);
        } else if (symbol->level == 0) {
            symbol->cqual |= CQ_REFERENCED | CQ_ADDRESS_TAKEN;
            note_fl_static(symbol);
            // What becomes of the address is not followed.
            clear(FUN_no_global_use | FUN_no_global_asg | FUN_is_pure_fun);
        }
    } else if (object->op == UMULT || object->op == STREF) {
        push(object->left, item);
    } else {
        push(object, item);
    }
}

void SCAN::visit_target(NODE* target, const ITEM& item) {
    NODE* object = target;
    while (object != nullptr && (object->op == STDOT || object->op == ARGREF)) object = object->left;
    if (SYMTAB* symbol = known_object(target->op == ARGREF ? target->left : target)) {
        if (symbol->level == 0) {
            symbol->cqual |= CQ_REFERENCED | CQ_WRITTEN;
            note_fl_static(symbol);
            clear(FUN_is_pure_fun | FUN_no_global_asg);
        }
        if (symbol->otype->is_volatile()) clear(FUN_is_pure_fun);
    } else {
        clear(INDIRECT_STORE);
    }
    if (object == nullptr || object->op == NAME) return;
    if (node_is_volatile_access(object)) clear(FUN_is_pure_fun);
    if (object->op == UMULT || object->op == STREF) {
        push(object->left, item);
    } else {
        push(object, item);
    }
}

void SCAN::visit_arguments(NODE* arguments, const ITEM& item, bool argrefs_are_targets) {
    while (arguments != nullptr) {
        NODE* argument = arguments->op == COMMA ? arguments->right : arguments;
        NODE* rest = arguments->op == COMMA ? arguments->left : nullptr;
        if (argrefs_are_targets && argument->op == ARGREF) {
            // The intrinsic reads and writes the place, and keeps no address.
            if (!item.free && !marks_only_) f_->size++;
            visit_target(argument, item);
            if (SYMTAB* object = known_object(argument->left)) {
                visit_object(object);
            } else {
                clear(FUN_no_ind_use);
            }
        } else {
            push(argument, item);
        }
        arguments = rest;
    }
}

int count_arguments(const NODE* call) {
    if (call->op == UCALL) return 0;
    int count = 1;
    for (const NODE* list = call->right; list != nullptr && list->op == COMMA; list = list->left) count++;
    return count;
}

void SCAN::visit_call(const ITEM& item) {
    NODE* call = item.node;
    visit_arguments(call->op == CALL ? call->right : nullptr, item, false);
    SYMTAB* symbol = get_callee_for_call(call);
    const bool is_direct = symbol != nullptr && symbol->level == 0;
    if (is_direct) {
        symbol->cqual |= CQ_REFERENCED;
    } else {
        push(call->left, item);
    }
    if (marks_only_) return;
    call->call_owner = f_;
    call->unique_call_index = ++f_->unique_call_index;
    if (is_direct) {
        FUNINFO* callee = make_FUNINFO(symbol);
        const int count = count_arguments(call);
        if (callee->nCallers == 0) {
            callee->nArgs = static_cast<std::int16_t>(count <= 32767 ? count : -1);
        } else if (callee->nArgs != count) {
            callee->nArgs = -1;
        }
        add_call_edge(f_, callee, item.discarded, !item.conditional);
        merge_callee_effects(f_, callee);
        return;
    }
    f_->flags |= FUN_calls_anonymous | FUN_calls_OUTSIDE;
    fileinfo.flags |= FILE_calls_may_leave;
    add_call_edge(f_, fileinfo.root, item.discarded, !item.conditional);
    merge_callee_effects(f_, nullptr);
}

void SCAN::visit_text(const NODE* node) {
    if (is_comment(node)) return;
    note_names_in_assembly(node->text);
    clear(ALL_EFFECTS);
    if (!marks_only_ && !symbol_has_pragma(f_->symbol, PRAG_INLINE))
        f_->flags |= FUN_cannot_inline | FUN_cannot_suppress;
}

bool SCAN::costs_nothing(const ITEM& item) const {
    const NODE* node = item.node;
    switch (node->op) {
        case NAME: {
            const SYMTAB* symbol = node->symbol();
            return (symbol->cqual & CQ_REGISTER) != 0 ||
                   (symbol->sclass == SC_AUTO && (symbol->flags & SF_ADDRESS_TAKEN) == 0);
        }
        case PLUS: return node->left->op == UAND && node->right->op == ICON;
        case SWITCH:
        case COMMA:
        case PCOMMA:
        case COMMAOP:
        case PCONV:
        case BRANCH:
        case OUIALIGN:
        case NONALIGN:
        case PPRAGMA:
        case IF:
        case LABEL: return true;
        case STDOT: return node->left->op == UMULT;
        case SCONV: return item.in_prolog && f_->symbol->otype->func().proto;
        case ACONV: return tp->compatible_types(node->type, node->left->type, true);
        case ASM: return is_comment(node);
        default: return false;
    }
}

void SCAN::visit(ITEM item) {
    NODE* node = item.node;
    if (!marks_only_ && !item.free && !costs_nothing(item)) f_->size++;
    if (opcode_is_ASG(node->op)) {
        visit_target(node->left, item);
        // An assign-op reads its target as well.
        if (op_of_opASG[node->op] != ILLOP || node->op == PLUSPLUS || node->op == MINMIN) {
            if (SYMTAB* object = known_object(node->left)) {
                visit_object(object);
            } else {
                clear(FUN_no_ind_use);
            }
        }
        push(node->right, item);
        return;
    }
    switch (node->op) {
        case NAME: visit_name(node); return;
        case PLUS:
            if (node->left->op == UAND && node->right->op == ICON) {
                push(node->left, item);
                return;
            }
            break;
        case UMULT:
        case STREF: visit_indirect(item); return;
        case UAND:
        case ARGREF: visit_address(item); return;
        case RETURN: push(node->right, item); return;
        case URETURN:
        case LABEL:
        case FIELD:
        case LABELDEF: return;
        case PCOMMA: item.in_prolog = true; break;
        case SWITCH:
        case COMMA:
        case COMMAOP:
        case PCONV:
        case BRANCH:
        case OUIALIGN:
        case NONALIGN:
        case PPRAGMA:
        case IF: item.in_prolog = false; break;
        case CALL:
        case UCALL: visit_call(item); return;
        case NASSERT: item.free = true; break;
        case ASSERT:
        case UMCALL:
            clear(FUN_is_pure_fun);
            push(node->left, item);
            return;
        case MEMCPY:
            if (!marks_only_) add_call_edge(f_, make_FUNINFO("memcpy"), item.discarded, !item.conditional);
            clear(FUN_no_ind_use | INDIRECT_STORE);
            break;
        case MCALL:
            visit_arguments(node->left, item, true);
            clear(FUN_is_pure_fun);
            return;
        case ASM: visit_text(node); return;
        // Only one of the alternatives, or nothing, is evaluated.
        case ANDAND:
        case OROR:
        case QUEST: {
            push(node->left, item);
            item.conditional = true;
            push(node->right, item);
            return;
        }
        default: break;
    }
    push_operands(item);
}

void SCAN::run(NODE* tree, bool stmt_level, bool in_prolog, bool conditional) {
    if (tree == nullptr) return;
    pending_.push_back({tree, stmt_level, in_prolog, false, conditional});
    while (!pending_.empty()) {
        const ITEM item = pending_.back();
        pending_.pop_back();
        visit(item);
    }
}

void mark_initialiser(NODE* tree) {
    walk_tree(tree, [](NODE* node) {
        if (node->op == NAME) node->symbol()->cqual |= CQ_REFERENCED | CQ_ADDRESS_TAKEN;
    });
}

} // namespace

void scan_for_funinfo(NODE* tree, bool stmt_level, FUNINFO* function, bool in_prolog) {
    SCAN(function).run(tree, stmt_level, in_prolog);
}

void scan_for_calls_and_uses(NODE* tree) {
    walk_tree(tree, [](NODE* node) {
        if (node->op == NAME && node->symbol()->level == 0) node->symbol()->cqual |= CQ_VISIBLE;
        if (SYMTAB* callee = get_callee_for_call(node)) make_FUNINFO(callee)->flags |= FUN_cannot_suppress;
    });
}

void scan_initialiser(NODE* tree) {
    mark_initialiser(tree);
    walk_tree(tree, [](NODE* node) {
        if (node->op != NAME) return;
        SYMTAB* symbol = node->symbol();
        if (symbol->otype->is_func() && symbol->level == 0) note_anonymous(symbol);
    });
}

void note_names_in_assembly(const char* text) {
    const auto is_part = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '$' || c == '.';
    };
    if (text == nullptr) return;
    std::string name;
    for (const char* at = text;; at++) {
        if (is_part(*at)) {
            name += *at;
            continue;
        }
        if (!name.empty()) {
            // The assembler's name may have a prefix that the symbol's has not.
            fileinfo.asm_names.insert(intern_text(name));
            fileinfo.asm_names.insert(intern_text(skip_name_prefix(name.c_str())));
        }
        name.clear();
        if (*at == '\0') return;
    }
}

void mark_names_in_assembly() {
    if (fileinfo.asm_names.empty()) return;
    for (SYMTAB* symbol = global_symbols; symbol != nullptr; symbol = symbol->next) {
        if (!fileinfo.asm_names.contains(symbol->name)) continue;
        symbol->cqual |= CQ_VISIBLE;
        if (symbol->otype->is_func()) make_FUNINFO(symbol)->flags |= FUN_is_referenced | FUN_cannot_suppress;
    }
}

void add_marks_of_body(FUNINFO* function) {
    SCAN scan(function, true);
    for (const BBLK* bb = function->bb_list; bb != nullptr; bb = bb->next)
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            scan.run(cell->first, true, false);
    for (const EHT_ENTRY& entry : function->eht) scan.run(static_cast<NODE*>(entry.tree), true, false);
}

namespace {

// What a symbol must be taken for whatever the trees say.
std::uint16_t standing_marks(const SYMTAB* symbol) {
    return symbol->retention == I_SYMTAB::ALWAYS || symbol == errno_symbol ? CQ_VISIBLE : 0;
}

// All declarations and definitions of one external name are one object.
void share_marks_by_name() {
    const auto one_object = [](SYMTAB* symbol) -> SYMTAB* {
        if (symbol->sclass != SC_EXTERN && symbol->sclass != SC_EXTDEF) return symbol;
        SYMTAB* known = find_external_symbol(symbol->name);
        return known != nullptr ? known : symbol;
    };
    for (SYMTAB* symbol = global_symbols; symbol != nullptr; symbol = symbol->next)
        one_object(symbol)->cqual |= symbol->cqual & CQ_VISIBLE;
    for (SYMTAB* symbol = global_symbols; symbol != nullptr; symbol = symbol->next)
        symbol->cqual |= one_object(symbol)->cqual & CQ_VISIBLE;
}

} // namespace

void derive_marks_of_globals() {
    for (SYMTAB* symbol = global_symbols; symbol != nullptr; symbol = symbol->next)
        symbol->cqual = static_cast<std::uint16_t>((symbol->cqual & ~CQ_VISIBLE) | standing_marks(symbol));
    for (FUNINFO* function : fileinfo.ordered)
        if (function != fileinfo.root) add_marks_of_body(function);
    for (const SYMTAB* symbol = global_symbols; symbol != nullptr; symbol = symbol->next) {
        if (symbol->init == nullptr) continue;
        const EXPR_LIST* cell = symbol->init;
        do {
            mark_initialiser(cell->tree);
            cell = cell->next;
        } while (cell != symbol->init);
    }
    mark_names_in_assembly();
    share_marks_by_name();
}

void add_call_edge(FUNINFO* caller, FUNINFO* callee, bool value_is_discarded, bool is_certain) {
    if (callee->nCallers != 0xffff) callee->nCallers++;
    callee->flags |= FUN_is_called;
    if (!value_is_discarded) callee->flags |= FUN_value_needed;
    if (TEST_FLAG(callee, FUN_is_main)) whole_file_mode = 0;
    if (callee->last_caller == caller) {
        callee->last_edge->ncalls++;
        callee->last_edge->is_certain |= is_certain;
    } else {
        auto* edge = static_cast<CALL_EDGE*>(record_pool().allocate_cell(sizeof(CALL_EDGE)));
        *edge = {callee, 1, caller->callees, is_certain};
        caller->callees = callee->last_edge = edge;
        callee->last_caller = caller;
    }
    if (is_certain && TEST_FLAG(caller, FUN_has_1_BB) && TEST_FLAG(callee, FUN_never_returns)) {
        caller->flags |= FUN_never_returns;
        caller->flags &= ~FUN_is_pure_fun;
    }
}

void merge_callee_effects(FUNINFO* caller, const FUNINFO* callee) {
    if (callee == nullptr) {
        caller->flags &= ~ALL_EFFECTS;
        return;
    }
    const auto lacks = [callee](std::uint32_t flag) { return !TEST_FLAG(callee, flag); };
    std::uint32_t gone = 0;
    if (lacks(FUN_no_byref_asg)) gone |= FUN_no_byref_asg | FUN_no_ind_asg;
    if (lacks(FUN_no_ind_asg)) gone |= FUN_no_ind_asg;
    if (lacks(FUN_no_ind_use)) gone |= FUN_no_ind_use;
    if (lacks(FUN_no_global_asg)) gone |= FUN_no_global_asg;
    if (lacks(FUN_no_global_use)) gone |= FUN_no_global_use;
    if (lacks(FUN_is_pure_fun)) gone |= FUN_is_pure_fun;
    caller->flags &= ~gone;
}

namespace {

void note_kind_of_function(FUNINFO* f) {
    if (TEST_FLAG(f, FUN_is_main | FUN_is_interrupt | FUN_is_referenced)) {
        f->flags |= FUN_is_cg_root;
        fileinfo.flags |= FILE_has_entry;
    }
    if (TEST_FLAG(f, FUN_is_main)) fileinfo.flags |= FILE_has_main;
    if (f->symbol->sclass == SC_EXTDEF || f->symbol->sclass == SC_EXTERN) {
        f->flags |= FUN_is_extern;
        fileinfo.flags |= FILE_has_extern;
    }
    // The exit block is no part of the body.
    if (f->bb_count <= 2) f->flags |= FUN_has_1_BB;
}

} // namespace

void preprocess_fundef(FUNINFO* f) {
    fileinfo.defined.push_back(f);
    if (pass_debug("no_beta") != 0) f->flags |= FUN_cannot_beta;
    note_kind_of_function(f);
    const std::uint32_t promised = f->flags & (FUN_no_byref_asg | FUN_no_ind_asg);
    f->flags |= FUN_no_ind_use | FUN_no_ind_asg | FUN_no_byref_asg | FUN_no_global_asg | FUN_no_global_use;
    if (!TEST_FLAG(f, FUN_never_returns)) f->flags |= FUN_is_pure_fun;
    f->size = 0;
    f->unique_call_index = 0;
    SCAN scan(f);
    for (BBLK* bb = f->bb_list; bb != nullptr; bb = bb->next)
        for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            scan.run(cell->first, true, tree_is_arg_prolog(cell->first));
    for (EHT_ENTRY& entry : f->eht) {
        auto* tree = static_cast<NODE*>(entry.tree);
        if (entry.kind != EHK_EXPR || tree == nullptr) continue;
        scan.run(tree, true, false, true);
        scan_for_calls_and_uses(tree);
    }
    if (f->eht.size() > 2)
        f->size +=
            static_cast<std::int32_t>(f->eht.size() - 1) * (tp->int_type(IK_INT)->size() == 16 ? 4 : 2);
    f->flags |= promised; // what a pragma says outranks the trees
    if (TEST_FLAG(f, FUN_no_ind_asg)) f->flags |= FUN_no_byref_asg;
    if (symbol_is_preemptible(f->symbol) || symbol_has_pragma(f->symbol, PRAG_NORVANE_WEAK)) {
        // The linker may take another body.
        f->flags &=
            ~(FUN_never_returns | ALL_EFFECTS | FUN_no_RPT_loop | FUN_is_SYSTEM | FUN_has_1_BB | 1u << 25);
        f->flags |= FUN_calls_OUTSIDE | FUN_calls_SYSTEM;
    }
}
