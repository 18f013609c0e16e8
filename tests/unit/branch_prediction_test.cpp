// Natural loops, probabilities and frequencies, against their definitions.

#include <algorithm>
#include <cmath>
#include <ctime>
#include <set>

#include "OPT5/branch_prediction.h"
#include "OPT5/dominator.h"
#include "OPT5/natural_loops.h"
#include "OPT5/pragma.h"
#include "random_graph.h"

namespace {

using BLOCKS = std::set<const BBLK*>;

class PREDICTION : public RANDOM_GRAPH_TEST {
  protected:
    static std::vector<const BBLK*> all_blocks() {
        std::vector<const BBLK*> list;
        for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) list.push_back(bb);
        return list;
    }
    // What can be reached from the blocks without passing `without`.
    static BLOCKS reach(std::vector<const BBLK*> pending, EDGE* BBLK::*edges, const BBLK* without) {
        BLOCKS seen;
        while (!pending.empty()) {
            const BBLK* bb = pending.back();
            pending.pop_back();
            if (bb == without || !seen.insert(bb).second) continue;
            for (const EDGE* edge = bb->*edges; edge != nullptr; edge = edge->next)
                pending.push_back(edge->bb);
        }
        return seen;
    }
    static std::vector<const BBLK*> roots() {
        std::vector<const BBLK*> list = all_blocks();
        std::erase_if(list, [](const BBLK* bb) { return bb->predecessors != nullptr; });
        return list;
    }
    // Every natural loop, by its header.
    static std::map<const BBLK*, BLOCKS> loops_by_definition() {
        std::map<const BBLK*, BLOCKS> loops;
        const BLOCKS reached = reach(roots(), &BBLK::successors, nullptr);
        for (const BBLK* header : reached) {
            const BLOCKS rest = reach(roots(), &BBLK::successors, header);
            for (const EDGE* edge = header->predecessors; edge != nullptr; edge = edge->next) {
                if (!reached.contains(edge->bb) || rest.contains(edge->bb)) continue;
                loops[header].insert(header);
                for (const BBLK* bb : reach({edge->bb}, &BBLK::predecessors, header))
                    if (reached.contains(bb)) loops[header].insert(bb);
            }
        }
        return loops;
    }
    static void check_loops() {
        const NATURAL_LOOPS found;
        const auto loops = loops_by_definition();
        ASSERT_EQ(found.loops().size(), loops.size());
        for (std::size_t i = 0; i < found.loops().size(); i++) {
            const NATURAL_LOOP& loop = found.loops()[i];
            ASSERT_TRUE(loops.contains(loop.header));
            for (const BBLK* bb : all_blocks())
                EXPECT_EQ(found.contains(static_cast<int>(i), bb), loops.at(loop.header).contains(bb));
            EXPECT_LT(loop.parent, static_cast<int>(i));
        }
        for (const BBLK* bb : all_blocks()) {
            const BBLK* header = nullptr; // of the smallest loop around the block
            int depth = 0;
            for (const auto& [head, body] : loops) {
                if (!body.contains(bb)) continue;
                depth++;
                if (header == nullptr || body.size() < loops.at(header).size()) header = head;
            }
            EXPECT_EQ(found.depth(bb), depth);
            const int inner = found.innermost(bb);
            EXPECT_EQ(inner == NO_LOOP ? nullptr : found.loops()[inner].header, header);
            for (const BBLK* other : all_blocks()) {
                int common = inner;
                while (!found.contains(common, other)) common = found.loops()[common].parent;
                EXPECT_EQ(found.common(bb, other), common);
            }
        }
    }
    // Whether every edge that leads back, in the order of a walk, is one of a natural loop.
    static bool is_reducible(const NATURAL_LOOPS& loops) {
        std::vector<BBLK*> order;
        clear_visited();
        append_post_order(currfuninfo->bb_list, &BBLK::successors, order);
        clear_visited();
        std::map<const BBLK*, std::size_t> place;
        for (std::size_t i = 0; i < order.size(); i++) place[order[i]] = i;
        for (const BBLK* bb : order)
            for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next)
                if (place[edge->bb] >= place[bb] && !loops.is_back_edge(bb, edge->bb)) return false;
        return true;
    }
    // The solution of "what comes in runs", by elimination; empty where there is none. Weights of the edges
    // are those of the prediction.
    static std::map<const BBLK*, double> solved(const BRANCH_PREDICTION& prediction) {
        const BLOCKS reached = reach({currfuninfo->bb_list}, &BBLK::successors, nullptr);
        const std::vector<const BBLK*> list(reached.begin(), reached.end());
        const std::size_t n = list.size();
        std::vector<std::vector<double>> m(n, std::vector<double>(n + 1));
        for (std::size_t i = 0; i < n; i++) {
            m[i][n] = list[i] == currfuninfo->bb_list ? 1 : 0;
            for (std::size_t j = 0; j < n; j++)
                m[i][j] = (i == j ? 1 : 0) - prediction.probability(list[j], list[i]);
        }
        for (std::size_t k = 0; k < n; k++) {
            std::size_t pivot = k;
            for (std::size_t i = k; i < n; i++)
                if (std::abs(m[i][k]) > std::abs(m[pivot][k])) pivot = i;
            if (std::abs(m[pivot][k]) < 1e-6) return {};
            std::swap(m[k], m[pivot]);
            for (std::size_t i = 0; i < n; i++) {
                if (i == k) continue;
                const double factor = m[i][k] / m[k][k];
                for (std::size_t j = k; j <= n; j++) m[i][j] -= factor * m[k][j];
            }
        }
        std::map<const BBLK*, double> solution;
        for (std::size_t i = 0; i < n; i++) solution[list[i]] = m[i][n] / m[i][i];
        return solution;
    }
    static void check_probabilities(const BRANCH_PREDICTION& prediction) {
        for (const BBLK* bb : all_blocks()) {
            double sum = 0;
            std::size_t i = 0;
            for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next, i++) {
                EXPECT_EQ(prediction.probability(bb, edge->bb), prediction.probability(bb, i));
                EXPECT_GT(prediction.probability(bb, i), 0);
                sum += prediction.probability(bb, i);
            }
            EXPECT_NEAR(sum, i > 0 ? 1 : 0, 1e-9);
        }
    }
    // True where frequencies had to be exact.
    static bool check_frequencies(const BRANCH_PREDICTION& prediction) {
        const auto exact = solved(prediction);
        const bool is_exact = is_reducible(NATURAL_LOOPS());
        const BLOCKS reached = reach({currfuninfo->bb_list}, &BBLK::successors, nullptr);
        for (const BBLK* bb : all_blocks()) {
            const double frequency = prediction.frequency(bb);
            if (!reached.contains(bb)) {
                EXPECT_EQ(frequency, 0);
                continue;
            }
            EXPECT_GT(frequency, 0);
            EXPECT_LE(frequency, BRANCH_PREDICTION::MAX_FREQUENCY);
            if (exact.empty()) continue;
            const double limit = exact.at(bb);
            if (is_exact) {
                EXPECT_NEAR(frequency, limit, limit * 1e-6);
            }
            EXPECT_LE(frequency, limit * (1 + 1e-6));
        }
        return is_exact && !exact.empty();
    }
    double chance_of_arm(unsigned number) const {
        const BBLK* bb = currfuninfo->bb_list;
        while (bb->successors->next == nullptr) bb = bb->successors->bb;
        const NODE* arms = last_statement(bb)->right;
        return BRANCH_PREDICTION().probability(bb, (number == 1 ? arms->left : arms->right)->label->bb);
    }
};

} // namespace

