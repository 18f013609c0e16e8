// What the reader makes of a body, and what the writer makes of it again.

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <unistd.h>

#include "OPT5/buildcfg.h"
#include "OPT5/erase.h"
#include "OPT5/pragma.h"
#include "OPT5/write.h"
#include "ir_fixture.h"
#include "tools/model/program.h"

using namespace op;
using ::testing::ExitedWithCode;

namespace {

class FILE_TEST : public IR_TEST {
  protected:
    void SetUp() override {
        IR_TEST::SetUp();
        path_ = ::testing::TempDir() + "ir_test_" + std::to_string(::getpid()) + ".ic";
        o_file = I_FILE::if_create(std::fopen(path_.c_str(), "wb"), tp, "test", path_.c_str());
    }
    void TearDown() override {
        if (o_file != nullptr) I_FILE::if_close(o_file, true);
        o_file = nullptr;
        std::remove(path_.c_str());
        IR_TEST::TearDown();
    }
    void write_current() {
        write_func_header();
        write_func_body();
        erase_current();
    }
    // Ends the output, and gives what an independent reader finds in it.
    const model::program& written() {
        closing_run_over_globals();
        EXPECT_EQ(I_FILE::if_close(o_file, false), 0);
        o_file = nullptr;
        program_ = std::make_unique<model::program>();
        std::string error;
        EXPECT_TRUE(program_->read(path_, error)) << error;
        return *program_;
    }
    static std::string text(const model::tree* tree) {
        if (tree == nullptr) return "";
        std::string s = if_node_info[tree->op].name;
        if (tree->op == NAME) return tree->sym->name;
        if (tree->op == ICON) return std::to_string(tree->value);
        if (tree->op == LABEL) return "L" + std::to_string(tree->value);
        if (tree->op == EPVAL) s += ":" + std::to_string(static_cast<unsigned>(tree->value));
        if (tree->op == SWITCH) s += std::to_string(tree->value);
        if (tree->left == nullptr) return s;
        return s + "(" + text(tree->left) + (tree->right != nullptr ? " " + text(tree->right) : "") + ")";
    }
    // The statements of a function, one a line.
    static std::string statements(const model::function& function) {
        std::string all;
        for (const model::body_item& item : function.body) {
            using kind = model::body_item::kind;
            if (item.what == kind::expr) all += text(item.expr) + "\n";
            if (item.what == kind::label) all += "L" + std::to_string(item.number) + ":\n";
            if (item.what == kind::pragma) all += "pragma " + std::to_string(item.prag->kind) + "\n";
            if (item.what == kind::assembly || item.what == kind::comment) all += "text " + item.text + "\n";
        }
        return all;
    }
    std::string written_statements() {
        write_current();
        return statements(written().functions.at(0));
    }

  private:
    std::string path_;
    std::unique_ptr<model::program> program_;
};
using FILE_DEATH = FILE_TEST;

} // namespace

TEST_F(FILE_TEST, BodyLeavesWithTheOperatorsItHad) {
    begin(function("fn"));
    label(10);
    stmt(cbranch(name(x), 30));
    stmt(asg(y, icon(1)));
    stmt(branch(20));
    label(30);
    stmt(asg(y, icon(2)));
    label(20);
    stmt(switch_on(name(y), comma(comma(case_of(1, 10), case_of(2, 30)), default_to(20))));
    stmt(ret(name(y)));
    end_uncleaned();
    EXPECT_EQ(written_statements(), "L1:\n"
                                    "CBRANCH(x L2)\n"
                                    "ASG(y 1)\n"
                                    "BRANCH(L3)\n"
                                    "L2:\n"
                                    "ASG(y 2)\n"
                                    "L3:\n"
                                    "SWITCH2(y COMMA(COMMA(CASE(1 L1) CASE(2 L2)) DEFAULT(L3)))\n"
                                    "RETURN(fn y)\n");
}

