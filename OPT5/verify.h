// The validators of the structure of a function.
//
// Between two steps the following holds of the current function:
//
// Blocks
//   B1  The list is doubly linked; the first block's `prev` is the last block, `layout_next` follows `next`.
//   B2  Every block belongs to this function, stands in its vector at its id, and is on the list once;
//       `bb_count` is the length of the list. While the numbering is valid, DFNs are 1, 2, 3...
//   B3  Every block ends with a transfer (BRANCH, IF, SWITCH, RETURN, URETURN) and has no other.
//   B4  The last block is the exit block: it ends with the function's only URETURN.
//   B5  The first block has no predecessor.
// Edges
//   E1  The successors of a block are the targets of its transfer, each once; RETURN leads to the exit block.
//   E2  The predecessors are the mirror of the successors, each once.
//   E3  Every LABEL has an LBL whose block is on the list.
// Trees
//   T1  No node is reachable twice, none is erased.
//   T2  A node has the operands that its operator asks for, and a type.
//   T3  Transfers, labels, cases and definitions of labels stand only where statements have them; IF has its
//   two
//       labels, SWITCH a list of CASE with a DEFAULT at the end.
//   T4  A node makes sense by itself: places in memory, pointers, members, representations (tree_check.h).
//   T5  Every symbol of a NAME is global or on the function's lists.

#ifndef OPT5_VERIFY_H
#define OPT5_VERIFY_H

// Checks the current function. At the first fault the run ends with a text that names the step, the
// function and the fault; true otherwise, also when no function is in work. Linear.
bool verify_function(const char* step);

#endif