TEST_F(PREDICTION, RandomLoopsFollowTheDefinition) {
    std::mt19937 random(11);
    for (int round = 0; round < 1500 && !HasFailure(); round++) {
        begin_another(0);
        build_random(random, 2 + random() % 14, round % 3 != 0, [this](unsigned) { stmt(inc(x)); });
        SCOPED_TRACE(graph());
        check_loops();
    }
}

TEST_F(PREDICTION, RandomFrequenciesSolveTheFlowEquations) {
    std::mt19937 random(12);
    int exact = 0;
    for (int round = 0; round < 1500 && !HasFailure(); round++) {
        begin_another(2);
        build_random(random, 2 + random() % 10, true, [&](unsigned) { random_statement(random); });
        SCOPED_TRACE(graph());
        const BRANCH_PREDICTION prediction;
        check_probabilities(prediction);
        exact += check_frequencies(prediction) ? 1 : 0;
    }
    EXPECT_GT(exact, 500);
}

// What is written on labels counts before any guess, also where it is about one label of several.
TEST_F(PREDICTION, KnowledgeOnLabelsIsKept) {
    stmt(cbranch(name(x), 1));
    stmt(inc(y));
    label(1);
    stmt(switch_on(name(y), comma(comma(case_of(1, 2), case_of(2, 3)), default_to(4))));
    label(2);
    stmt(inc(x));
    label(3);
    stmt(inc(x));
    label(4);
    stmt(ret(name(x)));
    end_uncleaned();
    const BBLK* test = block(1);
    NODE* arms = last_statement(test)->right;
    arms->left->freq = 0.125;
    EXPECT_NEAR(BRANCH_PREDICTION().probability(test, block(2)), 0.125, 1e-12);
    EXPECT_NEAR(BRANCH_PREDICTION().probability(test, block(3)), 0.875, 1e-12);
    arms->left->edge_profile = 30; // a profile of one label alone says nothing
    EXPECT_NEAR(BRANCH_PREDICTION().probability(test, block(2)), 0.125, 1e-12);
    arms->right->edge_profile = 10;
    EXPECT_NEAR(BRANCH_PREDICTION().probability(test, block(2)), 0.75, 1e-12);
    const BBLK* choice = block(3);
    last_statement(choice)->right->right->left->freq = 0.5; // DEFAULT
    EXPECT_NEAR(BRANCH_PREDICTION().probability(choice, block(6)), 0.5, 1e-12);
    EXPECT_NEAR(BRANCH_PREDICTION().probability(choice, block(4)), 0.25, 1e-12);
}

