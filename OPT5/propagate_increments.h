// Increments within a block.

#ifndef OPT5_PROPAGATE_INCREMENTS_H
#define OPT5_PROPAGATE_INCREMENTS_H

// Joins the increments by constants that a private integer or pointer has in a block: uses between them take
// the value with an offset. *p++ = a; *p++ = b becomes *p = a; *(p + 1) = b; p += 2. Changes a block only
// where that leaves fewer operators to execute. An increment whose old value is used becomes a statement of
// its own. A copy of the variable that dies in the block may give its uses to the variable: t = p; p += 1; *t
// = a becomes *p = a; p += 1. Nothing in a function whose flow is not known. Needs right edges; leaves blocks
// and edges alone. Linear.
void propagate_increments();

#endif
