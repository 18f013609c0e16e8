// Operator classes and small makers beside those of node.h.

#ifndef OPT5_OPT_EXPR_H
#define OPT5_OPT_EXPR_H

struct PSN;

// Assignments: the plain and structure forms, the assign-op forms, and PLUSPLUS and MINMIN.
bool opcode_is_ASG(int op);

// The operators that end a block: BRANCH, IF, SWITCH, RETURN, URETURN.
bool opcode_is_transfer(int op);

// A copy from the current pool; null for null.
PSN* mk_psn(const PSN* psn);

#endif
