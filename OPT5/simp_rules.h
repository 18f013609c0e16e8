// The rule families of the simplifier, and what they share. For the simplifier's own modules; passes call
// simp.h.
//
// Every rule takes a node whose operands are simplified and returns what replaces it. What a rule builds or
// changes below the root it passes through simp_node itself.

#ifndef OPT5_SIMP_RULES_H
#define OPT5_SIMP_RULES_H

#include "xint.h"

class NODE;
class TYPE;
struct LOOP;

// --- Arithmetic (simp_arith.cpp, simp_div.cpp).
NODE* simp_assoc(NODE* node, LOOP* loop);
NODE* simp_PLUS(NODE* node, LOOP* loop);
NODE* simp_MINUS(NODE* node, LOOP* loop);
NODE* simp_MULT(NODE* node, LOOP* loop);
NODE* simp_unary(NODE* node, LOOP* loop);
NODE* simp_EXPT(NODE* node, LOOP* loop);
NODE* simp_complexop(NODE* node, LOOP* loop);
NODE* simp_PMCONV(NODE* node, LOOP* loop);
NODE* simp_PVCONV(NODE* node, LOOP* loop);
NODE* simp_DIV(NODE* node, int flag, LOOP* loop);
NODE* simp_DIV_by_ICON(NODE* node, LOOP* loop);
NODE* simp_MOD(NODE* node, LOOP* loop);

// Whether the product is one of the hardware's 16 by 16 multiplier: a 32-bit MULT of two 16-bit values.
bool tree_is_16x16_mpy(NODE* tree);

// Divides both constants of the fraction (x * k1) / k2 by their common factor where the product cannot wrap.
// Returns whether anything changed; `numerator` and `divisor` are replaced.
bool cancel_common_simple_factors(NODE*& numerator, NODE*& divisor, LOOP* loop);

// --- Bits (simp_bits.cpp, simp_shift.cpp).
NODE* simp_ANDB(NODE* node, LOOP* loop);
NODE* simp_ORB(NODE* node, LOOP* loop);
NODE* simp_XORB(NODE* node, LOOP* loop);
NODE* simp_shift(NODE* node, LOOP* loop);

// Whether a shift by the count keeps at least one bit, and of a signed type one beside the sign.
bool shift_count_is_legal_and_nontrivial_for_type(const INT65& count, TYPE* type);

// --- Conversions (simp_conv.cpp).
NODE* simp_SCONV(NODE* node, LOOP* loop);
NODE* simp_PCONV(NODE* node, LOOP* loop);
NODE* simp_ACONV(NODE* node, LOOP* loop);

// --- Assignments (simp_asg.cpp).
NODE* simp_ASG(NODE* node, LOOP* loop);
NODE* simp_STASG(NODE* node, LOOP* loop);
NODE* simp_opASG(NODE* node, LOOP* loop);

// Brings the operand of the sum or product that is congruent to `term` to the top left place, where
// `term = tree` then has a compound form. Integral trees only.
NODE* bubble_term_to_top(NODE* term, NODE* tree, LOOP* loop);

// --- Places, calls and statements (simp_place.cpp, simp_stmt.cpp).
NODE* simp_UAND(NODE* node, LOOP* loop);
NODE* simp_UMULT(NODE* node, LOOP* loop);
NODE* simp_STDOT(NODE* node, LOOP* loop);
NODE* simp_STREF(NODE* node, LOOP* loop);
NODE* simp_call(NODE* node, LOOP* loop);
NODE* simp_MEMCPY(NODE* node, LOOP* loop);
NODE* simp_COMMAOP(NODE* node, LOOP* loop);
NODE* simp_SWITCH(NODE* node, LOOP* loop);
NODE* simp_IF(NODE* node, LOOP* loop);
NODE* simp_CBRANCH(NODE* node, LOOP* loop);
NODE* simp_ASSERT(NODE* node, LOOP* loop);
NODE* simp_vector_node(NODE* node, LOOP* loop);

// --- Shared (simp.cpp).

// Whether the tree has side effects; constant time for a tree that the simplification under way has been
// through.
bool has_effects(NODE* tree);

// Whether the operands of a node can be evaluated the other way round.
bool may_swap(NODE* a, NODE* b);

bool is_icon(const NODE* node);
bool is_icon(const NODE* node, std::int64_t value);
NODE* icon(const INT65& value, TYPE* type);

// The constant `effects, value` of the type, in place of `tree`, whose value is known: its effects stay.
NODE* known_value(NODE* tree, const INT65& value, TYPE* type, LOOP* loop);

// The value of `tree` in the type, in place of a node that has become a mere conversion.
NODE* converted(NODE* tree, TYPE* type, LOOP* loop);

// The operand of a node with one operand left over; the node and its other operand, which has no effects, go.
NODE* take_left(NODE* node);
NODE* take_right(NODE* node);

// A new node of the operator, simplified.
NODE* build(int op, NODE* left, NODE* right, TYPE* type, LOOP* loop);

#endif
