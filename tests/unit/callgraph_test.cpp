// The call graph against brute force on random files, sets of numbers, and what is found out about globals,
// statics and synonyms.

#include <algorithm>
#include <cstdio>
#include <random>
#include <set>

#include "OPT5/bitvec.h"
#include "OPT5/fl_statics.h"
#include "OPT5/global_symbols.h"
#include "OPT5/pragma.h"
#include "OPT5/recursion.h"
#include "OPT5/synonyms.h"
#include "ir_fixture.h"

using namespace op;

namespace {

constexpr std::uint32_t EFFECTS = FUN_no_ind_use | FUN_no_ind_asg | FUN_no_byref_asg | FUN_no_global_asg |
                                  FUN_no_global_use | FUN_is_pure_fun;

class CALL_GRAPH : public IR_TEST {
  protected:
    void SetUp() override {
        IR_TEST::SetUp();
        info_ = std::tmpfile();
        finfo = info_;
        write_opt_info = 2;
    }
    void TearDown() override {
        write_opt_info = 0;
        finfo = nullptr;
        std::fclose(info_);
        IR_TEST::TearDown();
    }
    // What stands in the information file so far.
    std::string info() {
        std::string text;
        std::rewind(info_);
        for (int c; (c = std::fgetc(info_)) != EOF;) text += static_cast<char>(c);
        return text;
    }
    bool info_has(const std::string& text) { return info().find(text) != std::string::npos; }

    // A call of the function that `pointer` points to.
    NODE* call_through(SYMTAB* pointer) {
        NODE* node = tree(UCALL, int_type, name(pointer));
        node->mk_ucall(0);
        return node;
    }
    void initialise(SYMTAB* owner, NODE* value) {
        opt_client.cl_symbol_init(owner, {value, tree(ENDINIT, void_type)});
    }
    FUNINFO* finish() {
        end();
        FUNINFO* function = currfuninfo;
        leave();
        return function;
    }
    SYMTAB* global(const char* name, int sclass = SC_STATIC, TYPE* type = nullptr) {
        SYMTAB* made = symbol(name, type != nullptr ? type : int_type, sclass);
        made->cqual = 0; // as read at level 3
        return made;
    }
    // As at level 3 and above, where the file may be the whole program.
    static void whole_program() { no_outside_callers = no_outside_writers = whole_file_mode = 1; }

  private:
    std::FILE* info_ = nullptr;
};

// --- A random file, and what is true of it.

struct MODEL_FUNCTION {
    SYMTAB* symbol = nullptr;
    FUNINFO* info = nullptr;
    std::set<int> callees; // defined ones
    bool indirect = false, outside = false, system = false, taken = false, is_external = false;
    std::uint32_t effects = 0; // after reading
};

struct MODEL {
    std::vector<MODEL_FUNCTION> functions;
    bool whole = false;

