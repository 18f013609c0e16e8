// The copy becomes part of the caller:
//
//     symbols       parameters and locals are plain locals of the caller's outermost scope, temporaries get
//                   fresh names
//     scopes        hang under the scope of the call
//     exceptions    the table of the callee is appended to the caller's; what would leave the callee goes on
//     at
//                   the region of the call
//     RETURN v      becomes target = v and a BRANCH to the block behind the call
//     the end       becomes that BRANCH too
//
// Variables of callees that are called one after the other never live together, so they take part in the
// sharing of the frame where it is known what is live around the call: in the outermost scope of a function
// none of whose inner scopes has noted variables.

#include "splice_callee.h"

#include <algorithm>
#include <cstddef>
#include <string>

#include "bblk.h"
#include "bbutils.h"
#include "block_builder.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "fold.h"
#include "ls.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "pool.h"
#include "psnmap.h"
#include "seq_trees.h"
#include "simp.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

constexpr int OUTERMOST_LOCALS = 2;
constexpr unsigned FIXED_ENTRIES = 2; // of every exception table

std::vector<NODE*> arguments_of(const NODE* call) {
    std::vector<NODE*> arguments;
    for (NODE* list = call->op == CALL ? call->right : nullptr; list != nullptr;) {
        arguments.push_back(list->op == COMMA ? list->right : list);
        list = list->op == COMMA ? list->left : nullptr;
    }
    std::reverse(arguments.begin(), arguments.end());
    return arguments;
}

std::size_t length(const SYMTAB* list) {
    std::size_t count = 0;
    for (; list != nullptr; list = list->next) count++;
    return count;
}

// What is passed, out of the call. Consumes the argument.
NODE* value_of_argument(NODE* argument) {
    if (argument->op != STARG && argument->op != ACONV) return argument;
    NODE* value = argument->left;
    if (argument->op == ACONV) value = coerce_to_type(value, argument->type);
    argument->left = nullptr;
    erase_node(argument);
    return value;
}

// A temporary's name is "$O$", a letter and a number.
void give_fresh_name(SYMTAB* symbol) {
    if (!is_internal_symbol(symbol) || !is_optimizer_temp(symbol->name, symbol->name[3], symbol->name[3]))
        return;
    const std::string name = std::string(symbol->name, 4) + std::to_string(currfuninfo->next_temp++);
    symbol->name = intern_text(name);
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
            symbol->level = OUTERMOST_LOCALS;
            if (is_automatic(symbol)) {
                symbol->sclass = symbol->class_as_read = SC_AUTO;
                symbol->flags |= SF_REGISTER_CANDIDATE;
            }
            give_fresh_name(symbol);
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

// --- Exceptions.

// Appends the copied table. Returns by how much the ids of its entries have grown.
unsigned CALLEE_SPLICER::merge_table(CFG_COPY& copy, unsigned region) {
    if (copy.eht.size() <= FIXED_ENTRIES) return 0;
    std::vector<EHT_ENTRY>& table = currfuninfo->eht;
    if (table.empty()) table.assign(copy.eht.begin(), copy.eht.begin() + FIXED_ENTRIES);
    const auto offset = static_cast<unsigned>(table.size()) - FIXED_ENTRIES;
    for (std::size_t i = FIXED_ENTRIES; i < copy.eht.size(); i++) {
        EHT_ENTRY entry = std::move(copy.eht[i]);
        OPTASSERT(entry.kind != EHK_CATCH);
        entry.first += offset;
        if (entry.kind == EHK_TERMINATE) {
            entry.third = 1;
        } else {
            entry.third = entry.third > 1 ? entry.third + offset : region > 0 ? region : 1;
        }
        table.push_back(std::move(entry));
    }
    return offset;
}

// --- Blocks.

void CALLEE_SPLICER::adjust_calls(NODE* tree) {
    const unsigned depth = std::min(call_->inline_depth() + 1, NF_INLINE_DEPTH >> 16);
    walk_tree(tree, [&](NODE* node) {
        if (node->op != CALL && node->op != UCALL) return;
        node->set_inline_depth(depth);
        node->u2.i_eht_id = node->u2.i_eht_id > 1 ? node->u2.i_eht_id + offset_ : region_;
    });
}

// The cell's RETURN as an assignment of the value, or its effects, and a BRANCH.
void CALLEE_SPLICER::replace_return(LIST* cell) {
    NODE* value = cell->first->right;
    cell->first->right = nullptr;
    erase_tree(cell->first);
    if (target_ != nullptr) {
        value = coerce_to_type(coerce_to_type(value, call_->type), target_->type);
        value = simp_tree(mk_ASG(mk_NAME(target_, target_->scope), value), nullptr);
    } else {
        value = peel_for_effect(value);
    }
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
        adjust_calls(cell->first);
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
    std::vector<NODE*> arguments = arguments_of(call);
    // The assignments of the prolog, by parameter; null where there is none.
    LIST* first = copy.first->statements;
    std::unordered_map<const SYMTAB*, NODE*> prolog;
    if (tree_is_arg_prolog(first->first)) {
        for (NODE *tree = first->first, *rest; tree != nullptr; tree = rest) {
            const bool is_chain = tree->op == PCOMMA;
            rest = is_chain ? tree->left : nullptr;
            NODE* assignment = is_chain ? tree->right : tree;
            if (is_chain) {
                tree->left = tree->right = nullptr;
                erase_node(tree);
            }
            assignment->flags &= ~NF_RECEIVES_PARAMETER;
            prolog.emplace(assignment->left->symbol(), assignment);
        }
        copy.first->statements = first->next;
        POOL::recycle(first, sizeof(LIST));
    }
    std::size_t i = 0;
    for (SYMTAB* parameter = copy.params; i < arguments.size(); i++) {
        NODE* value = value_of_argument(arguments[i]);
        if (parameter == nullptr) { // the callee ignores it
            value = peel_for_effect(value);
            if (value != nullptr) builder.append(simp_tree(value, nullptr));
            continue;
        }
        const auto received = prolog.find(parameter);
        NODE* assignment = received != prolog.end() ? received->second : nullptr;
        if (assignment == nullptr) {
            assignment = mk_ASG(mk_NAME(parameter, parameter->scope), coerce_to_type(value, parameter->type));
        } else {
            NODE** place = &assignment->right;
            while ((*place)->left != nullptr) place = &(*place)->left;
            NODE* arriving = *place;
            *place = arriving->type->is_scalar() ? coerce_to_type(value, arriving->type) : value;
            erase_node(arriving);
        }
        builder.append(simp_tree(assignment, nullptr));
        parameter = parameter->next;
    }
    // What remains of the call: the list, the name of the function.
    for (NODE* list = call->op == CALL ? call->right : nullptr; list != nullptr && list->op == COMMA;) {
        NODE* rest = list->left;
        list->left = list->right = nullptr;
        erase_node(list);
        list = rest->op == COMMA ? rest : nullptr;
    }
    erase_tree(call->left);
    call->left = call->right = nullptr;
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
    region_ = call->u2.i_eht_id;
    INSTANCE instance;
    merge_scopes(copy, call, instance, block);
    merge_notes(definition, copy, instance, block);
    offset_ = merge_table(copy, region_);
    for (std::size_t i = FIXED_ENTRIES; i < copy.eht.size(); i++)
        adjust_calls(static_cast<NODE*>(currfuninfo->eht[i + offset_].tree));
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
