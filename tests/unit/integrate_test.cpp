// Calls replaced by copies of their callees, as a policy has marked them; what becomes of bodies and
// definitions.

#include "OPT5/integrate.h"

#include <string>

#include "OPT5/bbutils.h"
#include "OPT5/ls.h"
#include "OPT5/pragma.h"
#include "OPT5/psnmap.h"
#include "cfg_fixture.h"

using namespace op;

namespace {

class INTEGRATE : public IR_TEST {
  protected:
    void SetUp() override {
        IR_TEST::SetUp();
        before_ = file_options;
        file_options = &options_;
        all_option_sets = {file_options};
        options_.set(46, "1");
        g = symbol("g", int_type, SC_EXTDEF);
    }
    void TearDown() override {
        IR_TEST::TearDown();
        file_options = before_;
        all_option_sets = {file_options};
        clear_psnmap();
    }
    SYMTAB* begin_function(const char* name, bool is_inline = true) {
        SYMTAB* made = function(name, SC_STATIC);
        if (is_inline) pragma(made, PRAG_INLINE);
        begin(made);
        return made;
    }
    FUNINFO* end_function() {
        end();
        FUNINFO* record = currfuninfo;
        leave();
        return record;
    }
    // All calls that stand in the function are to be integrated; it gets its own definition too.
    static void mark_all(FUNINFO* function) {
        function->inlined_sites.assign(100, true);
        make_integrable_cfg(function);
    }
    // Runs the step's part and checks the result.
    void integrate_in(FUNINFO* function) {
        currfuninfo = function;
        currfunc = function->symbol;
        integrate_calls_in_function();
        EXPECT_TRUE(verify_function("integration"));
        LS::validate(function->scopes);
    }
    int calls() {
        int count = 0;
        for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
            for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
                walk_tree(cell->first, [&](const NODE* node) { count += node->op == UCALL ? 1 : 0; });
        return count;
    }
    static void order(std::initializer_list<FUNINFO*> functions) {
        fileinfo.ordered = {fileinfo.root};
        fileinfo.ordered.insert(fileinfo.ordered.end(), functions);
        for (std::size_t i = 0; i < fileinfo.ordered.size(); i++)
            fileinfo.ordered[i]->cg_number = static_cast<int>(i);
    }

    SYMTAB* g = nullptr;

