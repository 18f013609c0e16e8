// Masks: AND, OR and XOR.

#include <utility>

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

namespace {

const INT65 ZERO = INT65::from_signed(0);
const INT65 ONE = INT65::from_signed(1);

// The bits of a constant operand of an operation of the type, as a nonnegative number.
INT65 mask_of(const NODE* constant, TYPE* type) { return constant->u.lval & type_mask(type); }

void set_mask(NODE* constant, const INT65& mask, TYPE* type) {
    constant->u.lval = truncate_to_type(mask, type);
    constant->type = constant->otype = type;
}

bool is_complement(const NODE* a, NODE* b) {
    return a->op == NOTB && a->type->size() == b->type->size() && trees_are_congruent(a->left, b);
}

// x & ~x, x | ~x, x ^ ~x: both orders.
bool are_complements(NODE* a, NODE* b) { return is_complement(a, b) || is_complement(b, a); }

// x op x without effects as x.
NODE* take_either(NODE* node, ::LOOP* loop) {
    TYPE* type = node->type;
    return converted(take_left(node), type, loop);
}

// x op (x other y): the operand that holds the other one, and the rest y; null where there is none.
NODE* absorbed(NODE* node, int other) {
    for (const bool right_first : {true, false}) {
        NODE* outer = right_first ? node->left : node->right;
        NODE* inner = right_first ? node->right : node->left;
        if (inner->op == other && inner->type->size() == outer->type->size() && !has_effects(inner) &&
            (trees_are_congruent(inner->left, outer) || trees_are_congruent(inner->right, outer)))
            return outer;
    }
    return nullptr;
}

NODE* take_operand(NODE* node, NODE* operand, ::LOOP* loop) {
    TYPE* type = node->type;
    return converted(operand == node->left ? take_left(node) : take_right(node), type, loop);
}

// ((x & k1) + k2) & k3, where no carry reaches from outside k1 into k3.
bool drop_inner_mask(NODE* node, const INT65& mask, ::LOOP* loop) {
    NODE* sum = node->left;
    if (sum->op != PLUS || sum->right->op != ICON || sum->left->op != ANDB || sum->left->right->op != ICON ||
        !sum->type->is_integral() || sum->type->size() != node->type->size())
        return false;
    if (power_of_2(mask + ONE) < 0 || (mask_of(sum->left->right, sum->type) & mask) != mask) return false;
    NODE* inner = sum->left;
    TYPE* type = sum->type;
    sum->left = converted(take_left(inner), type, loop);
    node->left = simp_node(sum, loop);
    return true;
}

} // namespace

NODE* simp_ANDB(NODE* node, ::LOOP* loop) {
    NODE* result = simp_assoc(node, loop);
    if (result != node || node->op != ANDB || !node->type->is_integral()) return result;
    TYPE* type = node->type;
    for (;;) {
        NODE* left = node->left;
        NODE* right = node->right;
        if (trees_are_congruent(left, right)) return take_either(node, loop);
        if (are_complements(left, right)) {
            erase_tree(node);
            return icon(ZERO, type);
        }
        if (NODE* whole = absorbed(node, ORB); whole != nullptr) return take_operand(node, whole, loop);
        if (right->op != ICON) return node;

        INT65 mask = mask_of(right, type);
        const INT65 first = mask;
        if (is_bit_field(left) && !left->type->is_signed())
            mask = mask & (INT65::from_unsigned((std::uint64_t{1} << left->right->mdata->width) - 1));
        if (returns_1_or_0(left)) mask = mask & ONE;
        // (SCONV x) & k, where k looks only at what x had
        if (left->op == SCONV && left->left->type->is_integral() && left->type->is_integral() &&
            left->type->size() <= 32 && left->left->type->size() == left->type->size() &&
            !left->type->is_bool() && !left->left->type->is_bool()) {
            NODE* inner = left->left;
            erase_node(left);
            node->left = left = inner;
        }
        if (left->op == SRL && left->right->op == ICON && !left->type->is_signed() &&
            !left->right->u.lval.is_negative() && left->right->u.lval < INT65::from_signed(type_width(type)))
            mask = mask & (type_mask(type) >> static_cast<int>(left->right->u.lval.low));
        if (drop_inner_mask(node, mask, loop)) continue;
        // The bits that are asked for below, and those that may be there.
        set_mask(right, mask, type);
        bool changed = false;
        node->left = left = prop_mask_into_subtree(left, mask, &changed);
        if (changed) return simp_node(node, loop);
        const INT65 possible = find_known_zeros(left, type);
        mask = mask & possible;
        if (mask.is_zero()) {
            erase_node(right);
            erase_node(node);
            return known_value(left, ZERO, type, loop);
        }
        if (mask == possible) return converted(take_left(node), type, loop);
        set_mask(right, mask, type);
        if (mask == first) return node;
    }
}