    bool is_root(const MODEL_FUNCTION& f) const {
        return TEST_FLAG(f.info, FUN_is_main) || f.taken || (!whole && f.is_external);
    }
    // What a function calls in this file, in the graph that orders functions.
    std::set<int> calls(int i) const {
        std::set<int> all = functions[i].callees;
        for (int j = 0; functions[i].indirect && j < size(); j++)
            if (functions[j].taken) all.insert(j);
        return all;
    }
    int size() const { return static_cast<int>(functions.size()); }
    // Everything that may be called while the function runs. -1 is the outside.
    std::set<int> reach(int from) const {
        std::set<int> seen;
        std::vector<int> pending{from};
        const auto add = [&](int to) {
            if (seen.insert(to).second) pending.push_back(to);
        };
        while (!pending.empty()) {
            const int at = pending.back();
            pending.pop_back();
            if (at == -1) {
                for (int j = 0; j < size(); j++)
                    if (is_root(functions[j]) && !(whole && TEST_FLAG(functions[j].info, FUN_is_main)))
                        add(j);
                continue;
            }
            for (int to : functions[at].callees) add(to);
            if (functions[at].indirect || functions[at].outside) add(-1);
            for (int j = 0; functions[at].system && !whole && j < size(); j++)
                if (functions[j].taken) add(j);
        }
        return seen;
    }
};

class RANDOM_CALL_GRAPH : public CALL_GRAPH {
  protected:
    void build(unsigned seed);
    void check_effects();
    void check_order();
    void check_recursion();
    void check_reports();
    std::set<int> reached() const;
    MODEL model_;
};

void RANDOM_CALL_GRAPH::build(unsigned seed) {
    std::mt19937 random(seed);
    const auto chance = [&random](unsigned percent) { return random() % 100 < percent; };
    model_ = {};
    // A whole program makes no indirect call and none to the outside.
    model_.whole = chance(30);
    if (model_.whole) whole_program();
    const int count = 1 + static_cast<int>(random() % 200);
    const unsigned calls = 1 + random() % 4;
    model_.functions.resize(static_cast<std::size_t>(count));
    for (int i = 0; i < count; i++) {
        MODEL_FUNCTION& f = model_.functions[static_cast<std::size_t>(i)];
        f.is_external = chance(20);
        const std::string name =
            i == 0 ? "main" : "f" + std::to_string(random() % 1000) + "_" + std::to_string(i);
        f.symbol = function(name.c_str(), f.is_external || i == 0 ? SC_EXTDEF : SC_STATIC);
        f.is_external = f.symbol->sclass == SC_EXTDEF;
    }
    SYMTAB* pointer = global("pointer", SC_STATIC, tp->mk_ptr(function_type(int_type)));
    SYMTAB* outside[] = {function("out1", SC_EXTERN), function("out2", SC_EXTERN)};
    SYMTAB* library[] = {function("strlen", SC_EXTERN), function("qsort", SC_EXTERN)};
    for (int i = 0; i < count; i++) {
        MODEL_FUNCTION& f = model_.functions[static_cast<std::size_t>(i)];
        begin(f.symbol);
        for (unsigned n = random() % (2 * calls); n > 0; n--) {
            const int to = static_cast<int>(random() % static_cast<unsigned>(count));
            if (to == 0) continue; // main
            f.callees.insert(to);
            stmt(call(model_.functions[static_cast<std::size_t>(to)].symbol));
        }
        if (!model_.whole && chance(5)) {
            f.indirect = true;
            stmt(call_through(pointer));
        }
        if (!model_.whole && chance(5)) {
            f.outside = true;
            stmt(call(outside[random() % 2]));
        }
        if (chance(10)) {
            f.system = true;
            stmt(call(library[random() % 2]));
        }
        if (chance(5)) {
            const auto to = 1 + random() % static_cast<unsigned>(std::max(1, count - 1));
            if (to < static_cast<unsigned>(count)) {
                model_.functions[to].taken = true;
                stmt(asg(pointer, address(model_.functions[to].symbol)));
            }
        }
        stmt(ret(icon(0)));
        f.info = finish();
        f.info->flags = (f.info->flags & ~EFFECTS) | (random() & random() & EFFECTS) | FUN_no_ind_asg;
        if (chance(60)) f.info->flags |= EFFECTS;
        f.effects = f.info->flags & EFFECTS;
    }
    set_up_and_build_call_graph();
}

// The rule of the merge, on pairs, until nothing changes.
void RANDOM_CALL_GRAPH::check_effects() {
    std::vector<std::uint32_t> flags;
    for (const MODEL_FUNCTION& f : model_.functions) flags.push_back(f.effects);
    for (bool changed = true; changed;) {
        changed = false;
        for (int i = 0; i < model_.size(); i++)
            for (int j : model_.functions[static_cast<std::size_t>(i)].callees) {
                if (i == j) continue;
                const std::uint32_t callee = flags[static_cast<std::size_t>(j)];
                std::uint32_t& caller = flags[static_cast<std::size_t>(i)];
                const std::uint32_t before = caller;
                caller &= callee | ~EFFECTS;
                if ((callee & FUN_no_byref_asg) == 0) caller &= ~FUN_no_ind_asg;
                changed |= caller != before;
            }
    }
    for (int i = 0; i < model_.size(); i++)
        EXPECT_EQ(model_.functions[static_cast<std::size_t>(i)].info->flags & EFFECTS,
                  flags[static_cast<std::size_t>(i)]);
}

std::set<int> RANDOM_CALL_GRAPH::reached() const {
    std::set<int> seen;
    std::vector<int> pending;
    for (int i = 0; i < model_.size(); i++)
        if (model_.is_root(model_.functions[static_cast<std::size_t>(i)])) pending.push_back(i);
    while (!pending.empty()) {
        const int at = pending.back();
        pending.pop_back();
        if (!seen.insert(at).second) continue;
        for (int to : model_.calls(at)) pending.push_back(to);
    }
    return seen;
}

void RANDOM_CALL_GRAPH::check_order() {
    const std::set<int> live = reached();
    ASSERT_EQ(fileinfo.ordered.size(), live.size() + 1);
    EXPECT_EQ(fileinfo.ordered[0], fileinfo.root);
    for (std::size_t i = 0; i < fileinfo.ordered.size(); i++)
        EXPECT_EQ(fileinfo.ordered[i]->cg_number, static_cast<int>(i));
    std::vector<bool> follows(model_.functions.size(), false);
    for (int i = 0; i < model_.size(); i++) {
        const int own = model_.functions[static_cast<std::size_t>(i)].info->cg_number;
        EXPECT_EQ(own >= 0, live.contains(i));
        if (own < 0) continue;
        for (int to : model_.calls(i)) {
            const int other = model_.functions[static_cast<std::size_t>(to)].info->cg_number;
            if (other > own) continue;
            follows[static_cast<std::size_t>(to)] = true;
            // Only a call back to something under way stands before its caller.
            std::set<int> seen;
            std::vector<int> pending{to};
            while (!pending.empty()) {
                const int at = pending.back();
                pending.pop_back();
                if (seen.insert(at).second)
                    for (int next : model_.calls(at)) pending.push_back(next);
            }
            EXPECT_TRUE(seen.contains(i));
        }
    }
    for (int i = 0; i < model_.size(); i++)
        EXPECT_EQ(TEST_FLAG(model_.functions[static_cast<std::size_t>(i)].info, FUN_follows_call),
                  follows[static_cast<std::size_t>(i)]);
}

void RANDOM_CALL_GRAPH::check_recursion() {
    detect_recursion();
    for (int i : reached()) {
        const MODEL_FUNCTION& f = model_.functions[static_cast<std::size_t>(i)];
        const std::set<int> reach = model_.reach(i);
        EXPECT_EQ(function_may_be_recursive(f.info), reach.contains(i));
        for (int j : reached())
            EXPECT_EQ(f.info->reachable->test(static_cast<unsigned>(
                          model_.functions[static_cast<std::size_t>(j)].info->cg_number)),
                      reach.contains(j));
        EXPECT_EQ(f.info->reachable->test(0), reach.contains(-1));
    }
}

void RANDOM_CALL_GRAPH::check_reports() {
    const std::set<int> live = reached();
    const std::string text = info();
    for (int i = 0; i < model_.size(); i++) {
        const FUNINFO* f = model_.functions[static_cast<std::size_t>(i)].info;
        const std::string line =
            "\n>>>> WARNING - Function " + f->name + "() is not called and will not be compiled\n";
        EXPECT_EQ(text.find(line) != std::string::npos, !live.contains(i)) << line;
    }
    const auto listed = [](const std::vector<FUNINFO*>& list, const char* name) {
        return std::count_if(list.begin(), list.end(), [name](const FUNINFO* f) { return f->name == name; });
    };
    bool outside = false, system = false;
    for (const MODEL_FUNCTION& f : model_.functions) {
        outside |= f.outside;
        system |= f.system;
    }
    EXPECT_EQ(listed(fileinfo.undefined_OUTSIDE, "out1") + listed(fileinfo.undefined_OUTSIDE, "out2") > 0,
              outside);
    EXPECT_EQ(fileinfo.undefined_OUTSIDE.size(),
              static_cast<std::size_t>(listed(fileinfo.undefined_OUTSIDE, "out1") +
                                       listed(fileinfo.undefined_OUTSIDE, "out2")));
    EXPECT_EQ(!fileinfo.undefined_SYSTEM.empty(), system);
    EXPECT_LE(fileinfo.undefined_SYSTEM.size(), 2u);
}

} // namespace

