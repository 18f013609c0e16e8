// Assignments in vain: what goes, what stays, and that the function does the same without.

#include <ctime>

#include "OPT5/dead_assigns.h"
#include "OPT5/simp.h"
#include "random_graph.h"

using namespace op;

namespace {

class DEAD : public RANDOM_GRAPH_TEST {
  protected:
    // The statements of the first block, behind a pass with these flags.
    std::string first_block(bool use_flow, bool cleanup) {
        elim_dead_assigns(use_flow, cleanup);
        EXPECT_TRUE(verify_function("elim_dead_assigns"));
        const std::string text = graph();
        return text.substr(3, text.find(" ->") - 3);
    }
    NODE* member(SYMTAB* record, fkMDATA* field) {
        NODE* leaf = new_node(FIELD, field->type);
        leaf->mk_field(1, field, record->type);
        return tree(STDOT, field->type, name(record), leaf);
    }
    static bool has(const SYMTAB* list, const SYMTAB* symbol) { return symbol_in_list(symbol, list); }
};

} // namespace

TEST_F(DEAD, RandomFunctionsDoTheSame) {
    std::mt19937 random(5);
    int shorter = 0;
    for (int round = 0; round < 3000 && !HasFailure(); round++) {
        begin_another(round % 8 == 0 ? 80 : 4);
        build_random(random, 2 + random() % 10, round % 3 != 0, [&](unsigned) {
            for (unsigned i = random() % 4; i > 0; i--) random_statement(random);
        });
        if (round % 2 == 0) simp_all_trees();
        const std::string before = graph();
        SCOPED_TRACE(before);
        std::vector<VALUES> starts(3);
        std::vector<std::string> expected;
        for (VALUES& start : starts) {
            start = random_start(random);
            expected.push_back(run(start, 60));
        }
        const bool use_flow = random() % 3 != 0, cleanup = random() % 2 == 0;
        elim_dead_assigns(use_flow, cleanup);
        EXPECT_TRUE(verify_function("elim_dead_assigns"));
        const std::string after = graph();
        SCOPED_TRACE(after);
        for (std::size_t i = 0; i < starts.size(); i++) EXPECT_EQ(run(starts[i], 60), expected[i]);
        elim_dead_assigns(use_flow, cleanup);
        EXPECT_EQ(graph(), after); // all at once
        shorter += after.size() < before.size() ? 1 : 0;
    }
    EXPECT_GT(shorter, 1500);
}

TEST_F(DEAD, SymbolsThatOnlyFeedEachOtherGoWithoutFlow) {
    SYMTAB* z = local("z", int_type);
    label(1);
    stmt(inc(x)); // counts for nobody
    stmt(asg(y, tree(PLUS, int_type, name(x), name(y))));
    stmt(asg(z, call(function("fn2", SC_EXTERN))));
    stmt(tree(PLUSASG, int_type, name(f), tree(SCONV, float_type, name(z))));
    stmt(cbranch(call(function("fn3", SC_EXTERN)), 1));
    stmt(ret(icon(0)));
    end_uncleaned();
    elim_dead_assigns(false, false);
    EXPECT_EQ(graph(), "1: goto BB2 -> 2\n"
                       "2: fn2(); if (fn3()) goto BB3; else goto BB2 -> 3 2\n"
                       "3: return 0 -> 4\n"
                       "4: return ->\n");
    EXPECT_TRUE(has(currfuninfo->locals, x));
    elim_dead_assigns(false, true);
    EXPECT_EQ(currfuninfo->locals, nullptr);
    EXPECT_TRUE(verify_function("elim_dead_assigns"));
}

TEST_F(DEAD, ParameterKeepsItsProlog) {
    end_uncleaned();
    erase_current();
    SYMTAB* one = function("one");
    opt_client.cl_begin_func(one, at(1));
    SYMTAB* a = symbol("a", int_type, SC_REGPARM, 1);
    SYMTAB* b = symbol("b", int_type, SC_REGPARM, 1);
    opt_client.cl_end_args(at(1));
    opt_client.cl_end_locals(at(1));
    stmt(tree(PCOMMA, void_type, asg(a, name(a)), asg(b, name(b))));
    stmt(asg(a, icon(3)));
    stmt(asg(b, tree(PLUS, int_type, name(b), icon(1))));
    stmt(ret(name(b)));
    end_uncleaned();
    EXPECT_EQ(first_block(true, true), "a = a, b = b; b += 1; return b");
    EXPECT_TRUE(has(currfuninfo->params, a));
}

TEST_F(DEAD, StoresOnTheWayToOthersNeedFlow) {
    stmt(asg(x, icon(1))); // overwritten on both ways
    stmt(asg(y, icon(5)));
    stmt(cbranch(call(function("fn2", SC_EXTERN)), 1));
    stmt(asg(x, icon(2)));
    stmt(branch(2));
    label(1);
    stmt(asg(x, name(y)));
    label(2);
    stmt(ret(name(x)));
    end_uncleaned();
    EXPECT_EQ(first_block(false, true).substr(0, 13), "x = 1; y = 5;");
    EXPECT_EQ(first_block(true, true).substr(0, 7), "y = 5; ");
}

