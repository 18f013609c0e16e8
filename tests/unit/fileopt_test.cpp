// Function records, what is known of functions, and the order of the call graph.

#include <algorithm>

#include "OPT5/pragma.h"
#include "ir_fixture.h"

using namespace op;

namespace {

class FUNCTIONS : public IR_TEST {
  protected:
    // A function whose body calls the others and returns 0.
    FUNINFO* calling(SYMTAB* symbol, const std::vector<SYMTAB*>& callees = {}) {
        begin(symbol);
        for (SYMTAB* callee : callees) stmt(call(callee));
        stmt(ret(icon(0)));
        return finish();
    }
    FUNINFO* finish() {
        end();
        FUNINFO* function = currfuninfo;
        leave();
        return function;
    }
    std::string order() {
        leave();
        set_call_graph_order();
        std::string names;
        for (const SYMTAB* symbol : functions) names += std::string(symbol->name) + " ";
        return names;
    }
    // As at level 3 and above, where the file may be the whole program.
    void whole_program() { no_outside_callers = no_outside_writers = whole_file_mode = 1; }
};

constexpr std::uint32_t NO_GLOBALS = FUN_no_global_asg | FUN_no_global_use;

} // namespace

TEST_F(FUNCTIONS, LibraryNamesBringTheirFlags) {
    EXPECT_TRUE(is_system_function("wctomb"));
    EXPECT_TRUE(is_system_function("_sqrt"));
    EXPECT_FALSE(is_system_function("main"));
    EXPECT_FALSE(is_system_function("abort2"));
    const auto flags = [](const char* name) { return find_FUNINFO(name)->flags; };
    EXPECT_EQ(flags("strcpy") & (NO_GLOBALS | FUN_no_ind_asg), NO_GLOBALS);
    EXPECT_EQ(flags("qsort") & NO_GLOBALS, 0u); // runs the program's comparison
    EXPECT_EQ(flags("exit") & (NO_GLOBALS | FUN_never_returns), FUN_never_returns * 1u); // runs handlers
    EXPECT_NE(flags("strlen") & FUN_no_ind_asg, 0u);
    EXPECT_EQ(flags("strlen") & FUN_no_ind_use, 0u);
    EXPECT_NE(flags("abs") & FUN_is_pure_fun, 0u);
    EXPECT_EQ(flags("sqrt") & FUN_is_pure_fun, 0u); // sets errno
    EXPECT_EQ(find_FUNINFO("no_such_function"), nullptr);
}

TEST_F(FUNCTIONS, NameOnlyRecordIsBoundToItsSymbol) {
    FUNINFO* named = find_FUNINFO("strlen");
    EXPECT_EQ(named->symbol, nullptr);
    SYMTAB* declared = function("strlen", SC_EXTERN);
    EXPECT_EQ(find_FUNINFO(declared), named);
    SYMTAB* defined = function("strlen", SC_EXTDEF);
    EXPECT_EQ(find_FUNINFO(defined), named);
    EXPECT_EQ(named->symbol, defined);
    EXPECT_NE(make_FUNINFO(function("strlen", SC_STATIC)), named); // another function of that name
}

TEST_F(FUNCTIONS, StaticFunctionHidesTheLibrarysOne) {
    EXPECT_EQ(make_FUNINFO(function("abs", SC_STATIC))->flags & (FUN_is_SYSTEM | FUN_is_pure_fun), 0u);
}

TEST_F(FUNCTIONS, NonconformingNameLosesWhatItsNameSays) {
    SYMTAB* symbol = function("abs");
    ASSERT_NE(find_FUNINFO(symbol)->flags & FUN_is_pure_fun, 0u);
    pragma(symbol, PRAG_FUNC_IS_NONCONFORMING);
    pragma(symbol, PRAG_FUNC_IS_PURE); // not believed any more
    EXPECT_EQ(find_FUNINFO(symbol)->flags & (FUN_is_SYSTEM | FUN_is_pure_fun), 0u);
}

