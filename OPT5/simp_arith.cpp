// Sums, products, negation and powers.

#include <utility>

#include "bbutils.h"
#include "congruent.h"
#include "copy.h"
#include "erase.h"
#include "files.h"
#include "fold.h"
#include "fpsmath.h"
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

const INT65 ONE = INT65::from_signed(1);

bool is_leaf(const NODE* node) { return node->left == nullptr; }

bool is_address_of_name(const NODE* node) { return node->op == UAND && node->left->op == NAME; }

// Whether the inner node's operation may be merged with the outer one's: both wrap at the same width.
bool same_arithmetic(const NODE* outer, const NODE* inner) {
    return inner->op == outer->op && is_int_or_ptr(inner->type) &&
           inner->type->size() == outer->type->size() && (inner->op != MULT || !inner->type->is_bool());
}

bool has_icon_right(const NODE* node) { return node->right != nullptr && node->right->op == ICON; }

// The constant `a op b` for an operation of the type. Addresses are added as the numbers that they are.
NODE* combine(int op, NODE* a, NODE* b, TYPE* type, ::LOOP* loop) {
    for (const NODE* operand : {a, b})
        if (!type->is_integral() && operand->type->is_integral()) type = operand->type->true_type();
    if (!type->is_integral()) type = tp->int_type(IK_UINT);
    return build(op, coerce_to_type(a, type), coerce_to_type(b, type), type, loop);
}

} // namespace

NODE* simp_assoc(NODE* node, ::LOOP* loop) {
    for (;;) {
        NODE* left = node->left;
        NODE* right = node->right;
        if (left->op == ICON || left->op == FCON) {
            const int op = node->op;
            NODE* folded = fold_node(node);
            if (folded != node || folded->op != op) return folded;
            left = node->left;
            right = node->right;
        }
        // A leaf, or else an address, stands on the right.
        if (!is_leaf(right) && (is_leaf(left) || (is_address_of_name(left) && !is_address_of_name(right))) &&
            may_swap(left, right)) {
            std::swap(node->left, node->right);
            std::swap(left, right);
        }
        if (node->type->is_fltpt()) return node;

        // Constants come out of the operands: to the right of all.
        if (same_arithmetic(node, left) && has_icon_right(left)) {
            NODE* constant = left->right;
            if (right->op == ICON) {
                node->left = left->left;
                node->right = combine(node->op, constant, right, node->type, loop);
                erase_node(left);
                return simp_node(node, loop);
            }
            left->right = right;
            left->type = left->otype = node->type;
            node->left = simp_node(left, loop);
            node->right = constant;
            if (node->left->op == COMMAOP) return simp_node(node, loop);
            continue;
        }
        if (same_arithmetic(node, right) && has_icon_right(right)) {
            NODE* constant = right->right;
            NODE* inner = right->left;
            erase_node(right);
            node->left = build(node->op, left, inner, node->type, loop);
            node->right = constant;
            if (node->left->op == COMMAOP) return simp_node(node, loop);
            continue;
        }
        return node;
    }
}

bool tree_is_16x16_mpy(NODE* tree) {
    if (tree->op != MULT || !tree->type->is_integral() || tree->type->size() != 32) return false;
    for (const NODE* factor : {tree->left, tree->right}) {
        if (factor->op == ICON) {
            if (factor->u.lval != sign_extend_by_type(factor->u.lval, tp->int_type(IK_INT)) &&
                factor->u.lval != truncate_to_type(factor->u.lval, tp->int_type(IK_UINT)))
                return false;
        } else if (factor->op != SCONV || !factor->left->type->is_integral() ||
                   factor->left->type->size() > 16) {
            return false;
        }
    }
    return true;
}

namespace {

// A term of a sum as a constant multiple; terms that are no products are one time themselves.
struct PRODUCT {
    NODE* term;
    NODE* factor;
    INT65 constant;
    bool is_product;

    explicit PRODUCT(NODE* tree)
        : term(tree), factor(tree), constant(ONE), is_product(tree->op == MULT && tree->right->op == ICON) {
        if (!is_product) return;
        factor = tree->left;
        constant = tree->right->u.lval;
    }
};

// `base + offset` with a constant offset.
struct OFFSET {
    NODE* base;
    INT65 offset{0, 0, 0};

