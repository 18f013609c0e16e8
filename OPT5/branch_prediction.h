// How likely the edges of the current function are, and how often its blocks run.
//
// What is known counts first: the counts of a profile and the probabilities on the labels of a transfer
// (NODE::edge_profile, NODE::freq), then those on edges (EDGE::freq). A block that ends the program, that
// is marked by the intrinsic "_never_executed", or that a profile has never seen entered is not expected to
// run. Where nothing is known, the
// heuristics of Ball and Larus speak, and where several do, their evidence is combined by the rule of
// Dempster and Shafer, as Wu and Larus propose.
//
// Frequencies count executions for one entry into the function. They follow from the probabilities, loop by
// loop from the inside out. A loop that nothing leaves is taken to turn a bounded number of times.
//
// The results stay in this object. EDGE::freq and BBLK::dFreqIn are not filled in: rebuildcfg drops edges,
// and a guess that is left there would be taken for knowledge by the next reader.

#ifndef OPT5_BRANCH_PREDICTION_H
#define OPT5_BRANCH_PREDICTION_H

#include <cstddef>
#include <vector>

class BBLK;
class NATURAL_LOOPS;

// Of an edge that is not expected to be taken; not zero, so that there is still an order among such edges.
constexpr double NEVER_TAKEN = 1e-6;

// A snapshot: valid until the graph or the statements change. Near linear in the function.
class BRANCH_PREDICTION {
  public:
    // Edges must be right; the second form shares loops that the caller has found. DFNs may be renumbered.
    BRANCH_PREDICTION();
    explicit BRANCH_PREDICTION(const NATURAL_LOOPS& loops);

    // Of the edge when `from` runs; 0 where there is no such edge. Those of a block's edges add up to 1.
    // Linear in the successors of the block.
    double probability(const BBLK* from, const BBLK* to) const;
    // The same for the successor of that position in the edge list, from 0.
    double probability(const BBLK* from, std::size_t successor) const;
    // How often the block runs for one entry into the function; at most MAX_FREQUENCY.
    double frequency(const BBLK* bb) const;
    // How often the edge is taken for one entry into the function.
    double frequency(const BBLK* from, const BBLK* to) const;
    // Whether the block, when it is entered, comes to a point that is never executed or that ends the
    // program.
    bool is_cold(const BBLK* bb) const;

    static constexpr double MAX_FREQUENCY = 1e100;

  private:
    void build(const NATURAL_LOOPS& loops);

    std::vector<std::size_t> first_edge_; // by block id: where its probabilities start
    std::vector<double> probability_;     // of the edges of all blocks, in edge list order
    std::vector<double> frequency_;       // by block id
    std::vector<bool> is_cold_;           // by block id
};

#endif
