// The runner on programs built in memory: what operators mean at the ends of their ranges, faults, checking,
// and the shapes of trees that C sources never give.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "OPT5/opcodes.h"
#include "OPT5/types.h"
#include "tools/icode-run/memory.h"
#include "tools/icode-run/runner.h"
#include "tools/model/program.h"

using namespace op;
using model::body_item;
using model::symbol;
using model::tree;

namespace {

// What a run showed.
struct outcome {
    int status = 0;
    std::string out, err, trace;
    run::class_counts counts{};
};

class RunTest : public ::testing::Test {
  protected:
    RunTest() {
        main_ = function("main", {}, int_);
        begin(main_);
    }

    // --- Symbols and functions.
    symbol* global(const char* name, TYPE* type, int sclass = SC_EXTDEF) {
        symbol* s = p.nodes.new_symbol();
        s->name = name;
        s->type = type;
        s->size = static_cast<unsigned>(type->size());
        s->sclass = sclass;
        p.globals.push_back(s);
        return s;
    }
    symbol* function(const char* name, std::vector<TYPE*> parameters, TYPE* result, bool vararg = false,
                     int sclass = SC_EXTDEF) {
        FUNC_BODY body;
        body.return_type = result;
        body.vararg = vararg;
        for (TYPE* type : parameters) body.params.push_back({type, 0, ""});
        return global(name, types().mk_func(body), sclass);
    }
    void begin(symbol* f) {
        p.functions.emplace_back().sym = f;
        current_ = p.functions.size() - 1;
    }
    void go_on_with(std::size_t index) { current_ = index; }
    model::function& current() { return p.functions[current_]; }
    symbol* parameter(const char* name, TYPE* type) {
        symbol* s = local(name, type);
        s->level = 1;
        s->sclass = SC_PARM;
        current().params.push_back(s);
        return s;
    }
    symbol* local(const char* name, TYPE* type) {
        symbol* s = p.nodes.new_symbol();
        s->name = name;
        s->type = type;
        s->size = static_cast<unsigned>(type->size());
        s->sclass = SC_AUTO;
        s->level = 2;
        item(body_item::kind::symbol).sym = s;
        return s;
    }
    body_item& item(body_item::kind what) {
        body_item& made = current().body.emplace_back();
        made.what = what;
        return made;
    }
    void stmt(tree* t, unsigned line = 0) {
        body_item& made = item(body_item::kind::expr);
        made.expr = t;
        made.has_psn = line != 0;
        made.psn.line = line;
    }
    void label(unsigned number) { item(body_item::kind::label).number = number; }
    void ret(tree* t) { stmt(n(RETURN, int_, name(current().sym), t), 90); }
    void receive(std::initializer_list<symbol*> parameters) {
        tree* chain = nullptr;
        for (symbol* s : parameters) {
            tree* one = n(s->type->is_csu() ? STASG : ASG, s->type, name(s), name(s));
            chain = chain == nullptr ? one : n(PCOMMA, one->type, chain, one);
        }
        stmt(chain);
    }

