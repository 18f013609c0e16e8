// Whether a single node makes sense: what its operator asks of its operands' kinds and types.

#ifndef OPT5_TREE_CHECK_H
#define OPT5_TREE_CHECK_H

#include <string>

class NODE;

// The operator's name for messages; never null.
const char* name_of(const NODE* node);

// What is wrong with the node, in words; empty when nothing is. The node and its operands have types, and
// the operands are as many as the operator asks for.
//
//   - Under an assignment's left and UAND stands a place in memory; STDOT has an aggregate, UMULT and STREF a
//     pointer; the member of STDOT and STREF is a FIELD whose member belongs to its aggregate.
//   - Both operands of an arithmetic operator and of a comparison have the operation's representation, as do
//     both sides of an assignment of numbers, but for bit-fields. Comparisons and logical operators give an
//     integer, and a plain comparison has no floating operands.
//   - The condition of a transfer is a value that can be compared with zero.
std::string node_fault(const NODE* node);

#endif
