// The natural loops of the current function, found by its back edges: what a walk over blocks needs to know
// of them where no loop hierarchy stands. BBLK::loop is neither read nor changed.
//
// A back edge leads to a block that dominates its source; the loop of a header is what reaches one of its
// back edges without passing the header. Two loops are nested or have no block in common. A cycle with
// several entries has no header and is no loop.

#ifndef OPT5_NATURAL_LOOPS_H
#define OPT5_NATURAL_LOOPS_H

#include <vector>

class BBLK;
class Dominator;

constexpr int NO_LOOP = -1;

struct NATURAL_LOOP {
    BBLK* header;
    int parent;                  // number of the innermost loop around it, or NO_LOOP
    int depth;                   // 1 for an outermost loop
    int jump;                    // some loop around it, or NO_LOOP, for `common`
    int end;                     // the loops inside it have the numbers behind its own up to this, exclusive
    std::vector<BBLK*> latches;  // sources of the back edges, in layout order
    std::vector<BBLK*> contents; // the blocks of this loop and of no loop inside it, in layout order
};

// A snapshot: valid until an edge or the number of blocks changes. Near linear in the function.
class NATURAL_LOOPS {
  public:
    // Edges must be right. DFNs are renumbered if the dominator tree has to be built.
    NATURAL_LOOPS();

    // Outer loops stand ahead of the loops inside them; the number of a loop is its place here.
    const std::vector<NATURAL_LOOP>& loops() const { return loops_; }
    // The number of the innermost loop of the block, NO_LOOP where there is none.
    int innermost(const BBLK* bb) const { return innermost_[number(bb)]; }
    // How many loops the block is in.
    int depth(const BBLK* bb) const;
    // Whether the block is in the loop of that number. Everything is in NO_LOOP.
    bool contains(int loop, const BBLK* bb) const;
    // The innermost loop that both blocks are in. Logarithmic in the depth.
    int common(const BBLK* a, const BBLK* b) const;
    bool is_header(const BBLK* bb) const;
    // Whether control that takes the edge is back at a header whose loop it is in.
    bool is_back_edge(const BBLK* from, const BBLK* to) const;
    // Whether the edge leaves a loop.
    bool is_exit(const BBLK* from, const BBLK* to) const;

  private:
    static unsigned number(const BBLK* bb);
    bool dominates(const BBLK* a, const BBLK* b) const;
    void number_dominator_tree(Dominator& dominators);
    void order_loops();

    std::vector<NATURAL_LOOP> loops_;
    std::vector<int> innermost_;    // by block id
    std::vector<int> first_, last_; // by block id: the block's numbers in the dominator tree
};

#endif
