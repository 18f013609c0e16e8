// The tree simplifier: puts every tree into the canonical form that the passes match against.
//
// A rule-driven, bottom-up rewriter working in place. Constants stand outermost right; sums of products are
// factored except where a product fits the 16 by 16 multiplier; multiplications are preferred to shifts;
// conditions compare against zero only implicitly. Simplifying a simplified tree changes nothing. A rule that
// cannot prove its condition leaves the tree alone, and no rule drops a side effect.

#ifndef OPT5_SIMP_H
#define OPT5_SIMP_H

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

#endif