TEST_F(DEAD, EmbeddedStoresLeaveTheirValue) {
    SYMTAB* z = local("z", int_type);
    // x is stored four times and never read; what the stores are worth is.
    stmt(asg(y, tree(PLUSPLUS, int_type, name(x), icon(1))));
    stmt(asg(g, asg(x, name(z))));
    stmt(asg(g, tree(PLUSASG, int_type, name(x), icon(4))));
    stmt(asg(x, icon(7)));
    stmt(asg(g, tree(QUEST, int_type, name(z), tree(COLON, int_type, asg(x, icon(3)), name(y)))));
    end_uncleaned();
    EXPECT_EQ(first_block(true, true), "y = x; g = x = z; g = x + 4; g = z ? (3 : y); goto BB2");
}

TEST_F(DEAD, MembersCountForTheWhole) {
    TYPE* type = tp->mk_struct("PAIR", TYPE_LAYOUT{32, 16, nullptr});
    if (!type->is_frozen()) {
        fkMDATA data;
        data.type = int_type;
        data.name = "low";
        data.width = 5;
        data.bit_field = true;
        tp->add_member(type, data);
        data = {};
        data.type = int_type;
        data.name = "high";
        data.offset = 16;
        tp->add_member(type, data);
        tp->type_frozen(type);
    }
    SYMTAB* read = local("read", type);
    SYMTAB* unread = local("unread", type);
    SYMTAB* copied = local("copied", type);
    stmt(tree(ASG, int_type, member(read, type->member(1)), icon(1)));
    stmt(
        tree(ASG, int_type, member(read, type->member(2)), icon(2))); // dead only for who tells members apart
    stmt(tree(STASG, type, name(unread), name(read)));
    stmt(tree(ASG, int_type, member(unread, type->member(2)), call(function("fn2", SC_EXTERN))));
    stmt(tree(STASG, type, name(copied), name(read))); // overwritten
    stmt(tree(STASG, type, name(copied), name(read)));
    // A bit-field cuts the value that the whole passes on.
    stmt(asg(g, tree(ASG, int_type, member(unread, type->member(1)), name(x))));
    stmt(asg(g, member(copied, type->member(1))));
    stmt(asg(g, member(read, type->member(1))));
    end_uncleaned();
    EXPECT_EQ(first_block(true, true),
              "read.low = 1; read.high = 2; fn2(); copied = read; g = unread.low = x; g = copied.low; "
              "g = read.low; goto BB2");
    EXPECT_TRUE(has(currfuninfo->locals, unread));
}

TEST_F(DEAD, WhatOthersMaySeeStays) {
    SYMTAB* taken = local("taken", int_type);
    SYMTAB* flagged = local("flagged", tp->mk_qual(int_type, QUAL_VOLATILE));
    SYMTAB* kept = symbol("kept", int_type, SC_STATIC, 0);
    SYMTAB* pointer = symbol("pointer", tp->mk_ptr(int_type), SC_EXTDEF);
    stmt(asg(pointer, address(taken)));
    for (SYMTAB* symbol : {taken, flagged, kept, x}) stmt(asg(symbol, icon(1)));
    stmt(asg(y, name(flagged))); // the read stays, the store goes
    end_uncleaned();
    EXPECT_EQ(first_block(true, true),
              "pointer = &taken; taken = 1; flagged = 1; kept = 1; flagged; goto BB2");
}

TEST_F(DEAD, FlowIsNotUsedWhereItIsNotKnown) {
    stmt(asg(x, icon(1)));
    stmt(asg(y, call(function("setjmp", SC_EXTERN))));
    stmt(asg(x, icon(2)));
    stmt(ret(name(x)));
    end_uncleaned();
    EXPECT_EQ(first_block(true, true), "x = 1; setjmp(); x = 2; return x");
}

TEST_F(DEAD, LongChainsTakeLinearTime) {
    constexpr int STATEMENTS = 100000;
    for (int i = 0; i < STATEMENTS; i++)
        stmt(asg(i % 2 == 0 ? x : y, tree(PLUS, int_type, name(i % 2 == 0 ? y : x), icon(1))));
    NODE* deep = icon(1);
    for (int i = 0; i < STATEMENTS; i++) deep = asg(x, tree(PLUS, int_type, deep, name(g)));
    stmt(deep);
    stmt(asg(y, icon(0)));
    stmt(ret(name(y)));
    end_uncleaned();
    const std::clock_t start = std::clock();
    EXPECT_EQ(first_block(true, true), "y = 0; return y");
    EXPECT_LT(std::clock() - start, 2 * CLOCKS_PER_SEC);
}
