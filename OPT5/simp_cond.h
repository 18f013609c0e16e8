// What the rules for comparisons, logical operators and conditionals share.

#ifndef OPT5_SIMP_COND_H
#define OPT5_SIMP_COND_H

#include "value_facts.h"

struct LOOP;
class NODE;
class TYPE;

// The numbers that a comparison sees: those of a width, read with or without a sign.
struct NUMBERS {
    int width;
    bool is_unsigned;

    WIDE min() const { return is_unsigned ? 0 : -(WIDE{1} << (width - 1)); }
    WIDE max() const { return (WIDE{1} << (is_unsigned ? width : width - 1)) - 1; }
    bool holds(WIDE value) const { return min() <= value && value <= max(); }
    // The low bits of the value as one of these numbers.
    WIDE wrap(WIDE value) const;
};

// The numbers of an integral or pointer type.
NUMBERS numbers_of(TYPE* type);

// Both ends included.
struct INTERVAL {
    WIDE lo, hi;
};

// What the tree can give, as such numbers; its type has their width.
INTERVAL interval_of(NODE* tree, const NUMBERS& numbers, LOOP* loop);

// EQ to UGT: the comparisons of integers and pointers.
bool is_integer_comparison(int op);
// Whether `a op b` holds. The numbers are read as the operator reads them.
bool compare(int op, WIDE a, WIDE b);
// The comparison of the same direction with the asked signedness; EQ and NEQ stay.
int comparison_with_sign(int op, bool is_unsigned);

bool is_zero_ICON(const NODE* node);
// A type that holds truth values only: a conversion to it is a test for not being zero.
bool is_truth_type(TYPE* type);
// The type of the tree's value: without qualifiers, an enumeration as its integers.
TYPE* value_type(const NODE* tree);
// The constant, wrapped to the type.
NODE* mk_number(WIDE value, TYPE* type);

// The trees that are zero at the same time as `tree`, towards the cheapest. Replaces the simplified tree,
// whose value is only compared with zero, by a simplified one, possibly of another type. True where it has
// changed.
bool reduce_zero_test(NODE*& tree, LOOP* loop);

// The negation of a simplified truth value, simplified.
NODE* simp_inverse(NODE* tree, LOOP* loop);

// `tree` tells whether the integral `value` lies inside (or outside) of an interval of its type's numbers:
// a comparison with a constant, or the value itself as a test for not being zero.
struct VALUE_TEST {
    NODE* value;
    NUMBERS numbers;
    INTERVAL interval;
    bool outside;
};
bool read_value_test(NODE* tree, VALUE_TEST& test);

#endif