    explicit OFFSET(NODE* tree) : base(tree) {
        if (tree->op != PLUS || tree->right->op != ICON || !tree->type->is_integral()) return;
        base = tree->left;
        offset = tree->right->u.lval;
    }
};

// x * k for a node of a sum that has come out as a product.
NODE* product(NODE* factor, const INT65& k, TYPE* type, ::LOOP* loop) {
    return build(MULT, converted(factor, type, loop), icon(k, type), type, loop);
}

// The sum or difference of two constant multiples as one product, where one factor serves both; null where
// none does. `sign` is 1 or -1.
NODE* factor_sum(NODE* node, int sign, ::LOOP* loop) {
    TYPE* type = node->type;
    if (!type->is_integral() || type->is_bool()) return nullptr;
    const PRODUCT a(node->left), b(node->right);
    for (const PRODUCT* p : {&a, &b})
        if (!p->term->type->is_integral() || p->term->type->size() != type->size() ||
            p->factor->type->size() != type->size())
            return nullptr;
    const INT65 k2 = sign < 0 ? -b.constant : b.constant;
    // (x * k1) + (x * k2)
    if (trees_are_congruent(a.factor, b.factor)) {
        NODE* factor = a.factor;
        if (a.is_product) {
            erase_node(a.term->right);
            erase_node(a.term);
        }
        erase_tree(node->right);
        erase_node(node);
        return product(factor, a.constant + k2, type, loop);
    }
    if (tree_is_16x16_mpy(a.term) || tree_is_16x16_mpy(b.term)) return nullptr;
    // ((x + c1) * k1) + ((x + c2) * k2)
    const OFFSET x(a.factor), y(b.factor);
    if ((a.is_product || b.is_product) && (x.base != a.factor || y.base != b.factor) &&
        trees_are_congruent(x.base, y.base)) {
        const INT65 rest = x.offset * a.constant + y.offset * k2;
        NODE* base = copy_tree(x.base, false);
        const INT65 k = a.constant + k2;
        erase_tree(node->left);
        erase_tree(node->right);
        erase_node(node);
        return build(PLUS, product(base, k, type, loop), icon(rest, type), type, loop);
    }
    // (x * k) + (y * k)
    if (a.is_product && b.is_product && a.constant == b.constant) {
        const INT65 k = a.constant;
        NODE *l = a.factor, *r = b.factor;
        for (const PRODUCT* p : {&a, &b}) {
            erase_node(p->term->right);
            erase_node(p->term);
        }
        node->left = converted(l, type, loop);
        node->right = converted(r, type, loop);
        return product(simp_node(node, loop), k, type, loop);
    }
    // (a * x) + (b * x) with a variable x on the right of both.
    if (a.term->op == MULT && b.term->op == MULT && a.term->right->op == NAME && sign > 0 &&
        trees_are_congruent(a.term->right, b.term->right)) {
        NODE *l = a.term, *r = b.term;
        NODE* common = l->right;
        erase_node(r->right);
        node->left = l->left;
        node->right = r->left;
        erase_node(l);
        erase_node(r);
        return build(MULT, simp_node(node, loop), common, type, loop);
    }
    return nullptr;
}

} // namespace

NODE* simp_PLUS(NODE* node, ::LOOP* loop) {
    NODE* sum = simp_assoc(node, loop);
    if (sum != node || sum->op != PLUS || sum->type->is_fltpt()) return sum;
    NODE* left = node->left;
    NODE* right = node->right;
    TYPE* type = node->type;
    const auto fits = [type](const NODE* term) { return term->type->size() == type->size(); };
    if (right->op == UMINUS && fits(right)) {
        node->op = MINUS;
        node->right = right->left;
        erase_node(right);
        return simp_node(node, loop);
    }
    if (left->op == UMINUS && fits(left) && may_swap(left, right)) {
        node->op = MINUS;
        node->left = right;
        node->right = left->left;
        erase_node(left);
        return simp_node(node, loop);
    }
    // (k - y) + z
    for (NODE* term : {left, right}) {
        NODE* other = term == left ? right : left;
        if (term->op != MINUS || term->left->op != ICON || !fits(term) || !term->type->is_integral())
            continue;
        if (other->op == ICON) {
            term->left = combine(PLUS, term->left, other, term->type, loop);
            erase_node(node);
            return converted(simp_node(term, loop), type, loop);
        }
        if (term == left && !may_swap(left, right)) continue;
        NODE* constant = term->left;
        term->left = other;
        term->type = term->otype = type;
        node->left = simp_node(term, loop);
        node->right = constant;
        return simp_node(node, loop);
    }
    if (NODE* factored = factor_sum(node, 1, loop); factored != nullptr) return factored;
    const PRODUCT a(left), b(right);
    if (a.is_product && b.is_product && a.constant < b.constant && may_swap(left, right))
        std::swap(node->left, node->right);
    return node;
}

