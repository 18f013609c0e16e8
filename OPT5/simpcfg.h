// Cleaning the flow graph of the current function.

#ifndef OPT5_SIMPCFG_H
#define OPT5_SIMPCFG_H

// Cleans the graph until nothing changes: unreachable blocks go, branches with one outcome lose their
// condition, jumps to jumps are threaded, blocks that follow each other without a choice are joined, and
// short blocks are copied to where a jump to them stands. With `quest_is_ok`, small conditional assignments
// become expressions; without it there must be no loop hierarchy. With `cross_jump_ok`,
// do_early_cross_jumping comes first. Edges and DFNs are right afterwards. Near linear in the function.
void simpcfg(bool quest_is_ok, bool cross_jump_ok);

// Merges blocks that do the same and go on to the same place, and takes away tests whose outcome an earlier
// test has settled. Only above level 0. Unreachable blocks may be left; edges and DFNs are right.
void do_early_cross_jumping();

// Drops the cases of each SWITCH that its selector can't have, and the DEFAULT where the cases cover every
// value left. Ends the run if the first block has a predecessor. Edges and DFNs are right afterwards.
void optimize_SWITCH_cases();

#endif