TEST_F(FUNCTIONS, BodiesTellTheirEffects) {
    SYMTAB* g = symbol("g", int_type, SC_STATIC);
    SYMTAB* pointer = symbol("pointer", tp->mk_ptr(int_type), SC_STATIC);
    struct CASE_OF {
        const char* name;
        std::uint32_t lost; // of the flags that promise no effect
    };
    constexpr std::uint32_t all =
        NO_GLOBALS | FUN_no_ind_asg | FUN_no_ind_use | FUN_no_byref_asg | FUN_is_pure_fun;
    const auto lost = [&](const char* name, auto body) {
        begin(function(name));
        body();
        return all & ~finish()->flags;
    };
    EXPECT_EQ(lost("locals", [&] { stmt(inc(x)); }), 0u);
    EXPECT_EQ(lost("reads", [&] { stmt(ret(this->name(g))); }), FUN_no_global_use | FUN_is_pure_fun);
    EXPECT_EQ(lost("writes", [&] { stmt(asg(g, icon(1))); }), FUN_no_global_asg | FUN_is_pure_fun);
    EXPECT_EQ(
        lost("loads", [&] { stmt(ret(tree(UMULT, int_type, tree(PCONV, tp->mk_ptr(int_type), icon(8))))); }),
        FUN_no_ind_use | FUN_is_pure_fun);
    EXPECT_EQ(lost("stores",
                   [&] { stmt(tree(ASG, int_type, tree(UMULT, int_type, this->name(pointer)), icon(1))); }),
              FUN_no_ind_asg | FUN_no_byref_asg | FUN_is_pure_fun | FUN_no_global_use);
    EXPECT_EQ(lost("updates", [&] { stmt(tree(PLUSASG, int_type, this->name(g), icon(1))); }),
              NO_GLOBALS | FUN_is_pure_fun);
    EXPECT_EQ(lost("asks", [&] { opt_client.cl_inline_asm(" idle", at(2)); }), all);
    EXPECT_EQ(lost("says", [&] { opt_client.cl_comment("idle"); }), 0u);
    EXPECT_EQ(lost("calls", [&] { stmt(call(function("unknown", SC_EXTERN))); }), all);
    EXPECT_EQ(g->cqual & CQ_VISIBLE, CQ_VISIBLE);
}

TEST_F(FUNCTIONS, PragmaOutranksTheBody) {
    SYMTAB* symbol = function("fn");
    pragma(symbol, PRAG_FUNC_NO_IND_ASG);
    begin(symbol);
    stmt(tree(ASG, int_type, tree(UMULT, int_type, tree(PCONV, tp->mk_ptr(int_type), icon(8))), icon(1)));
    EXPECT_EQ(finish()->flags & (FUN_no_ind_asg | FUN_no_byref_asg), FUN_no_ind_asg | FUN_no_byref_asg);
}

TEST_F(FUNCTIONS, WeakBodyPromisesNothing) {
    SYMTAB* symbol = function("fn");
    pragma(symbol, PRAG_NORVANE_WEAK);
    FUNINFO* function = calling(symbol);
    EXPECT_EQ(function->flags & (NO_GLOBALS | FUN_is_pure_fun), 0u);
    EXPECT_NE(function->flags & FUN_calls_OUTSIDE, 0u);
}

TEST_F(FUNCTIONS, EffectsTravelThroughCallsAndCycles) {
    SYMTAB* g = symbol("g", int_type, SC_STATIC);
    SYMTAB* leaf = function("leaf");
    begin(leaf);
    stmt(ret(name(g)));
    finish();
    SYMTAB* even = function("even");
    SYMTAB* odd = function("odd");
    SYMTAB* clean = function("clean");
    FUNINFO* clean_info = calling(clean);
    FUNINFO* odd_info = calling(odd, {clean});
    odd_info->callees = nullptr; // known before its own callees are: as a later scan would find it
    add_call_edge(odd_info, make_FUNINFO(even), true);
    FUNINFO* even_info = calling(even, {odd, leaf, leaf});
    EXPECT_EQ(even_info->callees->ncalls, 2u); // newest first, repeated calls counted
    EXPECT_NE(odd_info->flags & FUN_no_global_use, 0u);
    set_up_and_build_call_graph();
    EXPECT_EQ(odd_info->flags & FUN_no_global_use, 0u);
    EXPECT_NE(odd_info->flags & FUN_no_global_asg, 0u);
    EXPECT_NE(clean_info->flags & FUN_is_pure_fun, 0u);
}

TEST_F(FUNCTIONS, CallersStandBeforeTheirCallees) {
    SYMTAB* a = function("a", SC_STATIC);
    SYMTAB* b = function("b", SC_STATIC);
    SYMTAB* main = function("main");
    calling(b);
    calling(a, {b});
    calling(main, {b, a});
    EXPECT_EQ(order(), "main a b ");
    EXPECT_EQ(fileinfo.root->cg_number, 0);
    EXPECT_EQ(make_FUNINFO(b)->nCallers, 2);
}

