// Symbols: how a record becomes one, temporaries, names, interning.

#include <cstring>

#include "OPT5/ls.h"
#include "OPT5/pragma.h"
#include "ir_fixture.h"

namespace {

class SYMBOL : public IR_TEST {};
using SYMBOL_DEATH = SYMBOL;
using ::testing::ExitedWithCode;

SYMBOL_RECORD record_of(const char* name, TYPE* type, unsigned cqual) {
    SYMBOL_RECORD record;
    record.name = name;
    record.type = type;
    record.size = static_cast<unsigned>(type->size());
    record.sclass = SC_EXTDEF;
    record.cqual = cqual;
    return record;
}

} // namespace

TEST_F(SYMBOL, VisibilityBitsOfAGlobalFollowItsKind) {
    const auto bits = [&](unsigned cqual, TYPE* type) {
        return mk_symbol(record_of("g", type, cqual))->cqual;
    };
    EXPECT_EQ(bits(0, int_type), 0xe000); // level 1: anyone may read, write and point to it
    EXPECT_EQ(bits(0x10, int_type), 0xc010);
    EXPECT_EQ(bits(0x80, int_type), 0xc080);
    EXPECT_EQ(bits(0, tp->mk_qual(int_type, QUAL_CONST)), 0);
    EXPECT_EQ(bits(0xf7ff, tp->mk_qual(int_type, QUAL_CONST)), 0x11ff); // what a file may not say is dropped
    file_options->set(46, "3");
    EXPECT_EQ(bits(0, int_type), 0);
    SYMBOL_RECORD kept = record_of("g", int_type, 0);
    kept.retention = I_SYMTAB::ALWAYS;
    EXPECT_EQ(mk_symbol(kept)->cqual, 0xe000);
    file_options->clear(46);
}

TEST_F(SYMBOL_DEATH, RecordsThatContradictThemselvesEndTheRun) {
    SYMBOL_RECORD record = record_of("g", int_type, 0);
    record.size = 32;
    EXPECT_EXIT(mk_symbol(record), ExitedWithCode(1), "terminated abnormally");
    record.size = 16;
    record.option_set = 5;
    EXPECT_EXIT(mk_symbol(record), ExitedWithCode(1), "symbol g names option set 5");
    record.option_set = 0;
    record.type = nullptr;
    EXPECT_EXIT(mk_symbol(record), ExitedWithCode(1), "symbol g has no type");
}

TEST_F(SYMBOL, TemporariesAreNumberedAndUnqualified) {
    begin(function("fn"));
    end();
    SYMTAB* first = sym_temp('t', -1, int_type, nullptr);
    SYMTAB* second = sym_temp('s', -1, tp->mk_qual(int_type, QUAL_CONST | QUAL_VOLATILE), nullptr);
    EXPECT_STREQ(first->name, "$O$t0");
    EXPECT_STREQ(second->name, "$O$s1");
    EXPECT_EQ(second->type, int_type);
    SYMTAB* again = sym_temp('t', 0, int_type, nullptr);
    EXPECT_STREQ(again->name, first->name); // on purpose, and still another symbol
    EXPECT_NE(again, first);
    TYPE* table = tp->mk_array(tp->mk_array(tp->mk_qual(int_type, QUAL_CONST), 3), 2);
    EXPECT_EQ(sym_temp('t', -1, table, nullptr)->type, tp->mk_array(tp->mk_array(int_type, 3), 2));
    EXPECT_EQ(first->level, 2);
    EXPECT_EQ(first->scope, LS::level_2_scope(currfuninfo));
    LS::validate(currfuninfo->scopes);
}

TEST_F(SYMBOL, NamesOfTheOptimizerAreRecognised) {
    EXPECT_TRUE(is_internal_name("$O$t12"));
    EXPECT_TRUE(is_internal_name("$Other")); // the prefix decides
    EXPECT_FALSE(is_internal_name("O$t12"));
    EXPECT_TRUE(is_optimizer_temp("$O$t12", 't', 's'));
    EXPECT_TRUE(is_optimizer_temp("$O$s", 't', 's'));
    EXPECT_FALSE(is_optimizer_temp("$O$x1", 't', 's'));
    EXPECT_FALSE(is_optimizer_temp("$O$t1a", 't', 's'));
    EXPECT_FALSE(is_optimizer_temp("$O$", 't', 's'));
    EXPECT_STREQ(skip_name_prefix("__x"), "_x");
    EXPECT_STREQ(skip_name_prefix(".x"), "x");
}

TEST_F(SYMBOL, ErrnoIsFoundUnderItsNames) {
    symbol("errno", float_type, SC_EXTDEF); // no int
    EXPECT_EQ(errno_symbol, nullptr);
    SYMTAB* real = symbol("_errno", int_type, SC_EXTERN);
    EXPECT_EQ(errno_symbol, real);
}

TEST_F(SYMBOL, UnlinkingKeepsTheRestOfAList) {
    begin(function("fn"));
    currfuninfo->locals = unlink_symbol(y, currfuninfo->locals);
    EXPECT_EQ(currfuninfo->locals, x);
    EXPECT_EQ(x->next, f);
    EXPECT_EQ(unlink_symbol(y, x), x);
    EXPECT_EQ(unlink_symbol(x, x), f);
}

TEST_F(SYMBOL, PragmasLeaveTheChainByKind) {
    SYMTAB* fn = function("fn");
    for (int kind : {PRAG_INLINE, PRAG_RETAIN, PRAG_INLINE}) pragma(fn, kind);
    PRAGMA* chain = fn->pragmas;
    PRAGMA* last = chain->next->next;
    fn->pragmas = remove_pragma(PRAG_INLINE, fn->pragmas);
    EXPECT_EQ(fn->sym_prag_num(), 1);
    EXPECT_FALSE(symbol_has_pragma(fn, PRAG_INLINE));
    delete chain;
    delete last;
}

TEST_F(SYMBOL, InterningJoinsCopiesOfOneVariable) {
    SYMTAB* global = symbol("g", int_type, SC_STATIC);
    EXPECT_EQ(intern_symbol(global, nullptr), global);
    begin(function("fn"));
    x->index = y->index = f->index = 4;
    EXPECT_EQ(intern_symbol(x, currfuninfo), x);
    EXPECT_EQ(find_interned_symbol(y), nullptr); // another name
    SYMTAB* copy = local("x", int_type);
    copy->index = 4;
    EXPECT_EQ(intern_symbol(copy, currfuninfo), x);
    copy->type = float_type;
    EXPECT_EQ(intern_symbol(copy, currfuninfo), copy);
    static int count;
    count = 0;
    map_over_interned_symbols([](SYMTAB*) { count++; });
    EXPECT_EQ(count, 2);
}

TEST_F(SYMBOL, ScopesFollowTheBlocksOfTheSource) {
    begin(function("fn"));
    SYMTAB* inner[2];
    for (SYMTAB*& s : inner) {
        opt_client.cl_begin_block(at(2));
        s = symbol("inner", int_type, SC_AUTO, 3);
        opt_client.cl_end_block(at(3));
    }
    for (int i = 0; i < 100000; i++) opt_client.cl_begin_block(at(4));
    for (int i = 0; i < 100000; i++) opt_client.cl_end_block(at(5));
    end();
    EXPECT_EQ(x->scope, LS::level_2_scope(currfuninfo));
    EXPECT_EQ(inner[0]->scope->parent, x->scope);
    EXPECT_NE(inner[0]->scope, inner[1]->scope);
    LS::validate(currfuninfo->scopes);
}
