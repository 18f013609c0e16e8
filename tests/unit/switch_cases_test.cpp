// Cases that a SWITCH cannot have, and lists that are filled.

#include <functional>
#include <string>
#include <vector>

#include "cfg_fixture.h"

using namespace op;

namespace {

class SWITCHES : public CLEANED_GRAPH {
  protected:
    void SetUp() override {
        CLEANED_GRAPH::SetUp();
        unsigned_type = tp->int_type(IK_UINT);
        u = local("u", unsigned_type);
        set_goal("0"); // lists are filled only where they are half full
    }
    NODE* number(int value) { return icon(value, unsigned_type); }
    NODE* binary(int op, NODE* left, int value) {
        return tree(op, left->type, left, icon(value, left->type));
    }
    // A SWITCH with these cases. Case i does y = i, the default x = 1.
    void switch_of(NODE* selector, const std::vector<int>& values) {
        TYPE* type = selector->type;
        NODE* list = nullptr;
        unsigned number = 50;
        for (int value : values) {
            NODE* element = tree(CASE, void_type, icon(value, type), ref(number++));
            list = list == nullptr ? element : comma(list, element);
        }
        stmt(switch_on(selector, list != nullptr ? comma(list, default_to(49)) : default_to(49)));
        number = 50;
        for (int value : values) {
            label(number++);
            stmt(asg(y, icon(value)));
            stmt(branch(48));
        }
        label(49);
        stmt(asg(x, icon(1)));
        label(48);
        stmt(ret(name(x)));
    }
    // The first SWITCH, optimised, up to its edges.
    std::string optimised() {
        end_uncleaned();
        simpcfg(false, false);
        optimize_SWITCH_cases();
        EXPECT_TRUE(verify_function("optimising"));
        std::string text = graph();
        optimize_SWITCH_cases();
        EXPECT_EQ(graph(), text) << "a second run changes the list";
        const std::size_t start = text.find("switch");
        if (start == std::string::npos) return text;
        text = text.substr(start, text.find(" ->", start) - start);
        // Which blocks the cases lead to is no matter here.
        for (std::size_t at = text.find(": goto BB"); at != std::string::npos; at = text.find(": goto BB"))
            text.erase(at, text.find_first_not_of("0123456789", at + 9) - at);
        return text;
    }
    bool has_unreached_default() { return graph().find("_never_executed") != std::string::npos; }

    TYPE* unsigned_type = nullptr;
    SYMTAB* u = nullptr;
};
using SWITCHES_DEATH = SWITCHES;

} // namespace

TEST_F(SWITCHES, CasesOutsideOfTheSelectorGo) {
    const struct {
        const char* why;
        std::function<NODE*()> selector;
        std::vector<int> cases;
        const char* expected;
    } rows[] = {
        {"range",
         [&] { return binary(ANDB, name(u), 7); },
         {0, 7, 8, 11},
         "switch (u & 7) { case 0, case 7, default }"},
        {"negative values",
         [&] { return binary(MOD, name(x), 3); },
         {-3, -2, 2, 3, 9},
         "switch (x % 3) { case -2, case 2, default }"},
        {"bits",
         [&] { return binary(ANDB, name(x), 10); },
         {1, 5, 8, 11},
         "switch (x & 10) { case 8, default }"},
        {"factor",
         [&] { return binary(MULT, binary(ANDB, name(x), 1023), 3); },
         {0, 1, 3, 7, 12},
         "switch ((x & 1023) * 3) { case 0, case 3, case 12, default }"},
        {"residue",
         [&] { return binary(PLUS, binary(MULT, binary(ANDB, name(x), 1023), 4), 1); },
         {0, 1, 5, 6, 9},
         "switch ((x & 1023) * 4 + 1) { case 1, case 5, case 9, default }"},
        {"nothing known",
         [&] { return name(x); },
         {-32768, 0, 32767},
         "switch (x) { case -32768, case 0, case 32767, default }"},
    };
    int number = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        switch_of(row.selector(), row.cases);
        EXPECT_EQ(optimised(), row.expected);
        leave();
        begin(function(("fn" + std::to_string(++number)).c_str()));
        u = local("u", unsigned_type);
    }
}

TEST_F(SWITCHES, APlaceThatIsCertainIsNoChoice) {
    switch_of(binary(ANDB, name(u), 7), {8, 9});
    end_uncleaned();
    optimize_SWITCH_cases();
    simpcfg(false, false);
    EXPECT_EQ(graph(), "1: x = 1; return x -> 2\n"
                       "2: return ->\n");
}

