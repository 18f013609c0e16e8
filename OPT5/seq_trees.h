// Statement lists in sequence form: one effect a statement.

#ifndef OPT5_SEQ_TREES_H
#define OPT5_SEQ_TREES_H

struct LIST;

// Puts the statements of the function that is being read in sequence form: what has no effect goes, and the
// parts of a comma become statements of their own. A transfer's condition or value is freed of effects that
// come ahead of it.
void seq_trees();

// The same for a list in order of execution; returns its new head.
LIST* promote_toplevel_COMMAOPs_in_list(LIST* list);

#endif
