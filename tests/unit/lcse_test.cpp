// Common subexpressions: what is computed once, what must be computed again, and that functions do the same.

#include <ctime>

#include "OPT5/lcse.h"
#include "OPT5/simp.h"
#include "random_graph.h"

using namespace op;

namespace {

class LCSE : public RANDOM_GRAPH_TEST {
  protected:
    void SetUp() override {
        RANDOM_GRAPH_TEST::SetUp();
        begin_another(1);
    }
    NODE* sum() { return tree(PLUS, int_type, name(x), name(y)); }
    NODE* load(SYMTAB* pointer) { return tree(UMULT, int_type, name(pointer)); }
    void store(NODE* place, NODE* value) { stmt(tree(ASG, int_type, place, value)); }
    // The blocks behind the pass, temporaries by their names.
    std::string behind_lcse() {
        end();
        lcse();
        EXPECT_TRUE(verify_function("lcse"));
        return graph();
    }
    std::string first_block() {
        const std::string text = behind_lcse();
        return text.substr(3, text.find("; goto") - 3);
    }
};

} // namespace

TEST_F(LCSE, RandomFunctionsDoTheSame) {
    std::mt19937 random(17);
    int changed = 0;
    for (int round = 0; round < 6000 && !HasFailure(); round++) {
        begin_another(2);
        build_random(random, 2 + random() % 6, round % 3 != 0, [&](unsigned) {
            for (unsigned i = random() % 8; i > 0; i--) random_statement(random);
        });
        simp_all_trees();
        const std::string before = graph();
        SCOPED_TRACE(before);
        std::vector<VALUES> starts(3);
        std::vector<std::string> expected;
        for (VALUES& start : starts) {
            start = random_start(random);
            expected.push_back(run(start, 40));
        }
        lcse();
        EXPECT_TRUE(verify_function("lcse"));
        const std::string after = graph();
        SCOPED_TRACE(after);
        for (std::size_t i = 0; i < starts.size(); i++) EXPECT_EQ(run(starts[i], 40), expected[i]);
        changed += after != before ? 1 : 0;
    }
    EXPECT_GT(changed, 1500);
}

TEST_F(LCSE, TheLargestTreeIsComputedOnce) {
    store(name(g), tree(MULT, int_type, sum(), name(y)));
    store(name(h), tree(MULT, int_type, name(y), tree(PLUS, int_type, name(y), name(x))));
    EXPECT_EQ(first_block(), "$O$C0 = (x + y) * y; g = $O$C0; h = $O$C0");
}

TEST_F(LCSE, VariableThatHoldsTheValueIsTaken) {
    stmt(asg(locals[2], sum()));
    store(name(g), sum());
    stmt(asg(locals[2], icon(0)));
    store(name(h), sum()); // nobody holds it any more
    EXPECT_EQ(first_block(), "$O$C0 = x + y; v0 = $O$C0; g = v0; v0 = 0; h = $O$C0");
}

TEST_F(LCSE, OneStatementTwice) {
    store(name(g), tree(MULT, int_type, sum(), sum()));
    // The order of both operands is open: what one stores is no help to the other.
    store(name(h),
          tree(PLUS, int_type, tree(ASG, int_type, name(locals[2]), tree(XORB, int_type, name(x), name(y))),
               tree(XORB, int_type, name(x), name(y))));
    EXPECT_EQ(first_block(), "$O$C0 = x + y; g = $O$C0 * $O$C0; $O$C1 = x ^ y; h = (v0 = $O$C1) + $O$C1");
}

TEST_F(LCSE, StoresEndWhatTheyMayTouch) {
    stmt(asg(p, address(g)));
    store(name(locals[0]), load(p));
    store(name(locals[1]), load(p)); // again
    store(name(h), icon(1));
    store(name(locals[2]), load(p)); // may be h
    store(load(q), name(locals[0]));
    store(name(g), load(q)); // as stored
    store(name(h), load(p));
    stmt(call(function("fn2", SC_EXTERN)));
    store(name(h), load(p));
    EXPECT_EQ(first_block(), "p = &g; x = *p; y = x; h = 1; v0 = *p; *q = x; g = x; h = *p; fn2(); h = *p");
}

TEST_F(LCSE, PathsWithOneWayInGoOn) {
    store(name(g), sum());
    stmt(cbranch(name(locals[2]), 1));
    store(name(h), sum());
    stmt(asg(x, icon(0)));
    store(name(h), sum());
    stmt(branch(2));
    label(1);
    store(name(h), sum());
    label(2);
    store(name(h), sum()); // two ways in
    EXPECT_EQ(
        behind_lcse(),
        "1: $O$C0 = x + y; g = $O$C0; if (v0) goto BB2; else goto BB3 -> 2 3\n2: h = $O$C0; x = 0; h = x + "
        "y; goto BB4 -> 4\n3: h = $O$C0; goto BB4 -> 4\n4: h = x + y; goto BB5 -> 5\n5: return ->\n");
}

TEST_F(LCSE, ConditionalPartsGiveNothingAway) {
    store(name(g), tree(QUEST, int_type, name(locals[2]), tree(COLON, int_type, sum(), asg(x, icon(3)))));
    store(name(h), sum());
    store(name(h), tree(QUEST, int_type, name(locals[2]), tree(COLON, int_type, sum(), icon(4))));
    EXPECT_EQ(first_block(), "g = v0 ? (x + y : (x = 3)); $O$C0 = x + y; h = $O$C0; h = v0 ? ($O$C0 : 4)");
}

TEST_F(LCSE, CheapTreesAndVolatileOnesStay) {
    SYMTAB* flagged = symbol("flagged", tp->mk_qual(int_type, QUAL_VOLATILE), SC_EXTDEF);
    for (int i = 0; i < 2; i++) {
        store(name(g), tree(SCONV, int_type, name(f)));
        store(name(g), compare(LT, name(x), name(y)));
        store(name(h), tree(PLUS, int_type, name(flagged), icon(1)));
    }
    EXPECT_EQ(first_block(),
              "g = (int)f; g = x < y; h = flagged + 1; g = (int)f; g = x < y; h = flagged + 1");
}

TEST_F(LCSE, SetjmpKeepsEverything) {
    stmt(call(function("setjmp", SC_EXTERN)));
    store(name(g), sum());
    store(name(h), sum());
    EXPECT_EQ(first_block(), "setjmp(); g = x + y; h = x + y");
}

TEST_F(LCSE, LargeFunctionsTakeLinearTime) {
    constexpr int STATEMENTS = 50000;
    NODE* deep = sum();
    for (int i = 0; i < STATEMENTS; i++)
        deep = tree(PLUS, int_type, tree(MULT, int_type, deep, name(y)), name(x));
    store(name(g), deep);
    for (int i = 0; i < STATEMENTS; i++) {
        store(i % 2 == 0 ? load(p) : name(locals[2]), tree(MULT, int_type, sum(), load(q)));
        if (i % 100 == 0) stmt(cbranch(name(y), 1));
    }
    label(1);
    end();
    const std::clock_t start = std::clock();
    lcse();
    EXPECT_LT(std::clock() - start, 2 * CLOCKS_PER_SEC);
    EXPECT_TRUE(verify_function("lcse"));
}