TEST_F(RANDOM_CALL_GRAPH, AgreesWithBruteForce) {
    for (unsigned seed = 0; seed < 60; seed++) {
        SCOPED_TRACE(seed);
        build(seed);
        check_effects();
        check_order();
        check_recursion();
        check_reports();
        ASSERT_FALSE(HasFailure());
        TearDown();
        SetUp();
    }
}

// --- Sets of numbers.

TEST(BITVEC_TEST, AgreesWithASetOfNumbers) {
    std::mt19937 random(3);
    for (int round = 0; round < 300; round++) {
        const unsigned size = 1 + random() % 200;
        BITVEC a(size), b(size);
        std::set<unsigned> in_a, in_b;
        for (int i = 0; i < 40; i++) {
            const unsigned index = random() % size;
            a.add(index);
            in_a.insert(index);
            if (random() % 3 == 0) {
                a.remove(index);
                in_a.erase(index);
            }
            const unsigned other = random() % size;
            b.add(other);
            in_b.insert(other);
        }
        const unsigned end = random() % (size + 1), first = random() % (end + 1);
        a.clr(first, end);
        in_a.erase(in_a.lower_bound(first), in_a.lower_bound(end));
        EXPECT_EQ(a == b, in_a == in_b);
        const std::size_t before = in_a.size();
        in_a.insert(in_b.begin(), in_b.end());
        EXPECT_EQ(a.merge(b), in_a.size() != before);
        EXPECT_EQ(a.count(), in_a.size());
        std::set<unsigned> seen;
        a.for_each([&seen](unsigned index) { seen.insert(index); });
        EXPECT_EQ(seen, in_a);
        EXPECT_FALSE(a.test(size));
        EXPECT_EQ(b.cmp_cpy(a), in_a != in_b);
        EXPECT_TRUE(a == b);
    }
}