namespace {

// Takes the addend that is congruent to `term` out of a sum: `sum` becomes the rest. The tree stays where
// there is none, and the answer is false.
bool cancel_addend(NODE*& sum, NODE* term) {
    if (sum->op != PLUS) return false;
    for (const bool from_left : {true, false}) {
        NODE* addend = from_left ? sum->left : sum->right;
        if (addend->type->size() != term->type->size() || !trees_are_congruent(addend, term)) continue;
        NODE* rest = from_left ? sum->right : sum->left;
        erase_tree(addend);
        erase_node(sum);
        sum = rest;
        return true;
    }
    return false;
}

// x - (x + y), (x + y) - x and the like, in which terms cancel; null where none do.
NODE* cancel_terms(NODE* node, ::LOOP* loop) {
    NODE* left = node->left;
    NODE* right = node->right;
    TYPE* type = node->type;
    if (trees_are_congruent(left, right)) {
        erase_tree(node);
        return icon(INT65::from_signed(0), type);
    }
    if (cancel_addend(left, right)) {
        erase_tree(right);
        erase_node(node);
        return converted(left, type, loop);
    }
    if (cancel_addend(right, left)) {
        erase_tree(left);
        node->op = UMINUS;
        node->left = converted(right, type, loop);
        node->right = nullptr;
        return simp_node(node, loop);
    }
    // (x + y) - (x + z)
    if (left->op == PLUS && right->op == PLUS)
        for (NODE* term : {right->left, right->right})
            if (cancel_addend(left, term)) {
                NODE* rest = term == right->left ? right->right : right->left;
                erase_tree(term);
                erase_node(right);
                node->left = converted(left, type, loop);
                node->right = converted(rest, type, loop);
                return simp_node(node, loop);
            }
    // x - (x - y)
    if (right->op == MINUS && right->type->size() == type->size() && trees_are_congruent(left, right->left)) {
        NODE* rest = right->right;
        erase_tree(right->left);
        erase_node(right);
        erase_tree(left);
        erase_node(node);
        return converted(rest, type, loop);
    }
    return nullptr;
}

} // namespace

