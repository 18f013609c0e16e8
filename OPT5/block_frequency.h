// How often blocks run, from the probabilities of edges.

#ifndef OPT5_BLOCK_FREQUENCY_H
#define OPT5_BLOCK_FREQUENCY_H

#include <vector>

class BRANCH_PREDICTION;
class NATURAL_LOOPS;

// The frequencies of the blocks of the current function for one entry into it, by block id; 0 for blocks out
// of reach. BRANCH_PREDICTION::frequency is what passes ask. Near linear in the function.
std::vector<double> block_frequencies(const BRANCH_PREDICTION& prediction, const NATURAL_LOOPS& loops);

#endif
