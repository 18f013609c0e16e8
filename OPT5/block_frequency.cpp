// Within a loop one walk in reverse postorder gives each block's frequency for one turn; the share that comes
// back to the header says how many turns there are. Then the loop counts as one block. A weighted union-find
// keeps each block's frequency relative to the header of the loop that is finished, so that an edge which
// leaves several loops costs no more. Cycles with several entries are carried around a fixed number of times.

#include "block_frequency.h"

#include <algorithm>
#include <cstddef>

#include "bblk.h"
#include "branch_prediction.h"
#include "fileopt.h"
#include "files.h"
#include "natural_loops.h"

namespace {

// So often turns a loop that nothing leaves.
constexpr double MAX_TURNS = 1000;

// So often a cycle with several entries is carried around.
constexpr int ROUNDS = 8;

class PROPAGATOR {
  public:
    PROPAGATOR(const BRANCH_PREDICTION& prediction, const NATURAL_LOOPS& loops);
    std::vector<double> run();

  private:
    struct INCOMING {
        const BBLK* from;
        double probability;
    };
    void find_order();
    void run_loop(int loop);
    void carry_around(std::vector<double>& frequency) const;
    double inflow(const BBLK* bb, int loop);
    double relative(const BBLK* bb);
    static double bounded(double value) { return std::min(value, BRANCH_PREDICTION::MAX_FREQUENCY); }
    bool is_entry(const BBLK* bb) const { return bb == currfuninfo->bb_list; }

    const BRANCH_PREDICTION& prediction_;
    const NATURAL_LOOPS& loops_;
    std::vector<double> weight_;            // by block id: relative to `above_`
    std::vector<const BBLK*> above_;        // by block id: the header whose loop has taken the block in
    std::vector<BBLK*> order_;              // reverse postorder
    std::vector<std::size_t> place_;        // by block id: in `order_`, from 1; 0 out of reach
    std::vector<std::vector<BBLK*>> nodes_; // by loop, the whole function first: blocks, and inner headers
    std::vector<std::vector<INCOMING>> incoming_; // by block id, from blocks in reach
    std::vector<double> turns_;                   // by loop
    std::vector<const BBLK*> chain_;
};

PROPAGATOR::PROPAGATOR(const BRANCH_PREDICTION& prediction, const NATURAL_LOOPS& loops)
    : prediction_(prediction), loops_(loops), weight_(currfuninfo->blocks.size()),
      above_(currfuninfo->blocks.size()), place_(currfuninfo->blocks.size()),
      nodes_(loops.loops().size() + 1), incoming_(currfuninfo->blocks.size()),
      turns_(loops.loops().size(), 1.0) {}

void PROPAGATOR::find_order() {
    clear_visited();
    append_post_order(currfuninfo->bb_list, &BBLK::successors, order_);
    clear_visited();
    std::reverse(order_.begin(), order_.end());
    for (std::size_t i = 0; i < order_.size(); i++) {
        BBLK* bb = order_[i];
        place_[bb->uon()] = i + 1;
        const int loop = loops_.innermost(bb);
        nodes_[static_cast<std::size_t>(loop + 1)].push_back(bb);
        if (loops_.is_header(bb))
            nodes_[static_cast<std::size_t>(loops_.loops()[loop].parent + 1)].push_back(bb);
        std::size_t successor = 0;
        for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next)
            incoming_[edge->bb->uon()].push_back({bb, prediction_.probability(bb, successor++)});
    }
}

// The block's frequency for one entry into the outermost loop that has taken it in. Shortens the way up.
double PROPAGATOR::relative(const BBLK* bb) {
    chain_.clear();
    while (const BBLK* above = above_[bb->uon()]) {
        chain_.push_back(bb);
        bb = above;
    }
    double product = 1;
    for (auto below = chain_.rbegin(); below != chain_.rend(); ++below) {
        double& weight = weight_[(*below)->uon()];
        weight = product = bounded(product * weight);
        above_[(*below)->uon()] = bb;
    }
    return bounded(product * weight_[bb->uon()]);
}

// What comes to a block of the loop from within it, forwards.
double PROPAGATOR::inflow(const BBLK* bb, int loop) {
    double sum = is_entry(bb) ? 1 : 0;
    const int own = loops_.innermost(bb);
    for (const INCOMING& edge : incoming_[bb->uon()]) {
        const BBLK* from = edge.from;
        if (place_[from->uon()] >= place_[bb->uon()] || !loops_.contains(loop, from)) continue;
        if (own != loop && loops_.contains(own, from)) continue;
        sum += relative(from) * edge.probability;
    }
    return bounded(sum);
}

void PROPAGATOR::run_loop(int loop) {
    BBLK* header = loop == NO_LOOP ? nullptr : loops_.loops()[loop].header;
    const std::vector<BBLK*>& nodes = nodes_[static_cast<std::size_t>(loop + 1)];
    for (BBLK* bb : nodes) {
        double weight = bb == header ? 1 : inflow(bb, loop);
        const int own = loops_.innermost(bb);
        if (own != loop) weight *= turns_[own];
        weight_[bb->uon()] = bounded(weight);
    }
    if (header == nullptr) return;
    double returning = 0;
    for (const INCOMING& edge : incoming_[header->uon()])
        if (loops_.contains(loop, edge.from)) returning += relative(edge.from) * edge.probability;
    turns_[loop] = 1 / (1 - std::min(returning, 1 - 1 / MAX_TURNS));
    for (const BBLK* bb : nodes)
        if (bb != header) above_[bb->uon()] = header;
}

// In a graph with cycles that have several entries, edges that lead back to one have been left out so far.
void PROPAGATOR::carry_around(std::vector<double>& frequency) const {
    const bool has_other_cycles = std::any_of(order_.begin(), order_.end(), [this](const BBLK* bb) {
        for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next)
            if (place_[edge->bb->uon()] <= place_[bb->uon()] && !loops_.is_back_edge(bb, edge->bb))
                return true;
        return false;
    });
    if (!has_other_cycles) return;
    for (int round = 0; round < ROUNDS; round++)
        for (const BBLK* bb : order_) {
            double sum = is_entry(bb) ? 1 : 0;
            for (const INCOMING& edge : incoming_[bb->uon()])
                sum += frequency[edge.from->uon()] * edge.probability;
            frequency[bb->uon()] = bounded(sum);
        }
}

std::vector<double> PROPAGATOR::run() {
    find_order();
    for (int loop = static_cast<int>(loops_.loops().size()); loop-- > 0;) run_loop(loop);
    run_loop(NO_LOOP);
    std::vector<double> frequency(weight_.size());
    for (const BBLK* bb : order_) frequency[bb->uon()] = relative(bb);
    carry_around(frequency);
    return frequency;
}

} // namespace

std::vector<double> block_frequencies(const BRANCH_PREDICTION& prediction, const NATURAL_LOOPS& loops) {
    return PROPAGATOR(prediction, loops).run();
}