NODE* simp_ORB(NODE* node, ::LOOP* loop) {
    NODE* result = simp_assoc(node, loop);
    if (result != node || node->op != ORB || !node->type->is_integral()) return result;
    TYPE* type = node->type;
    NODE* left = node->left;
    NODE* right = node->right;
    if (trees_are_congruent(left, right)) return take_either(node, loop);
    if (are_complements(left, right)) {
        erase_tree(node);
        return icon(INT65::from_signed(-1), type);
    }
    if (NODE* whole = absorbed(node, ANDB); whole != nullptr) return take_operand(node, whole, loop);
    // (x & k1) | (x & k2)
    if (left->op == ANDB && right->op == ANDB && left->right->op == ICON && right->right->op == ICON &&
        same_representation(left->type, type) && same_representation(right->type, type) &&
        trees_are_congruent(left->left, right->left)) {
        set_mask(left->right, mask_of(left->right, type) | mask_of(right->right, type), type);
        return converted(simp_node(take_left(node), loop), type, loop);
    }
    if (right->op != ICON) return node;
    const INT65 mask = mask_of(right, type);
    if (mask.is_zero()) return converted(take_left(node), type, loop);
    if (mask == type_mask(type)) {
        erase_node(right);
        erase_node(node);
        return known_value(left, INT65::from_signed(-1), type, loop);
    }
    if ((find_known_ones(left, type) & mask) == mask) return converted(take_left(node), type, loop);
    // (x & k1) | k2: what k2 sets need not be kept.
    if (left->op == ANDB && left->right->op == ICON && same_representation(left->type, type)) {
        const INT65 inner = mask_of(left->right, type);
        const INT65 kept = inner & ~mask;
        if ((kept | mask) == type_mask(type)) {
            node->left = converted(take_left(left), type, loop);
            return simp_node(node, loop);
        }
        if (kept != inner) {
            set_mask(left->right, kept, type);
            node->left = simp_node(left, loop);
            return simp_node(node, loop);
        }
    }
    return node;
}

NODE* simp_XORB(NODE* node, ::LOOP* loop) {
    NODE* result = simp_assoc(node, loop);
    if (result != node || node->op != XORB || !node->type->is_integral()) return result;
    TYPE* type = node->type;
    NODE* left = node->left;
    NODE* right = node->right;
    if (trees_are_congruent(left, right)) {
        erase_tree(node);
        return icon(ZERO, type);
    }
    if (are_complements(left, right)) {
        erase_tree(node);
        return icon(INT65::from_signed(-1), type);
    }
    // ~x ^ y, with the complement on the top
    for (const bool is_left : {true, false}) {
        NODE*& place = is_left ? node->left : node->right;
        NODE* operand = place;
        if (operand->op != NOTB || !operand->type->is_integral() || operand->type->size() != type->size())
            continue;
        if (!is_left && right->op == ICON) continue;
        place = converted(operand->left, type, loop);
        erase_node(operand);
        return build(NOTB, simp_node(node, loop), nullptr, type, loop);
    }
    if (right->op != ICON) return node;
    const INT65 mask = mask_of(right, type);
    if (mask.is_zero()) return converted(take_left(node), type, loop);
    if (mask == type_mask(type)) {
        erase_node(right);
        node->op = NOTB;
        node->right = nullptr;
        return simp_node(node, loop);
    }
    // The other truth value
    if (mask == ONE && boolean_inv[left->op] != ILLOP) {
        left->op = boolean_inv[left->op];
        return converted(simp_node(take_left(node), loop), type, loop);
    }
    return node;
}
