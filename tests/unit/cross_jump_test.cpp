// Blocks that do the same become one, settled tests go; and what looks like either, and is not.

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "cfg_fixture.h"

using namespace op;

namespace {

using CROSS_JUMP = CLEANED_GRAPH;

} // namespace

// --- Blocks that do the same.

TEST_F(CROSS_JUMP, EqualReturnsBecomeOne) {
    set_goal("0"); // no copies
    stmt(cbranch(name(x), 1));
    stmt(call(callee));
    stmt(ret(name(y)));
    label(1);
    stmt(cbranch(name(f), 2));
    stmt(call(callee));
    stmt(ret(name(y)));
    label(2);
    stmt(call(callee));
    stmt(ret(name(x)));
    EXPECT_EQ(cleaned(false, true), "1: if (x) goto BB2; else goto BB3 -> 2 3\n"
                                    "2: callee(); return y -> 5\n"
                                    "3: if (f) goto BB2; else goto BB4 -> 2 4\n"
                                    "4: callee(); return x -> 5\n"
                                    "5: return ->\n");
}

TEST_F(CROSS_JUMP, EqualWaysToOnePlaceBecomeOneFromTheEndOn) {
    set_goal("0");
    NODE* list = case_of(0, 10);
    for (int i = 1; i < 5; i++) list = comma(list, case_of(i, static_cast<unsigned>(10 + i)));
    stmt(switch_on(name(x), comma(list, default_to(30))));
    for (unsigned i = 0; i < 5; i++) {
        label(10 + i);
        stmt(i < 4 ? call(callee) : asg(y, icon(1)));
        stmt(branch(20 + i));
        label(20 + i);
        stmt(inc(y));
        stmt(branch(30));
    }
    label(30);
    stmt(asg(global, name(y)));
    EXPECT_EQ(cleaned(false, true).substr(0, 14), "1: switch (x) ");
    EXPECT_LE(currfuninfo->bb_count, 6) << graph();
}

TEST_F(CROSS_JUMP, BlocksThatDifferInLittleStayTwo) {
    set_goal("0");
    TYPE* long_type = tp->int_type(IK_LONG);
    SYMTAB* variadic = symbol("variadic", function_type(int_type), SC_EXTERN);
    const auto pass = [&](NODE* argument) {
        NODE* node = tree(CALL, int_type, address(variadic), argument);
        node->mk_call(0, 0);
        return node;
    };
    // Constants that are compatible and are passed in another way.
    if_else(name(x), pass(icon(1)), pass(icon(1, long_type)));
    if_else(name(x), asg(y, icon(1)), asg(y, icon(2)));
    cleaned(false, true);
    EXPECT_EQ(currfuninfo->bb_count, 7) << graph();
}

TEST_F(CROSS_JUMP, CallsInRegionsOfHandlersStayApart) {
    set_goal("0");
    if_else(name(x), call(callee), call(callee));
    std::vector<EHT_ENTRY> table(1);
    opt_client.cl_func_eht(std::move(table));
    cleaned(false, true);
    EXPECT_EQ(currfuninfo->bb_count, 4) << graph();
}

TEST_F(CROSS_JUMP, CrossJumpingTakesLinearTime) {
    set_goal("0");
    constexpr unsigned CASES = 5000;
    NODE* list = case_of(0, 1);
    for (unsigned i = 1; i < CASES; i++) list = comma(list, case_of(static_cast<int>(i), i + 1));
    stmt(switch_on(name(x), list));
    for (unsigned i = 1; i <= CASES; i++) {
        label(i);
        stmt(call(callee));
        stmt(asg(y, icon(static_cast<int>(i / 2))));
        stmt(branch(CASES + 1));
    }
    label(CASES + 1);
    end_uncleaned();
    const auto start = std::chrono::steady_clock::now();
    simpcfg(false, true);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    EXPECT_EQ(currfuninfo->bb_count, static_cast<int>(CASES / 2) + 3);
}

// --- Settled tests.

TEST_F(CROSS_JUMP, ATestThatAnotherHasSettledGoes) {
    const struct {
        const char* why;
        std::function<NODE*()> first, second;
        bool outcome;
    } rows[] = {
        {"the same", [&] { return name(x); }, [&] { return name(x); }, true},
        {"the inverse", [&] { return name(x); }, [&] { return tree(EXCLAIM, int_type, name(x)); }, false},
        {"a wider range", [&] { return compare(LT, name(x), icon(5)); },
         [&] { return compare(LE, name(x), icon(7)); }, true},
        {"a range beside it", [&] { return compare(LT, name(x), icon(5)); },
         [&] { return compare(GT, name(x), icon(7)); }, false},
        {"one value", [&] { return compare(EQ, name(x), icon(5)); },
         [&] { return compare(EQ, name(x), icon(6)); }, false},
        {"a global", [&] { return name(global); }, [&] { return name(global); }, true},
    };
    int number = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        stmt(cbranch(row.first(), 1));
        stmt(inc(y)); // between the tests, and of no matter
        stmt(cbranch(row.second(), 2));
        stmt(asg(y, icon(1)));
        stmt(branch(1));
        label(2);
        stmt(asg(y, icon(2)));
        label(1);
        const std::string text = cleaned(false, true);
        EXPECT_NE(text.find(row.outcome ? "y = y + 1; y = 1;" : "y = y + 1; y = 2;"), std::string::npos)
            << text;
        EXPECT_EQ(text.find("if", text.find("2:")), std::string::npos) << text;
        leave();
        begin(function(("fn" + std::to_string(++number)).c_str()));
    }
}