  private:
    option_obj options_{true};
    option_obj* before_ = nullptr;
};

TEST_F(INTEGRATE, RecursionStopsAtTheLimitAndKeepsTheBody) {
    SYMTAB* f = begin_function("f");
    stmt(asg(g, tree(PLUS, int_type, name(g), icon(1))));
    stmt(cbranch(name(g), 1));
    stmt(call(f));
    label(1);
    stmt(asg(g, icon(0)));
    FUNINFO* callee = end_function();
    begin_function("main", false);
    stmt(call(f));
    FUNINFO* caller = end_function();
    mark_all(callee);
    mark_all(caller);
    callee->flags |= FUN_is_suppressed;
    callee->is_left_out = true;
    const std::size_t listed = functions.size();
    integrate_in(caller);
    // The call itself, ten inside of it, and the last one stays.
    EXPECT_EQ(calls(), 1);
    EXPECT_FALSE(TEST_FLAG(callee, FUN_is_suppressed | FUN_is_inlined));
    EXPECT_TRUE(TEST_FLAG(callee, FUN_is_unsuppressed));
    EXPECT_EQ(functions.size(), listed + 1);
    EXPECT_EQ(functions.back(), f);
    // Asked again, it is not listed twice.
    unsuppress_inline_function(callee);
    EXPECT_EQ(functions.size(), listed + 1);
    EXPECT_EQ(psn_search(at(2)), f);
}

TEST_F(INTEGRATE, RecursionInManyPlacesStaysWithinBounds) {
    SYMTAB* f = begin_function("f");
    stmt(cbranch(name(g), 1));
    for (int i = 0; i < 8; i++) stmt(call(f));
    label(1);
    FUNINFO* callee = end_function();
    begin_function("main", false);
    stmt(call(f));
    FUNINFO* caller = end_function();
    mark_all(callee);
    mark_all(caller);
    integrate_in(caller);
    EXPECT_GT(calls(), 8);
    EXPECT_LT(caller->bb_count, 100000);
}

TEST_F(INTEGRATE, OnlyMarkedCallsGo) {
    SYMTAB* f = begin_function("f");
    stmt(inc(g));
    FUNINFO* callee = end_function();
    begin_function("main", false);
    stmt(call(f));
    stmt(call(f));
    stmt(call(f));
    FUNINFO* caller = end_function();
    make_integrable_cfg(callee);
    caller->inlined_sites = {false, true, false, true};
    integrate_in(caller);
    EXPECT_EQ(calls(), 1);
}

TEST_F(INTEGRATE, ScopesHangUnderTheCallersAndSymbolsAreItsOwn) {
    SYMTAB* f = begin_function("f");
    stmt(asg(x, name(g)));
    stmt(ret(tree(PLUS, int_type, name(x), call(f))));
    FUNINFO* callee = end_function();
    begin_function("main", false);
    stmt(asg(g, tree(MULT, int_type, name(g), call(f))));
    FUNINFO* caller = end_function();
    make_integrable_cfg(callee);
    caller->inlined_sites.assign(2, true);
    const std::uint32_t serials = caller->next_serial;
    integrate_in(caller);
    LS* body = LS::level_2_scope(caller);
    ASSERT_NE(body->children, nullptr);
    EXPECT_EQ(body->children->owner, 1);
    EXPECT_EQ(body->children->level, 3);
    EXPECT_EQ(caller->scope_depth, 4);
    for (const SYMTAB* symbol = caller->locals; symbol != nullptr; symbol = symbol->next)
        EXPECT_LT(symbol->serial, caller->next_serial);
    EXPECT_GT(caller->next_serial, serials);
}

TEST_F(INTEGRATE, DefinitionsGoWithTheirLastCaller) {
    SYMTAB* leaf = begin_function("leaf");
    stmt(inc(g));
    FUNINFO* third = end_function();
    begin_function("middle");
    stmt(call(leaf));
    FUNINFO* second = end_function();
    begin_function("main", false);
    stmt(call(leaf));
    FUNINFO* first = end_function();
    for (FUNINFO* f : {first, second, third}) mark_all(f);
    order({first, second, third});
    third->flags |= FUN_is_suppressed;
    first->flags |= FUN_is_processed;
    release_integrable_definitions(first);
    EXPECT_EQ(first->integrable_cfg, nullptr);
    EXPECT_NE(second->integrable_cfg, nullptr);
    EXPECT_NE(third->integrable_cfg, nullptr);
    EXPECT_NE(third->bb_list, nullptr);
    // Nobody is left who could want the last one, or its body.
    second->flags |= FUN_is_processed;
    release_integrable_definitions(second);
    EXPECT_EQ(third->integrable_cfg, nullptr);
    EXPECT_EQ(third->bb_list, nullptr);
    EXPECT_EQ(third->pool.bytes(), 0u);
}

TEST_F(INTEGRATE, FunctionsOutOfOrderWaitForTheOnesAhead) {
    begin_function("late");
    stmt(inc(g));
    FUNINFO* second = end_function();
    begin_function("early", false);
    FUNINFO* first = end_function();
    for (FUNINFO* f : {first, second}) mark_all(f);
    order({first, second});
    second->flags |= FUN_is_processed;
    release_integrable_definitions(second);
    EXPECT_NE(second->integrable_cfg, nullptr);
}

TEST_F(INTEGRATE, WhatCannotBeCopiedIsToldWhileReading) {
    const auto cannot = [this](const char* name, bool is_inline, auto fill) {
        begin_function(name, is_inline);
        fill();
        const FUNINFO* f = end_function();
        return (f->flags & (FUN_cannot_inline | FUN_cannot_suppress)) != 0;
    };
    EXPECT_FALSE(cannot("plain", false, [] {}));
    EXPECT_TRUE(cannot("own_state", true, [this] { local("v", tp->mk_qual(int_type, QUAL_VOLATILE)); }));
    // Large locals count only where nobody has asked for inlining.
    TYPE* large = tp->mk_array(int_type, 70);
    const auto two = [this, large] {
        local("a", large);
        local("b", large);
    };
    EXPECT_TRUE(cannot("large", false, two));
    EXPECT_FALSE(cannot("asked", true, two));
    EXPECT_FALSE(cannot("one", false, [this, large] { local("a", large); }));
    SYMTAB* setjmp_function = function("_setjmp", SC_EXTERN);
    EXPECT_TRUE(cannot("lands", true, [&] { stmt(call(setjmp_function)); }));
}

TEST(PSN_RANGE, ComparesLinesThenColumns) {
    const PSN low{nullptr, 3, 8}, high{nullptr, 5, 2}, inside{nullptr, 4, 99}, ahead{nullptr, 3, 7};
    EXPECT_TRUE(psn_is_within_psn_range(&low, &low, &high));
    EXPECT_TRUE(psn_is_within_psn_range(&inside, &low, &high));
    EXPECT_FALSE(psn_is_within_psn_range(&ahead, &low, &high));
}

} // namespace
