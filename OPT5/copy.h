// Copying trees and statement lists. Copies come from the current pool.

#ifndef OPT5_COPY_H
#define OPT5_COPY_H

class NODE;
struct LIST;

// A copy of the node alone: same payload, no operands. Symbols, types and labels are shared; the value of
// an FCON and a PPRAGMA's pragma are copied. With `keep_scratch` the analysis words come along.
NODE* copy_node(NODE* node, bool keep_scratch);

// A copy of the whole tree; null for null.
NODE* copy_tree(NODE* tree, bool keep_scratch);

// Copies of cells, positions and trees.
LIST* copy_statements(LIST* list, bool keep_scratch);

// Copies of the cells alone: the trees stay shared. Free the result with erase_tree_list_only.
LIST* copy_shared_statements(LIST* list);

#endif
