// Superblocks: likely paths with one entry, and what can be gained along them.

#ifndef OPT5_SUPERBLOCKS_H
#define OPT5_SUPERBLOCKS_H

// Chooses traces of blocks along the likeliest edges of the current function, within one loop each. Where a
// test is settled by what runs ahead of it on its trace, but not on other ways to it, the trace gets copies
// of its own of the blocks from the first other entry up to the test, and the test goes; the size of the
// copies is bound by size_speed_goal. An assignment to a private variable that is of use only behind a side
// exit moves there. Does nothing with "disable:superblock_opt", at level 0, and where control can move
// other than along edges; there must be no loop hierarchy. BBLK::trace is used meanwhile and null again
// afterwards. Edges and DFNs are right afterwards. Near linear in the function.
void optimize_superblocks_in_cfg();

#endif
