// Blocks and edges: building the flow graph, its primitives, and what the validators promise to catch.

#include "OPT5/bbutils.h"
#include "OPT5/buildcfg.h"
#include "OPT5/copy.h"
#include "OPT5/erase.h"
#include "ir_fixture.h"

using namespace op;
using ::testing::ExitedWithCode;

namespace {

class CFG : public IR_TEST {
  protected:
    void SetUp() override {
        IR_TEST::SetUp();
        begin(function("fn"));
    }
    void end() { end_uncleaned(); }
    // `if (x) y = 1; else y = 2;` inside a loop that runs while x is below 9.
    void build_loop() {
        label(1);
        stmt(cbranch(name(x), 2));
        stmt(asg(y, icon(1)));
        stmt(branch(3));
        label(2);
        stmt(asg(y, icon(2)));
        label(3);
        stmt(cbranch(compare(GE, name(x), icon(9)), 1));
        stmt(ret(name(y)));
        end();
        ASSERT_TRUE(verify_function("building"));
    }
    LIST* cell(int dfn, int position) {
        LIST* list = block(dfn)->statements;
        while (position-- > 0) list = list->next;
        return list;
    }
};
using CFG_DEATH = CFG;

} // namespace

TEST_F(CFG, EmptyBodyHasAnEntryAndAnExit) {
    end();
    EXPECT_EQ(graph(), "1: goto BB2 -> 2\n"
                       "2: return ->\n");
    EXPECT_TRUE(verify_function("building"));
}

TEST_F(CFG, BodyThatFallsOffItsEndReachesTheExit) {
    stmt(inc(x));
    end();
    EXPECT_EQ(graph(), "1: x = x + 1; goto BB2 -> 2\n"
                       "2: return ->\n");
    EXPECT_TRUE(verify_function("building"));
}

TEST_F(CFG, ConditionalJumpTakesItsFalseArm) {
    stmt(cbranch(name(x), 7));
    stmt(inc(x));
    label(7);
    stmt(ret(name(x)));
    end();
    EXPECT_EQ(graph(), "1: if (x) goto BB2; else goto BB3 -> 2 3\n"
                       "2: x = x + 1; goto BB3 -> 3\n"
                       "3: return x -> 4\n"
                       "4: return ->\n");
    EXPECT_TRUE(verify_function("building"));
}

TEST_F(CFG, LoopToTheFirstStatementGetsAnEntryOfItsOwn) {
    label(1);
    stmt(inc(x));
    stmt(branch(1));
    end();
    EXPECT_EQ(graph(), "1: goto BB2 -> 2\n"
                       "2: x = x + 1; goto BB2 -> 2\n"
                       "3: return ->\n");
    EXPECT_TRUE(verify_function("building"));
    for (int dfn = 1; dfn <= 3; dfn++) EXPECT_EQ(block(dfn)->uon() + 1, static_cast<unsigned>(dfn));
}

TEST_F(CFG, SwitchWithoutDefaultRunsIntoTheNextStatement) {
    stmt(switch_on(name(x), comma(case_of(1, 1), case_of(2, 1))));
    stmt(inc(x));
    label(1);
    end();
    EXPECT_EQ(graph(), "1: switch (x) { case 1: goto BB3, case 2: goto BB3, default: goto BB2 } -> 3 2\n"
                       "2: x = x + 1; goto BB3 -> 3\n"
                       "3: return ->\n");
    EXPECT_TRUE(verify_function("building"));
}

TEST_F(CFG, SwitchWithDefaultKeepsIt) {
    stmt(switch_on(name(x), comma(case_of(1, 1), default_to(2))));
    stmt(inc(x)); // unreachable, and stays
    label(1);
    label(2);
    stmt(ret(icon(0)));
    end();
    EXPECT_EQ(graph(), "1: switch (x) { case 1: goto BB3, default: goto BB3 } -> 3\n"
                       "2: x = x + 1; goto BB3 -> 3\n"
                       "3: return 0 -> 4\n"
                       "4: return ->\n");
    EXPECT_EQ(block(2)->predecessors, nullptr);
    EXPECT_TRUE(verify_function("building"));
}

TEST_F(CFG, LoneDefaultAndEmptyRestAreBothCases) {
    stmt(switch_on(name(x), default_to(5)));
    label(5);
    stmt(switch_on(name(y), case_of(3, 5)));
    end();
    EXPECT_EQ(graph(), "1: switch (x) { default: goto BB2 } -> 2\n"
                       "2: switch (y) { case 3: goto BB2, default: goto BB3 } -> 2 3\n"
                       "3: return ->\n");
    EXPECT_TRUE(verify_function("building"));
}

