// Loops with their test at the bottom.

#ifndef OPT5_ROTATE_LOOPS_H
#define OPT5_ROTATE_LOOPS_H

// Changes the order of blocks, not their statements: where a loop ends with a jump back to blocks that lead
// to its test, those blocks move to the loop's end, so that the jump becomes the fall through and the test
// jumps back itself. DFNs are right afterwards. Linear in the function.
void rotate_loops();

#endif
