// Where the executions of a function are counted.
//
// The flow graph that buildcfg makes of the statements is the same in every run over the same file, whatever
// the level: so a run that counts and one that reads the counts back agree on the numbers of counters by
// making the same plan. In order of the layout, each block but the exit block has
//
//   start      a counter at its start, behind the prolog: how often the block was entered,
//   end        where it makes a call and has one successor, other than the exit block: a counter at its
//              end. A call may not come back, or come back twice,
//   edges      for each critical edge, in order of the successors: a counter on the edge. An edge is critical
//              that leaves a block with several successors for one that can be entered on other ways too.
//
// The count of any edge is then one of these: the end, or else the start, of a block with one successor; the
// start of a block with one predecessor; or its own. Nothing has to be inferred: the
// counts are exact also where a program leaves a function by longjmp or exit. Only the edges to the exit
// block do without that, as nothing is decided by them.

#ifndef OPT5_FLOW_PLAN_H
#define OPT5_FLOW_PLAN_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class BBLK;
struct FUNINFO;

class FLOW_PLAN {
  public:
    static constexpr std::uint32_t NONE = 0xffffffffu; // no counter

    // Of the current function, whose graph must be numbered. Linear.
    FLOW_PLAN();

    std::uint32_t counters() const { return count_; }
    // Of the graph's shape and of what the plan goes by: counts of another shape don't fit.
    std::uint32_t checksum() const { return checksum_; }

    // Numbers of counters; NONE where there is no such counter, and for the exit block.
    std::uint32_t start(const BBLK* bb) const;
    std::uint32_t end(const BBLK* bb) const;
    // For the successor of that position in the edge list, from 0: the edge's own counter.
    std::uint32_t edge(const BBLK* bb, std::size_t successor) const;

    // The counter that gives the executions of the edge to the successor of that position; never NONE.
    std::uint32_t counter_of_edge(const BBLK* from, std::size_t successor) const;

  private:
    struct BLOCK_COUNTERS {
        std::uint32_t start = NONE, end = NONE;
        std::size_t first_edge = 0; // in edges_
    };
    void add(std::uint32_t value);

    std::vector<BLOCK_COUNTERS> blocks_; // by DFN, from 1
    std::vector<std::uint32_t> edges_;
    std::uint32_t count_ = 0;
    std::uint32_t checksum_;
};

// The name under which a profile knows the function: its own, behind the name of its source file and a colon
// where it is static.
std::string flow_name(const FUNINFO* function);

#endif
