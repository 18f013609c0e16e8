// Tail recursion as a loop, and the calls that must stay.

#include <functional>
#include <string>
#include <vector>

#include "cfg_fixture.h"

using namespace op;

namespace {

class TAIL_RECURSION : public CLEANED_GRAPH {
  protected:
    // A function of the parameters a and b, with its prolog.
    void begin_recursive(int class_of_b = SC_REGPARM) {
        if (currfunc != nullptr) {
            end_uncleaned();
            leave();
        }
        self = function(("self" + std::to_string(++count_)).c_str());
        opt_client.cl_begin_func(self, at(1));
        a = symbol("a", int_type, SC_REGPARM, 1);
        b = symbol("b", int_type, class_of_b, 1);
        opt_client.cl_end_args(at(1));
        x = local("x", int_type);
        opt_client.cl_end_locals(at(1));
        stmt(tree(PCOMMA, int_type, asg(a, name(a)), asg(b, name(b))));
    }
    NODE* call_self(NODE* first, NODE* second) {
        NODE* node = tree(CALL, int_type, address(self), comma(first, second));
        node->mk_call(0, 0);
        return node;
    }
    NODE* add(SYMTAB* symbol, int k) { return tree(PLUS, int_type, name(symbol), icon(k)); }
    std::string built() {
        end_uncleaned();
        EXPECT_TRUE(verify_function("building"));
        simpcfg(false, false);
        return graph();
    }
    bool calls() { return graph().find(currfuninfo->name + "(") != std::string::npos; }

    SYMTAB *self = nullptr, *a = nullptr, *b = nullptr;

  private:
    int count_ = 0;
};

} // namespace

TEST_F(TAIL_RECURSION, ACallWhoseValueIsReturnedBecomesALoop) {
    begin_recursive();
    stmt(cbranch(name(a), 1));
    stmt(ret(call_self(name(b), add(a, 1)))); // each reads what the other's place holds
    label(1);
    stmt(ret(name(b)));
    EXPECT_EQ(built(), "1: a = a, b = b; if (a) goto BB2; else goto BB3 -> 2 3\n"
                       "2: $O$T0 = b; b = a + 1; a = $O$T0; if (a) goto BB2; else goto BB3 -> 2 3\n"
                       "3: return b -> 4\n"
                       "4: return ->\n");
}

TEST_F(TAIL_RECURSION, ACallAheadOfTheEndBecomesALoop) {
    begin_recursive();
    stmt(cbranch(name(a), 1));
    stmt(call_self(name(a), icon(3))); // the first stays as it is
    label(1);
    const std::string text = built();
    EXPECT_NE(text.find("b = 3; "), std::string::npos) << text;
    EXPECT_EQ(text.find("$O$T"), std::string::npos) << text;
    EXPECT_FALSE(calls()) << text;
}

TEST_F(TAIL_RECURSION, CallsThatNeedTheirFrameStay) {
    TYPE* pointer = tp->mk_ptr(int_type);
    SYMTAB* holder = symbol("holder", pointer, SC_EXTDEF);
    leave();
    const struct {
        const char* why;
        std::function<void()> body;
    } rows[] = {
        {"a parameter's address",
         [&] {
             stmt(asg(holder, address(b)));
             stmt(ret(call_self(name(a), add(b, 1))));
         }},
        {"a local's address",
         [&] {
             stmt(asg(holder, address(x)));
             stmt(ret(call_self(name(a), add(b, 1))));
         }},
        {"work behind the call",
         [&] { stmt(ret(tree(PLUS, int_type, call_self(name(a), name(b)), icon(1)))); }},
        {"statements behind the call",
         [&] {
             stmt(call_self(name(a), name(b)));
             stmt(inc(x));
         }},
        {"another function", [&] { stmt(ret(call(callee))); }},
        {"another number of arguments",
         [&] {
             NODE* node = tree(CALL, int_type, address(self), name(a));
             node->mk_call(0, 0);
             stmt(ret(node));
         }},
        {"an argument of another kind",
         [&] {
             SYMTAB* r = local("r", float_type);
             stmt(ret(call_self(name(a), name(r))));
         }},
        {"a handler",
         [&] {
             stmt(ret(call_self(name(a), name(b))));
             opt_client.cl_func_eht(std::vector<EHT_ENTRY>(1));
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        begin_recursive();
        row.body();
        const std::string text = built();
        EXPECT_TRUE(calls() || text.find("callee(") != std::string::npos) << text;
    }
    begin_recursive(SC_VARARG);
    stmt(ret(call_self(name(a), name(b))));
    built();
    EXPECT_TRUE(calls()) << "a variable argument list";
    set_level("1");
    begin_recursive();
    stmt(ret(call_self(name(a), name(b))));
    built();
    EXPECT_TRUE(calls()) << "level 1";
}