TEST(BITVEC_DEATH, MisuseEndsTheRun) {
    BITVEC set(64), other(65);
    EXPECT_EXIT(set.add(64), testing::ExitedWithCode(1), "Index beyond size:add");
    EXPECT_EXIT(set.remove(64), testing::ExitedWithCode(1), "Index beyond size:remove");
    EXPECT_EXIT(set.merge(other), testing::ExitedWithCode(1), "Vector size mismatch:merge");
    EXPECT_EXIT(set.cmp_cpy(other), testing::ExitedWithCode(1), "Vector size mismatch:cmp_cpy");
    EXPECT_EXIT(set.clr(0, 65), testing::ExitedWithCode(1), "Endpoint beyond size:clr");
}

// --- Globals.

TEST_F(CALL_GRAPH, OnlyGlobalsThatKeepTheirValueBecomeConst) {
    struct CASE_OF {
        SYMTAB* symbol;
        bool becomes_const;
    };
    std::vector<CASE_OF> cases;
    const auto make = [&](const char* name, bool becomes_const, int sclass = SC_STATIC,
                          TYPE* type = nullptr) {
        cases.push_back({global(name, sclass, type), becomes_const});
        initialise(cases.back().symbol, icon(5));
        return cases.back().symbol;
    };
    TYPE* pointer_type = tp->mk_ptr(int_type);
    SYMTAB* read = make("read", true);
    SYMTAB* visible = make("visible", false, SC_EXTDEF);
    SYMTAB* written = make("written", false);
    SYMTAB* dead_write = make("dead_write", true);
    SYMTAB* taken = make("taken", false);
    SYMTAB* in_data = make("in_data", false);
    SYMTAB* in_text = make("in_text", false);
    SYMTAB* in_file_text = make("in_file_text", false);
    SYMTAB* counted = make("counted", false);
    SYMTAB* hardware = make("hardware", false, SC_STATIC, tp->mk_qual(int_type, QUAL_VOLATILE));
    SYMTAB* weak = make("weak", false);
    SYMTAB* placed = make("placed", false);
    SYMTAB* set_by_library = make("errno", false);
    make("unread", false);
    cases.push_back({symbol("kept", int_type, SC_STATIC, 0, I_SYMTAB::ALWAYS), false});
    SYMTAB* kept = cases.back().symbol;
    initialise(kept, icon(5));
    SYMTAB* no_value = global("no_value");
    cases.push_back({no_value, false});
    SYMTAB* pointer = global("pointer", SC_STATIC, pointer_type);
    initialise(pointer, address(in_data));
    pragma(weak, PRAG_NORVANE_WEAK);
    pragma(placed, PRAG_DATA_SECTION, "table");
    opt_client.cl_inline_asm("label: inc _in_file_text, 1", nullptr);

    begin(function("uncalled", SC_STATIC));
    stmt(asg(dead_write, icon(1)));
    finish();
    begin(function("entry"));
    for (SYMTAB* s : {read, visible, dead_write, in_data, in_text, in_file_text, hardware, weak, placed, kept,
                      no_value, set_by_library, taken})
        stmt(asg(x, name(s)));
    stmt(asg(written, name(x)));
    stmt(tree(PLUSASG, int_type, name(counted), icon(1)));
    stmt(tree(ASG, pointer_type, name(pointer), address(taken)));
    opt_client.cl_inline_asm(" mov in_text, r1", at(2));
    stmt(ret(name(x)));
    finish();
    analyze_global_symbols();
    for (const auto& [symbol, becomes_const] : cases)
        EXPECT_EQ(symbol->type->is_const(), becomes_const) << symbol->name;
    for (const auto& [symbol, becomes_const] : cases) EXPECT_FALSE(symbol->otype->is_const()) << symbol->name;
    EXPECT_TRUE(info_has("\nMaking unmodified global variable CONST:\n\tread = 5\n"));
    EXPECT_TRUE(info_has("\nVariable has no explicitly assigned value:\n\tno_value\n"));
    EXPECT_TRUE(info_has("Global variable is not referenced in this file:\n\tunread\n"));
    // Once is enough.
    const std::string before = info();
    analyze_global_symbols();
    EXPECT_EQ(info(), before);
}