TEST_F(FILE_TEST, ConditionIsInvertedWhenItsFalseArmIsNext) {
    begin(function("fn"));
    const auto jump_over = [&](NODE* condition, unsigned number) {
        // if (condition) goto number; -- in a file: jump when zero to the branch's other side
        stmt(cbranch(condition, number));
        stmt(branch(9));
        label(number);
        stmt(inc(x));
    };
    jump_over(compare(LT, name(x), icon(5)), 1);
    jump_over(compare(FLT, name(f), name(f)), 2);
    jump_over(tree(EXCLAIM, int_type, name(y)), 3);
    jump_over(tree(ANDAND, int_type, name(x), name(y)), 4);
    label(9);
    stmt(ret(icon(0)));
    end_uncleaned();
    // Thread each jump through the block that only branches, as a later pass does.
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        NODE* transfer = last_statement(bb);
        if (transfer->op != IF) continue;
        NODE* arms = transfer->right;
        const bool left = arms->left->label->bb->statements->first->op == BRANCH;
        BBLK* hop = (left ? arms->left : arms->right)->label->bb;
        remap_labelrefs(transfer, hop, last_statement(hop)->left->label->bb);
        delink_old_bb(hop);
    }
    rebuildcfg();
    renumber_bblocks();
    ASSERT_TRUE(verify_function("threading"));
    EXPECT_EQ(written_statements(), "CBRANCH(GT(x 4) L1)\n"
                                    "ASG(x PLUS(x 1))\n"
                                    "CBRANCH(FGEN(f f) L1)\n"
                                    "ASG(x PLUS(x 1))\n"
                                    "CBRANCH(y L1)\n"
                                    "ASG(x PLUS(x 1))\n"
                                    "CBRANCH(EXCLAIM(ANDAND(x y)) L1)\n"
                                    "ASG(x PLUS(x 1))\n"
                                    "L1:\n"
                                    "RETURN(fn 0)\n");
}

TEST_F(FILE_TEST, ReturnsWithoutValueEndTheBody) {
    begin(function("fn"));
    stmt(cbranch(name(x), 1));
    stmt(inc(x));
    stmt(ureturn());
    label(1);
    stmt(cbranch(name(y), 2));
    stmt(inc(y));
    stmt(ureturn());
    label(2);
    end();
    EXPECT_EQ(written_statements(), "CBRANCH(x L1)\n"
                                    "ASG(x PLUS(x 1))\n"
                                    "URETURN(fn)\n"
                                    "L1:\n"
                                    "CBRANCH(y L2)\n"
                                    "ASG(y PLUS(y 1))\n"
                                    "L2:\n");
}

TEST_F(FILE_TEST, EmptyFunctionHasOnlyItsControls) {
    opt_client.cl_begin_func(function("fn"), nullptr);
    end();
    EXPECT_STREQ(currfuninfo->source_file, "NO_PSN_FILE");
    EXPECT_EQ(written_statements(), "");
}

TEST_F(FILE_TEST, TextsAndPragmasStayInPlace) {
    begin(function("fn"));
    opt_client.cl_comment("first");
    stmt(inc(x));
    pragma(nullptr, PRAG_MUST_ITERATE, "4");
    pragma(nullptr, PRAG_LOOP_FLAGS, "1"); // never written
    label(1);
    opt_client.cl_inline_asm(" nop", at(7));
    stmt(cbranch(name(x), 1));
    end();
    EXPECT_EQ(written_statements(), "text first\n"
                                    "ASG(x PLUS(x 1))\n"
                                    "pragma 39\n"
                                    "L1:\n"
                                    "text  nop\n"
                                    "CBRANCH(x L1)\n");
}

TEST_F(FILE_TEST, ProfileCountsOfLabelsStay) {
    begin(function("fn"));
    NODE* counted = tree(EPVAL, void_type, ref(1));
    counted->set_edge_profile_value(77);
    stmt(tree(CBRANCH, void_type, name(x), counted));
    stmt(inc(x));
    label(1);
    stmt(ret(icon(0)));
    end();
    EXPECT_EQ(block(1)->statements->first->right->right->edge_profile, 77u);
    EXPECT_EQ(written_statements(), "CBRANCH(x EPVAL:77(L1))\n"
                                    "ASG(x PLUS(x 1))\n"
                                    "L1:\n"
                                    "RETURN(fn 0)\n");
}

