// Counters, and counts read back: random walks over random graphs against what was counted on the way.

#include <algorithm>
#include <map>
#include <optional>

#include "OPT5/bbutils.h"
#include "OPT5/branch_prediction.h"
#include "OPT5/flow_plan.h"
#include "OPT5/instrument.h"
#include "OPT5/profile.h"
#include "random_graph.h"

namespace {

using namespace op;

class FLOW_PROFILE : public RANDOM_GRAPH_TEST {
  protected:
    void SetUp() override {
        RANDOM_GRAPH_TEST::SetUp();
        callee = function("callee", SC_EXTERN);
    }
    // What truly happened, by the numbers of blocks before the counters came.
    struct TRUTH {
        std::map<std::pair<int, int>, std::uint64_t> edges;
        std::map<int, std::uint64_t> blocks;
    };

    // The same seed gives the same graph.
    void build(unsigned seed) {
        std::mt19937 random(seed);
        build_random(random, 4 + seed % 9, seed % 2 == 0, [&](unsigned) {
            if (random() % 2 == 0) stmt(inc(x));
            if (random() % 3 == 0) stmt(call(callee));
        });
    }

    // The counter that the statement steps.
    static std::optional<std::size_t> counter_of(NODE* statement) {
        if (statement->op != PLUSASG) return std::nullopt;
        bool is_counter = false;
        std::size_t units = 0;
        walk_tree(statement->left, [&](const NODE* node) {
            if (node->op == NAME) is_counter = is_internal_symbol(node->symbol());
            if (node->op == ICON) units += node->u.lval.low;
        });
        return is_counter ? std::optional(units / 2 - 2) : std::nullopt;
    }

    // Walks the counting function until it returns or a call ends it; calls may also go back to behind a call
    // that was made before.
    void walk(std::mt19937& random, const std::map<const BBLK*, int>& original,
              std::vector<std::uint64_t>& counts, TRUTH& truth) {
        struct PLACE {
            const BBLK* bb;
            const LIST* cell;
        };
        std::vector<PLACE> calls;
        PLACE at{currfuninfo->bb_list, currfuninfo->bb_list->statements};
        truth.blocks[1]++;
        int from = 1;
        for (int steps = 0;; steps++) {
            for (; at.cell != nullptr; at.cell = at.cell->next) {
                NODE* statement = at.cell->first;
                if (const auto counter = counter_of(statement)) counts.at(*counter)++;
                if (statement->op != UCALL) continue;
                calls.push_back(at);
                const unsigned what = random() % 10;
                if (what == 0) return;
                if (what == 1) at = calls[random() % calls.size()];
            }
            if (at.bb->is_exit()) return;
            if (original.contains(at.bb)) from = original.at(at.bb);
            const EDGE* edge = at.bb->successors;
            if (steps > 500 && original.contains(at.bb)) {
                // A walk that has to be cut off ends on an edge.
                if (edge->next == nullptr) truth.edges[{from, original.at(edge->bb)}]++;
                return;
            }
            for (unsigned i = random() % static_cast<unsigned>(edge_length(edge)); i > 0; i--)
                edge = edge->next;
            at = {edge->bb, edge->bb->statements};
            if (!original.contains(at.bb)) continue;
            truth.edges[{from, original.at(at.bb)}]++;
            truth.blocks[original.at(at.bb)]++;
        }
    }
    SYMTAB* callee = nullptr;
};

TEST_F(FLOW_PROFILE, CountsOfWalksComeBackOnTheEdges) {
    for (unsigned seed = 0; seed < 300; seed++) {
        SCOPED_TRACE(seed);
        begin_another(0);
        build(seed);
        std::map<const BBLK*, int> original;
        for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) original[bb] = bb->dfn;
        const std::uint32_t checksum = FLOW_PLAN().checksum();
        std::vector<std::uint64_t> counts(FLOW_PLAN().counters());
        instrument_function();
        ASSERT_TRUE(verify_function("counting"));
        TRUTH truth;
        std::mt19937 random(seed + 1000);
        for (int i = 0; i < 20; i++) walk(random, original, counts, truth);

        begin_another(0);
        build(seed);
        const FLOW_PLAN plan;
        ASSERT_EQ(plan.checksum(), checksum);
        ASSERT_EQ(plan.counters(), counts.size());
        apply_counts(plan, counts);
        EXPECT_EQ(currfuninfo->entry_count, 20u);
        const BRANCH_PREDICTION prediction;
        for (const BBLK* bb = currfuninfo->bb_list; !bb->is_exit(); bb = bb->next) {
            EXPECT_EQ(static_cast<std::uint64_t>(bb->count), truth.blocks[bb->dfn]) << "BB" << bb->dfn;
            std::map<int, std::uint64_t> found;
            for_each_labelref(last_statement(bb), [&](const NODE* label) {
                found[label->label->bb->dfn] += label->edge_profile;
            });
            double left = 0;
            for (const auto& [to, count] : found) left += static_cast<double>(count);
            for (const auto& [to, count] : found) {
                const std::uint64_t truly = truth.edges[{bb->dfn, to}];
                // Calls ahead of a return are not followed any further.
                const bool returns = found.size() == 1 && block(to)->is_exit();
                EXPECT_TRUE(returns ? count >= truly : count == truly)
                    << count << " for " << truly << ", BB" << bb->dfn << " to BB" << to;
                if (left <= 0) continue;
                EXPECT_NEAR(prediction.probability(bb, block(to)), static_cast<double>(count) / left, 1e-4);
            }
            if (bb->predecessors == nullptr) continue;
            EXPECT_EQ(prediction.is_cold(bb), truth.blocks[bb->dfn] == 0) << "BB" << bb->dfn;
        }
    }
}

