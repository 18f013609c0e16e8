// The order of blocks: what always holds of it, and how near it comes to the best.

#include <algorithm>
#include <ctime>

#include "OPT5/block_layout.h"
#include "OPT5/branch_prediction.h"
#include "OPT5/natural_loops.h"
#include "OPT5/rotate_loops.h"
#include "OPT5/simpcfg.h"
#include "random_graph.h"

namespace {

class LAYOUT : public RANDOM_GRAPH_TEST {
  protected:
    using ORDER = std::vector<const BBLK*>;

    static ORDER order() {
        ORDER list;
        for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) list.push_back(bb);
        return list;
    }
    // The transfers that are executed for one entry into the function.
    static double cost(const ORDER& order, const BRANCH_PREDICTION& prediction) {
        double sum = 0;
        for (std::size_t i = 0; i + 1 < order.size(); i++) {
            const BBLK* bb = order[i];
            const BBLK* next = order[i + 1];
            const NODE* transfer = last_statement(bb);
            if (transfer->op == op::BRANCH && bb->successors->bb != next) sum += prediction.frequency(bb);
            if (transfer->op != op::IF) continue;
            sum += prediction.frequency(bb);
            const BBLK* t = transfer->right->left->label->bb;
            const BBLK* f = transfer->right->right->label->bb;
            if (t != next && f != next)
                sum += std::min(prediction.frequency(bb, t), prediction.frequency(bb, f));
        }
        return sum;
    }
    static double best_cost(ORDER order, const BRANCH_PREDICTION& prediction) {
        double best = cost(order, prediction);
        std::sort(order.begin() + 1, order.end() - 1);
        do best = std::min(best, cost(order, prediction));
        while (std::next_permutation(order.begin() + 1, order.end() - 1));
        return best;
    }
    // A loop's blocks stand together, apart from those that are not expected to run.
    static void check_loops_are_whole() {
        const NATURAL_LOOPS loops;
        const BRANCH_PREDICTION prediction(loops);
        for (std::size_t i = 0; i < loops.loops().size(); i++) {
            int first = 0, last = 0, count = 0;
            for (const BBLK* bb : order()) {
                if (!loops.contains(static_cast<int>(i), bb) || prediction.is_cold(bb)) continue;
                if (count++ == 0) first = bb->dfn;
                last = bb->dfn;
            }
            EXPECT_EQ(last - first + 1, count) << "loop of BB" << loops.loops()[i].header->dfn;
        }
    }
    void build(std::mt19937& random, unsigned count) {
        begin_another(1);
        build_random(random, count, true, [&](unsigned) {
            stmt(inc(x));
            if (random() % 4 == 0) stmt(asg(y, name(g)));
        });
        simpcfg(false, false);
    }
};

} // namespace

TEST_F(LAYOUT, RandomGraphsKeepTheirShape) {
    std::mt19937 random(21);
    for (int round = 0; round < 1500 && !HasFailure(); round++) {
        build(random, 2 + random() % 20);
        SCOPED_TRACE(graph());
        ORDER before = order();
        if (round % 2 == 0) rotate_loops();
        EXPECT_TRUE(verify_function("rotating"));
        straighten_traces_in_cfg();
        EXPECT_TRUE(verify_function("straightening"));
        ORDER after = order();
        EXPECT_EQ(after.front(), before.front());
        EXPECT_EQ(after.back(), before.back());
        std::sort(before.begin(), before.end());
        std::sort(after.begin(), after.end());
        EXPECT_EQ(after, before);
        check_loops_are_whole();
    }
}

TEST_F(LAYOUT, RandomGraphsComeNearTheBestOrder) {
    std::mt19937 random(22);
    double as_read = 0, rotated = 0, straightened = 0, best = 0;
    for (int round = 0; round < 400; round++) {
        build(random, 3 + random() % 6);
        if (currfuninfo->bb_count > 8) continue;
        const BRANCH_PREDICTION prediction;
        as_read += cost(order(), prediction);
        best += best_cost(order(), prediction);
        rotate_loops();
        rotated += cost(order(), prediction);
        straighten_traces_in_cfg();
        straightened += cost(order(), prediction);
    }
    EXPECT_LT(rotated, as_read);
    EXPECT_LT(straightened, rotated);
    EXPECT_LT(straightened, best * 1.05) << "as read " << as_read << ", rotated " << rotated;
}

TEST_F(LAYOUT, LargeFunctionsAreFast) {
    std::mt19937 random(23);
    begin_another(1);
    build_random(random, 20000, true, [&](unsigned) { stmt(inc(x)); });
    const std::clock_t start = std::clock();
    rotate_loops();
    straighten_traces_in_cfg();
    EXPECT_LT(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, 5);
    EXPECT_TRUE(verify_function("straightening"));
}
