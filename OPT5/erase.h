// Erasing trees, lists and whole function bodies.

#ifndef OPT5_ERASE_H
#define OPT5_ERASE_H

class NODE;
struct LIST;

// Frees the node alone. A node that is erased already ends the run.
void erase_node(NODE* node);

// Frees the tree; returns null. A null tree is legal. A CSE_DUPE does not own its operands.
NODE* erase_tree(NODE* tree);

// Frees cells and trees; returns null.
LIST* erase_tree_list(LIST* list);
// Frees the cells and leaves the trees alone; returns null.
LIST* erase_tree_list_only(LIST* list);
// Frees cells from `list` on up to `stop`, which stays, and their trees when `with_trees`; returns `stop`.
LIST* erase_tree_list_to_entry(LIST* list, LIST* stop, bool with_trees);

// Frees everything of the current function's body: blocks, trees, local symbols, scopes. The record stays.
void erase_all();

#endif