TEST_F(CALL_GRAPH, VisibleGlobalsBecomeConstOnlyWhereNobodyElseWrites) {
    for (const bool whole : {false, true}) {
        TearDown();
        SetUp();
        if (whole) whole_program();
        SYMTAB* limit = global("limit", SC_EXTDEF);
        initialise(limit, icon(9));
        begin(function("main"));
        stmt(ret(name(limit)));
        finish();
        analyze_global_symbols();
        EXPECT_EQ(limit->type->is_const(), whole);
    }
}

TEST_F(CALL_GRAPH, VariableReportsNeedLevelTwo) {
    write_opt_info = 1;
    initialise(global("unread"), icon(1));
    analyze_global_symbols(); // of a file without functions
    EXPECT_FALSE(info_has("Global variable is not"));
    EXPECT_TRUE(fileinfo.ordered.empty());
}

TEST_F(CALL_GRAPH, DeclarationAndDefinitionAreOneObject) {
    SYMTAB* declared = global("shared", SC_EXTERN);
    begin(function("writer"));
    stmt(asg(declared, icon(1)));
    finish();
    SYMTAB* defined = global("shared", SC_EXTDEF);
    initialise(defined, icon(4));
    begin(function("main"));
    stmt(ret(name(defined)));
    finish();
    whole_program();
    make_FUNINFO("writer")->flags |= FUN_is_cg_root;
    analyze_global_symbols();
    EXPECT_FALSE(defined->type->is_const());
}