NODE* simp_MINUS(NODE* node, ::LOOP* loop) {
    TYPE* type = node->type;
    if (type->is_fltpt()) {
        if (node->right->op != UMINUS) return node;
        NODE* negated = node->right;
        node->op = PLUS;
        node->right = negated->left;
        erase_node(negated);
        return simp_node(node, loop);
    }
    if (!is_int_or_ptr(type)) return node;
    NODE* left = node->left;
    NODE* right = node->right;
    if (right->op == ICON && right->type->is_integral()) {
        right->u.lval = truncate_to_type(-right->u.lval, right->type);
        // A narrower number without sign has no negative of its own.
        if (right->type->size() >= type->size() || right->u.lval.is_negative()) {
            node->op = PLUS;
            return simp_node(node, loop);
        }
        right->u.lval = truncate_to_type(-right->u.lval, right->type);
    }
    if (NODE* cancelled = type->is_integral() ? cancel_terms(node, loop) : nullptr; cancelled != nullptr)
        return cancelled;
    const auto fits = [type](const NODE* term) { return term->type->size() == type->size(); };
    if (right->op == UMINUS && fits(right)) {
        node->op = PLUS;
        node->right = right->left;
        erase_node(right);
        return simp_node(node, loop);
    }
    if (is_icon(left, 0) && fits(right) && right->type->is_integral()) {
        erase_node(left);
        node->op = UMINUS;
        node->left = right;
        node->right = nullptr;
        return simp_node(node, loop);
    }
    // Constants come out to the right: (x + k) - y, x - (y + k), k - (x + k2), x - (k - y).
    if (left->op == PLUS && left->right->op == ICON && fits(left) &&
        (type->is_ptr() || left->type->is_integral())) {
        NODE* constant = left->right;
        node->left = left->left;
        erase_node(left);
        return build(PLUS, simp_node(node, loop), constant, type, loop);
    }
    if (right->op == PLUS && right->right->op == ICON && fits(right) && right->type->is_integral()) {
        NODE* constant = right->right;
        node->right = right->left;
        erase_node(right);
        constant->u.lval = truncate_to_type(-constant->u.lval, constant->type);
        if (left->op == ICON && left->type->is_integral()) {
            node->left = combine(PLUS, left, constant, left->type, loop);
            return simp_node(node, loop);
        }
        return build(PLUS, simp_node(node, loop), constant, type, loop);
    }
    if (right->op == MINUS && right->left->op == ICON && fits(right) && right->type->is_integral()) {
        NODE* constant = right->left;
        node->op = PLUS;
        node->right = right->right;
        erase_node(right);
        constant->u.lval = truncate_to_type(-constant->u.lval, constant->type);
        return build(PLUS, simp_node(node, loop), constant, type, loop);
    }
    if (left->op == MINUS && left->left->op == ICON && fits(left) && left->type->is_integral() &&
        right->type->is_integral() && fits(right)) {
        // (k - x) - y
        NODE* constant = left->left;
        NODE* sum = maketree(PLUS, left->right, right, type, nullptr);
        erase_node(left);
        node->left = constant;
        node->right = simp_node(sum, loop);
        return simp_node(node, loop);
    }
    if (left->op == ICON && right->op == NOTB && fits(right) && right->type->is_integral()) {
        // k - ~x
        NODE* operand = right->left;
        erase_node(right);
        node->op = PLUS;
        node->left = operand;
        node->right = icon(left->u.lval + ONE, type);
        erase_node(left);
        return simp_node(node, loop);
    }
    if (is_icon(left, -1) && type->is_signed() && fits(right) && right->type->is_integral()) {
        erase_node(left);
        node->op = NOTB;
        node->left = right;
        node->right = nullptr;
        return simp_node(node, loop);
    }
    if (NODE* factored = factor_sum(node, -1, loop); factored != nullptr) return factored;
    return node;
}

namespace {

bool is_nan(const NODE* constant) {
    const simul_fval* value = constant->fval();
    return value->exp == 32767 && value->mant[0] != 0;
}

NODE* simp_float_MULT(NODE* node, ::LOOP* loop) {
    NODE* right = node->right;
    if (right->op != FCON || is_nan(right)) return node;
    if (f_eq(right->fval(), &one) != 0) {
        NODE* left = take_left(node);
        return left;
    }
    simul_fval negated;
    f_neg(right->fval(), &negated);
    if (f_eq(&negated, &one) != 0) {
        erase_node(right);
        node->op = UMINUS;
        node->right = nullptr;
        return simp_node(node, loop);
    }
    return node;
}

// x^n * x^m and x * x^n with one base; null where the operands are not such.
NODE* multiply_powers(NODE* node, ::LOOP* loop) {
    NODE* left = node->left;
    NODE* right = node->right;
    if (left->op != EXPT && right->op != EXPT) return nullptr;
    if (left->op == EXPT && right->op == EXPT) {
        if (!trees_are_congruent(left->left, right->left)) return nullptr;
        TYPE* type = promoted_type(left->right->type);
        left->right =
            build(PLUS, converted(left->right, type, loop), converted(right->right, type, loop), type, loop);
        erase_tree(right->left);
        erase_node(right);
    } else {
        if (left->op != EXPT) std::swap(left, right);
        if (!trees_are_congruent(left->left, right)) return nullptr;
        TYPE* type = promoted_type(left->right->type);
        left->right = build(PLUS, converted(left->right, type, loop), icon(ONE, type), type, loop);
        erase_tree(right);
    }
    erase_node(node);
    return simp_node(left, loop);
}

} // namespace

