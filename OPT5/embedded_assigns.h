// Assignments inside of expressions as statements.

#ifndef OPT5_EMBEDDED_ASSIGNS_H
#define OPT5_EMBEDDED_ASSIGNS_H

// Moves assignments, compound ones and increments included, that stand inside of a statement's expression, a
// condition, an argument or the value that a function returns, ahead of the statement. What stays in the
// place of one is the variable that it assigns, or a temporary or constant with the same value.
//
// An assignment moves only past what can neither affect it nor be affected by it, and never out of a part
// that is evaluated under a condition. Volatile accesses and calls keep their number and order. Assignments
// to bit-fields and to volatile places stay where they are. Edges stay as they are. Linear.
void promote_all_embedded_assignments();

#endif
