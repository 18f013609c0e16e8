// Graph files: what they say of a function, and that any text fits into them.

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include <unistd.h>

#include "OPT5/graphs.h"
#include "cfg_fixture.h"

using namespace op;

namespace {

class GRAPHS : public CLEANED_GRAPH {
  protected:
    void TearDown() override {
        std::remove(path_.c_str());
        CLEANED_GRAPH::TearDown();
    }
    // while (x) { y = y + 1; } return y;
    void loop() {
        label(1);
        stmt(cbranch(name(x), 2));
        stmt(inc(y));
        stmt(branch(1));
        label(2);
        stmt(ret(name(y)));
        end_uncleaned();
    }
    std::string text() const {
        std::ifstream file(path_);
        std::stringstream content;
        content << file.rdbuf();
        return content.str();
    }
    std::string flow_graph(GRAPH_FORMAT format) {
        write_flow_graph(path_.c_str(), format);
        return text();
    }
    // The escaped form of a text, taken from a node's label.
    std::string quoted(GRAPH_FORMAT format, std::string_view label) {
        GRAPH_WRITER writer(path_, format, "t");
        writer.node(7, label);
        writer.close();
        const std::string file = text();
        const std::string mark = format == GRAPH_GDL ? "title: \"n7\" label: " : "n7 [label=";
        const std::size_t start = file.find(mark) + mark.size();
        return file.substr(start, file.find('\n', start) - start);
    }
    static bool holds(const std::string& text, const char* part) {
        return text.find(part) != std::string::npos;
    }

    // Other tests write their graphs at the same time.
    const std::string path_ = ::testing::TempDir() +
                              ::testing::UnitTest::GetInstance()->current_test_info()->name() +
                              std::to_string(getpid()) + ".graph";
};

} // namespace

TEST_F(GRAPHS, FlowGraphMarksBackEdgesAndKnownProbabilities) {
    loop();
    BBLK* head = block(2);
    ASSERT_TRUE(head != nullptr && head->successors != nullptr && head->successors->next != nullptr)
        << graph();
    BBLK* body = block(3);
    for (EDGE* edge = head->successors; edge != nullptr; edge = edge->next)
        edge->freq = edge->bb == body ? 0.875 : 0.125;
    const auto edge = [](const BBLK* from, const BBLK* to, const char* rest) {
        return "n" + std::to_string(from->uon()) + " -> n" + std::to_string(to->uon()) + rest + "\n";
    };
    const std::string dot = flow_graph(GRAPH_DOT);
    EXPECT_TRUE(holds(dot, edge(head, body, " [label=\"0.875\"]").c_str())) << dot;
    EXPECT_TRUE(holds(dot, edge(body, head, " [style=dashed]").c_str())) << dot;
    EXPECT_TRUE(holds(dot, edge(block(1), head, "").c_str())) << dot;
    EXPECT_TRUE(holds(dot, "\\ly = y + 1\\lgoto BB2\\l")) << dot;

    const std::string gdl = flow_graph(GRAPH_GDL);
    const auto back = gdl.find("  backedge: { sourcename: \"n" + std::to_string(body->uon()) + "\"");
    EXPECT_NE(back, std::string::npos) << gdl;
    EXPECT_EQ(gdl.find("backedge", back + 5), std::string::npos) << "one edge goes back\n" << gdl;
    EXPECT_TRUE(holds(gdl, "label: \"0.875\" }")) << gdl;
}

TEST_F(GRAPHS, BlockNobodyReachesIsDrawnAndItsEdgesGoForward) {
    stmt(branch(1));
    stmt(inc(y)); // unreachable
    label(1);
    stmt(ret(name(y)));
    end_uncleaned();
    const std::string dot = flow_graph(GRAPH_DOT);
    EXPECT_TRUE(holds(dot, "y = y + 1")) << dot;
    EXPECT_FALSE(holds(dot, "dashed")) << dot;
}

TEST_F(GRAPHS, LongBlocksAndStatementsAreCutButEndInTheirTransfer) {
    for (int i = 0; i < 40; i++) stmt(inc(y), 2);
    stmt(ret(name(y)));
    end_uncleaned();
    NODE*& value = block(1)->statements->first->right;
    for (int i = 0; i < 30000; i++) value = tree(NOTB, int_type, value);
    const std::string dot = flow_graph(GRAPH_DOT);
    EXPECT_LT(dot.size(), 2000u);
    EXPECT_TRUE(holds(dot, "\\l...\\lreturn y\\l")) << dot;
    write_expr_graph(path_.c_str(), GRAPH_GDL);
    EXPECT_GT(text().size(), 1000000u); // every operator, and no recursion over them
}

