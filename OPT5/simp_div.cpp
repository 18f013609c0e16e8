// Division and remainder.

#include <numeric>
#include <utility>

#include "congruent.h"
#include "debug.h"
#include "erase.h"
#include "fold.h"
#include "fpsmath.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "simp.h"
#include "simp_rules.h"
#include "types.h"
#include "valrange.h"

using namespace op;

namespace {

const INT65 ZERO = INT65::from_signed(0);
const INT65 ONE = INT65::from_signed(1);

// x / c as x * (1/c), where the reciprocal is exact or the options do not ask for it.
NODE* divide_by_constant(NODE* node, ::LOOP* loop) {
    NODE* divisor = node->right;
    simul_fval inverse, product;
    fp_error = 0;
    f_div(&one, divisor->fval(), &inverse);
    truncate_fval_to_target(&inverse, node->type);
    f_mul(&inverse, divisor->fval(), &product);
    if (fp_error != 0 || (strict_fp != 0 && f_ne(&product, &one) != 0)) return node;
    *divisor->fval() = inverse;
    divisor->text = nullptr;
    node->op = MULT;
    return simp_node(node, loop);
}

bool same_integer_type(const NODE* a, const NODE* b) {
    return is_int_or_ptr(a->type) && is_int_or_ptr(b->type) && same_representation(a->type, b->type);
}

// Whether x * k is the same number in the type as without bounds.
bool product_cannot_wrap(NODE* x, const INT65& k, TYPE* type, ::LOOP* loop) {
    if (type_width(type) > 32 || !same_representation(x->type, type)) return false;
    const INT65 a = calculate_minval_for_tree(x, loop) * k, b = calculate_maxval_for_tree(x, loop) * k;
    return value_fits_in_type(a, type) && value_fits_in_type(b, type);
}

// (x / k1) / k2
NODE* merge_divisors(NODE* node, ::LOOP* loop) {
    NODE* left = node->left;
    NODE* right = node->right;
    if (left->op != DIV || left->right->op != ICON || !same_integer_type(left, node)) return nullptr;
    const INT65 k1 = left->right->u.lval, k2 = right->u.lval;
    // x / -1 can wrap.
    if (k1.is_zero() || k2.is_zero() || k1 == INT65::from_signed(-1) || type_width(node->type) > 32)
        return nullptr;
    const INT65 k = k1 * k2;
    if (!value_fits_in_type(k, node->type)) {
        // No value reaches so far; the least one divided by its own negation would.
        if (k == -int_type_min(node->type)) return nullptr;
        NODE* x = take_left(take_left(node));
        return known_value(x, ZERO, x->type, loop);
    }
    right->u.lval = k;
    node->left = left->left;
    erase_node(left->right);
    erase_node(left);
    return simp_node(node, loop);
}

// Rules for a divisor that is an ICON, neither zero nor one; null where none applies.
NODE* divide_by_icon(NODE* node, ::LOOP* loop) {
    NODE* left = node->left;
    NODE* right = node->right;
    TYPE* type = node->type;
    const INT65 k = right->u.lval;
    if (type->is_signed() && k == INT65::from_signed(-1)) {
        erase_node(right);
        node->op = UMINUS;
        node->right = nullptr;
        return simp_node(node, loop);
    }
    if (NODE* merged = merge_divisors(node, loop); merged != nullptr) return merged;
    const INT65 lo = calculate_minval_for_tree(left, loop), hi = calculate_maxval_for_tree(left, loop);
    const INT65 size = k.is_negative() ? -k : k;
    if (hi < size && lo > -size) {
        erase_node(right);
        erase_node(node);
        return known_value(left, ZERO, type, loop);
    }
    if (const int log = power_of_2(k); log >= 0 && !lo.is_negative()) {
        node->op = SRL;
        right->u.lval = INT65::from_signed(log);
        right->type = right->otype = type;
        return simp_node(node, loop);
    }
    return cancel_common_simple_factors(node->left, node->right, loop) ? simp_node(node, loop) : nullptr;
}

} // namespace

