// Cleaning the flow graph, on graphs as text: what each rule does, and beside it where it must not.

#include <chrono>
#include <functional>
#include <iterator>
#include <string>

#include "OPT5/bbutils.h"
#include "OPT5/pragma.h"
#include "OPT5/simpcfg.h"
#include "ir_fixture.h"

using namespace op;

namespace {

class SIMPCFG : public IR_TEST {
  protected:
    void SetUp() override {
        IR_TEST::SetUp();
        file_options = options_ = new option_obj(true);
        all_option_sets = {file_options};
        set_level("2");
        global = symbol("global", int_type, SC_EXTDEF);
        callee = function("callee", SC_EXTERN);
        begin(function("fn"));
    }
    void set_level(const char* level) { options_->set(46, level); }
    void set_goal(const char* goal) { options_->set(57, goal); }

    // The graph as the statements give it, cleaned, as text.
    std::string cleaned(bool quest_is_ok = false, bool cross_jump_ok = false) {
        end_uncleaned();
        simpcfg(quest_is_ok, cross_jump_ok);
        EXPECT_TRUE(verify_function("cleaning"));
        const std::string text = graph();
        simpcfg(quest_is_ok, cross_jump_ok);
        EXPECT_EQ(graph(), text) << "cleaning a clean graph changes it";
        return text;
    }
    // if (condition) { a } else { b }; null for no statement.
    void if_else(NODE* condition, NODE* a, NODE* b) {
        const unsigned other = next_label_++, join = next_label_++;
        stmt(cbranch(condition, other));
        if (a != nullptr) stmt(a);
        if (b != nullptr) stmt(branch(join));
        label(other);
        if (b != nullptr) {
            stmt(b);
            label(join);
        }
    }
    NODE* bit_test(SYMTAB* symbol, int mask) { return tree(ANDB, int_type, name(symbol), icon(mask)); }
    NODE* set_bits(SYMTAB* symbol, int mask, int op = ORBASG) {
        return tree(op, int_type, name(symbol), icon(mask));
    }

    SYMTAB *global = nullptr, *callee = nullptr;

  private:
    option_obj* options_ = nullptr;
    unsigned next_label_ = 100;
};
using SIMPCFG_DEATH = SIMPCFG;

} // namespace

// --- Unreachable blocks.

TEST_F(SIMPCFG, WhatNothingReachesGoes) {
    stmt(ret(icon(1)));
    label(1); // a loop without an entry
    stmt(inc(x));
    stmt(cbranch(name(x), 2));
    stmt(branch(1));
    label(2);
    stmt(inc(y)); // reached from the loop only
    EXPECT_EQ(cleaned(), "1: return 1 -> 2\n"
                         "2: return ->\n");
}

TEST_F(SIMPCFG, TheExitOfAnEndlessFunctionStays) {
    label(1);
    stmt(inc(x));
    stmt(branch(1));
    EXPECT_EQ(cleaned(), "1: goto BB2 -> 2\n"
                         "2: x = x + 1; goto BB2 -> 2\n"
                         "3: return ->\n");
}

TEST_F(SIMPCFG, HandlersOfExceptionsAreReachedWithoutAnEdge) {
    stmt(ret(icon(1)));
    label(5);
    stmt(branch(6)); // nothing but a jump, and still a place to arrive at
    label(6);
    stmt(inc(x));
    std::vector<EHT_ENTRY> table(1);
    table[0].kind = EHK_EXPR;
    table[0].tree = branch(5);
    opt_client.cl_func_eht(std::move(table));
    EXPECT_EQ(cleaned(), "1: return 1 -> 3\n"
                         "2: x = x + 1; goto BB3 -> 3\n"
                         "3: return ->\n");
}

// --- Transfers with one outcome.

TEST_F(SIMPCFG, EqualArmsLeaveTheConditionForItsEffects) {
    stmt(cbranch(name(x), 1)); // if (c) goto L; L:
    label(1);
    stmt(cbranch(tree(PLUS, int_type, call(callee), icon(1)), 2));
    label(2);
    stmt(inc(x));
    EXPECT_EQ(cleaned(), "1: callee(); x = x + 1; goto BB2 -> 2\n"
                         "2: return ->\n");
}

TEST_F(SIMPCFG, ConstantConditionsAreTakenWithTheirEffects) {
    if_else(icon(1), asg(x, call(callee)), asg(x, icon(2)));
    if_else(tree(COMMAOP, int_type, inc(y), icon(0)), asg(y, call(callee)), inc(x));
    EXPECT_EQ(cleaned(), "1: x = callee(); y = y + 1; x = x + 1; goto BB2 -> 2\n"
                         "2: return ->\n");
}

