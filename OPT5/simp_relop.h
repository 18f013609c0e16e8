// One comparison of integers or pointers on its way through the rules; private to simp_relop*.cpp.

#ifndef OPT5_SIMP_RELOP_H
#define OPT5_SIMP_RELOP_H

#include "simp_cond.h"

class RELOP {
  public:
    RELOP(NODE* node, LOOP* loop) : node_(node), loop_(loop) {}
    // Applies the rules until none does; returns what replaces the node.
    NODE* run();

  private:
    // What a rule did: nothing, rewrote node_ (which is a comparison still), or finished with it.
    enum OUTCOME { NONE, AGAIN, DONE };

    bool refresh();
    OUTCOME one_rule();

    // The ways a rule ends. `decide` keeps the operands' side effects.
    OUTCOME decide(bool value);
    OUTCOME become(NODE* tree); // of which node_'s operands are no part any more
    OUTCOME rewrite(int op, NODE* left, NODE* right);
    // Compares with a number that may lie outside of `numbers`.
    OUTCOME rewrite_or_decide(int op, NODE* left, WIDE k, const NUMBERS& numbers, TYPE* type);

    bool is_equality() const;
    bool is_relational() const { return !is_equality(); }
    bool operand_fits(const NODE* operand) const;
    NODE* number(WIDE value, TYPE* type);

    struct BITS {
        WIDE may_be, ones;
    };
    BITS bits_of(NODE* tree);
    INTERVAL interval_by_bits(const BITS& bits);

    // In the order in which they apply.
    OUTCOME orient();
    OUTCOME same_operands();
    OUTCOME adjust_strictness();
    OUTCOME within(const INTERVAL& interval);
    OUTCOME by_bits();
    OUTCOME by_range();
    OUTCOME pointer_against_null();
    OUTCOME truth_values();
    OUTCOME zero_test();
    OUTCOME operator_against_constant();
    OUTCOME two_operators();

    // One operator on the left, a constant on the right (simp_relop_const.cpp).
    OUTCOME addition();
    OUTCOME subtraction_from_constant();
    OUTCOME difference();
    OUTCOME complement();
    OUTCOME product();
    OUTCOME right_shift();
    OUTCOME division();
    OUTCOME mask();
    OUTCOME union_of_bits();
    OUTCOME flipped_bits();
    OUTCOME conversion();
    OUTCOME sign_extension(NODE* operand);
    OUTCOME pointer_conversion();
    OUTCOME conditional();
    OUTCOME saturating_difference();

    // The same or related operators on both sides.
    OUTCOME narrow_both();
    OUTCOME cancel_common();
    OUTCOME strip_both();
    OUTCOME move_constants();
    OUTCOME bounded_by_operand();
    OUTCOME test_of_one_bit();

    NODE* node_;
    LOOP* loop_;
    TYPE* type_ = nullptr; // of the operands
    NUMBERS numbers_{};    // as the operator reads them
    bool has_k_ = false;   // the right operand is the constant k_
    WIDE k_ = 0;
    bool bits_are_known_ = false; // the operands' proved bits are these
    BITS left_bits_{}, right_bits_{};
};

#endif