TEST_F(CROSS_JUMP, TheSettlingTestMayStandFarAboveLoopsAndJoins) {
    stmt(cbranch(name(x), 9));
    if_else(name(y), call(callee), asg(f, tree(SCONV, float_type, name(y))));
    label(1);
    stmt(call(callee));
    stmt(inc(y));
    stmt(cbranch(name(y), 2));
    stmt(cbranch(name(x), 3)); // in the loop, and settled
    stmt(branch(1));
    label(3);
    stmt(asg(global, icon(7)));
    label(2);
    label(9);
    EXPECT_EQ(cleaned(false, true).find("global"), std::string::npos) << graph();
}

TEST_F(CROSS_JUMP, ATestThatMayHaveAnotherOutcomeStays) {
    TYPE* pointer = tp->mk_ptr(int_type);
    SYMTAB* p = local("p", pointer);
    SYMTAB* v = local("v", tp->mk_qual(int_type, QUAL_VOLATILE));
    SYMTAB* exposed = local("exposed", int_type);
    SYMTAB* referred = local("referred", int_type);
    const auto load = [&] { return tree(UMULT, int_type, name(p)); };
    const auto intrinsic = [&] {
        NODE* result = tree(ICALL, int_type, tree(ARGREF, int_type, name(referred)));
        result->mk_icall("_step");
        return asg(y, result);
    };
    const auto store = [&] { return tree(ASG, int_type, load(), icon(1)); };
    const struct {
        const char* why;
        std::function<NODE*()> test, between;
    } rows[] = {
        {"assigned", [&] { return name(x); }, [&] { return inc(x); }},
        {"volatile", [&] { return name(v); }, [&] { return inc(y); }},
        {"a global over a call", [&] { return name(global); }, [&] { return call(callee); }},
        {"a global over a store", [&] { return name(global); }, store},
        {"a load over a call", load, [&] { return call(callee); }},
        {"a load over a global's change", load, [&] { return inc(global); }},
        {"a load through another pointer", load,
         [&] { return asg(p, tree(PLUS, pointer, name(p), icon(1, pointer))); }},
        {"an address taken", [&] { return name(exposed); }, [&] { return asg(p, address(exposed)); }},
        {"an address taken and used", [&] { return name(exposed); }, store},
        {"an argument that an intrinsic sets", [&] { return name(referred); }, intrinsic},
        {"nothing known", [&] { return compare(LT, name(x), icon(5)); }, [&] { return inc(y); }},
    };
    int forks = 0;
    for (const auto& row : rows) {
        const bool is_first_of_address = row.why == std::string("an address taken");
        const unsigned out = static_cast<unsigned>(200 + 2 * forks);
        stmt(cbranch(row.test(), out));
        stmt(row.between());
        stmt(cbranch(row.why == std::string("nothing known") ? compare(LT, name(x), icon(3)) : row.test(),
                     out));
        stmt(asg(global, icon(forks)));
        stmt(call(callee));
        label(out);
        stmt(inc(x));
        stmt(inc(global));
        forks += is_first_of_address ? 1 : 2;
    }
    set_goal("0");
    const std::string text = cleaned(false, true);
    int left = 0;
    for (std::size_t at = text.find("if ("); at != std::string::npos; at = text.find("if (", at + 1)) left++;
    EXPECT_EQ(left, forks) << text;
}

TEST_F(CROSS_JUMP, ATestBehindAJoinOfBothOutcomesStays) {
    set_goal("0");
    if_else(name(x), call(callee), asg(global, icon(1)));
    if_else(name(x), asg(global, icon(2)), call(callee));
    cleaned(false, true);
    EXPECT_EQ(currfuninfo->bb_count, 7) << graph();
}

TEST_F(CROSS_JUMP, FunctionsThatReturnTwiceKeepTheirTests) {
    SYMTAB* set = function("setjmp", SC_EXTERN);
    leave();
    begin(function("gn"));
    stmt(cbranch(name(x), 1));
    stmt(call(set));
    stmt(cbranch(name(x), 1));
    stmt(call(callee));
    label(1);
    set_goal("0");
    EXPECT_EQ(cleaned(false, true), "1: if (x) goto BB2; else goto BB4 -> 2 4\n"
                                    "2: setjmp(); if (x) goto BB3; else goto BB4 -> 3 4\n"
                                    "3: callee(); goto BB4 -> 4\n"
                                    "4: return ->\n");
}
