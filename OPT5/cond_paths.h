// Tests whose outcome is known on some of the ways to them.

#ifndef OPT5_COND_PATHS_H
#define OPT5_COND_PATHS_H

// Merges blocks that do the same, takes away tests that others have settled, and makes ways go past a test
// whose outcome is known on them: a flag that has just been set, the first turn of a counted loop. What
// stands ahead of the test in its block is copied for such a way, within a budget that follows from
// size_speed_goal. Loops keep a single entry. Only above level 0, and not with "disable:cps"; there must be
// no loop hierarchy. Edges and DFNs are right afterwards. Near linear in the function.
void straighten_cond_paths();

#endif