TEST_F(CFG, EarlyReturnsLeadToTheExitBlock) {
    stmt(cbranch(name(x), 1));
    stmt(ureturn());
    label(1);
    stmt(ureturn());
    label(2); // at the end, behind everything
    end();
    EXPECT_EQ(graph(), "1: if (x) goto BB2; else goto BB3 -> 2 3\n"
                       "2: goto BB4 -> 4\n"
                       "3: goto BB4 -> 4\n"
                       "4: return ->\n");
    EXPECT_TRUE(verify_function("building"));
}

TEST_F(CFG, LabelsBeforeOneStatementShareItsBlock) {
    stmt(cbranch(name(x), 1));
    label(4);
    label(1);
    stmt(inc(x));
    stmt(cbranch(name(y), 4));
    end();
    EXPECT_EQ(graph(), "1: if (x) goto BB2; else goto BB2 -> 2\n"
                       "2: x = x + 1; if (y) goto BB3; else goto BB2 -> 3 2\n"
                       "3: return ->\n");
    EXPECT_TRUE(verify_function("building"));
}

TEST_F(CFG, HugeBodiesTakeLinearTime) {
    constexpr unsigned CASES = 10000;
    NODE* list = case_of(0, 1);
    for (unsigned i = 1; i < CASES; i++) list = comma(list, case_of(static_cast<int>(i), i + 1));
    stmt(switch_on(name(x), list));
    for (unsigned i = 1; i <= CASES; i++) {
        label(i);
        stmt(inc(x));
        stmt(cbranch(name(y), i));
    }
    end();
    EXPECT_EQ(currfuninfo->bb_count, static_cast<int>(CASES) + 2);
    EXPECT_EQ(edge_length(block(1)->successors), static_cast<int>(CASES));
    rebuildcfg();
    EXPECT_TRUE(verify_function("building"));
}

TEST_F(CFG, RebuildFollowsChangedBranches) {
    build_loop();
    const std::string before = graph();
    rebuildcfg();
    EXPECT_EQ(graph(), before);
    // The condition of the loop's exit goes: the loop never ends.
    LIST* last = last_cell(block(5));
    NODE* branch = mk_BRANCH(block(2), nullptr);
    erase_tree(last->first);
    last->first = branch;
    rebuildcfg();
    EXPECT_TRUE(verify_function("rebuilding"));
    EXPECT_EQ(block(6)->predecessors, nullptr);
    EXPECT_EQ(edge_length(block(2)->predecessors), 2);
}

TEST_F(CFG, EdgeListsHoldABlockOnce) {
    build_loop();
    EDGE* list = add_edge(block(2), nullptr, 0.25);
    EXPECT_EQ(add_edge(block(2), list, 0.75), list);
    EXPECT_EQ(list->freq, 0.25);
    currfuninfo->flow_is_stale = false;
    EXPECT_EQ(remove_edge(block(3), list), list);
    EXPECT_TRUE(currfuninfo->flow_is_stale); // told also of a change that was none
    list = add_edge(block(6), add_edge(block(4), list, 1.0), 1.0);
    EDGE* slow = sort_edge_list(copy_edge_list(list));
    EDGE* fast = fast_sort_edge_list(copy_edge_list(list));
    for (int dfn : {2, 4, 6}) {
        EXPECT_EQ(slow->bb->dfn, dfn);
        EXPECT_EQ(fast->bb->dfn, dfn);
        slow = slow->next;
        fast = fast->next;
    }
    EXPECT_EQ(rev_edge_list(list)->bb->dfn, 2);
}

TEST_F(CFG, FixupKeepsFrequenciesOfEdgesThatStay) {
    build_loop();
    BBLK* fork = block(2);
    fork->successors->freq = 0.3;
    BBLK* stays = fork->successors->bb;
    BBLK* goes = fork->successors->next->bb;
    LIST* last = last_cell(fork);
    erase_tree(last->first);
    last->first = mk_IF(name(x), mk_LABELREF_to_bb(block(5), nullptr), mk_LABELREF_to_bb(stays, nullptr));
    fixup_edge_lists(fork, last->first);
    EXPECT_TRUE(verify_function("fixing"));
    EXPECT_EQ(goes->predecessors, nullptr);
    EXPECT_EQ(fork->successors->bb, block(5));
    EXPECT_EQ(fork->successors->next->freq, 0.3);
}

