// The copy becomes part of the caller:
//
//     symbols       parameters and locals are plain locals of the caller's outermost scope, temporaries get
//                   fresh names
//     scopes        hang under the scope of the call
//     exceptions    the table of the callee is appended to the caller's; what would leave the callee goes on
//                   at the region of the call
//     RETURN v      becomes target = v and a BRANCH to the block behind the call
//     the end       becomes that BRANCH too
//
// Variables of callees that are called one after the other never live together, so they take part in the
// sharing of the frame where it is known what is live around the call: in the outermost scope of a function
// none of whose inner scopes has noted variables.

#include "splice_callee.h"

#include <algorithm>
#include <cstddef>

#include "bblk.h"
#include "bbutils.h"
#include "bind_call.h"
#include "block_builder.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "fold.h"
#include "ls.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "pool.h"
#include "psnmap.h"
#include "seq_trees.h"
#include "simp.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

std::size_t length(const SYMTAB* list) {
    std::size_t count = 0;
    for (; list != nullptr; list = list->next) count++;
    return count;
}

} // namespace

CALLEE_SPLICER::CALLEE_SPLICER() {
    // Whether an inner scope of the caller has variables of note.
    const std::vector<STACK_SHARING::SCOPE>& scopes = currfuninfo->stack_sharing.scopes;
    const bool is_plain = std::all_of(scopes.begin() + (scopes.empty() ? 0 : 1), scopes.end(),
                                      [](const auto& scope) { return scope.variables.empty(); });
    instances_.push_back({LS::level_2_scope(currfuninfo), is_plain && !scopes.empty() ? 0 : -1});
}

int CALLEE_SPLICER::instance_of(const BBLK* block) const {
    return block->id < instance_of_.size() ? instance_of_[block->id] : 0;
}

LS* CALLEE_SPLICER::scope_of(const BBLK* block) const {
    return instances_[static_cast<std::size_t>(instance_of(block))].scope;
}

bool CALLEE_SPLICER::can_bind(const NODE* call, const FUNINFO* callee) {
    const std::vector<NODE*> arguments = arguments_of(call);
    if (std::any_of(arguments.begin(), arguments.end(), [](const NODE* a) { return a->op == ARGREF; }))
        return false;
    return arguments.size() >= length(callee->integrable_cfg->params);
}

// --- Symbols and scopes.

void CALLEE_SPLICER::merge_symbols(CFG_COPY& copy) {
    for (SYMTAB* list : {copy.params, copy.locals, copy.temps})
        for (SYMTAB *symbol = list, *next; symbol != nullptr; symbol = next) {
            next = symbol->next;
            make_local_of_caller(symbol);
            if (list == copy.temps) {
                symbol->next = currfuninfo->temps;
                currfuninfo->temps = symbol;
            } else {
                sym_def(symbol);
            }
        }
}

void CALLEE_SPLICER::merge_scopes(CFG_COPY& copy, const NODE* call, INSTANCE& instance, const BBLK* block) {
    LS* outer = scope_of(block);
    if (outer == nullptr || copy.scopes == nullptr) return;
    // The file's scope stays behind: the function's own goes under the call's.
    for (LS *scope = copy.scopes->children, *next; scope != nullptr; scope = next) {
        next = scope->sibling;
        instance.scope = scope->children != nullptr ? scope->children : scope;
        outer->splice_scope(scope, static_cast<int>(call->unique_call_index));
    }
}

void CALLEE_SPLICER::merge_notes(const FUNINFO* definition, const CFG_COPY& copy, INSTANCE& instance,
                                 const BBLK* block) {
    const int outer = instances_[static_cast<std::size_t>(instance_of(block))].notes;
    const std::vector<STACK_SHARING::SCOPE>& noted = definition->stack_sharing.scopes;
    if (outer < 0 || noted.empty()) return;
    std::vector<STACK_SHARING::SCOPE>& scopes = currfuninfo->stack_sharing.scopes;
    const int first = static_cast<int>(scopes.size());
    bool is_plain = true;
    for (std::size_t i = 0; i < noted.size(); i++) {
        const STACK_SHARING::SCOPE& scope = noted[i];
        STACK_SHARING::SCOPE added{scope.level, scope.parent < 0 ? outer : first + scope.parent, {}};
        for (const SYMTAB* symbol : scope.variables) {
            const auto place = copy.symbols.find(symbol);
            if (place != copy.symbols.end()) added.variables.push_back(place->second);
        }
        is_plain = is_plain && (i == 0 || added.variables.empty());
        scopes.push_back(std::move(added));
    }
    if (is_plain) instance.notes = first;
}