TEST_F(SIMPCFG, ConstantSelectorsAreTaken) {
    TYPE* unsigned_type = tp->int_type(IK_UINT);
    const auto select = [&](NODE* selector, unsigned base) {
        NODE* list = comma(comma(case_of(1, base), case_of(-1, base + 1)), default_to(base + 2));
        stmt(switch_on(selector, list));
        for (unsigned i = 0; i < 3; i++) {
            label(base + i);
            stmt(asg(i == 0 ? x : y, icon(static_cast<int>(base + i))));
            stmt(branch(base + 9));
        }
        label(base + 9);
    };
    select(icon(1), 10);
    select(tree(SCONV, unsigned_type, icon(-1)), 20); // the case's constant has another sign
    select(icon(7), 30);
    EXPECT_EQ(cleaned(), "1: x = 10; y = 21; y = 32; goto BB2 -> 2\n"
                         "2: return ->\n");
}

TEST_F(SIMPCFG, AChoiceOfOnePlaceIsNone) {
    stmt(switch_on(call(callee), comma(comma(case_of(1, 1), case_of(2, 2)), default_to(1))));
    label(1);
    label(2);
    stmt(inc(x));
    EXPECT_EQ(cleaned(), "1: callee(); x = x + 1; goto BB2 -> 2\n"
                         "2: return ->\n");
}

TEST_F(SIMPCFG, ANestOfPointlessTestsFallsAsAWhole) {
    constexpr unsigned DEPTH = 2000;
    for (unsigned i = 1; i <= DEPTH; i++) stmt(cbranch(name(x), i));
    for (unsigned i = DEPTH; i >= 1; i--) label(i);
    stmt(inc(x));
    EXPECT_EQ(cleaned(), "1: x = x + 1; goto BB2 -> 2\n"
                         "2: return ->\n");
}

// --- Jump threading.

TEST_F(SIMPCFG, JumpsToJumpsGoToTheEnd) {
    constexpr unsigned LENGTH = 100; // more than is followed in one go
    stmt(cbranch(name(x), 1));
    stmt(inc(y));
    stmt(branch(1000));
    for (unsigned i = 1; i < LENGTH; i++) { // laid out backwards
        label(i);
        stmt(branch(i + 1));
        stmt(ret(icon(0)));
    }
    label(LENGTH);
    stmt(call(callee));
    label(1000);
    stmt(inc(x));
    EXPECT_EQ(cleaned(), "1: if (x) goto BB2; else goto BB3 -> 2 3\n"
                         "2: y = y + 1; goto BB4 -> 4\n"
                         "3: callee(); goto BB4 -> 4\n"
                         "4: x = x + 1; goto BB5 -> 5\n"
                         "5: return ->\n");
}

TEST_F(SIMPCFG, AChainThatComesBackToItselfEnds) {
    stmt(cbranch(name(x), 4));
    label(1);
    stmt(branch(2));
    label(2);
    stmt(branch(3));
    label(3);
    stmt(branch(1));
    label(4);
    stmt(inc(x));
    const std::string text = cleaned();
    EXPECT_NE(text.find("goto BB2 -> 2\n"), std::string::npos) << text;
    EXPECT_EQ(currfuninfo->bb_count, 4) << text;
}

// --- Merging.

TEST_F(SIMPCFG, BlocksInARowBecomeOne) {
    constexpr unsigned LENGTH = 20000;
    stmt(branch(1));
    for (unsigned i = 1; i <= LENGTH; i++) {
        label(i);
        stmt(inc(x));
        stmt(branch(i + 1));
    }
    label(LENGTH + 1);
    end_uncleaned();
    const auto start = std::chrono::steady_clock::now();
    simpcfg(false, false);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    EXPECT_TRUE(verify_function("cleaning"));
    EXPECT_EQ(currfuninfo->bb_count, 2);
}

TEST_F(SIMPCFG, APromiseOfALoopStaysAheadOfIt) {
    opt_client.cl_pragma(nullptr, [] {
        auto* promise = new PRAGMA;
        promise->kind = PRAG_MUST_ITERATE;
        return promise;
    }());
    stmt(branch(1));
    label(1);
    stmt(call(callee));
    stmt(cbranch(name(x), 2));
    stmt(branch(1));
    label(2);
    const std::string text = cleaned();
    EXPECT_EQ(block(1)->statements->first->op, PPRAGMA) << text;
    EXPECT_EQ(block(2)->statements->first->op, UCALL) << text;
}

