// The tree simplifier: puts every tree into the canonical form that the passes match against.
//
// A rule-driven, bottom-up rewriter working in place. Constants stand outermost right; sums of products are
// factored except where a product fits the 16 by 16 multiplier; multiplications are preferred to shifts;
// conditions compare against zero only implicitly. Simplifying a simplified tree changes nothing. A rule that
// cannot prove its condition leaves the tree alone, and no rule drops a side effect.

#ifndef OPT5_SIMP_H
#define OPT5_SIMP_H

#include <map>
#include <vector>

#include "xint.h"

struct LOOP;
class NODE;

// Simplifies every statement of the current function in place.
void simp_all_trees();

// Simplifies the whole tree, operands first; returns what replaces it. `loop` is the loop in which the tree
// stands, or null. Linear; no recursion that grows with the tree.
NODE* simp_tree(NODE* tree, LOOP* loop);

// Simplifies the node alone: its operands are simplified already. Returns what replaces it.
NODE* simp_node(NODE* node, LOOP* loop);

// Simplifies a tree whose value is only compared with zero (operands simplified already): the result is zero
// exactly when the tree is, and may have another value and type otherwise.
NODE* simp_for_control(NODE* tree, LOOP* loop);

// One node of an operator family, called by simp_node; operands are simplified. Each returns the replacement.
NODE* simp_relop(NODE* node, LOOP* loop);
NODE* simp_ANDAND(NODE* node, LOOP* loop);
NODE* simp_OROR(NODE* node, LOOP* loop);
NODE* simp_EXCLAIM(NODE* node, LOOP* loop);
NODE* simp_QUEST(NODE* node, LOOP* loop);

// The tree as a truth value: `int`, 1 where the tree is not zero, else 0.
NODE* make_boolean(NODE* tree, LOOP* loop);

// The negation of a truth value: 1 where the tree is zero. Does not simplify.
NODE* invert_boolean_tree(NODE* tree);

// Whether the negation costs nothing: a comparison that has an inverse, a logical operator, a constant.
bool tree_is_trivially_invertible(const NODE* tree);

// Turns `a && b` and `a || b` of integral trees into bit arithmetic, where evaluating both sides is safe and
// cheap; else returns the node as it is. Operands have been through simp_for_control.
NODE* simp_ANDOR_ANDOR(NODE* node, LOOP* loop);

// Nodes on the longest way from the root to a leaf; the subtree `leaf` (may be null) counts as one. Above
// `limit` the answer is `limit` + 1, so that the cost is bounded.
int andor_andor_height(NODE* tree, int limit, NODE* leaf);

// Whether one bit alone decides if the tree is zero, so that it may stand in an `&` test with another. With
// `make`, a tree that is cheap to turn into such a form is: a comparison becomes the bit it gives, a
// conversion that no test sees goes. False: the tree is as it was.
bool find_or_make_safe_for_ANDB(NODE*& tree, bool make);

// What may be evaluated without need. An access or division is safe where an evaluated one proves it so.
// Whether evaluating the access or division `strict` without a fault proves that `other` has none either.
bool strict_expr_allows_strict_expr(NODE* strict, NODE* other);
// The same, where any access or division that `lhs` always evaluates may be the proof.
bool rln_SX_allows_rhs_SX(NODE* lhs, NODE* other);
// Whether reading the lvalue can never fault: a named object, or a part of one at a fixed place.
bool lvalue_is_inherently_strict(NODE* lvalue);
// Whether evaluating `rhs` may fault unless `lhs` is evaluated first and decides against it.
bool rhs_may_need_guard_in_lhs(NODE* rhs, NODE* lhs);

// A memory access taken apart: address units [offset, offset + size) from the address that `base` gives.
// Members and constant addends are part of the offset.
struct STRICT_ACCESS {
    NODE* base; // part of the tree
    bool base_is_place;
    long long offset, size;
};
// Takes the access apart; false for a tree that is none or whose place is not known that way.
bool expand_and_raise_expr(NODE* tree, STRICT_ACCESS& access);

// The test under what is known: `outcomes` maps the numbers of `tests` that are known to 0 or 1 (a MIXVALUE
// in the test stands for the number it holds). A test that is one of these, its negation, or decided by them,
// becomes an ICON, also as a part of a logical operator. Consumes the simplified test, returns what replaces
// it.
NODE* simp_redundant_test(NODE* test, std::map<int, int>& outcomes, const std::vector<NODE*>& tests,
                          LOOP* loop);

#endif