TEST_F(CALL_GRAPH, WholeFileIsAnalyzedOnceWhoeverAsks) {
    SYMTAB* limit = global("limit");
    initialise(limit, icon(3));
    begin(function("main"));
    stmt(call(function("out", SC_EXTERN)));
    stmt(call(function("main")));
    stmt(ret(name(limit)));
    finish();
    analyze_call_graph();
    const std::string text = info();
    const std::string in_order[] = {"\t\t======File-level Analysis Summary======\n\n",
                                    "\nMaking unmodified global variable CONST:\n\tlimit = 3\n",
                                    "\nThese functions may be recursive:\n\tmain()\n",
                                    "\nThese external functions are called but not defined here:\n",
                                    "\nThese OUTSIDE functions are called but not defined:\n\tout()\n",
                                    "\n\t\t======= End file-level Analysis =======\n\n"};
    std::size_t from = 0;
    for (const std::string& part : in_order) {
        from = text.find(part, from);
        ASSERT_NE(from, std::string::npos) << part << text;
    }
    analyze_global_symbols();
    detect_recursion();
    dump_call_graph_debug();
    set_call_graph_order();
    EXPECT_EQ(info(), text);
    EXPECT_EQ(fileinfo.undefined_OUTSIDE.size(), 1u);
}

// --- What a function never does.

TEST_F(CALL_GRAPH, OnlyACertainCallKeepsAFunctionFromReturning) {
    SYMTAB* exit = function("exit", SC_EXTERN);
    begin(function("always"));
    stmt(call(exit));
    EXPECT_NE(finish()->flags & FUN_never_returns, 0u);
    begin(function("perhaps"));
    stmt(asg(x, tree(ANDAND, int_type, name(y), call(exit))));
    stmt(ret(name(x)));
    FUNINFO* perhaps = finish();
    begin(function("cleans_up"));
    opt_client.cl_func_eht({{0, EHK_EXPR, 1, 0, call(exit), {}}});
    stmt(ret(icon(1)));
    FUNINFO* cleans_up = finish();
    set_up_and_build_call_graph();
    EXPECT_EQ(perhaps->flags & FUN_never_returns, 0u);
    EXPECT_EQ(cleans_up->flags & FUN_never_returns, 0u);
}

TEST_F(CALL_GRAPH, CppFilesHaveRootsOfTheirOwn) {
    SYMTAB* initialiser = function("__sti__made", SC_STATIC);
    SYMTAB* constructor = function("made", SC_STATIC);
    pragma(initialiser, PRAG_SRC_LANGUAGE, "C++");
    pragma(constructor, PRAG_FUNC_IS_CTOR_DTOR, "1");
    begin(initialiser);
    stmt(call(constructor));
    FUNINFO* f = finish();
    begin(constructor);
    stmt(ret(icon(0)));
    FUNINFO* g = finish();
    EXPECT_TRUE(fun_is_cpp_static_initializer(f));
    EXPECT_TRUE(fun_is_cpp_constructor(g));
    EXPECT_FALSE(fun_is_cpp_destructor(g));
    EXPECT_TRUE(fun_is_cpp_op_new(make_FUNINFO(function("_Znwj", SC_EXTERN))));
    set_up_and_build_call_graph();
    EXPECT_EQ(f->cg_number, 1);
    EXPECT_EQ(g->cg_number, 2);
}

TEST_F(CALL_GRAPH, WhatTheLinkerMayReplaceIsUnknown) {
    struct CASE_OF {
        const char* visibility;
        int sclass;
        bool is_unknown;
    };
    for (const CASE_OF& c : {CASE_OF{"default", SC_EXTDEF, true}, CASE_OF{"0", SC_EXTDEF, true},
                             CASE_OF{"hidden", SC_EXTDEF, false}, CASE_OF{"3", SC_EXTDEF, false},
                             CASE_OF{"default", SC_STATIC, false}, CASE_OF{nullptr, SC_EXTDEF, false}}) {
        SYMTAB* f = function("replaced", c.sclass);
        if (c.visibility != nullptr) pragma(f, PRAG_SYM_VISIBILITY, c.visibility);
        begin(f);
        stmt(ret(icon(0)));
        EXPECT_EQ((finish()->flags & EFFECTS) == 0, c.is_unknown)
            << (c.visibility != nullptr ? c.visibility : "");
        TearDown();
        SetUp();
    }
}