TEST_F(FUNCTIONS, OnlyUnreachableStaticFunctionsAreDropped) {
    SYMTAB* dead = function("dead", SC_STATIC);
    SYMTAB* dead_too = function("dead_too", SC_STATIC);
    SYMTAB* in_table = function("in_table", SC_STATIC);
    SYMTAB* retained = function("retained", SC_STATIC);
    SYMTAB* interrupt = function("interrupt", SC_STATIC);
    SYMTAB* taken = function("taken", SC_STATIC);
    SYMTAB* external = function("external");
    pragma(retained, PRAG_RETAIN);
    pragma(interrupt, PRAG_INTERRUPT);
    SYMTAB* table = symbol("table", tp->mk_ptr(in_table->otype), SC_STATIC);
    opt_client.cl_symbol_init(table, {address(in_table), tree(ENDINIT, void_type)});
    calling(dead, {dead_too});
    for (SYMTAB* s : {dead_too, in_table, retained, interrupt, taken}) calling(s);
    begin(external);
    stmt(tree(UCALL, int_type, name(table))); // indirect
    stmt(ret(tree(PCONV, int_type, address(taken))));
    finish();
    std::string names = " " + order();
    EXPECT_EQ(std::count(names.begin(), names.end(), ' '), 6) << names;
    EXPECT_EQ(names.find("dead"), std::string::npos) << names;
}

TEST_F(FUNCTIONS, WholeProgramNeedsAMainThatStaysInside) {
    const auto build = [&](bool calls_out) {
        whole_program();
        SYMTAB* unused = function("unused");
        SYMTAB* main = function("main");
        calling(unused);
        calling(main, calls_out ? std::vector{function("outside", SC_EXTERN)}
                                : std::vector{function("printf", SC_EXTERN)});
        return order();
    };
    EXPECT_EQ(build(false), "main ");
    EXPECT_EQ(no_outside_callers, 1);
    TearDown();
    SetUp();
    EXPECT_EQ(build(true).find("unused") != std::string::npos, true);
    EXPECT_EQ(no_outside_callers, 0); // someone outside may call back
}

TEST_F(FUNCTIONS, LongChainsAndManyFunctionsTakeLinearTime) {
    constexpr int COUNT = 20000;
    std::vector<SYMTAB*> chain;
    for (int i = 0; i < COUNT; i++)
        chain.push_back(function(("f" + std::to_string(i)).c_str(), i == 0 ? SC_EXTDEF : SC_STATIC));
    SYMTAB* outside = function("outside", SC_EXTERN);
    for (int i = 0; i < COUNT; i++) calling(chain[i], {i + 1 < COUNT ? chain[i + 1] : outside});
    order();
    ASSERT_EQ(functions.size(), static_cast<std::size_t>(COUNT));
    EXPECT_EQ(functions.back(), chain.back());
    EXPECT_EQ(make_FUNINFO(chain[0])->flags & NO_GLOBALS, 0u);
}

TEST_F(FUNCTIONS, ClosingRunMarksOnlyWhatNothingNeeds) {
    SYMTAB* unused = symbol("unused", int_type, SC_STATIC);
    SYMTAB* used = symbol("used", int_type, SC_STATIC);
    SYMTAB* exported = symbol("exported", int_type, SC_EXTDEF);
    SYMTAB* dead = function("dead", SC_STATIC);
    SYMTAB* alive = function("alive", SC_STATIC);
    for (SYMTAB* s : {unused, used, exported}) s->cqual = 0; // as read at level 3
    calling(dead);
    begin(alive);
    stmt(ret(name(used)));
    finish()->flags |= FUN_is_processed;
    no_outside_writers = 1;
    leave();
    closing_run_over_globals();
    EXPECT_EQ(unused->retention, I_SYMTAB::NEVER);
    EXPECT_EQ(used->retention, I_SYMTAB::DEFAULT_C);
    EXPECT_EQ(exported->retention, I_SYMTAB::DEFAULT_C);
    EXPECT_EQ(dead->retention, I_SYMTAB::NEVER);
    EXPECT_EQ(alive->retention, I_SYMTAB::DEFAULT_C);
    no_outside_writers = 0;
    used->cqual = 0;
    used->retention = I_SYMTAB::DEFAULT_C;
    closing_run_over_globals();
    EXPECT_EQ(used->retention, I_SYMTAB::DEFAULT_C); // another file may hold its address
}
