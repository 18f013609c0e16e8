// Calls of a function by itself as its last act.

#ifndef OPT5_TAIL_RECURSION_H
#define OPT5_TAIL_RECURSION_H

// Turns each call of the current function by itself, of which nothing but the return follows, into
// assignments to the parameters and a jump to the start. Only above level 1. The graph must stand and be
// numbered; edges and DFNs are right afterwards.
void remove_tail_recursion();

#endif