TEST_F(CFG, SplitBlockMovesStatementsAndSuccessors) {
    build_loop();
    BBLK* middle = block(5);
    EXPECT_EQ(split_block(middle, middle->statements, false), middle);
    for (BBLK* bb : {block(1), block(5), block(3)}) { // one statement, a fork, two statements
        BBLK* half = split_block(bb, last_cell(bb), true);
        EXPECT_EQ(bb->next, half);
        EXPECT_EQ(last_statement(bb)->left->freq, 1.0);
        EXPECT_TRUE(verify_function("splitting"));
    }
    EXPECT_EQ(split_block(currfuninfo->bb_list->prev, nullptr, true), currfuninfo->bb_list->prev);
    const std::string before = graph();
    renumber_bblocks();
    EXPECT_TRUE(verify_function("numbering"));
    EXPECT_EQ(currfuninfo->bb_count, 10);
}

TEST_F(CFG, SplittingAllCriticalEdgesLeavesNone) {
    build_loop();
    split_critical_edges(true);
    renumber_bblocks();
    EXPECT_TRUE(verify_function("splitting"));
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (const EDGE* edge = bb->successors; edge != nullptr && bb->successors->next != nullptr;
             edge = edge->next)
            EXPECT_EQ(edge_length(edge->bb->predecessors), 1) << graph();
}

TEST_F(CFG, BackEdgesAreSplitOnlyOnRequest) {
    build_loop();
    const std::string before = graph();
    split_critical_edges(false); // the only critical edge goes back to the loop's first block
    EXPECT_EQ(graph(), before);
}

TEST_F(CFG, DelinkedAndInsertedBlocksKeepTheListWhole) {
    stmt(cbranch(name(x), 1));
    stmt(ret(icon(1)));
    stmt(inc(x)); // unreachable
    label(1);
    end();
    BBLK* dead = block(3);
    ASSERT_EQ(dead->predecessors, nullptr);
    delink_old_bb(dead);
    EXPECT_FALSE(BB_is_in_bb_list(dead));
    erase_bblock(dead);
    delete dead;
    rebuildcfg();
    BBLK* added = insert_new_bb(2, block(2), nullptr);
    added->statements = mkelist(mk_BRANCH(added->next, nullptr), nullptr, nullptr);
    insert_stmt_before_stmt_in_bb(inc(x), nullptr, added, nullptr);
    rebuildcfg();
    renumber_bblocks();
    EXPECT_TRUE(verify_function("inserting"));
    EXPECT_EQ(added->statements->first->op, ASG); // ahead of the transfer
    EXPECT_EQ(added->uon(), 4u);                  // numbers are never given twice
}

TEST_F(CFG, InternalLabelNumbersStartAgainBelowTheirLimit) {
    currfuninfo->next_label = -30000;
    EXPECT_EQ(next_internal_label(), -30000);
    EXPECT_EQ(next_internal_label(), -1);
}

// --- The validators. One broken promise each; the text names the step, the function and the fault.

#define EXPECT_FAULT(damage, text)                                                                           \
    EXPECT_EXIT(                                                                                             \
        {                                                                                                    \
            damage;                                                                                          \
            verify_function("some step");                                                                    \
        },                                                                                                   \
        ExitedWithCode(1), "after step 'some step', function fn: .*" text)

TEST_F(CFG_DEATH, BrokenListsAreCaught) {
    build_loop();
    EXPECT_FAULT(block(3)->prev = block(1), "back link");
    EXPECT_FAULT(block(3)->layout_next = nullptr, "second forward link");
    EXPECT_FAULT(block(3)->dfn = 7, "position 3");
    EXPECT_FAULT(currfuninfo->bb_count = 3, "counts 3");
    EXPECT_FAULT(currfuninfo->bb_list->prev = block(2), "lead back to the last");
    EXPECT_FAULT(currfuninfo->blocks[2] = nullptr, "vector at its id");
    EXPECT_FAULT(block(7)->next = block(7)->layout_next = block(2), "twice|back link");
}

TEST_F(CFG_DEATH, BrokenBlocksAreCaught) {
    build_loop();
    EXPECT_FAULT(block(3)->statements = nullptr, "does not end with a transfer");
    EXPECT_FAULT(block(3)->statements->next = nullptr, "does not end with a transfer");
    EXPECT_FAULT(last_cell(block(3))->next = mkelist(inc(x), nullptr, nullptr), "BRANCH is not the last");
    EXPECT_FAULT(last_cell(block(7))->first = mk_BRANCH(block(2), nullptr), "exit block ends with BRANCH");
    EXPECT_FAULT(last_cell(block(6))->first = ureturn(), "URETURN outside");
    EXPECT_FAULT(block(3)->statements->first = nullptr, "without a statement");
}