    // --- Trees.
    tree* n(int op, TYPE* type, tree* left = nullptr, tree* right = nullptr) {
        return p.nodes.new_tree(op, type, left, right);
    }
    tree* name(symbol* s) {
        tree* t = n(NAME, s->type);
        t->sym = s;
        return t;
    }
    tree* icon(std::int64_t value, TYPE* type) {
        tree* t = n(ICON, type);
        t->value = value;
        return t;
    }
    tree* icon(std::int64_t value) { return icon(value, int_); }
    tree* fcon(const char* text) {
        tree* t = n(FCON, float_);
        t->mk_fcon(text);
        return t;
    }
    tree* text(const char* characters) {
        tree* t = n(SCON, types().mk_ptr(char_));
        t->mk_scon(characters, static_cast<unsigned>(std::string(characters).size() + 1));
        return t;
    }
    tree* ref(unsigned number) {
        tree* t = n(LABEL, int_);
        t->value = number;
        return t;
    }
    tree* asg(symbol* s, tree* value) { return n(ASG, s->type, name(s), value); }
    tree* address(symbol* s) { return n(UAND, types().mk_ptr(s->type), name(s)); }
    tree* call(symbol* f, std::vector<tree*> arguments) {
        TYPE* result = f->type->return_type();
        if (arguments.empty()) return n(UCALL, result, address(f));
        tree* list = arguments[0];
        for (std::size_t i = 1; i < arguments.size(); i++) list = n(COMMA, int_, list, arguments[i]);
        return n(op::CALL, result, address(f), list);
    }
    tree* member(TYPE* csu, unsigned number, tree* base, int op = STDOT) {
        tree* field = n(FIELD, csu->member(number)->type);
        field->mk_field(1, csu->member(number), csu);
        return n(op, csu->member(number)->type, base, field);
    }
    TYPE* structure(const char* tag, std::vector<fkMDATA> members, unsigned bits) {
        TYPE_LAYOUT layout;
        layout.size = bits;
        TYPE* csu = types().mk_struct(tag, layout);
        for (const fkMDATA& m : members) types().add_member(csu, m);
        types().type_frozen(csu);
        return csu;
    }
    static fkMDATA field(const char* name, TYPE* type, std::int64_t offset, unsigned width = 0) {
        fkMDATA m;
        m.name = name;
        m.type = type;
        m.offset = offset;
        m.width = width;
        m.bit_field = width != 0;
        return m;
    }

    // --- Running.
    outcome execute(bool check = false, bool trace = false, std::uint64_t max_steps = UINT64_MAX) {
        outcome o;
        run::settings with;
        with.check = check;
        with.max_steps = max_steps;
        char* traced = nullptr;
        std::size_t traced_size = 0;
        if (trace) with.trace = open_memstream(&traced, &traced_size);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        o.status = run::run_program(p, {"t"}, with, &o.counts);
        o.out = testing::internal::GetCapturedStdout();
        o.err = testing::internal::GetCapturedStderr();
        if (trace) {
            std::fclose(with.trace);
            o.trace.assign(traced, traced_size);
            std::free(traced);
        }
        return o;
    }
    // The value of the tree as a `long long`, printed by the program itself.
    std::string value(tree* t) {
        symbol* print = function("printf", {types().mk_ptr(char_)}, int_, true, SC_EXTERN);
        TYPE* wide = types().int_type(IK_LLONG);
        go_on_with(0);
        current().body.clear();
        stmt(call(print, {text("%lld"), n(SCONV, wide, t)}), 7);
        ret(icon(0));
        const outcome o = execute();
        EXPECT_EQ(o.err, "");
        return o.out;
    }
    TYPE_PKG& types() { return p.types; }

    model::program p;
    TYPE* int_ = p.types.int_type(IK_INT);
    TYPE* unsigned_ = p.types.int_type(IK_UINT);
    TYPE* long_ = p.types.int_type(IK_LONG);
    TYPE* ulong_ = p.types.int_type(IK_ULONG);
    TYPE* llong_ = p.types.int_type(IK_LLONG);
    TYPE* ullong_ = p.types.int_type(IK_ULLONG);
    TYPE* char_ = p.types.int_type(IK_CHAR);
    TYPE* bool_ = p.types.int_type(IK_BOOL);
    TYPE* float_ = p.types.flt_type(FK_FLOAT);
    symbol* main_ = nullptr;

