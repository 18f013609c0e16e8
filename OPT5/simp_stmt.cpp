// The comma operator, calls, and the operators of statements.

#include <utility>
#include <vector>

#include "congruent.h"
#include "erase.h"
#include "files.h"
#include "fold.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "simp.h"
#include "simp_rules.h"
#include "target_bif.h"
#include "types.h"

using namespace op;

namespace {

// `(p = p + k), (p + -k)` is the value of p before the step: a step behind the use. Null for other trees.
NODE* step_behind_use(NODE* node) {
    NODE* step = node->left;
    NODE* value = node->right;
    if (value->op != PLUS || value->right->op != ICON || !value->type->is_ptr()) return nullptr;
    NODE* amount = nullptr;
    if (step->op == PLUSASG) {
        amount = step->right;
    } else if (step->op == ASG && step->right->op == PLUS &&
               trees_are_congruent(step->left, step->right->left)) {
        amount = step->right->right;
    }
    if (amount == nullptr || amount->op != ICON || !trees_are_congruent(step->left, value->left))
        return nullptr;
    const INT65 k1 = sign_extend_by_type_size(amount->u.lval, amount->type);
    const INT65 k2 = sign_extend_by_type_size(value->right->u.lval, value->right->type);
    if (k1 != -k2 || k1.is_zero()) return nullptr;
    NODE* place = step->left;
    NODE* constant = value->right;
    value->right = nullptr;
    erase_tree(value);
    step->left = nullptr;
    erase_tree(step);
    constant->u.lval = k1.is_negative() ? k2 : k1;
    node->op = k1.is_negative() ? MINMIN : PLUSPLUS;
    node->left = place;
    node->right = constant;
    node->type = place->type;
    return node;
}

// The left operand of a comma as effects alone; null where there are none. A comma of type void in that place
// holds nothing else already: so the effects of a long chain are looked at once.
NODE* effects_of(NODE* left) {
    if (left->op != COMMAOP) return peel_for_effect(left);
    if (left->type->is_void()) return left;
    left->right = peel_for_effect(left->right);
    if (left->right == nullptr) {
        NODE* rest = left->left;
        erase_node(left);
        return rest;
    }
    left->type = left->otype = tp->void_type();
    return left;
}

} // namespace

NODE* simp_COMMAOP(NODE* node, ::LOOP* loop) {
    NODE* left = effects_of(node->left);
    NODE* right = node->right;
    if (left == nullptr) {
        erase_node(node);
        return right;
    }
    if (right->op == COMMAOP && !right->type->is_void()) {
        // (a, (b, c)) as ((a, b), c)
        left = maketree(COMMAOP, left, right->left, tp->void_type(), nullptr);
        node->right = right->right;
        erase_node(right);
        right = node->right;
    }
    node->left = left;
    if (!node->type->is_void()) node->type = node->otype = right->type;
    NODE* step = step_behind_use(node);
    return step != nullptr ? simp_node(step, loop) : node;
}

NODE* simp_call(NODE* node, ::LOOP* loop) {
    if (node->op != ICALL) return node;
    NODE* folded = fold_BIF(node);
    if (folded == node) return node;
    // What is new are conversions over an operand, and effects ahead of it.
    std::vector<NODE*> fresh;
    NODE* value = folded;
    for (; value->op == SCONV || value->op == PCONV; value = value->left) fresh.push_back(value);
    if (value->op == COMMAOP) value = simp_node(value, loop);
    for (auto conversion = fresh.rbegin(); conversion != fresh.rend(); ++conversion) {
        (*conversion)->left = value;
        value = simp_node(*conversion, loop);
    }
    return value;
}

NODE* simp_MEMCPY(NODE* node, ::LOOP*) { return node; }

NODE* simp_SWITCH(NODE* node, ::LOOP*) { return node; }

NODE* simp_vector_node(NODE* node, ::LOOP*) { return node; }

NODE* simp_IF(NODE* node, ::LOOP* loop) {
    NODE* condition = simp_for_control(node->left, loop);
    if (condition->op == SCON || condition->op == ICON || condition->op == FCON)
        condition = make_boolean(condition, loop);
    NODE* arms = node->right;
    while (condition->op == EQ && is_icon(condition->right, 0)) {
        std::swap(arms->left, arms->right);
        condition = simp_for_control(take_left(condition), loop);
    }
    node->left = condition;
    return node;
}

NODE* simp_CBRANCH(NODE* node, ::LOOP* loop) {
    if (node->op == BRANCH) {
        node->left->scratch3 = 0;
        return node;
    }
    NODE* condition = simp_for_control(node->left, loop);
    node->left = condition;
    if (condition->op != ICON) return node;
    NODE* label = node->right;
    if (!condition->u.lval.is_zero()) {
        erase_tree(label);
        erase_node(node);
        return condition;
    }
    erase_node(condition);
    node->op = BRANCH;
    node->left = label;
    node->right = nullptr;
    return simp_node(node, loop);
}

NODE* simp_ASSERT(NODE* node, ::LOOP*) {
    // A promise that holds by itself tells nothing.
    NODE* condition = node->left;
    return condition->op == ICON && !condition->u.lval.is_zero() ? take_left(node) : node;
}