// --- Queries about recursion.

TEST_F(CALL_GRAPH, RecursiveCallsAreToldFromOthers) {
    SYMTAB* leaf = function("leaf", SC_STATIC);
    SYMTAB* even = function("even", SC_STATIC);
    SYMTAB* odd = function("odd", SC_STATIC);
    SYMTAB* out = function("out", SC_EXTERN);
    begin(leaf);
    stmt(ret(icon(0)));
    finish();
    NODE* call_of_odd = call(odd);
    NODE* call_of_leaf = call(leaf);
    begin(even);
    stmt(asg(x, call_of_odd));
    stmt(asg(x, call_of_leaf));
    stmt(ret(name(x)));
    FUNINFO* f = finish();
    begin(odd);
    stmt(call(even));
    stmt(ret(icon(0)));
    finish();
    begin(function("main"));
    stmt(call(even));
    stmt(call(out));
    stmt(ret(icon(0)));
    FUNINFO* main = finish();
    const auto may = [&](FUNINFO* in, SYMTAB* callee) {
        currfuninfo = in;
        currfunc = in->symbol;
        const bool answer = call_may_be_recursive(call(callee));
        leave();
        return answer;
    };
    EXPECT_TRUE(may(f, leaf)); // nothing is known yet
    detect_recursion();
    EXPECT_TRUE(may(f, odd));
    EXPECT_FALSE(may(f, leaf));
    EXPECT_TRUE(may(main, out)); // who may call main again
    EXPECT_TRUE(info_has("\nThese functions may be recursive:\n\tmain()\n"));
    EXPECT_TRUE(info_has("\teven()\n"));
    EXPECT_FALSE(info_has("\tleaf()\n"));
    code_is_reentrant = 0;
    EXPECT_FALSE(may(f, odd));
    pragma(even, PRAG_REENTRANT);
    EXPECT_TRUE(may(f, odd));
    code_is_reentrant = 1;
}

// --- Statics that start anew at every call.

TEST_F(CALL_GRAPH, StaticsThatNeverOutliveACallBecomeAutomatic) {
    SYMTAB* leaf = function("leaf", SC_STATIC);
    SYMTAB* outer = function("outer");
    std::vector<SYMTAB*> statics;
    const auto local_static = [&](const char* name) {
        SYMTAB* made = global(name);
        pragma(made, PRAG_SCOPING_FUNC, "outer");
        initialise(made, icon(3));
        statics.push_back(made);
        return made;
    };
    SYMTAB* fresh = local_static("fresh");
    SYMTAB* on_one_way = local_static("on_one_way");
    SYMTAB* counter = local_static("counter");
    SYMTAB* across_library = local_static("across_library");
    SYMTAB* across_leaf = local_static("across_leaf");
    SYMTAB* across_outside = local_static("across_outside");
    SYMTAB* across_itself = local_static("across_itself");
    SYMTAB* taken = local_static("taken");
    SYMTAB* shared = local_static("shared");
    SYMTAB* in_data = local_static("in_data");
    SYMTAB* aligned = local_static("aligned");
    pragma(aligned, PRAG_DATA_ALIGN, "4");
    SYMTAB* pointer = global("pointer", SC_STATIC, tp->mk_ptr(int_type));
    initialise(pointer, address(in_data));
    begin(leaf);
    stmt(ret(icon(0)));
    finish();
    begin(outer);
    stmt(cbranch(name(x), 1));
    stmt(asg(on_one_way, icon(1)));
    label(1);
    stmt(asg(x, name(on_one_way)));
    stmt(asg(fresh, name(x)));
    stmt(asg(x, tree(PLUS, int_type, name(fresh), name(x))));
    for (SYMTAB* s : {across_library, taken, shared, in_data, aligned}) stmt(asg(s, name(x)));
    stmt(tree(PLUSASG, int_type, name(counter), icon(1)));
    stmt(call(function("strlen", SC_EXTERN)));
    stmt(asg(x, name(across_library)));
    stmt(asg(across_leaf, icon(2)));
    stmt(call(leaf));
    stmt(asg(x, name(across_leaf)));
    stmt(asg(across_outside, icon(2)));
    stmt(call(function("out", SC_EXTERN)));
    stmt(asg(x, name(across_outside)));
    stmt(asg(across_itself, icon(2)));
    stmt(call(outer));
    stmt(asg(x, name(across_itself)));
    stmt(tree(ASG, tp->mk_ptr(int_type), name(pointer), address(taken)));
    for (SYMTAB* s : {taken, shared, in_data, aligned}) stmt(asg(x, name(s)));
    stmt(ret(name(x)));
    finish();
    begin(function("integrated"));
    stmt(asg(shared, icon(1)));
    finish();
    change_fl_statics_to_auto();
    std::string changed;
    for (const SYMTAB* s : statics)
        if (s->retention == I_SYMTAB::NEVER) changed += std::string(s->name) + " ";
    EXPECT_EQ(changed, "fresh across_library across_leaf ");
    EXPECT_TRUE(info_has("    Changing these function-local static variables to 'auto':\n\touter:"));
    for (const BBLK* bb = make_FUNINFO(outer)->bb_list; bb != nullptr; bb = bb->next)
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            EXPECT_EQ(tree_to_text(cell->first).find("fresh@"), std::string::npos);
}