TEST_F(SIMPCFG, BlocksOfDifferentLoopsStayApart) {
    stmt(inc(x));
    stmt(branch(1));
    label(1);
    stmt(call(callee));
    end_uncleaned();
    ::LOOP* root = make_LOOP();
    ::LOOP* loop = make_LOOP();
    loop->level = 1;
    loop->parent = root;
    root->child = loop;
    block(1)->loop = root;
    block(2)->loop = loop;
    loop->head = loop->tail = block(2);
    loop->contents = mkedge(block(2), nullptr);
    simpcfg(true, false);
    EXPECT_EQ(graph(), "1: x = x + 1; goto BB2 -> 2\n"
                       "2: callee(); goto BB3 -> 3\n"
                       "3: return ->\n");
    // In one loop they join, and the loop's record follows.
    block(2)->loop = block(1)->loop = block(3)->loop = root;
    root->head = block(1);
    root->tail = block(2);
    root->contents = mkedge(block(1), mkedge(block(2), nullptr));
    loop->contents = nullptr;
    loop->head = loop->tail = nullptr;
    simpcfg(true, false);
    EXPECT_EQ(currfuninfo->bb_count, 2) << graph();
    EXPECT_EQ(root->tail, block(1));
    EXPECT_EQ(edge_length(root->contents), 1);
}

TEST_F(SIMPCFG_DEATH, WithLoopsOnlyTheLastCleaningMayRun) {
    end_uncleaned();
    block(1)->loop = make_LOOP();
    EXPECT_EXIT(simpcfg(false, false), ::testing::ExitedWithCode(1), "terminated abnormally");
}

// --- Tail duplication.

TEST_F(SIMPCFG, ShortReturnsComeForTheJumpToThem) {
    if_else(name(x), call(callee), asg(global, icon(2)));
    stmt(ret(name(y)));
    EXPECT_EQ(cleaned(), "1: if (x) goto BB2; else goto BB3 -> 2 3\n"
                         "2: callee(); return y -> 4\n"
                         "3: global = 2; return y -> 4\n"
                         "4: return ->\n");
}

TEST_F(SIMPCFG, TestsOfLoopsMoveToTheirEnds) {
    stmt(asg(x, icon(0)));
    label(1);
    stmt(cbranch(compare(LT, name(x), name(y)), 2));
    stmt(call(callee));
    stmt(inc(x));
    stmt(branch(1));
    label(2);
    stmt(ret(name(x)));
    EXPECT_EQ(cleaned(), "1: x = 0; if (x < y) goto BB2; else goto BB3 -> 2 3\n"
                         "2: callee(); x = x + 1; if (x < y) goto BB2; else goto BB3 -> 2 3\n"
                         "3: return x -> 4\n"
                         "4: return ->\n");
}

TEST_F(SIMPCFG, CopiesAreMadeOfLittleAndWhereSpeedIsAskedFor) {
    const struct {
        const char *name, *level, *goal;
        int additions; // in the value returned
        int returns;
    } rows[] = {{"short", "2", "3", 0, 2},
                {"level 0", "0", "4", 0, 1},
                {"for size", "2", "2", 0, 1},
                {"long", "2", "3", 30, 1},
                {"longer for speed", "2", "5", 5, 2}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        set_level(row.level);
        set_goal(row.goal);
        if_else(name(x), call(callee), asg(global, icon(2)));
        NODE* value = name(y);
        for (int i = 0; i < row.additions; i++)
            value = tree(XORB, int_type, tree(SLL, int_type, value, icon(1)), name(x));
        stmt(ret(value));
        const std::string text = cleaned();
        int returns = 0;
        for (std::size_t at = text.find("return "); at != std::string::npos;
             at = text.find("return ", at + 1))
            returns++;
        EXPECT_EQ(returns - 1, row.returns) << text;
        leave();
        begin(function((std::string("fn") + row.name).c_str()));
    }
}

TEST_F(SIMPCFG, CallsPragmasAndAssemblyAreNotCopied) {
    stmt(cbranch(name(x), 1));
    stmt(inc(y));
    stmt(branch(2));
    label(1);
    stmt(call(callee));
    label(2);
    opt_client.cl_inline_asm(" NOP", at(3));
    stmt(ret(icon(0)));
    const std::string text = cleaned();
    EXPECT_EQ(currfuninfo->bb_count, 5) << text;
}

