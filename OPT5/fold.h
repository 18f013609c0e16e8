// Constant folding, and reduction of a tree to its side effects.

#ifndef OPT5_FOLD_H
#define OPT5_FOLD_H

class NODE;
struct LOOP;

// Folds the tree bottom-up in the target's arithmetic; returns the tree that replaces it. An operation whose
// result is not defined or not exact at compile time stays: division by zero, the negation of a type's
// minimum, a shift count outside the type, a floating operation that raises a flag. Linear; consumes the
// tree.
NODE* fold_constants(NODE* tree);

// The same for a node whose operands are folded already.
NODE* fold_node(NODE* node);

// Whether the node gives back its left operand: x + 0, x * 1 and the like.
bool is_identity(const NODE* node);

// Turns such a node into a conversion of the operand to the node's type, simplified.
NODE* drop_identity(NODE* node, LOOP* loop);

// The side effects of the tree, without its value; null where there are none. Consumes the tree.
NODE* peel_for_effect(NODE* tree);

#endif
