// Numbers as comparisons see them, and the small makers that the rules for conditions share.

#include "simp_cond.h"

#include <algorithm>

#include "node.h"
#include "opcodes.h"
#include "optypes.h"
#include "types.h"
#include "valrange.h"

using namespace op;

WIDE NUMBERS::wrap(WIDE value) const {
    const WIDE bits = value & ((WIDE{1} << width) - 1);
    return !is_unsigned && (bits >> (width - 1)) != 0 ? bits - (WIDE{1} << width) : bits;
}

NUMBERS numbers_of(TYPE* type) { return {type_width(type), type->is_ptr() || type->is_unsigned()}; }

INTERVAL interval_of(NODE* tree, const NUMBERS& numbers, ::LOOP* loop) {
    const INTERVAL all{numbers.min(), numbers.max()};
    if (tree->op == ICON) {
        const WIDE value = numbers.wrap(to_wide(tree->u.lval));
        return {value, value};
    }
    const NUMBERS own = numbers_of(tree->type);
    WIDE lo = to_wide(calculate_minval_for_tree(tree, loop));
    WIDE hi = to_wide(calculate_maxval_for_tree(tree, loop));
    lo = std::max(lo, own.min());
    hi = std::min(hi, own.max());
    if (lo > hi) return all; // the tree is never reached: nothing to be gained
    const WIDE first = numbers.wrap(lo), last = numbers.wrap(hi);
    // Read with the other sign, the interval is still one unless it runs across the place where the signs
    // part.
    return last - first == hi - lo ? INTERVAL{first, last} : all;
}

bool is_integer_comparison(int op) { return op >= EQ && op <= UGT; }

bool compare(int op, WIDE a, WIDE b) { return comparison_holds(op, a, b); }

int comparison_with_sign(int op, bool is_unsigned) {
    switch (op) {
        case LE:
        case ULE: return is_unsigned ? ULE : LE;
        case LT:
        case ULT: return is_unsigned ? ULT : LT;
        case GE:
        case UGE: return is_unsigned ? UGE : GE;
        case GT:
        case UGT: return is_unsigned ? UGT : GT;
        default: return op;
    }
}

bool is_zero_ICON(const NODE* node) { return node->op == ICON && node->u.lval.is_zero(); }

bool is_truth_type(TYPE* type) { return type->is_bool() || type->is_marked_bool(); }

TYPE* value_type(const NODE* tree) {
    TYPE* type = tree->type->true_type();
    return type->is_enum() ? type->underlying_type()->true_type() : type;
}

NODE* mk_number(WIDE value, TYPE* type) { return mk_ICON(to_int65(numbers_of(type).wrap(value)), type); }

bool read_value_test(NODE* tree, VALUE_TEST& test) {
    if (!is_integer_comparison(tree->op)) {
        if (boolean_result[tree->op] != 0 || !tree->type->is_integral()) return false;
        test = {tree, numbers_of(tree->type), {0, 0}, true};
        return true;
    }
    if (tree->right->op != ICON || !tree->left->type->is_integral()) return false;
    const NUMBERS numbers = numbers_of(tree->left->type);
    if (comparison_with_sign(tree->op, numbers.is_unsigned) != tree->op) return false;
    const WIDE k = numbers.wrap(to_wide(tree->right->u.lval));
    INTERVAL interval{numbers.min(), numbers.max()};
    switch (tree->op) {
        case EQ:
        case NEQ: interval = {k, k}; break;
        case LT:
        case ULT: interval.hi = k - 1; break;
        case LE:
        case ULE: interval.hi = k; break;
        case GT:
        case UGT: interval.lo = k + 1; break;
        default: interval.lo = k; break;
    }
    test = {tree->left, numbers, interval, tree->op == NEQ};
    return true;
}