TEST_F(PREDICTION, WhatEndsTheProgramIsNotExpected) {
    SYMTAB* stop = function("stop", SC_EXTERN);
    pragma(stop, PRAG_FUNC_NEVER_RETURNS);
    begin_another(0);
    stmt(cbranch(name(x), 1));
    stmt(inc(y)); // leads to the end only
    stmt(call(stop));
    stmt(inc(x)); // comes from the end only
    label(1);
    stmt(ret(name(x)));
    end_uncleaned();
    EXPECT_LT(chance_of_arm(1), 1e-5);
    EXPECT_TRUE(BRANCH_PREDICTION().is_cold(block(2)));

    // Where all ways end the program, that is the ordinary course of things.
    begin_another(0);
    stmt(cbranch(name(x), 1));
    stmt(call(stop));
    label(1);
    stmt(inc(y));
    stmt(call(stop));
    end_uncleaned();
    EXPECT_FALSE(BRANCH_PREDICTION().is_cold(block(2)));
    EXPECT_GT(chance_of_arm(1), 0.01);
}

// What each heuristic says where nothing else speaks.
TEST_F(PREDICTION, FormsOfConditions) {
    const auto chance = [&](const std::function<NODE*()>& make) {
        begin_another(0);
        stmt(cbranch(make(), 1));
        stmt(inc(y));
        stmt(branch(2));
        label(1);
        stmt(inc(y));
        label(2);
        stmt(ret(name(y)));
        end_uncleaned();
        return chance_of_arm(1);
    };
    EXPECT_LT(chance([&] { return compare(op::EQ, name(p), name(q)); }), 0.5);
    EXPECT_GT(chance([&] { return name(p); }), 0.5);
    EXPECT_LT(chance([&] { return compare(op::LT, name(x), icon(0)); }), 0.2);
    EXPECT_GT(chance([&] { return compare(op::GE, name(x), icon(1)); }), 0.8);
    EXPECT_LT(chance([&] { return compare(op::EQ, name(x), icon(7)); }), 0.2);
    EXPECT_GT(chance([&] { return tree(op::EXCLAIM, int_type, compare(op::EQ, name(x), icon(7))); }), 0.8);
    EXPECT_EQ(chance([&] { return compare(op::LT, name(x), icon(9)); }), 0.5);
}

TEST_F(PREDICTION, DeepAndWideFunctionsAreFast) {
    const std::clock_t start = std::clock();
    constexpr unsigned DEPTH = 7000;
    begin_another(0);
    for (unsigned i = 1; i <= DEPTH; i++) {
        label(i);
        stmt(inc(x));
        stmt(cbranch(name(y), 2 * DEPTH + 1)); // out of all loops
    }
    for (unsigned i = DEPTH; i >= 1; i--) stmt(cbranch(compare(op::GT, name(x), name(y)), i));
    label(2 * DEPTH + 1);
    stmt(ret(name(x)));
    end_uncleaned();
    const BRANCH_PREDICTION nest;
    EXPECT_LE(nest.frequency(block(DEPTH)), BRANCH_PREDICTION::MAX_FREQUENCY);
    EXPECT_GT(nest.frequency(block(DEPTH)), 0);
    begin_another(0);
    NODE* list = case_of(0, 1);
    for (unsigned i = 1; i < 20000; i++) list = comma(list, case_of(static_cast<int>(i), 1 + i));
    stmt(switch_on(name(x), comma(list, default_to(1))));
    for (unsigned i = 0; i < 20000; i++) {
        label(1 + i);
        stmt(inc(y));
        stmt(branch(20001));
    }
    label(20001);
    stmt(ret(name(x)));
    end_uncleaned();
    EXPECT_NEAR(BRANCH_PREDICTION().frequency(block(20002)), 1, 1e-6);
    EXPECT_LT(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, 10);
}
