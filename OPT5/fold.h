// Constant folding, and reduction of a tree to its side effects.

#ifndef OPT5_FOLD_H
#define OPT5_FOLD_H

class NODE;

// Folds the tree bottom-up in the target's arithmetic; returns the tree that replaces it. An operation whose
// result is not defined or not exact at compile time stays: division by zero, the negation of a type's
// minimum, a shift count outside the type, a floating operation that raises a flag. Linear; consumes the
// tree.
NODE* fold_constants(NODE* tree);

// The same for a node whose operands are folded already.
NODE* fold_node(NODE* node);

// The side effects of the tree, without its value; null where there are none. Consumes the tree.
NODE* peel_for_effect(NODE* tree);

#endif