// A copy must not open a second way into a loop: of its first block either all jumps get one, or none.
TEST_F(SIMPCFG, LoopsKeepOneEntry) {
    stmt(cbranch(name(y), 1)); // straight to the test, not by a BRANCH
    stmt(call(callee));
    label(1);
    stmt(cbranch(name(x), 2));
    stmt(call(callee));
    stmt(inc(x));
    stmt(branch(1));
    label(2);
    stmt(ret(icon(0)));
    EXPECT_EQ(cleaned(), "1: if (y) goto BB2; else goto BB3 -> 2 3\n"
                         "2: callee(); goto BB3 -> 3\n"
                         "3: if (x) goto BB4; else goto BB5 -> 4 5\n"
                         "4: callee(); x = x + 1; goto BB3 -> 3\n"
                         "5: return 0 -> 6\n"
                         "6: return ->\n");
}

// --- Conditional assignments as expressions.

TEST_F(SIMPCFG, DiamondsAndTrianglesBecomeExpressions) {
    if_else(name(x), asg(y, icon(1)), asg(y, icon(2)));
    if_else(compare(LT, name(x), icon(9)), asg(x, name(y)), nullptr);
    if_else(name(y), asg(global, icon(3)), asg(global, icon(4)));
    EXPECT_EQ(cleaned(true), "1: y = x ? (1 : 2); x = x <= 8 ? (y : x); global = y ? (3 : 4); goto BB2 -> 2\n"
                             "2: return ->\n");
}

TEST_F(SIMPCFG, TheArmsProbabilitiesMoveToTheExpression) {
    if_else(name(x), asg(y, icon(1)), asg(y, icon(2)));
    end_uncleaned();
    last_statement(block(1))->right->left->freq = 0.25;
    simpcfg(true, false);
    const NODE* quest = block(1)->statements->first->right;
    ASSERT_EQ(quest->op, QUEST) << graph();
    EXPECT_EQ(quest->freq, 0.25);
    EXPECT_EQ(quest->right->freq, 0.75);
}

TEST_F(SIMPCFG, ValuesThatNeedTheirGuardStayStatements) {
    TYPE* pointer = tp->mk_ptr(int_type);
    SYMTAB* p = local("p", pointer);
    SYMTAB* v = local("v", tp->mk_qual(int_type, QUAL_VOLATILE));
    const auto load = [&] { return tree(UMULT, int_type, name(p)); };
    const struct {
        const char* why;
        std::function<NODE*()> condition, a, b;
    } rows[] = {
        {"a load", [&] { return name(p); }, [&] { return asg(y, load()); }, [&] { return asg(y, icon(0)); }},
        {"a division", [&] { return name(x); }, [&] { return asg(y, tree(DIV, int_type, icon(9), name(x))); },
         [&] { return asg(y, icon(0)); }},
        {"a shift", [&] { return name(x); }, [&] { return asg(y, tree(SLL, int_type, icon(1), name(x))); },
         [&] { return asg(y, icon(0)); }},
        {"a call", [&] { return name(x); }, [&] { return asg(y, call(callee)); },
         [&] { return asg(y, icon(0)); }},
        {"volatile storage", [&] { return name(x); }, [&] { return asg(y, name(v)); },
         [&] { return asg(y, icon(0)); }},
        {"a volatile place", [&] { return name(x); }, [&] { return asg(v, icon(1)); },
         [&] { return asg(v, icon(0)); }},
        {"two places", [&] { return name(x); }, [&] { return asg(y, icon(1)); },
         [&] { return asg(x, icon(0)); }},
        {"a condition with effects", [&] { return call(callee); }, [&] { return asg(y, icon(1)); },
         [&] { return asg(y, icon(0)); }},
        // Stores that the program does not make.
        {"a store through a pointer", [&] { return name(x); },
         [&] { return tree(ASG, int_type, load(), icon(1)); }, [] { return nullptr; }},
        {"a global", [&] { return name(x); }, [&] { return asg(global, icon(1)); }, [] { return nullptr; }},
        {"a volatile place alone", [&] { return name(x); }, [&] { return asg(v, icon(1)); },
         [] { return nullptr; }},
        {"bits of a global", [&] { return bit_test(x, 2); }, [&] { return set_bits(global, 4); },
         [] { return nullptr; }},
    };
    for (const auto& row : rows) if_else(row.condition(), row.a(), row.b());
    end_uncleaned();
    set_level("0"); // no copies: blocks are counted
    simpcfg(true, false);
    int forks = 0;
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        if (last_statement(bb)->op == IF) forks++;
    EXPECT_EQ(forks, static_cast<int>(std::size(rows))) << graph();
    EXPECT_EQ(graph().find('?'), std::string::npos) << graph();
}