  private:
    std::size_t current_ = 0;
};

// --- Arithmetic at the ends of the ranges.

TEST_F(RunTest, signed_arithmetic_wraps_at_its_own_width) {
    EXPECT_EQ(value(n(PLUS, int_, icon(32767), icon(1))), "-32768");
    EXPECT_EQ(value(n(MINUS, int_, icon(-32768), icon(1))), "32767");
    EXPECT_EQ(value(n(MULT, int_, icon(-32768), icon(-1))), "-32768");
    EXPECT_EQ(value(n(UMINUS, int_, icon(-32768))), "-32768");
    EXPECT_EQ(value(n(DIV, int_, icon(-32768), icon(-1))), "-32768"); // the quotient that is not there
    EXPECT_EQ(value(n(MOD, llong_, icon(INT64_MIN, llong_), icon(-1, llong_))), "0");
    EXPECT_EQ(value(n(DIV, llong_, icon(INT64_MIN, llong_), icon(-1, llong_))), "-9223372036854775808");
    EXPECT_EQ(value(n(PLUS, long_, icon(INT32_MAX, long_), icon(1, long_))), "-2147483648");
}

TEST_F(RunTest, unsigned_arithmetic_wraps_and_divides_without_sign) {
    EXPECT_EQ(value(n(MINUS, unsigned_, icon(0, unsigned_), icon(1, unsigned_))), "65535");
    EXPECT_EQ(value(n(MULT, ulong_, icon(65536, ulong_), icon(65537, ulong_))), "65536");
    EXPECT_EQ(value(n(DIV, ullong_, icon(-1, ullong_), icon(2, ullong_))), "9223372036854775807");
    EXPECT_EQ(value(n(NOTB, unsigned_, icon(0x00ff, unsigned_))), "65280");
}

TEST_F(RunTest, quotients_truncate_towards_zero) {
    EXPECT_EQ(value(n(DIV, int_, icon(-7), icon(2))), "-3");
    EXPECT_EQ(value(n(MOD, int_, icon(-7), icon(2))), "-1");
    EXPECT_EQ(value(n(MOD, int_, icon(7), icon(-2))), "1");
}

TEST_F(RunTest, a_shift_right_follows_the_sign_of_the_left_operand) {
    EXPECT_EQ(value(n(SRL, int_, icon(-16), icon(2))), "-4");
    EXPECT_EQ(value(n(SRL, unsigned_, icon(0xfff0, unsigned_), icon(2))), "16380");
    EXPECT_EQ(value(n(SLL, int_, icon(1), icon(15))), "-32768");
}

TEST_F(RunTest, comparisons_take_their_sign_from_the_operator) {
    EXPECT_EQ(value(n(LT, int_, icon(-1), icon(1))), "1");
    EXPECT_EQ(value(n(ULT, int_, icon(-1), icon(1))), "0");
    EXPECT_EQ(value(n(LT, int_, icon(65535, unsigned_), icon(1, unsigned_))), "1");
    EXPECT_EQ(value(n(UGE, int_, icon(-1, ullong_), icon(1, ullong_))), "1");
    EXPECT_EQ(value(n(EQ, int_, icon(-1), icon(65535, unsigned_))), "1"); // the same 16 bits
}

TEST_F(RunTest, conversions_extend_by_the_source_and_cut_by_the_target) {
    EXPECT_EQ(value(n(SCONV, ulong_, icon(-1))), "4294967295");
    EXPECT_EQ(value(n(SCONV, long_, icon(65535, unsigned_))), "65535");
    EXPECT_EQ(value(n(SCONV, int_, icon(0x18000, long_))), "-32768");
    EXPECT_EQ(value(n(SCONV, bool_, icon(256))), "1");
    EXPECT_EQ(value(n(SCONV, bool_, fcon("0.25"))), "1");
    EXPECT_EQ(value(n(SCONV, int_, fcon("-2.75"))), "-2");
    EXPECT_EQ(value(n(SCONV, long_, n(SCONV, float_, icon(16777217, long_)))), "16777216"); // to nearest
}

// Every floating comparison is a set of outcomes; each outcome is tried against each operator.
TEST_F(RunTest, floating_comparisons_are_sets_of_outcomes) {
    const std::pair<int, unsigned> sets[] = {{FEQ, 1},   {FNEQ, 6},  {FLE, 3},    {FLT, 2},   {FGE, 5},
                                             {FGT, 4},   {FEQN, 9},  {FNEQN, 14}, {FLEN, 11}, {FLTN, 10},
                                             {FGEN, 13}, {FGTN, 12}, {FORD, 7},   {FUNO, 8}};
    const std::pair<const char*, unsigned> against_one[] = {{"1", 1}, {"0x1p-1", 2}, {"2", 4}, {"NaN", 8}};
    symbol* x = local("x", float_);
    symbol* hits = local("hits", long_);
    for (const auto& [op, set] : sets) {
        for (const auto& [left, bit] : against_one) {
            current().body.resize(2);
            stmt(asg(x, fcon(left)));
            stmt(asg(hits, n(SCONV, long_, n(op, int_, name(x), fcon("1")))));
            stmt(n(CBRANCH, int_, n(op, int_, name(x), fcon("1")), ref(1)));
            stmt(n(PLUSASG, long_, name(hits), icon(2, long_)));
            label(1);
            ret(n(SCONV, int_, name(hits)));
            EXPECT_EQ(execute().status, (set & bit) != 0 ? 3 : 0) << if_node_info[op].name << " " << left;
        }
    }
}

TEST_F(RunTest, the_operators_of_passes) {
    EXPECT_EQ(value(n(op::ABS, int_, icon(-7))), "7");
    EXPECT_EQ(value(n(SQR, int_, icon(200))), "-25536");
    EXPECT_EQ(value(n(SCONV, int_, n(SQRT, float_, fcon("144")))), "12");
    EXPECT_EQ(value(n(SCONV, int_, n(RECIP, float_, fcon("0.125")))), "8");
    tree* pick = n(ICALL, int_, n(COMMA, int_, n(COMMA, int_, icon(0), icon(4)), icon(9)));
    pick->mk_icall("quest$colon");
    EXPECT_EQ(value(pick), "9");
    tree* least = n(ICALL, unsigned_, n(COMMA, int_, icon(65535, unsigned_), icon(3, unsigned_)));
    least->mk_icall("MINU");
    EXPECT_EQ(value(least), "3");
    tree* sum = n(ICALL, int_, n(COMMA, int_, icon(32000), icon(32000)));
    sum->mk_icall("_sadd");
    EXPECT_EQ(value(sum), "32767");
}

// --- Order of evaluation and values of assignments.

TEST_F(RunTest, a_local_read_on_the_left_keeps_its_value_when_the_right_changes_it) {
    symbol* x = local("x", int_);
    stmt(asg(x, icon(5)));
    // x + (x = 7, x) left to right, then the same with the store in one arm only, which is not taken.
    stmt(asg(x, n(PLUS, int_, name(x), n(COMMAOP, int_, asg(x, icon(7)), name(x)))));
    tree* arms = n(COLON, int_, n(COMMAOP, int_, asg(x, icon(100)), icon(1)), icon(2));
    stmt(asg(x, n(PLUS, int_, name(x), n(QUEST, int_, n(EQ, int_, name(x), icon(0)), arms))));
    ret(name(x));
    EXPECT_EQ(execute().status, 14);
}

TEST_F(RunTest, compound_assignment_computes_in_the_common_type) {
    symbol* c = local("c", char_);
    symbol* u = local("u", p.types.int_type(IK_UCHAR));
    symbol* b = local("b", bool_);
    stmt(asg(c, icon(100, char_)));
    stmt(n(MULTASG, char_, name(c), icon(1000, long_))); // 100000 cut to 16 bits: -31072
    stmt(n(DIVASG, char_, name(c), icon(-1000)));        // 31
    stmt(asg(u, icon(65535, u->type)));
    stmt(n(SRLASG, u->type, name(u), icon(4))); // promotes to int: arithmetic
    stmt(asg(b, icon(1, bool_)));
    stmt(n(PLUSPLUS, bool_, name(b), icon(1))); // a truth value stays one
    tree* all = n(PLUS, int_, n(SCONV, int_, name(c)), n(EQ, int_, name(u), icon(65535, u->type)));
    ret(n(PLUS, int_, all, n(SCONV, int_, name(b))));
    EXPECT_EQ(execute().status, 33);
}

TEST_F(RunTest, bit_fields_touch_only_their_bits) {
    TYPE* s =
        structure("s", {field("a", unsigned_, 0, 5), field("b", int_, 5, 6), field("c", ulong_, 11, 20)}, 32);
    symbol* g = global("g", s);
    symbol* kept = local("kept", int_);
    stmt(n(ASG, unsigned_, member(s, 1, name(g)), icon(31, unsigned_)));
    stmt(n(ASG, ulong_, member(s, 3, name(g)), icon(0xfffff, ulong_)));
    stmt(asg(kept, n(ASG, int_, member(s, 2, name(g)), icon(35)))); // 35 in 6 signed bits is -29
    tree* others = n(ANDAND, int_, n(EQ, int_, member(s, 1, name(g)), icon(31, unsigned_)),
                     n(EQ, int_, member(s, 3, name(g)), icon(0xfffff, ulong_)));
    tree* own =
        n(ANDAND, int_, n(EQ, int_, name(kept), icon(-29)), n(EQ, int_, member(s, 2, name(g)), icon(-29)));
    ret(n(ANDAND, int_, others, own));
    EXPECT_EQ(execute().status, 1);
}

// --- Calls.

TEST_F(RunTest, structures_go_by_value_and_come_back) {
    TYPE* s = structure("pair", {field("a", int_, 0), field("b", long_, 32)}, 64);
    symbol* f = function("f", {s}, s);
    symbol* x = local("x", s);
    symbol* y = local("y", s);
    stmt(n(ASG, int_, member(s, 1, name(x)), icon(1)));
    stmt(n(ASG, long_, member(s, 2, name(x)), icon(70000, long_)));
    stmt(n(STASG, s, name(y), call(f, {n(STARG, s, call(f, {n(STARG, s, name(x))}))})));
    tree* mine = n(EQ, int_, member(s, 1, name(x)), icon(1));
    tree* his = n(EQ, int_, member(s, 1, name(y)), icon(21));
    ret(n(ANDAND, int_, n(ANDAND, int_, mine, his), n(EQ, int_, member(s, 2, name(y)), icon(70000, long_))));
    begin(f);
    symbol* q = parameter("q", s);
    receive({q});
    stmt(n(PLUSASG, int_, member(s, 1, name(q)), icon(10)));
    stmt(n(RETURN, s, name(f), name(q)));
    EXPECT_EQ(execute(true).status, 1);
}

TEST_F(RunTest, further_arguments_follow_the_last_named_one_aligned) {
    symbol* f = function("f", {int_}, int_, true);
    ret(call(f, {icon(1), icon(2), icon(300000, long_)}));
    begin(f);
    symbol* last = parameter("last", int_);
    last->sclass = SC_VARARG;
    receive({last});
    TYPE* to_int = types().mk_ptr(int_);
    TYPE* to_long = types().mk_ptr(long_);
    symbol* at = local("at", to_int);
    stmt(asg(at, n(PLUS, to_int, address(last), icon(1))));
    // The long is at the next even address behind.
    tree* aligned = n(ANDB, unsigned_, n(PLUS, unsigned_, n(PCONV, unsigned_, name(at)), icon(2, unsigned_)),
                      icon(0xfffe, unsigned_));
    tree* wide = n(UMULT, long_, n(PCONV, to_long, aligned));
    ret(n(ANDAND, int_, n(EQ, int_, n(UMULT, int_, name(at)), icon(2)),
          n(EQ, int_, wide, icon(300000, long_))));
    EXPECT_EQ(execute().status, 1);
}

TEST_F(RunTest, a_jump_leaves_calls_of_the_library_behind) {
    // qsort calls a comparison that jumps back into main.
    TYPE* to_int = types().mk_ptr(int_);
    symbol* buffer = global("buffer", types().mk_array(long_, 4));
    symbol* numbers = global("numbers", types().mk_array(int_, 4));
    symbol* set = function("setjmp", {to_int}, int_, false, SC_EXTERN);
    symbol* jump = function("longjmp", {to_int, int_}, types().void_type(), false, SC_EXTERN);
    symbol* sort = function("qsort", {to_int, int_, int_, to_int}, types().void_type(), false, SC_EXTERN);
    symbol* compare = function("compare", {to_int, to_int}, int_);
    symbol* got = local("got", int_);
    stmt(asg(got, call(set, {address(buffer)})));
    stmt(n(CBRANCH, int_, n(EQ, int_, name(got), icon(0)), ref(1)));
    stmt(call(sort, {address(numbers), icon(4), icon(1), address(compare)}));
    label(1);
    ret(name(got));
    begin(compare);
    symbol* a = parameter("a", to_int);
    symbol* b = parameter("b", to_int);
    receive({a, b});
    stmt(call(jump, {address(buffer), icon(6)}));
    ret(icon(0));
    EXPECT_EQ(execute().status, 6);
}

// --- Faults.

TEST_F(RunTest, each_fault_names_function_and_line) {
    TYPE* to_int = types().mk_ptr(int_);
    symbol* two = function("two", {int_, int_}, int_);
    symbol* missing = function("missing", {}, int_, false, SC_EXTERN);
    symbol* fixed = global("fixed", types().mk_qual(int_, QUAL_CONST));
    symbol* x = local("x", int_);
    symbol* q = local("q", to_int);
    begin(two);
    symbol* a = parameter("a", int_);
    symbol* b = parameter("b", int_);
    receive({a, b});
    ret(icon(0));
    go_on_with(0);
    tree* at = n(UMULT, int_, name(q));
    const std::pair<tree*, const char*> cases[] = {
        {n(DIV, int_, icon(1), name(x)), "division by zero"},
        {n(MOD, unsigned_, icon(1, unsigned_), n(SCONV, unsigned_, name(x))), "division by zero"},
        {n(SLL, int_, icon(1), n(PLUS, int_, name(x), icon(16))), "shift count 16 outside the type"},
        {n(SRL, int_, icon(1), n(MINUS, int_, name(x), icon(1))), "shift count -1 outside the type"},
        {at, "read outside any object: address 0"},
        {n(ASG, int_, at, icon(1)), "store outside any object: address 0"},
        {n(ASG, int_, name(fixed), icon(1)), "store to constant fixed+0"},
        {n(NASSERT, int_, name(x)), "violated assertion"},
        {call(two, {icon(1)}), "call of two with too few arguments"},
        {n(UCALL, int_, name(q)), "call of no function"},
        {call(missing, {}), "call of missing, which is not there"},
    };
    for (const auto& [t, what] : cases) {
        current().body.resize(2);
        stmt(asg(x, icon(0)), 3);
        stmt(asg(q, icon(0, to_int)), 4);
        stmt(t, 5);
        ret(icon(0));
        const outcome o = execute();
        EXPECT_EQ(o.status, 3) << what;
        EXPECT_EQ(o.err, std::string("icode-run: main:5: ") + what + "\n");
    }
}

TEST_F(RunTest, an_index_past_the_end_meets_the_gap_behind_every_object) {
    TYPE* array = types().mk_array(int_, 4);
    for (bool is_local : {false, true}) {
        go_on_with(0);
        current().body.clear();
        symbol* a = is_local ? local("a", array) : global("a", array);
        symbol* neighbour = is_local ? local("b", array) : global("b", array);
        symbol* i = local("i", int_);
        stmt(n(ASG, int_, n(UMULT, int_, address(neighbour)), icon(1)));
        stmt(asg(i, icon(4)));
        tree* element = n(PLUS, types().mk_ptr(int_), address(a), n(PMCONV, int_, name(i), icon(16)));
        stmt(n(ASG, int_, n(UMULT, int_, element), icon(1)), 8);
        ret(icon(0));
        EXPECT_NE(execute().err.find("main:8: store outside any object"), std::string::npos);
    }
}

TEST_F(RunTest, runs_end_when_stack_or_steps_do) {
    symbol* deep = function("deep", {}, int_);
    ret(call(deep, {}));
    begin(deep);
    stmt(n(RETURN, int_, name(deep), call(deep, {})), 2);
    EXPECT_EQ(execute().err, "icode-run: deep:2: out of stack\n");
    go_on_with(0);
    current().body.clear();
    label(1);
    stmt(n(op::BRANCH, int_, ref(1)), 6);
    EXPECT_EQ(execute(false, false, 1000).err, "icode-run: main:6: out of steps\n");
    EXPECT_EQ(execute(false, false, 1000).counts[run::BRANCH_OP], 1000u);
}

// --- Checking.

TEST_F(RunTest, checking_finds_reads_ahead_of_stores) {
    TYPE* array = types().mk_array(int_, 2);
    symbol* x = local("x", int_);
    symbol* a = local("a", array);
    tree* second = n(UMULT, int_, n(PLUS, types().mk_ptr(int_), address(a), icon(1)));
    for (tree* read : {name(x), second}) {
        current().body.resize(2);
        stmt(n(ASG, int_, n(UMULT, int_, address(a)), icon(1)));
        ret(read);
        EXPECT_EQ(execute(false).err, "");
        EXPECT_NE(execute(true).err.find("main:90: local read before anything was stored"),
                  std::string::npos);
    }
}

TEST_F(RunTest, checking_ends_the_locals_of_a_block_that_is_left_by_a_jump) {
    TYPE* to_int = types().mk_ptr(int_);
    symbol* q = local("q", to_int);
    item(body_item::kind::begin_block);
    symbol* inner = local("inner", int_);
    stmt(asg(inner, icon(7)));
    stmt(asg(q, address(inner)));
    stmt(n(op::BRANCH, int_, ref(1)));
    item(body_item::kind::end_block);
    label(1);
    ret(n(UMULT, int_, name(q)));
    EXPECT_EQ(execute(false).status, 7);
    EXPECT_NE(execute(true).err.find("main:90: read outside any object"), std::string::npos);
}

// --- Counts and traces.

TEST_F(RunTest, counts_follow_what_is_executed_not_what_is_written) {
    symbol* x = local("x", int_);
    symbol* g = global("g", int_);
    stmt(asg(x, icon(3))); // a move
    label(1);
    stmt(n(PLUSASG, int_, name(g), name(x)));                      // load, arithmetic, store
    stmt(n(CBRANCH, int_, n(LT, int_, name(g), icon(9)), ref(2))); // load, compare, branch
    stmt(n(op::BRANCH, int_, ref(1)));                             // branch
    label(2);
    ret(n(SCONV, int_, n(SCONV, long_, name(x)))); // two conversions
    const outcome o = execute();
    const run::class_counts expected = {3, 3, 2, 6, 3, 0, 1, 5, 0};
    EXPECT_EQ(o.counts, expected);
    EXPECT_EQ(run::stats_line(o.counts, 0).substr(0, 12), "{\"total\": 23");
}

TEST_F(RunTest, a_trace_names_objects_and_not_addresses) {
    TYPE* port = types().mk_qual(int_, QUAL_VOLATILE);
    TYPE* to_port = types().mk_ptr(port);
    TYPE* s = structure("regs",
                        {field("a", int_, 0), field("b", port, 16),
                         field("f", types().mk_qual(unsigned_, QUAL_VOLATILE), 32, 3)},
                        48);
    symbol* g = global("g", s);
    symbol* h = global("h", s);
    symbol* moving = local("moving", types().mk_qual(to_port, QUAL_VOLATILE));
    stmt(n(ASG, port, member(s, 2, name(g)), icon(-1)));
    stmt(n(PLUSASG, unsigned_, member(s, 3, address(g), STREF), icon(5, unsigned_)));
    stmt(n(STASG, s, name(h), name(g)));
    stmt(n(ASG, to_port, name(moving), n(UAND, to_port, member(s, 2, name(h)))));
    stmt(n(UMULT, port, name(moving)));
    ret(icon(0));
    EXPECT_EQ(execute(false, true).trace, "W g+1 16 ffff\n"
                                          "R g+2 3 0\nW g+2 3 5\n"
                                          "R g+1 16 ffff\nR g+2 16 5\nW h+1 16 ffff\nW h+2 16 5\n"
                                          "W main:moving+0 16 h+1\n"
                                          "R main:moving+0 16 h+1\nR h+1 16 ffff\n");
}

// --- Size and damage.

TEST_F(RunTest, trees_may_be_very_deep) {
    constexpr int DEPTH = 200000;
    symbol* x = local("x", int_);
    tree* left = name(x);
    tree* right = name(x);
    tree* truth = name(x);
    for (int i = 0; i < DEPTH; i++) {
        left = n(PLUS, int_, left, icon(1));
        right = n(MINUS, int_, icon(1), right);
        truth = n(i % 2 != 0 ? ANDAND : OROR, int_, icon(1), truth);
    }
    stmt(asg(x, icon(0)));
    stmt(asg(x, left));
    stmt(asg(x, n(EQ, int_, name(x), icon(static_cast<std::int16_t>(DEPTH)))));
    ret(n(PLUS, int_, n(PLUS, int_, right, name(x)), n(EXCLAIM, int_, truth)));
    const outcome o = execute();
    EXPECT_EQ(o.err, "");
    EXPECT_EQ(o.status, 2);
}

TEST_F(RunTest, what_can_not_be_run_is_told_in_one_line) {
    const std::pair<tree*, const char*> cases[] = {
        {n(VPACK, int_, icon(1)), "VPACK has no meaning"},
        {n(op::BRANCH, int_, ref(9)), "jumps to label 9, which is not there"},
        {n(PLUS, int_, icon(1)), "an operator without an operand"},
        {n(ASG, int_, icon(1), icon(1)), "is no place in memory"},
        {n(QUEST, int_, icon(1), icon(1)), "without its two arms"},
    };
    for (const auto& [t, what] : cases) {
        current().body.clear();
        stmt(t, 5);
        const outcome o = execute();
        EXPECT_EQ(o.status, 1) << what;
        EXPECT_NE(o.err.find(what), std::string::npos) << o.err;
        EXPECT_EQ(std::count(o.err.begin(), o.err.end(), '\n'), 1) << o.err;
    }
}

TEST(RunMemory, a_freed_block_rests_before_it_is_used_again) {
    run::memory mem(16);
    mem.seal();
    const run::address first = mem.allocate(10, mem.stack_base());
    mem.free_block(first);
    EXPECT_NE(mem.allocate(10, mem.stack_base()), first);
    EXPECT_THROW(mem.free_block(first), run::fault);
    EXPECT_THROW(mem.load(first, 16, false), run::fault);
    // Allocating and freeing for ever does not use the memory up.
    for (int i = 0; i < 20000; i++) {
        const run::address block = mem.allocate(100, mem.stack_base());
        ASSERT_NE(block, 0u);
        mem.free_block(block);
    }
    EXPECT_EQ(mem.allocate(65534, mem.stack_base()), 0u);
}

} // namespace