TEST_F(SWITCHES, TestsAndPromisesOnTheOnlyWayCount) {
    const auto promise = [&](NODE* test) { return tree(NASSERT, int_type, test); };
    const struct {
        const char* why;
        std::function<void()> ahead;
        std::vector<int> cases;
        const char* expected;
    } rows[] = {
        {"two limits",
         [&] {
             stmt(promise(compare(GE, name(x), icon(0))));
             stmt(promise(compare(LT, name(x), icon(600))));
         },
         {-1, 0, 599, 600},
         "switch (x) { case 0, case 599, default }"},
        {"an IF",
         [&] { stmt(cbranch(compare(LT, name(x), icon(5)), 48)); },
         {3, 4, 5, 6},
         "switch (x) { case 3, case 4, default }"},
        {"both sides of an &&",
         [&] {
             stmt(cbranch(
                 tree(ANDAND, int_type, compare(GE, name(x), icon(0)), compare(LE, name(x), icon(900))), 48));
         },
         {-5, 900, 901},
         "switch (x) { case 900, default }"},
        {"equal rests",
         [&] { stmt(promise(compare(EQ, binary(ANDB, name(x), 3), icon(1)))); },
         {0, 1, 4, 5, 7},
         "switch (x) { case 1, case 5, default }"},
        {"zero bits",
         [&] { stmt(promise(compare(EQ, binary(ANDB, name(x), 4), icon(0)))); },
         {1, 4, 5, 8},
         "switch (x) { case 1, case 8, default }"},
        {"no rest",
         [&] { stmt(promise(compare(EQ, binary(MOD, name(x), 7), icon(0)))); },
         {-7, -1, 0, 7, 8},
         "switch (x) { case -7, case 0, case 7, default }"},
        {"a change between",
         [&] {
             stmt(promise(compare(LT, name(x), icon(5))));
             stmt(inc(x));
         },
         {4, 5, 6},
         "switch (x) { case 4, case 5, case 6, default }"},
        {"another way here",
         [&] {
             stmt(cbranch(name(y), 47));
             stmt(promise(compare(LT, name(x), icon(5))));
             stmt(call(callee));
             label(47);
         },
         {4, 5, 6},
         "switch (x) { case 4, case 5, case 6, default }"},
        {"a rest below zero",
         [&] { stmt(promise(compare(EQ, binary(MOD, name(x), 5), icon(-2)))); },
         {-7, -3, -2, 2, 3},
         "switch (x) { case -7, case -2, case 3, default }"},
    };
    int number = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        row.ahead();
        switch_of(name(x), row.cases);
        EXPECT_EQ(optimised(), row.expected);
        leave();
        begin(function(("fn" + std::to_string(++number)).c_str()));
        u = local("u", unsigned_type);
    }
}

TEST_F(SWITCHES, AListOfAllValuesNeedsNoDefault) {
    switch_of(binary(ANDB, name(u), 3), {0, 1, 2});
    EXPECT_EQ(optimised(), "switch (u & 3) { case 0, case 1, case 2, case 3, default }");
    const LIST* cell = block(2)->statements;
    EXPECT_STREQ(cell->first->text, "***\t; this point in the function is never reached");
    EXPECT_STREQ(cell->next->first->intrinsic(), "_never_executed");
    EXPECT_EQ(last_statement(block(1))->right->right->left->label->bb, block(2));
}

TEST_F(SWITCHES, OnlyFewValuesAreFilledIn) {
    const struct {
        int modulus;
        const char* goal;
        bool fills;
    } rows[] = {{499, "4", true}, {500, "4", false}, {499, "2", false}, {4, "2", true}};
    int number = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.modulus);
        set_goal(row.goal);
        switch_of(binary(MOD, name(u), row.modulus), {0, 2});
        end_uncleaned();
        optimize_SWITCH_cases();
        EXPECT_TRUE(verify_function("optimising"));
        EXPECT_EQ(has_unreached_default(), row.fills);
        leave();
        begin(function(("fn" + std::to_string(++number)).c_str()));
        u = local("u", unsigned_type);
    }
}

TEST_F(SWITCHES, AFactorLeavesTheSelector) {
    switch_of(binary(PLUS, binary(MULT, binary(ANDB, name(x), 3), 6), 5), {5, 11, 17, 23});
    EXPECT_EQ(optimised(), "switch (x & 3) { case 0, case 1, case 2, case 3, default }");
    EXPECT_TRUE(has_unreached_default());
}

TEST_F(SWITCHES, AFactorThatCanWrapStays) {
    switch_of(binary(SLL, name(u), 13), {0, 8192, 16384});
    EXPECT_EQ(optimised(), "switch (u << 13) { case 0, case 8192, case 16384, default }");
}

TEST_F(SWITCHES_DEATH, AGraphWithAWayBackToItsStartEndsTheRun) {
    end_uncleaned();
    block(1)->predecessors = mkedge(block(1), nullptr);
    EXPECT_EXIT(optimize_SWITCH_cases(), ::testing::ExitedWithCode(1), "terminated abnormally");
}
