#include "unsimplify.h"

#include <algorithm>
#include <vector>

#include "bblk.h"
#include "bbutils.h"
#include "congruent.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "pool.h"
#include "simp.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

void drop_next(LIST* cell) {
    LIST* next = cell->next;
    cell->next = next->next;
    POOL::recycle(next, sizeof(LIST));
}

bool masks_by_constant(const NODE* tree) { return tree->op == ANDBASG && tree->right->op == ICON; }

} // namespace

void fold_ANDBASGs() {
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            while (masks_by_constant(cell->first) && cell->next != nullptr &&
                   masks_by_constant(cell->next->first) &&
                   same_representation(cell->first->right->type, cell->next->first->right->type) &&
                   trees_are_congruent(cell->first->left, cell->next->first->left)) {
                NODE* constant = cell->first->right;
                constant->u.lval = constant->u.lval & cell->next->first->right->u.lval;
                erase_tree(cell->next->first);
                drop_next(cell);
            }
}

namespace {

// --- Chains of constants.

// An assignment of 0, or of 1 without a sign, to a place without effects; false for others.
bool assigns_chain_constant(const NODE* tree) {
    if (tree->op != ASG || tree->right->op != ICON || !tree->left->type->is_integral()) return false;
    const INT65& value = tree->right->u.lval;
    return value.is_zero() || (value == INT65::from_signed(1) && tree->left->type->is_unsigned());
}

// Whether the place is a variable whose storage is as wide as its value: its assignment's value is the
// constant.
bool is_plain_place(NODE* place) { return place->op == NAME && !tree_has_side_effects(place); }

void chain_constants(LIST* list) {
    for (LIST* cell = list; cell != nullptr; cell = cell->next)
        while (cell->next != nullptr && assigns_chain_constant(cell->first) &&
               assigns_chain_constant(cell->next->first) && is_plain_place(cell->first->left) &&
               is_plain_place(cell->next->first->left) &&
               cell->first->left->type == cell->next->first->left->type &&
               cell->first->right->u.lval == cell->next->first->right->u.lval) {
            // x = k; y = k as y = (x = k)
            NODE* outer = cell->next->first;
            erase_tree(outer->right);
            outer->right = cell->first;
            cell->first = outer;
            drop_next(cell);
            break; // a chain of two: longer ones hold a register for longer
        }
}

// --- Values with one use.

// A local whose uses are all to be seen.
bool is_private(const SYMTAB* symbol) {
    return symbol->level >= 2 && is_automatic(symbol) && !symbol->otype->is_volatile() &&
           symbol->type->is_scalar();
}

void count_uses() {
    const auto count = [](NODE* tree) {
        walk_tree(tree, [](NODE* node) {
            if (node->op == UAND && node->left->op == NAME) node->left->symbol()->use_count = 0xfff0;
            if (node->op == NAME && node->symbol()->use_count < 0xfff0) node->symbol()->use_count++;
        });
    };
    for (const SYMTAB* list : {currfuninfo->locals, currfuninfo->temps})
        for (SYMTAB* symbol = const_cast<SYMTAB*>(list); symbol != nullptr; symbol = symbol->next)
            symbol->use_count = 0;
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) count(cell->first);
    for (const EHT_ENTRY& entry : currfuninfo->eht)
        if (entry.tree != nullptr) count(static_cast<NODE*>(entry.tree));
}

// The place of the one use of the symbol in a statement whose only effect is its last act; null where the
// statement is of another kind, or where the value would be computed only sometimes there.
NODE** find_sole_use(NODE* statement, const SYMTAB* symbol) {
    NODE** start = nullptr;
    switch (statement->op) {
        case ASG:
            if (tree_is_arg_prolog(statement) || tree_has_side_effects(statement->left) ||
                statement->left->op != NAME)
                return nullptr;
            start = &statement->right;
            break;
        case RETURN: start = &statement->right; break;
        case IF:
        case SWITCH: start = &statement->left; break;
        default: return nullptr;
    }
    if (tree_has_side_effects(*start)) return nullptr;
    std::vector<NODE**> pending{start};
    while (!pending.empty()) {
        NODE** place = pending.back();
        pending.pop_back();
        NODE* node = *place;
        if (node->op == NAME && node->symbol() == symbol) return place;
        const bool conditional = node->op == ANDAND || node->op == OROR || node->op == QUEST;
        if (node->op == UAND) continue;
        if (node->right != nullptr && !conditional) pending.push_back(&node->right);
        if (node->left != nullptr) pending.push_back(&node->left);
    }
    return nullptr;
}

void move_to_sole_uses(LIST* list) {
    for (LIST* cell = list; cell != nullptr; cell = cell->next) {
        while (cell->next != nullptr && cell->first->op == ASG && cell->first->left->op == NAME &&
               !tree_is_arg_prolog(cell->first)) {
            NODE* assignment = cell->first;
            const SYMTAB* symbol = assignment->left->symbol();
            if (!is_private(symbol) || symbol->use_count != 2 || tree_has_side_effects(assignment->right) ||
                !same_representation(assignment->left->type, assignment->right->type) ||
                assignment->left->type->is_ptr() != assignment->right->type->is_ptr())
                break;
            NODE** use = find_sole_use(cell->next->first, symbol);
            if (use == nullptr) break;
            erase_node(*use);
            *use = assignment->right;
            erase_node(assignment->left);
            erase_node(assignment);
            cell->first = cell->next->first;
            if (cell->psn == nullptr) cell->psn = cell->next->psn;
            drop_next(cell);
        }
    }
}

// x + -k as x - k
void write_differences(NODE* tree) {
    walk_tree(tree, [](NODE* node) {
        if (node->op != PLUS && node->op != PLUSASG) return;
        NODE* constant = node->right;
        if (constant->op != ICON || !constant->type->is_signed() || !constant->u.lval.is_negative() ||
            constant->u.lval == int_type_min(constant->type))
            return;
        node->op = node->op == PLUS ? MINUS : MINUSASG;
        constant->u.lval = -constant->u.lval;
    });
}

// Variables by falling alignment, so that no space is lost between them; otherwise in their order.
void sort_stack_variables() {
    std::vector<SYMTAB*> locals;
    for (SYMTAB* symbol = currfuninfo->locals; symbol != nullptr; symbol = symbol->next)
        locals.push_back(symbol);
    std::stable_sort(locals.begin(), locals.end(), [](const SYMTAB* a, const SYMTAB* b) {
        return a->level < b->level || (a->level == b->level && a->align > b->align);
    });
    SYMTAB** link = &currfuninfo->locals;
    for (SYMTAB* symbol : locals) {
        *link = symbol;
        link = &symbol->next;
    }
    *link = nullptr;
    currfuninfo->locals_tail = locals.empty() ? nullptr : locals.back();
}

} // namespace

void unsimplify() {
    renumber_bblocks();
    count_uses();
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        move_to_sole_uses(bb->statements);
        chain_constants(bb->statements);
        for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next) write_differences(cell->first);
    }
    sort_stack_variables();
}
