// Conversions that the file asks for and trees in memory may leave out.

#ifndef OPT5_CASTS_H
#define OPT5_CASTS_H

class NODE;

// Puts a conversion over every operand of the node whose type is not that in which the operator computes:
// arms of a conditional, both sides of arithmetic and comparisons, the right side of an assignment. Constants
// are converted in place. Returns the node.
NODE* insert_mandatory_casts(NODE* node);

// The same for every node of the tree.
NODE* insert_mandatory_casts_in_tree(NODE* tree);

#endif