NODE* simp_MULT(NODE* node, ::LOOP* loop) {
    if (NODE* power = multiply_powers(node, loop); power != nullptr) return power;
    NODE* result = simp_assoc(node, loop);
    if (result != node || node->op != MULT) return result;
    TYPE* type = node->type;
    if (type->is_fltpt()) return simp_float_MULT(node, loop);
    if (!type->is_integral()) return node;
    NODE* left = node->left;
    NODE* right = node->right;
    const auto fits = [type](const NODE* term) {
        return term->type->is_integral() && term->type->size() == type->size();
    };
    // A sign can move from factor to factor.
    if (left->op == UMINUS && right->op == UMINUS && fits(left) && fits(right)) {
        node->left = left->left;
        node->right = right->left;
        erase_node(left);
        erase_node(right);
        return simp_node(node, loop);
    }
    if (right->op != ICON) return node;
    const INT65 k = truncate_to_type(right->u.lval, type);
    if (k.is_zero()) {
        erase_node(right);
        erase_node(node);
        return known_value(left, INT65::from_signed(0), type, loop);
    }
    if (sign_extend_by_type(k, type) == INT65::from_signed(-1)) {
        erase_node(right);
        node->op = UMINUS;
        node->right = nullptr;
        return simp_node(node, loop);
    }
    if (left->op == UMINUS && fits(left)) {
        node->left = left->left;
        erase_node(left);
        right->u.lval = truncate_to_type(-right->u.lval, right->type);
        return simp_node(node, loop);
    }
    const int log = power_of_2(truncate_to_type(k, type) & type_mask(type));
    if ((left->op == SLL || left->op == SRL) && left->right->op == ICON && fits(left) &&
        shift_count_is_legal_and_nontrivial_for_type(left->right->u.lval, left->type)) {
        const int count = static_cast<int>(left->right->u.lval.low);
        if (left->op == SLL) {
            // (x << c) * k
            right->u.lval = truncate_to_type(right->u.lval << count, right->type);
            NODE* operand = left->left;
            erase_node(left->right);
            erase_node(left);
            node->left = operand;
            return simp_node(node, loop);
        }
        if (count == log) {
            // (x >> c) * 2^c
            NODE* operand = converted(left->left, type, loop);
            erase_node(left->right);
            erase_node(left);
            node->op = ANDB;
            node->left = operand;
            right->u.lval = truncate_to_type(-(INT65::from_signed(1) << count), type);
            right->type = right->otype = type;
            return simp_node(node, loop);
        }
    }
    return node;
}