// --- Blocks.

// The cell's RETURN as an assignment of the value, or its effects, and a BRANCH.
void CALLEE_SPLICER::replace_return(LIST* cell) {
    NODE* value = cell->first->right;
    cell->first->right = nullptr;
    erase_tree(cell->first);
    value = returned_value(value, call_, target_);
    NODE* branch = mk_BRANCH(behind_, nullptr);
    if (value == nullptr) {
        cell->first = branch;
    } else {
        cell->first = value;
        cell->next = mkelist(branch, nullptr, cell->psn);
    }
}

void CALLEE_SPLICER::adjust_block(BBLK* bb) {
    const bool is_dead = is_never_executed(bb);
    bool any_return = false;
    for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
        psnmap_add(cell->psn, callee_);
        adjust_copied_calls(cell->first, call_, call_->u2.i_eht_id, offset_);
        if (!opcode_is_transfer(cell->first->op)) continue;
        const int op = cell->first->op;
        if (is_dead) {
            // Made a BRANCH to the caller's end as edges are derived.
            erase_tree(cell->first);
            cell->first = maketree(URETURN, mk_NAME(currfunc), nullptr, tp->void_type(), nullptr);
        } else if (op == RETURN) {
            replace_return(cell);
            any_return = true;
            break;
        } else if (op == URETURN) {
            erase_tree(cell->first);
            cell->first = mk_BRANCH(behind_, nullptr);
        }
    }
    if (any_return && target_ == nullptr) bb->statements = promote_toplevel_COMMAOPs_in_list(bb->statements);
}

// --- Arguments.

void CALLEE_SPLICER::bind_arguments(BLOCK_BUILDER& builder, NODE* call, CFG_COPY& copy) {
    LIST* first = copy.first->statements;
    PROLOG prolog;
    if (tree_is_arg_prolog(first->first)) {
        prolog = take_prolog_apart(first->first);
        copy.first->statements = first->next;
        POOL::recycle(first, sizeof(LIST));
    }
    SYMTAB* parameter = copy.params;
    for (NODE* value : take_arguments(call)) {
        if (parameter != nullptr) {
            builder.append(assignment_to_parameter(prolog, parameter, value));
            parameter = parameter->next;
        } else if (NODE* effect = peel_for_effect(value); effect != nullptr) { // the callee ignores it
            builder.append(simp_tree(effect, nullptr));
        }
    }
}

// --- The whole.

void CALLEE_SPLICER::integrate(BLOCK_BUILDER& builder, NODE* call, FUNINFO* callee, SYMTAB* target,
                               const BBLK* block) {
    const FUNINFO* definition = callee->integrable_cfg.get();
    CFG_COPY copy = copy_cfg(definition, currfuninfo);
    call_ = call;
    callee_ = callee->symbol;
    target_ = target;
    behind_ = BLOCK_BUILDER::make_block();
    INSTANCE instance;
    merge_scopes(copy, call, instance, block);
    merge_notes(definition, copy, instance, block);
    offset_ = append_exception_table(std::move(copy.eht), call);
    currfuninfo->has_no_calls = currfuninfo->has_no_calls && definition->has_no_calls;
    currfuninfo->names_register_symbol |= definition->names_register_symbol;
    currfuninfo->fields_seen += definition->fields_seen;
    psnref_add(callee_);

    instance_of_.resize(currfuninfo->blocks.size());
    const int number = static_cast<int>(instances_.size());
    bind_arguments(builder, call, copy);
    for (BBLK* bb = copy.first; bb != nullptr; bb = bb->next) {
        adjust_block(bb);
        instance_of_[bb->id] = number;
    }
    instances_.push_back(instance);
    merge_symbols(copy);
    builder.branch(copy.first);
    builder.place(copy.first, copy.last);
    builder.start(behind_);
    erase_node(call);
}