bool cancel_common_simple_factors(NODE*& numerator, NODE*& divisor, ::LOOP* loop) {
    if (numerator->op != MULT || numerator->right->op != ICON || divisor->op != ICON ||
        !same_integer_type(numerator, divisor))
        return false;
    const INT65 k1 = numerator->right->u.lval, k2 = divisor->u.lval;
    if (k1.is_zero() || k2.is_zero() || !product_cannot_wrap(numerator->left, k1, numerator->type, loop))
        return false;
    const INT65 common = INT65::from_unsigned(std::gcd(k1.magnitude(), k2.magnitude()));
    if (common == ONE) return false;
    divisor->u.lval = k2 / common;
    NODE* constant = numerator->right;
    constant->u.lval = k1 / common;
    TYPE* type = numerator->type;
    if (constant->u.lval == ONE) {
        numerator = converted(take_left(numerator), type, loop);
    } else {
        numerator = simp_node(numerator, loop);
    }
    return true;
}

NODE* simp_DIV_by_ICON(NODE* node, ::LOOP* loop) {
    NODE* result = divide_by_icon(node, loop);
    return result != nullptr ? result : node;
}

NODE* simp_DIV(NODE* node, int, ::LOOP* loop) {
    NODE* left = node->left;
    NODE* right = node->right;
    TYPE* type = node->type;
    if (type->is_fltpt()) return right->op == FCON ? divide_by_constant(node, loop) : node;
    if (!type->is_integral() || !same_integer_type(left, node) || !same_integer_type(right, node))
        return node;
    if (trees_are_congruent(left, right)) {
        erase_tree(node);
        return icon(ONE, type);
    }
    if (is_icon(left, 0)) {
        erase_node(left);
        erase_node(node);
        return known_value(right, ZERO, type, loop);
    }
    if (right->op != ICON || right->u.lval.is_zero()) return node;
    if (is_icon(right, 1)) return converted(take_left(node), type, loop);
    return simp_DIV_by_ICON(node, loop);
}

NODE* simp_MOD(NODE* node, ::LOOP* loop) {
    NODE* left = node->left;
    NODE* right = node->right;
    TYPE* type = node->type;
    if (!type->is_integral() || !same_integer_type(left, node) || !same_integer_type(right, node))
        return node;
    if (trees_are_congruent(left, right)) {
        erase_tree(node);
        return icon(ZERO, type);
    }
    if (is_icon(left, 0)) {
        erase_node(left);
        erase_node(node);
        return known_value(right, ZERO, type, loop);
    }
    if (right->op != ICON || right->u.lval.is_zero()) return node;
    // The remainder has the dividend's sign.
    if (right->u.lval.is_negative() && right->u.lval != int_type_min(type)) right->u.lval = -right->u.lval;
    const INT65 k = right->u.lval;
    if (k == ONE) {
        erase_node(right);
        erase_node(node);
        return known_value(left, ZERO, type, loop);
    }
    const INT65 lo = calculate_minval_for_tree(left, loop), hi = calculate_maxval_for_tree(left, loop);
    if (!k.is_negative() && hi < k && lo > -k) return converted(take_left(node), type, loop);
    if (const int log = power_of_2(k); log >= 0 && !lo.is_negative()) {
        node->op = ANDB;
        right->u.lval = k - ONE;
        return simp_node(node, loop);
    }
    // (x * k1) % k2 with k1 a multiple of k2
    if (left->op == MULT && left->right->op == ICON && !k.is_negative() &&
        (left->right->u.lval % k).is_zero() &&
        product_cannot_wrap(left->left, left->right->u.lval, type, loop)) {
        erase_node(right);
        erase_node(node);
        return known_value(left, ZERO, type, loop);
    }
    return node;
}