TEST_F(FILE_TEST, StatementsWithoutEffectAreDropped) {
    SYMTAB* port = symbol("port", tp->mk_qual(int_type, QUAL_VOLATILE), SC_EXTDEF);
    begin(function("fn"));
    stmt(tree(PLUS, int_type, name(x), icon(1)));
    stmt(tree(NOP, void_type));
    stmt(name(port)); // a read that must happen
    stmt(tree(SCONV, void_type, tree(UCALL, int_type, address(function("other")))));
    end();
    EXPECT_EQ(written_statements(), "port\n"
                                    "UCALL(UAND(other))\n");
}

TEST_F(FILE_TEST, SymbolsLeaveAsTheyCame) {
    TYPE* declared = tp->mk_enum("colour", int_type, 0, {16, 16, nullptr});
    tp->type_frozen(declared);
    SYMTAB* fn = function("fn");
    opt_client.cl_begin_func(fn, at(1));
    SYMTAB* p = symbol("p", tp->mk_qual(int_type, QUAL_CONST), SC_REGPARM, 1);
    SYMTAB* last = symbol("last", int_type, SC_VARARG, 1);
    EXPECT_EQ(last->sclass, SC_PARM);
    opt_client.cl_end_args(at(2));
    SYMTAB* e = local("e", declared);
    EXPECT_TRUE(e->type->is_int()); // seen as its underlying type
    opt_client.cl_begin_block(at(3));
    SYMTAB* inner = symbol("inner", int_type, SC_AUTO, 3);
    opt_client.cl_end_block(at(4));
    stmt(asg(inner, icon(1)));
    end_uncleaned();
    EXPECT_FALSE(p->type->is_const());
    sym_temp('t', -1, int_type, nullptr);
    EXPECT_EQ(currfuninfo->flags & 0x40022u, 0x40022u);
    write_current();
    const model::function& function = written().functions.at(0);
    std::string all;
    for (const model::symbol* s : function.params) all += s->name + std::to_string(s->sclass) + " ";
    EXPECT_EQ(all, "p17 last27 ");
    EXPECT_TRUE(function.params[0]->type->is_const());
    all.clear();
    for (const model::body_item& item : function.body)
        if (item.what == model::body_item::kind::symbol && item.sym->level > 1)
            all += item.sym->name + std::to_string(item.sym->level) +
                   (item.sym->type->is_enum() ? "enum " : " ");
    EXPECT_EQ(all, "e2enum inner2 $O$t02 "); // nested scopes are flattened
}

TEST_F(FILE_TEST, DeclarationsGiveWayToTheirDefinition) {
    SYMTAB* declared = symbol("g", int_type, SC_EXTERN);
    SYMTAB* defined = symbol("g", int_type, SC_EXTDEF);
    SYMTAB* hidden = symbol("s", int_type, SC_EXTERN);
    symbol("s", int_type, SC_STATIC); // of one function: another object
    begin(function("fn"));
    stmt(asg(declared, name(hidden)));
    end();
    NODE* assignment = block(1)->statements->first;
    EXPECT_EQ(assignment->left->symbol(), defined);
    EXPECT_EQ(assignment->right->symbol(), hidden);
}

TEST_F(FILE_TEST, InitialisersAndRetentionAreWrittenAtTheEnd) {
    SYMTAB* table = symbol("table", tp->mk_array(int_type, 2), SC_EXTDEF);
    SYMTAB* kept = symbol("kept", int_type, SC_STATIC, 0, I_SYMTAB::ALWAYS);
    INIT_TREES trees{icon(5), tree(ENDINIT, void_type)};
    opt_client.cl_symbol_init(table, std::move(trees));
    function("uncalled", SC_STATIC);
    const model::program& program = written();
    ASSERT_EQ(program.globals.size(), 3u);
    ASSERT_EQ(program.globals[0]->init.size(), 2u);
    EXPECT_EQ(text(program.globals[0]->init[0]), "5");
    EXPECT_EQ(program.globals[1]->retention, I_SYMTAB::ALWAYS);
    EXPECT_EQ(kept->retention, I_SYMTAB::ALWAYS);
}