// --- Functions that stand for others.

TEST_F(CALL_GRAPH, FunctionThatOnlyPassesItsCallOnIsASynonym) {
    TYPE* type = function_type(int_type, {int_type, int_type});
    SYMTAB* target = symbol("target", type, SC_EXTDEF);
    SYMTAB* elsewhere = symbol("elsewhere", type, SC_EXTERN);
    struct SHAPE {
        const char* name;
        SYMTAB* callee;
        bool swapped, adds, extra, pragma_kept, is_synonym;
    };
    const SHAPE shapes[] = {{"same", target, false, false, false, false, true},
                            {"swapped", target, true, false, false, false, false},
                            {"adds", target, false, true, false, false, false},
                            {"does_more", target, false, false, true, false, false},
                            {"undefined", elsewhere, false, false, false, false, false},
                            {"trapped", target, false, false, false, true, false}};
    for (const SHAPE& shape : shapes) {
        SYMTAB* f = symbol(shape.name, type, SC_EXTDEF);
        pragma(f, PRAG_SRC_LANGUAGE, "C");
        if (shape.pragma_kept) pragma(f, PRAG_CODE_SECTION, "fast");
        opt_client.cl_begin_func(f, at(1));
        SYMTAB* a = symbol("a", int_type, SC_PARM, 1);
        SYMTAB* b = symbol("b", int_type, SC_PARM, 1);
        opt_client.cl_end_args(at(1));
        x = local("x", int_type);
        opt_client.cl_end_locals(at(1));
        stmt(tree(PCOMMA, int_type, asg(a, name(a)), asg(b, name(b))));
        if (shape.extra) stmt(asg(global("g"), icon(1)));
        NODE* node = tree(CALL, int_type, address(shape.callee),
                          shape.swapped ? comma(name(b), name(a)) : comma(name(a), name(b)));
        node->mk_call(1, 0);
        stmt(ret(shape.adds ? tree(PLUS, int_type, node, icon(1)) : node));
        FUNINFO* function = finish();
        EXPECT_EQ(is_synonym_function(function), shape.is_synonym) << shape.name;
        EXPECT_EQ(symbol_has_pragma(f, PRAG_FUNC_SYNONYM), shape.is_synonym) << shape.name;
        EXPECT_EQ(function->bb_list->statements != nullptr, true);
    }
    EXPECT_TRUE(info_has("Making same a function synonym of target\n"));
}

TEST_F(CALL_GRAPH, SynonymsNeverStandForEachOther) {
    SYMTAB* one = function("one");
    SYMTAB* two = function("two");
    begin(one);
    stmt(ret(call(two)));
    EXPECT_TRUE(is_synonym_function(finish()));
    begin(two);
    stmt(ret(call(one)));
    EXPECT_FALSE(is_synonym_function(finish()));
}