namespace {

NODE* simp_UMINUS(NODE* node, ::LOOP* loop) {
    NODE* operand = node->left;
    TYPE* type = node->type;
    const bool fits = operand->type->size() == type->size() && operand->type->is_fltpt() == type->is_fltpt();
    if (operand->op == UMINUS && fits) {
        NODE* inner = operand->left;
        erase_node(operand);
        erase_node(node);
        return converted(inner, type, loop);
    }
    if (operand->op == MULT && operand->right->op == FCON && type->is_fltpt()) {
        simul_fval* k = operand->right->fval();
        f_neg(k, k);
        operand->right->text = nullptr;
        erase_node(node);
        return simp_node(operand, loop);
    }
    if (!type->is_integral() || !fits || !operand->type->is_integral()) return node;
    switch (operand->op) {
        case MINUS:
            if (!is_int_or_ptr(operand->left->type) || operand->left->type->is_ptr() ||
                !may_swap(operand->left, operand->right))
                return node;
            std::swap(operand->left, operand->right);
            operand->type = operand->otype = type;
            erase_node(node);
            return simp_node(operand, loop);
        case PLUS:
            // -(x + k)
            if (operand->right->op != ICON) return node;
            node->op = MINUS;
            node->right = operand->left;
            node->left = icon(-operand->right->u.lval, type);
            erase_node(operand->right);
            erase_node(operand);
            return simp_node(node, loop);
        case MULT:
            // -(x * k)
            if (operand->right->op != ICON) return node;
            operand->right->u.lval = truncate_to_type(-operand->right->u.lval, operand->right->type);
            node->op = SCONV;
            node->left = simp_node(operand, loop);
            return simp_node(node, loop);
        case NOTB: {
            // -~x
            NODE* inner = operand->left;
            erase_node(operand);
            node->op = PLUS;
            node->left = converted(inner, type, loop);
            node->right = icon(ONE, type);
            return simp_node(node, loop);
        }
        default: return node;
    }
}

NODE* simp_NOTB(NODE* node, ::LOOP* loop) {
    NODE* operand = node->left;
    TYPE* type = node->type;
    if (!type->is_integral() || !operand->type->is_integral() || operand->type->size() != type->size())
        return node;
    switch (operand->op) {
        case NOTB: {
            NODE* inner = operand->left;
            erase_node(operand);
            erase_node(node);
            return converted(inner, type, loop);
        }
        case UMINUS: {
            // ~-x
            NODE* inner = operand->left;
            erase_node(operand);
            node->op = PLUS;
            node->left = converted(inner, type, loop);
            node->right = icon(INT65::from_signed(-1), type);
            return simp_node(node, loop);
        }
        case PLUS:
            // ~(x + k)
            if (operand->right->op != ICON) return node;
            node->op = MINUS;
            node->right = operand->left;
            node->left = icon(INT65::from_signed(-1) - operand->right->u.lval, type);
            erase_node(operand->right);
            erase_node(operand);
            return simp_node(node, loop);
        case MINUS:
            // ~(k - x)
            if (operand->left->op != ICON) return node;
            node->op = PLUS;
            node->left = operand->right;
            node->right = icon(INT65::from_signed(-1) - operand->left->u.lval, type);
            erase_node(operand->left);
            erase_node(operand);
            return simp_node(node, loop);
        case XORB:
            if (operand->right->op != ICON) return node;
            operand->right->u.lval = truncate_to_type(~operand->right->u.lval, operand->right->type);
            erase_node(node);
            return converted(simp_node(operand, loop), type, loop);
        default: return node;
    }
}

NODE* simp_ABS(NODE* node, ::LOOP* loop) {
    NODE* operand = node->left;
    TYPE* type = node->type;
    if (operand->op == ABS && same_representation(operand->type, type)) return take_left(node);
    if (operand->op == UMINUS && type->is_fltpt() && operand->type->is_fltpt()) {
        node->left = operand->left;
        erase_node(operand);
        return simp_node(node, loop);
    }
    if (!type->is_integral() || !same_representation(operand->type, type)) return node;
    const INT65 sign = INT65::from_signed(1) << (type_width(type) - 1);
    if (type->is_signed() && !(find_known_zeros(operand, type) & sign).is_zero()) return node;
    return take_left(node);
}

} // namespace

NODE* simp_unary(NODE* node, ::LOOP* loop) {
    switch (node->op) {
        case UMINUS: return simp_UMINUS(node, loop);
        case NOTB: return simp_NOTB(node, loop);
        case ABS: return simp_ABS(node, loop);
        default: return node;
    }
}

NODE* simp_EXPT(NODE* node, ::LOOP* loop) {
    NODE* exponent = node->right;
    if (is_icon(exponent, 1) && same_representation(node->left->type, node->type)) return take_left(node);
    if (is_icon(exponent, 0) && node->type->is_integral()) {
        TYPE* type = node->type;
        return known_value(take_left(node), ONE, type, loop);
    }
    return node;
}

NODE* simp_complexop(NODE* node, ::LOOP*) {
    NODE* operand = node->left;
    if ((node->op != REAL && node->op != IMAG) || operand->op != COMPLEX) return node;
    const bool real = node->op == REAL;
    NODE* dropped = real ? operand->right : operand->left;
    if (has_effects(dropped)) return node;
    erase_node(node);
    return real ? take_left(operand) : take_right(operand);
}

namespace {

// A conversion between elements and address units: the size in bits becomes one in units.
NODE* scale(NODE* node, int op, ::LOOP* loop) {
    if (node->right->op != ICON) return node;
    const INT65 units = node->right->u.lval / INT65::from_signed(16);
    if (units.is_zero()) return node;
    node->op = op;
    node->left = converted(node->left, node->type, loop);
    node->right->u.lval = truncate_to_type(units, node->type);
    node->right->type = node->right->otype = node->type;
    return simp_node(node, loop);
}

} // namespace

NODE* simp_PMCONV(NODE* node, ::LOOP* loop) { return scale(node, MULT, loop); }

NODE* simp_PVCONV(NODE* node, ::LOOP* loop) { return scale(node, DIV, loop); }