TEST_F(FILE_TEST, ExceptionTablesAreKept) {
    begin(function("fn"));
    stmt(cbranch(name(x), 5));
    stmt(inc(x));
    label(5);
    stmt(ret(icon(0)));
    label(6); // named by the table alone
    stmt(inc(y));
    std::vector<EHT_ENTRY> table(2);
    table[0] = {1, EHK_EXPR, 3, 4, tree(BRANCH, void_type, ref(6)), {}};
    table[1] = {2, EHK_CATCH, 0, 1, nullptr, {{"int", 9, true}}};
    opt_client.cl_func_eht(std::move(table));
    end_uncleaned();
    write_current();
    const model::function& function = written().functions.at(0);
    ASSERT_EQ(function.eht.size(), 2u);
    EXPECT_EQ(text(static_cast<model::tree*>(function.eht[0].tree)), "BRANCH(L2)");
    EXPECT_EQ(function.eht[1].catches.at(0).type_name, "int");
    EXPECT_NE(statements(function).find("L2:\nASG(y PLUS(y 1))"), std::string::npos);
}

// --- Bodies that cannot be.

#define EXPECT_BAD(body, text)                                                                               \
    EXPECT_EXIT(                                                                                             \
        {                                                                                                    \
            begin(function("fn"));                                                                           \
            body;                                                                                            \
            end();                                                                                           \
        },                                                                                                   \
        ExitedWithCode(1), "function fn: .*" text)

TEST_F(FILE_DEATH, ImpossibleBodiesEndTheRunWithOneLine) {
    EXPECT_BAD(stmt(branch(7), 12), "line 12: a jump to label 7, which is not there");
    EXPECT_BAD(label(3); stmt(inc(x), 5); label(3), "line 5: label 3 is defined twice");
    EXPECT_BAD(stmt(case_of(1, 1)), "CASE outside a SWITCH");
    EXPECT_BAD(stmt(inc(x)); stmt(asg(x, case_of(1, 1))), "CASE outside a SWITCH");
    EXPECT_BAD(stmt(asg(x, ret(icon(1)))), "RETURN inside an expression");
    EXPECT_BAD(stmt(tree(ASG, int_type, icon(1), icon(2)), 8),
               "line 8: ASG of ICON, which is no place in memory");
    EXPECT_BAD(stmt(asg(x, tree(NOP, int_type))), "NOP inside an expression");
    EXPECT_BAD(stmt(cbranch(tree(SCONV, void_type, name(x)), 1)), "CBRANCH has a condition of type void");
    EXPECT_BAD(stmt(tree(BRANCH, void_type, icon(1))), "BRANCH without a label");
    EXPECT_BAD(stmt(tree(CBRANCH, void_type, icon(1), name(x))), "CBRANCH without a label");
    EXPECT_BAD(stmt(asg(x, ref(1))), "LABEL outside a transfer");
    EXPECT_BAD(stmt(switch_on(name(x), comma(default_to(1), case_of(1, 1)))), "DEFAULT that is not the last");
    EXPECT_BAD(stmt(switch_on(name(x), name(x))), "something else than CASE and DEFAULT");
    EXPECT_BAD(stmt(tree(URETURN, void_type, name(x))), "names no function");
    EXPECT_BAD(opt_client.cl_begin_block(at(4)), "a block is left open");
    EXPECT_BAD(opt_client.cl_end_block(at(4)), "not open");
    EXPECT_BAD(opt_client.cl_begin_func(function("gn"), at(4)), "another function begins");
    EXPECT_BAD(opt_client.end_of_input(), "the file ends inside the function");
}

TEST_F(FILE_DEATH, BadInputLeavesNoOutput) {
    std::snprintf(o_file_name, sizeof o_file_name, "%s", "/nonexistent/output");
    EXPECT_EXIT(stmt(inc(symbol("g", int_type, SC_EXTDEF))), ExitedWithCode(1),
                "a statement outside a function");
    EXPECT_EXIT(symbol("l", int_type, SC_AUTO, 2), ExitedWithCode(1), "a local symbol outside a function");
    SYMTAB* g = symbol("g2", int_type, SC_EXTDEF);
    EXPECT_EXIT(opt_client.cl_begin_func(g, at(1)), ExitedWithCode(1), "g2, which is no function");
    begin(function("fn"));
    end();
    leave();
    EXPECT_EXIT(begin(function("fn")), ExitedWithCode(1), "function fn has two bodies");
}
