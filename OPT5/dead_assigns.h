// Removal of assignments whose value nobody reads.

#ifndef OPT5_DEAD_ASSIGNS_H
#define OPT5_DEAD_ASSIGNS_H

class NODE;

// Takes away assignments to private symbols of the current function, compound ones and increments included,
// where the value stored is never read. What the right side does besides stays; where the value of the
// assignment itself is used, it stays too. The argument prolog is left alone.
//
// Without `use_flow`, a symbol loses its assignments when all that reads it computes values for such symbols.
// With `use_flow`, so do those assignments whose value no way through the function reads. With `cleanup`,
// statements that have no effect go, and so do locals and temporaries that nothing names.
//
// Needs right edges; leaves blocks and edges alone. A condition may become constant. Near linear.
void elim_dead_assigns(bool use_flow, bool cleanup);

// What is left of a statement that is an assignment in vain: the effects of its right side, null where it has
// none. The left side must have no effects. Consumes the assignment.
NODE* effects_of_assignment(NODE* assignment);

#endif
