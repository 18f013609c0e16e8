// Local common subexpressions.

#ifndef OPT5_LCSE_H
#define OPT5_LCSE_H

// Computes expressions of the current function once where they stand several times on one path through
// blocks of which each has the one before as its only predecessor: from the first time on, the value is kept
// in a variable that holds it anyway or in a temporary. Only what costs at least an operator counts; what is
// compared or converted is not worth it. Does nothing in a function whose flow is not known.
//
// Needs right edges; leaves blocks and edges alone. Linear.
void lcse();

#endif