TEST_F(FLOW_PROFILE, ThePlanTellsGraphsApart) {
    std::map<std::uint32_t, std::string> seen;
    for (unsigned seed = 0; seed < 300; seed++) {
        begin_another(0);
        build(seed);
        std::string shape;
        for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
            shape += std::to_string(last_statement(bb)->op);
            for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next)
                shape += "," + std::to_string(edge->bb->dfn);
            bool calls = false;
            for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
                calls = calls || cell->first->op == UCALL;
            const bool is_fork = bb->successors == nullptr || bb->successors->next != nullptr;
            if (calls && !is_fork && !bb->successors->bb->is_exit()) shape += "c";
            shape += ";";
        }
        const auto [entry, is_new] = seen.try_emplace(FLOW_PLAN().checksum(), shape);
        EXPECT_TRUE(is_new || entry->second == shape) << shape;
    }
    EXPECT_GT(seen.size(), 200u);
}

TEST(PROFILE_TEXT, JoinedFilesAddUpAndKeepVersionsApart) {
    PROFILE profile;
    std::string error;
    const std::string one = "flow-counts 1\nfunction 0000002a 3 a file.c:f\n1 2\n3\nfunction ff 1 g\n7\n";
    ASSERT_TRUE(profile.add(one + one +
                                "flow-counts 1\nfunction 2b 1 a file.c:f\n18446744073709551615\n"
                                "function 2b 1 a file.c:f\n5\nfunction 0 0 empty\n",
                            error))
        << error;
    ASSERT_NE(profile.find("a file.c:f", 42, 3), nullptr);
    EXPECT_EQ(profile.find("a file.c:f", 42, 3)->counts, (std::vector<std::uint64_t>{2, 4, 6}));
    EXPECT_EQ(profile.find("a file.c:f", 43, 1)->counts, (std::vector<std::uint64_t>{UINT64_MAX}));
    EXPECT_EQ(profile.find("g", 255, 1)->counts, (std::vector<std::uint64_t>{14}));
    EXPECT_NE(profile.find("empty", 0, 0), nullptr);
    EXPECT_EQ(profile.find("g", 254, 1), nullptr);
    EXPECT_EQ(profile.find("g", 255, 2), nullptr);
    EXPECT_TRUE(profile.knows("g"));
    EXPECT_FALSE(profile.knows("f"));
}

TEST(PROFILE_TEXT, FaultsNameTheirLine) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "line 0: this is no profile"},
        {"function 1 1 f\n1\n", "line 1: this is no profile"},
        {"flow-counts 2\n", "line 1: this is no profile"},
        {"flow-counts 1\nfunction 1 1\n1\n", "line 2: a function without a name"},
        {"flow-counts 1\nfunction x 1 f\n1\n", "line 2: expected \"function CHECKSUM COUNTERS NAME\""},
        {"flow-counts 1\nfunction 1 4294967296 f\n", "line 2: expected \"function CHECKSUM COUNTERS NAME\""},
        {"flow-counts 1\nfunction 1 2 f\n1 -1\n", "line 3: expected counts"},
        {"flow-counts 1\nfunction 1 2 f\n1 18446744073709551616\n", "line 3: expected counts"},
        {"flow-counts 1\nfunction 1 2 f\n1\nfunction 1 1 g\n1\n", "line 4: expected counts"},
        {"flow-counts 1\nfunction 1 4000000000 f\n1\n", "line 3: a function has other counts than it says"},
        {"flow-counts 1\nfunction 1 1 f\n1 2\n", "line 3: a function has other counts than it says"},
    };
    for (const auto& [text, fault] : cases) {
        PROFILE profile;
        std::string error;
        EXPECT_FALSE(profile.add(text, error)) << text;
        EXPECT_EQ(error, fault) << text;
    }
}

} // namespace
