// The order in which the blocks of a function are written.

#ifndef OPT5_BLOCK_LAYOUT_H
#define OPT5_BLOCK_LAYOUT_H

class BBLK;
class BRANCH_PREDICTION;

// Changes the order of the blocks so that control falls through where it goes most, as branch prediction has
// it: chains of blocks are joined from the most frequent edge down, a loop is kept together, the first block
// stays first and the exit block last, and what is not expected to run goes to the end. A block with pragmas
// of a loop is followed by that loop. Statements stay; so does the order of a function with marks of the code
// generator that depend on it. Off with the switch "disable:trace_straighten". Edges stay right, DFNs are
// right afterwards. Near linear in the function.
void straighten_traces_in_cfg();

// What it saves, in executed operators and taken jumps, if `to` is laid out behind `from`: 0 where it is no
// successor.
double fall_through_saving(const BRANCH_PREDICTION& prediction, const BBLK* from, const BBLK* to);

#endif