TEST_F(CFG_DEATH, BrokenEdgesAreCaught) {
    build_loop();
    EXPECT_FAULT(block(2)->successors = block(2)->successors->next, "1 targets of IF have no edge");
    EXPECT_FAULT(block(4)->successors = mkedge(block(6), block(4)->successors), "edge to BB6");
    EXPECT_FAULT(block(4)->successors = mkedge(block(5), block(4)->successors), "appears twice");
    EXPECT_FAULT(block(5)->predecessors = nullptr, "predecessors are not");
    EXPECT_FAULT(block(4)->predecessors->bb = block(3), "predecessors are not");
    EXPECT_FAULT(block(6)->successors = nullptr, "1 targets of RETURN");
    EXPECT_FAULT(
        {
            last_cell(block(4))->first = mk_BRANCH(block(1), nullptr);
            rebuildcfg();
        },
        "first block has a predecessor");
    EXPECT_FAULT(last_statement(block(4))->left->label = nullptr, "leads nowhere");
    EXPECT_FAULT(
        {
            BBLK* gone = block(4);
            delink_old_bb(gone);
            renumber_bblocks();
        },
        "not on the list");
}

TEST_F(CFG_DEATH, BrokenTreesAreCaught) {
    build_loop();
    NODE* assignment = block(3)->statements->first; // y = 1
    const auto replace = [&](NODE* value) { assignment->right = value; };
    EXPECT_FAULT(replace(assignment->left), "belongs to two trees");
    EXPECT_FAULT(erase_node(assignment->right), "erased");
    EXPECT_FAULT(replace(nullptr), "ASG has 1 operands instead of 2");
    EXPECT_FAULT(assignment->right->type = nullptr, "ICON without a type");
    EXPECT_FAULT(assignment->left = icon(1), "ASG of ICON");
    EXPECT_FAULT(replace(tree(UMULT, int_type, name(x))), "no pointer");
    EXPECT_FAULT(replace(tree(UAND, int_type, icon(1))), "UAND of ICON");
    EXPECT_FAULT(replace(ref(1)), "LABEL under ASG");
    EXPECT_FAULT(replace(ret(icon(1))), "RETURN under ASG");
    EXPECT_FAULT(replace(case_of(1, 1)), "CASE under ASG");
    EXPECT_FAULT(replace(tree(PLUS, int_type, name(x), name(f))), "types of PLUS do not fit");
    EXPECT_FAULT(replace(tree(SCONV, float_type, icon(1))), "ASG of float to int");
    EXPECT_FAULT(replace(compare(FLT, name(f), name(x))), "FLT compares float with int");
    EXPECT_FAULT(replace(compare(LT, name(f), name(f))), "LT compares floating");
    EXPECT_FAULT(replace(icon(1, tp->int_type(IK_LONG))), "ASG of long to int");
    EXPECT_FAULT(replace(tree(EQ, tp->mk_ptr(int_type), name(x), name(x))), "EQ gives no integer");
    EXPECT_FAULT(replace(tree(250, int_type)), "operator 250");
    EXPECT_FAULT(block(3)->statements->first = tree(LABELDEF, void_type), "LABELDEF is no statement");
}

TEST_F(CFG_DEATH, SymbolsOfOtherFunctionsAreCaught) {
    SYMTAB* foreign = x;
    stmt(ret(icon(0)));
    end();
    leave();
    begin(function("gn"));
    stmt(ret(name(foreign)));
    end();
    EXPECT_EXIT(verify_function("some step"), ExitedWithCode(1), "symbol x is not one of the function's");
}

TEST_F(CFG_DEATH, BrokenTransfersAreCaught) {
    build_loop();
    NODE* fork = last_statement(block(2));
    EXPECT_FAULT(fork->right->left = icon(1), "IF without a label");
    EXPECT_FAULT(fork->right = icon(1), "IF without its two arms");
    EXPECT_FAULT(
        {
            NODE* list = maketree(CASE, icon(1), mk_LABELREF_to_bb(block(3), nullptr), void_type, nullptr);
            last_cell(block(2))->first = maketree(SWITCH, name(x), list, void_type, nullptr);
            rebuildcfg();
        },
        "without a DEFAULT");
}