TEST_F(SIMPCFG, AGuardThatIsProvedByTheConditionIsNone) {
    TYPE* pointer = tp->mk_ptr(int_type);
    SYMTAB* p = local("p", pointer);
    const auto load = [&] { return tree(UMULT, int_type, name(p)); };
    if_else(compare(LT, load(), icon(9)), asg(y, load()), asg(y, icon(9)));
    EXPECT_EQ(cleaned(true).find("if"), std::string::npos) << graph();
}

TEST_F(SIMPCFG, BitsMoveWithoutATest) {
    SYMTAB* wide = local("wide", tp->int_type(IK_LONG));
    SYMTAB* flags = local("flags", tp->int_type(IK_UINT));
    TYPE* unsigned_type = flags->type;
    if_else(bit_test(x, 2), set_bits(y, 16), nullptr);
    if_else(bit_test(x, 64), set_bits(y, 1, XORBASG), nullptr);
    if_else(bit_test(x, 8), set_bits(y, 8), nullptr);
    if_else(tree(ANDB, unsigned_type, name(flags), icon(-32768, unsigned_type)), set_bits(y, 2), nullptr);
    if_else(bit_test(x, 4), tree(ORBASG, wide->type, name(wide), icon(1 << 20, wide->type)), nullptr);
    EXPECT_EQ(cleaned(true), "1: y |= x << 3 & 16; y ^= x >> 6 & 1; y |= x & 8; y |= (int)(flags >> 14 & 2); "
                             "wide |= (long)(x & 4) << 18; goto BB2 -> 2\n"
                             "2: return ->\n");
}

TEST_F(SIMPCFG, BitsAtTheSignOrInGroupsKeepTheTest) {
    if_else(bit_test(x, -32768), set_bits(y, 4), nullptr); // signed: the conversion drags bits along
    if_else(bit_test(x, 4), set_bits(y, -32768), nullptr);
    if_else(bit_test(x, 6), set_bits(y, 4), nullptr);
    if_else(bit_test(x, 4), set_bits(y, 3), nullptr);
    if_else(bit_test(x, 4), set_bits(y, 4, ANDBASG), nullptr);
    set_level("0");
    cleaned(true);
    EXPECT_EQ(currfuninfo->bb_count, 11) << graph();
}

// --- Blocks that do the same.

TEST_F(SIMPCFG, EqualReturnsBecomeOne) {
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

TEST_F(SIMPCFG, EqualWaysToOnePlaceBecomeOneFromTheEndOn) {
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

TEST_F(SIMPCFG, BlocksThatDifferInLittleStayTwo) {
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

TEST_F(SIMPCFG, CallsInRegionsOfHandlersStayApart) {
    set_goal("0");
    if_else(name(x), call(callee), call(callee));
    std::vector<EHT_ENTRY> table(1);
    opt_client.cl_func_eht(std::move(table));
    cleaned(false, true);
    EXPECT_EQ(currfuninfo->bb_count, 4) << graph();
}

TEST_F(SIMPCFG, CrossJumpingTakesLinearTime) {
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

TEST_F(SIMPCFG, ATestThatAnotherHasSettledGoes) {
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

TEST_F(SIMPCFG, TheSettlingTestMayStandFarAboveLoopsAndJoins) {
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

TEST_F(SIMPCFG, ATestThatMayHaveAnotherOutcomeStays) {
    TYPE* pointer = tp->mk_ptr(int_type);
    SYMTAB* p = local("p", pointer);
    SYMTAB* v = local("v", tp->mk_qual(int_type, QUAL_VOLATILE));
    SYMTAB* exposed = local("exposed", int_type);
    const auto load = [&] { return tree(UMULT, int_type, name(p)); };
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

TEST_F(SIMPCFG, ATestBehindAJoinOfBothOutcomesStays) {
    set_goal("0");
    if_else(name(x), call(callee), asg(global, icon(1)));
    if_else(name(x), asg(global, icon(2)), call(callee));
    cleaned(false, true);
    EXPECT_EQ(currfuninfo->bb_count, 7) << graph();
}

TEST_F(SIMPCFG, FunctionsThatReturnTwiceKeepTheirTests) {
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
