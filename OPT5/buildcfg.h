// From the statement list to the flow graph.

#ifndef OPT5_BUILDCFG_H
#define OPT5_BUILDCFG_H

// Turns the statement list of currfuninfo (held last statement first) into blocks and edges. Afterwards the
// list is empty, every block ends with its one transfer, the last block is the exit block with the function's
// only URETURN, and the first has no predecessor. Unreachable blocks stay. Blocks get
// counters, or the counts of a profile, where an option asks for that. Above level 1, tail recursion becomes
// a loop. Every label that a statement refers to must have been defined in the list.
void buildcfg();

// Derives all edges and label reference counts again from the blocks' last statements, and counts the blocks.
void rebuildcfg();

#endif