TEST_F(GRAPHS, ExpressionGraphTellsOperandsApart) {
    stmt(asg(y, tree(DIV, int_type, name(x), icon(5))));
    stmt(ret(name(y)));
    end_uncleaned();
    write_expr_graph(path_.c_str(), GRAPH_DOT);
    const std::string dot = text();
    EXPECT_TRUE(holds(dot, "n2 [label=\"DIV\\lint\\l\"]\n  n0 -> n2 [label=\"right\"]")) << dot;
    EXPECT_TRUE(holds(dot, "n3 [label=\"NAME x\\lint\\l\"]\n  n2 -> n3 [label=\"left\"]")) << dot;
    EXPECT_TRUE(holds(dot, "n4 [label=\"ICON 5\\lint\\l\"]\n  n2 -> n4 [label=\"right\"]")) << dot;
}

TEST_F(GRAPHS, AnyTextFitsIntoALabel) {
    end_uncleaned();
    const std::string text("a\"b\\n & <i>\n\x01\xff\0z", 16);
    EXPECT_EQ(quoted(GRAPH_GDL, text), R"("a\"b\\n & <i>\n\\x01\\xff\\x00z" })");
    EXPECT_EQ(quoted(GRAPH_DOT, text), R"("a\"b\\n &amp; <i>\l\\x01\\xff\\x00z\l"])");
}

TEST_F(GRAPHS, CallGraphHasTheOrderTheCountsAndTheWaysBack) {
    stmt(ret(icon(0)));
    end();
    leave();
    SYMTAB *even = function("even", SC_STATIC), *odd = function("odd", SC_STATIC);
    const auto define = [&](SYMTAB* symbol, std::initializer_list<SYMTAB*> callees) {
        begin(symbol);
        for (SYMTAB* to : callees) stmt(call(to));
        stmt(ret(icon(0)));
        end();
        leave();
    };
    define(even, {odd});
    define(odd, {even});
    define(function("start"), {even, even});
    define(function("unused", SC_STATIC), {});
    std::strcpy(o_file_name, path_.c_str());
    dump_ocg_in_GDL = GRAPH_DOT;
    dump_call_graph_debug();
    dump_ocg_in_GDL = 0;
    o_file_name[0] = '\0';
    const std::string written = path_.substr(0, path_.rfind('.')) + ".calls.dot";
    std::rename(written.c_str(), path_.c_str());
    const std::string dot = text();
    const auto number = [&](const char* name) {
        const std::size_t at = dot.find("[label=\"" + std::string(name) + "\\l");
        return at == std::string::npos
                   ? "missing " + std::string(name)
                   : dot.substr(dot.rfind(' ', at - 2) + 1, at - 2 - dot.rfind(' ', at - 2));
    };
    const std::string start = number("start"), e = number("even"), o = number("odd");
    EXPECT_TRUE(holds(dot, ("  " + start + " -> " + e + " [label=\"2\"]\n").c_str())) << dot;
    EXPECT_TRUE(holds(dot, ("  " + e + " -> " + o + "\n").c_str())) << dot;
    EXPECT_TRUE(holds(dot, ("  " + o + " -> " + e + " [style=dashed]\n").c_str())) << dot;
    EXPECT_TRUE(holds(dot, "\\l\" style=dashed]")) << "what nothing reaches is faint\n" << dot;
}

TEST(GraphFiles, NamesAreSafeAndTellFunctionsApart) {
    const auto name = [](const std::string& part) {
        return graph_file_name("no/such.dir/out.opt", "in.ic", part, "flow", GRAPH_GDL);
    };
    EXPECT_EQ(name("main"), "no/such.dir/out.main.flow.gdl");
    EXPECT_EQ(name("../a b"), "no/such.dir/out...%2fa%20b.flow.gdl");
    EXPECT_NE(name("a/b"), name("a%2fb"));
    const std::string long_name(5000, 'x');
    EXPECT_LT(name(long_name + "1").size(), 200u);
    EXPECT_NE(name(long_name + "1"), name(long_name + "2"));
    EXPECT_EQ(graph_file_name("/dev/null", "dir/in.ic", "", "calls", GRAPH_DOT), "dir/in.calls.dot");
    EXPECT_EQ(graph_file_name("./.hidden", "", "f", "flow", GRAPH_DOT), "./.hidden.f.flow.dot");
}
