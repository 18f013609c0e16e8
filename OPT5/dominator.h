// Dominator and post-dominator trees of the current function.
//
// Built on demand and kept in the function's record. The method is the iterative one: over a reverse
// post-order, the dominator of a block is where the dominators of its predecessors meet, until nothing
// changes.
//
// Numbers are DFNs. Above the first block and every other block without predecessors stands 0; above the
// blocks without successors stands the virtual exit, bb_count + 1. A function whose exit block is out of
// reach leaves through the latches of its loops, so that it has a post-dominator tree too. A block that the
// walk does not reach (from the entries; for post-dominators, from the exits) keeps DOM_UNDEFINED.

#ifndef OPT5_DOMINATOR_H
#define OPT5_DOMINATOR_H

#include <vector>

class BBLK;

constexpr int DOM_UNDEFINED = -556;

class Dominator {
  public:
    std::vector<int> idom;
    std::vector<int> ipostdom;
    std::vector<BBLK*> dom_walk; // pre-order
    std::vector<BBLK*> postdom_walk;
    std::vector<std::vector<BBLK*>> dom_children; // each in layout order
    std::vector<std::vector<BBLK*>> postdom_children;
    int block_count;
    bool stale; // to be set by a pass that moves edges and keeps the number of blocks
    std::vector<BBLK*> dfn_to_bblk;

    // Builds for the current function, which must have blocks. DFNs are renumbered.
    Dominator();
    void rebuild();

    // The queries build again first if the graph is known to have changed: references that an earlier query
    // gave are void then. Blocks are given by DFN or by themselves.

    // Null where there is none: a root of the tree, a block out of reach, a number that is no block's.
    BBLK* immediate_dominator(int dfn);
    BBLK* immediate_dominator(const BBLK* bb);
    BBLK* immediate_post_dominator(int dfn);
    BBLK* immediate_post_dominator(const BBLK* bb);
    // Whether every way to (from) `b` leads over `a`; every block dominates itself. Linear in the depth.
    bool dominates(int a, int b);
    bool post_dominates(int a, int b);
    // The block of that number; null, and a debug line, where there is none.
    BBLK* DFSblock(int dfn);
    // A number above bb_count throws std::out_of_range. Number 0 has the roots of the dominator tree.
    const std::vector<BBLK*>& dominator_children(int dfn);
    const std::vector<BBLK*>& dominator_children(const BBLK* bb);
    const std::vector<BBLK*>& post_dominator_children(int dfn);
    const std::vector<BBLK*>& post_dominator_children(const BBLK* bb);
    // The trees in pre-order, children in layout order.
    const std::vector<BBLK*>& depth_first_doms();
    const std::vector<BBLK*>& depth_first_postdoms();
    // One line each to the debug file.
    void print_IDOM();
    void print_POSTDOM();

  private:
    void builder();
    void repair();
    bool has_block(int dfn) const { return dfn >= 1 && dfn <= block_count; }
    BBLK* block_at(int dfn) const { return has_block(dfn) ? dfn_to_bblk[dfn] : nullptr; }
    int virtual_exit() const { return block_count + 1; }

    void descend(BBLK* root, std::vector<BBLK*>& finished);
    void ascend(BBLK* root, std::vector<BBLK*>& finished);
    void df_traverse(const std::vector<BBLK*>& entries, std::vector<int>& order);
    void rdf_traverse(const std::vector<BBLK*>& exits, std::vector<int>& order);
    int intersect(int a, int b, const std::vector<int>& order);
    int post_intersect(int a, int b, const std::vector<int>& order);
    bool is_passed(int dfn) const { return passed_[dfn] == meetings_; }
    int pass(int dfn, const std::vector<int>& above);
    void find_dominators(const std::vector<int>& order);
    void find_post_dominators(const std::vector<int>& order);
    void find_latches(std::vector<BBLK*>& exits);
    void generate_tree_walk(const std::vector<BBLK*>& roots, const std::vector<std::vector<BBLK*>>& children,
                            std::vector<BBLK*>& walk);

    std::vector<BBLK*> by_order_; // the blocks reached, in the order of the iteration
    std::vector<int> passed_;     // by DFN: the last block for which a way up led past this one
    int meetings_ = 0;
};

// The current function's trees: made if there are none, built again if the graph has changed since, or with
// `anew` in any case. They belong to the function's record and live until its body goes.
Dominator& compute_dominators(bool anew);

#endif
