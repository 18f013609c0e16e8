// A copied body says what its original says, stands on its own, and leaves the original alone.

#include "OPT5/copy_cfg.h"

#include <random>
#include <string>

#include "OPT5/bbutils.h"
#include "OPT5/erase.h"
#include "OPT5/integrate.h"
#include "OPT5/ls.h"
#include "OPT5/opt_expr.h"
#include "random_graph.h"

using namespace op;

namespace {

class COPY_CFG : public RANDOM_GRAPH_TEST {
  protected:
    // Looks at the body as if it were that of the current function.
    template <class LOOK> void in(FUNINFO* record, LOOK look) {
        SYMTAB* const function = currfunc;
        FUNINFO* const own = currfuninfo;
        currfunc = record->symbol;
        currfuninfo = record;
        look();
        currfunc = function;
        currfuninfo = own;
    }
};

TEST_F(COPY_CFG, IsTheOriginalAsTextAndInWhatItDoes) {
    std::mt19937 random(1);
    for (int i = 0; i < 150; i++) {
        begin_another(2);
        build_random(random, 2 + random() % 12, true, [&](unsigned) {
            for (unsigned n = random() % 3; n > 0; n--) random_statement(random);
            stmt(asg(some_local(random), random_value(random, 2)));
        });
        FUNINFO* original = currfuninfo;
        make_integrable_cfg(original);
        FUNINFO* copy = original->integrable_cfg.get();
        const std::string text = graph();
        const VALUES start = random_start(random);
        const std::string before = run(start, 40);
        in(copy, [&] {
            EXPECT_TRUE(verify_function("copying"));
            EXPECT_EQ(graph(), text);
        });
        // Nothing of the original is left in the copy: it can go first, or be taken apart.
        in(copy, [] { erase_all(); });
        EXPECT_TRUE(verify_function("copying"));
        EXPECT_EQ(graph(), text);
        EXPECT_EQ(run(start, 40), before);
    }
}

TEST_F(COPY_CFG, OutlivesTheOriginal) {
    stmt(asg(x, icon(3)));
    NODE* text = new_node(SCON, tp->mk_ptr(tp->int_type(IK_CHAR)));
    text->mk_scon("a\0b", 3);
    NODE* number = new_node(FCON, float_type);
    number->mk_fcon("2.5");
    stmt(asg(f, number));
    SYMTAB* s = local("s", text->type);
    stmt(asg(s, text));
    stmt(ret(name(x)));
    end_uncleaned();
    FUNINFO* original = currfuninfo;
    const std::string before = graph();
    make_integrable_cfg(original);
    erase_all();
    in(original->integrable_cfg.get(), [&] {
        EXPECT_EQ(graph(), before);
        EXPECT_TRUE(verify_function("copying"));
        LS::validate(currfuninfo->scopes);
        EXPECT_EQ(LS::level_2_scope(currfuninfo), currfuninfo->locals->scope);
    });
}

TEST_F(COPY_CFG, IntoItsOwnFunctionStandsAside) {
    label(1);
    stmt(inc(x));
    stmt(cbranch(name(x), 1));
    stmt(ret(name(y)));
    end_uncleaned();
    const std::string before = graph();
    const std::size_t blocks = currfuninfo->blocks.size();
    const CFG_COPY copy = copy_cfg(currfuninfo, currfuninfo);
    EXPECT_EQ(graph(), before);
    EXPECT_EQ(currfuninfo->blocks.size(), 2 * blocks);
    EXPECT_NE(copy.symbols.at(x), x);
    for (const BBLK* bb = copy.first; bb != nullptr; bb = bb->next) {
        EXPECT_GE(bb->id, blocks);
        for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next)
            EXPECT_GE(edge->bb->id, blocks);
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            walk_tree(cell->first, [&](const NODE* node) {
                if (node->op == NAME && node->symbol()->level > 0) {
                    EXPECT_GE(node->symbol()->serial, 3u);
                }
                if (node->op == LABEL) {
                    EXPECT_GE(node->label->bb->id, blocks);
                }
            });
    }
}

} // namespace
