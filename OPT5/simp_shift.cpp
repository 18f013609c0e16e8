// Shifts by constants.

#include "bbutils.h"
#include "congruent.h"
#include "erase.h"
#include "fold.h"
#include "known_bits.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "simp.h"
#include "simp_rules.h"
#include "types.h"

using namespace op;

bool shift_count_is_legal_and_nontrivial_for_type(const INT65& count, TYPE* type) {
    const int most = type_width(type) - (type->is_signed() ? 2 : 1);
    return INT65::from_signed(1) <= count && count <= INT65::from_signed(most);
}

namespace {

bool is_legal(const INT65& count, TYPE* type) {
    return !count.is_negative() && count < INT65::from_signed(type_width(type));
}

// (x op1 k1) op2 k2, both shifts of one type; null where nothing comes of it.
NODE* merge_shifts(NODE* node, ::LOOP* loop) {
    NODE* left = node->left;
    NODE* right = node->right;
    TYPE* type = node->type;
    if ((left->op != SLL && left->op != SRL) || left->right->op != ICON ||
        !same_representation(left->type, type))
        return nullptr;
    const int width = type_width(type);
    const INT65 inner = left->right->u.lval, outer = right->u.lval;
    if (!is_legal(inner, type)) return nullptr;
    const int k1 = static_cast<int>(inner.low), k2 = static_cast<int>(outer.low);
    if (left->op == node->op) {
        int count = k1 + k2;
        if (count >= width) {
            if (node->op == SLL || !type->is_signed()) {
                NODE* x = take_left(take_left(node));
                return known_value(x, INT65::from_signed(0), type, loop);
            }
            count = width - 1;
        }
        TYPE* count_type = promoted_type(right->type);
        node->left = left->left;
        erase_node(left->right);
        erase_node(left);
        right->u.lval = INT65::from_signed(count);
        right->type = right->otype = count_type;
        return simp_node(node, loop);
    }
    if (!shift_count_is_legal_and_nontrivial_for_type(inner, type) ||
        !shift_count_is_legal_and_nontrivial_for_type(outer, type))
        return nullptr;
    INT65 mask;
    if (node->op == SRL) {
        // (x << k1) >> k2 keeps the sign of what it cuts off: only without a sign it is a mask.
        if (type->is_signed()) return nullptr;
        mask = type_mask(type) >> k2;
    } else {
        mask = -(INT65::from_signed(1) << k2);
    }
    const int rest = k2 - k1;
    NODE* operand = left->left;
    if (rest == 0) {
        erase_node(left->right);
        erase_node(left);
    } else {
        // What remains of both is a shift in the direction of the greater count.
        left->op = rest > 0 ? node->op : left->op;
        left->right->u.lval = INT65::from_signed(rest > 0 ? rest : -rest);
        operand = simp_node(left, loop);
    }
    node->op = ANDB;
    node->left = converted(operand, type, loop);
    right->u.lval = truncate_to_type(mask, type);
    right->type = right->otype = type;
    return simp_node(node, loop);
}

} // namespace

NODE* simp_shift(NODE* node, ::LOOP* loop) {
    NODE* left = node->left;
    NODE* right = node->right;
    TYPE* type = node->type;
    if (!type->is_integral() || !left->type->is_integral()) return node;
    if (is_icon(left, 0)) {
        erase_node(left);
        erase_node(node);
        return known_value(right, INT65::from_signed(0), type, loop);
    }
    if (right->op != ICON || !is_legal(right->u.lval, type) || left->type->size() != type->size())
        return node;
    if (node->op == SRL && left->type->is_signed() != type->is_signed()) return node;
    const int count = static_cast<int>(right->u.lval.low);
    if (count == 0) return converted(take_left(node), type, loop);
    if (NODE* merged = merge_shifts(node, loop); merged != nullptr) return merged;
    // Masks come out to the top.
    if ((left->op == ANDB || left->op == ORB || left->op == XORB) && left->right->op == ICON &&
        same_representation(left->type, type) &&
        shift_count_is_legal_and_nontrivial_for_type(right->u.lval, type)) {
        NODE* constant = left->right;
        const int outer = left->op;
        const INT65 k = truncate_to_type(constant->u.lval, type);
        node->left = left->left;
        erase_node(left);
        constant->u.lval = truncate_to_type(node->op == SLL ? k << count : k >> count, type);
        constant->type = constant->otype = type;
        return build(outer, simp_node(node, loop), constant, type, loop);
    }
    // (x * k1) << k2
    if (node->op == SLL && left->op == MULT && left->right->op == ICON &&
        !left->right->u.lval.is_negative() && same_representation(left->type, type)) {
        NODE* constant = left->right;
        constant->u.lval = truncate_to_type(constant->u.lval << count, type);
        constant->type = constant->otype = type;
        node->op = MULT;
        node->left = left->left;
        erase_node(left);
        erase_node(right);
        node->right = constant;
        return simp_node(node, loop);
    }
    // Nothing but zeros remains.
    const INT65 bits = find_known_zeros(left, type);
    const bool all_out =
        node->op == SLL ? (bits << count & type_mask(type)).is_zero() : (bits >> count).is_zero();
    if (all_out) {
        erase_node(right);
        erase_node(node);
        return known_value(left, INT65::from_signed(0), type, loop);
    }
    return node;
}
