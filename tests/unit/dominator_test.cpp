// Dominators and post-dominators, against their definition.

#include <ctime>
#include <stdexcept>

#include "OPT5/buildcfg.h"
#include "OPT5/dominator.h"
#include "OPT5/erase.h"
#include "random_graph.h"

namespace {

using GRAPH = std::vector<std::vector<int>>; // by DFN

class DOMINATORS : public RANDOM_GRAPH_TEST {
  protected:
    static std::vector<int> successors_of(const BBLK* bb) {
        std::vector<int> list;
        for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next)
            list.push_back(edge->bb->dfn);
        return list;
    }
    static GRAPH forward() {
        GRAPH graph(1);
        for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
            graph.push_back(successors_of(bb));
        return graph;
    }
    static GRAPH reversed(const GRAPH& graph) {
        GRAPH result(graph.size());
        for (std::size_t i = 1; i < graph.size(); i++)
            for (int to : graph[i]) result[static_cast<std::size_t>(to)].push_back(static_cast<int>(i));
        return result;
    }
    static std::vector<bool> reach(const GRAPH& graph, const std::vector<int>& roots, int without) {
        std::vector<bool> seen(graph.size());
        std::vector<int> pending = roots;
        while (!pending.empty()) {
            const int at = pending.back();
            pending.pop_back();
            if (at == without || seen[at]) continue;
            seen[at] = true;
            pending.insert(pending.end(), graph[at].begin(), graph[at].end());
        }
        return seen;
    }
    // For every block the nearest one without which the roots do not lead to it; `top` where there is none.
    static std::vector<int> by_definition(const GRAPH& graph, const std::vector<int>& roots, int top) {
        const int count = static_cast<int>(graph.size()) - 1;
        const std::vector<bool> all = reach(graph, roots, 0);
        std::vector<std::vector<int>> above(graph.size());
        for (int a = 1; a <= count; a++) {
            const std::vector<bool> rest = reach(graph, roots, a);
            for (int b = 1; b <= count; b++)
                if (a != b && all[b] && !rest[b]) above[b].push_back(a);
        }
        std::vector<int> nearest(graph.size(), DOM_UNDEFINED);
        for (int b = 1; b <= count; b++) {
            if (!all[b]) continue;
            nearest[b] = top;
            for (int a : above[b])
                if (above[a].size() + 1 == above[b].size()) nearest[b] = a;
        }
        return nearest;
    }
    static std::vector<int> roots_of(const GRAPH& mirror) {
        std::vector<int> roots;
        for (std::size_t i = 1; i < mirror.size(); i++)
            if (mirror[i].empty()) roots.push_back(static_cast<int>(i));
        return roots;
    }
    static std::vector<int> ends_of(const GRAPH& graph) {
        const int exit = static_cast<int>(graph.size()) - 1;
        std::vector<int> ends{exit};
        if (reach(graph, {1}, 0)[exit]) return ends;
        const std::vector<bool> entered = reach(graph, roots_of(reversed(graph)), 0);
        for (int i = 1; i < exit; i++)
            if (entered[i] && graph[i].size() == 1 && graph[i][0] <= i) ends.push_back(i);
        return ends;
    }
    static void check_walk(const std::vector<BBLK*>& walk, const std::vector<int>& above) {
        std::vector<int> open; // the way from the root to the block before
        for (const BBLK* bb : walk) {
            const int parent = above[bb->dfn];
            while (!open.empty() && open.back() != parent) open.pop_back();
            EXPECT_TRUE(!open.empty() || parent == 0 || parent > currfuninfo->bb_count);
            open.push_back(bb->dfn);
        }
        std::size_t known = 0;
        for (std::size_t i = 1; i < above.size(); i++) known += above[i] != DOM_UNDEFINED ? 1 : 0;
        EXPECT_EQ(walk.size(), known);
    }
    static void check_against_definition() {
        Dominator& dominators = compute_dominators(false);
        const GRAPH graph = forward();
        const GRAPH mirror = reversed(graph);
        const int count = currfuninfo->bb_count;
        std::vector<int> dom = by_definition(graph, roots_of(mirror), 0);
        std::vector<int> post = by_definition(mirror, ends_of(graph), count + 1);
        dom[0] = dominators.idom[0];
        post[0] = dominators.ipostdom[0];
        EXPECT_EQ(dominators.idom, dom);
        EXPECT_EQ(dominators.ipostdom, post);
        check_walk(dominators.depth_first_doms(), dom);
        check_walk(dominators.depth_first_postdoms(), post);
    }
};

} // namespace

TEST_F(DOMINATORS, RandomGraphsFollowTheDefinition) {
    std::mt19937 random(7);
    for (int round = 0; round < 4000 && !HasFailure(); round++) {
        begin_another(0);
        build_random(random, 2 + random() % 14, round % 3 != 0, [this](unsigned) { stmt(inc(x)); });
        SCOPED_TRACE(graph());
        check_against_definition();
    }
}

TEST_F(DOMINATORS, QueriesAnswerByBlockAndByNumber) {
    stmt(cbranch(name(x), 1));
    stmt(inc(y));
    label(1);
    stmt(ret(name(y)));
    end(); // 1 -> 2 3, 2 -> 3, 3 -> 4
    Dominator& dominators = compute_dominators(false);
    EXPECT_EQ(dominators.immediate_dominator(3), block(1));
    EXPECT_EQ(dominators.immediate_dominator(block(1)), nullptr);
    EXPECT_EQ(dominators.immediate_dominator(99), nullptr);
    EXPECT_EQ(dominators.immediate_post_dominator(block(1)), block(3));
    EXPECT_EQ(dominators.immediate_post_dominator(4), nullptr);
    EXPECT_TRUE(dominators.dominates(1, 4));
    EXPECT_FALSE(dominators.dominates(2, 3));
    EXPECT_TRUE(dominators.dominates(2, 2));
    EXPECT_FALSE(dominators.dominates(1, 0));
    EXPECT_TRUE(dominators.post_dominates(3, 1));
    EXPECT_FALSE(dominators.post_dominates(2, 1));
    EXPECT_FALSE(dominators.post_dominates(1, 5));
    EXPECT_EQ(dominators.dominator_children(1), (std::vector<BBLK*>{block(2), block(3)}));
    EXPECT_EQ(dominators.post_dominator_children(block(3)), (std::vector<BBLK*>{block(1), block(2)}));
    EXPECT_EQ(dominators.DFSblock(2), block(2));
    EXPECT_EQ(dominators.DFSblock(5), nullptr);
    EXPECT_THROW(dominators.dominator_children(5), std::out_of_range);
}

TEST_F(DOMINATORS, StaleTreesAreRepairedAtFirstUse) {
    label(1);
    stmt(cbranch(name(x), 2));
    stmt(branch(1));
    label(2);
    stmt(ret(name(y)));
    end();
    Dominator& dominators = compute_dominators(false);
    EXPECT_EQ(&compute_dominators(false), &dominators);
    BBLK* const from = block(2);
    BBLK* const added = split_cfg_edge(from, block(4));
    EXPECT_EQ(dominators.immediate_dominator(added), from); // the number of blocks has changed
    EXPECT_EQ(added->dfn, 3);
    EXPECT_EQ(dominators.immediate_post_dominator(added), block(5));
    // The way out goes: nothing but the flag tells.
    LIST* last = last_cell(added);
    erase_tree(last->first);
    last->first = mk_BRANCH(from, nullptr);
    rebuildcfg();
    dominators.stale = true;
    EXPECT_EQ(dominators.immediate_dominator(5), nullptr);
    EXPECT_FALSE(dominators.stale);
    EXPECT_EQ(dominators.idom[5], 0);
    EXPECT_EQ(dominators.ipostdom[added->dfn], currfuninfo->bb_count + 1);
    check_against_definition();
}

TEST_F(DOMINATORS, HugeGraphsAreNearLinear) {
    // A ladder: every rung may leave for the end, and may repeat.
    constexpr unsigned RUNGS = 40000;
    for (unsigned i = 1; i <= RUNGS; i++) {
        label(i);
        stmt(cbranch(name(x), RUNGS + 1));
        stmt(cbranch(name(y), i));
    }
    label(RUNGS + 1);
    end();
    const std::clock_t start = std::clock();
    Dominator& dominators = compute_dominators(false);
    EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC);
    EXPECT_TRUE(dominators.dominates(2, currfuninfo->bb_count));
    EXPECT_EQ(dominators.depth_first_doms().size(), static_cast<std::size_t>(currfuninfo->bb_count));
    EXPECT_EQ(dominators.depth_first_postdoms().size(), static_cast<std::size_t>(currfuninfo->bb_count));
}
