// One symbol for each web, and one symbol for copies: on random functions, against what they do and against
// the definition of a web.

#include <algorithm>

#include "OPT5/accesses.h"
#include "OPT5/allocate_regs.h"
#include "OPT5/merge_symbols.h"
#include "OPT5/opt_expr.h"
#include "OPT5/rename_symbols.h"
#include "OPT5/simpcfg.h"
#include "random_graph.h"

using namespace op;

namespace {

class WEBS_OF : public RANDOM_GRAPH_TEST {
  protected:
    // A random function that copies a good deal, with a value for each variable to begin with: what a
    // variable holds before anything is stored in it is nobody's business.
    void build_copying(std::mt19937& random, int round) {
        begin_another(2 + random() % 5);
        for (SYMTAB* symbol : locals) stmt(asg(symbol, icon(static_cast<int>(random() % 5))));
        stmt(asg(addressed.back(), icon(2)));
        for (SYMTAB* pointer : {p, q}) stmt(asg(pointer, address(random() % 2 == 0 ? g : h)));
        build_random(random, 2 + random() % 9, round % 4 != 0, [&](unsigned) {
            for (unsigned i = random() % 5; i > 0; i--) {
                if (random() % 2 == 0) {
                    random_statement(random);
                } else {
                    stmt(asg(some_local(random), name(some_local(random))));
                }
            }
        });
    }
    static int temporaries() {
        int count = 0;
        for (const SYMTAB* symbol = currfuninfo->temps; symbol != nullptr; symbol = symbol->next) count++;
        return count;
    }
    static int statements() {
        int count = 0;
        for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
            for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) count++;
        return count;
    }

    // The accesses to the symbol, block by block; and those that begin a value and reach a place, found by
    // going back from it.
    using EVENTS = std::vector<ACCESS>;
    static std::vector<EVENTS> events_of(const SYMTAB* symbol) {
        std::vector<EVENTS> result(1);
        for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
            EVENTS all;
            for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
                list_accesses(cell->first, all);
            result.emplace_back();
            for (const ACCESS& access : all)
                if (access.name->symbol() == symbol) result.back().push_back(access);
        }
        return result;
    }
    static void stores_reaching(const BBLK* bb, std::size_t before, const std::vector<EVENTS>& events,
                                std::vector<bool>& seen, std::vector<const NODE*>& stores) {
        for (std::size_t i = before; i > 0; i--) {
            const ACCESS& access = events[static_cast<std::size_t>(bb->dfn)][i - 1];
            if (access.kind == ACC_READ) continue;
            stores.push_back(access.name);
            if (!access.conditional) return;
        }
        for (const EDGE* edge = bb->predecessors; edge != nullptr; edge = edge->next) {
            const auto dfn = static_cast<std::size_t>(edge->bb->dfn);
            if (seen[dfn]) continue;
            seen[dfn] = true;
            stores_reaching(edge->bb, events[dfn].size(), events, seen, stores);
        }
    }
    // The number of separate webs with reads.
    int webs_of(const SYMTAB* symbol) {
        const std::vector<EVENTS> events = events_of(symbol);
        std::vector<std::vector<const NODE*>> webs;
        for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
            for (std::size_t i = 0; i < events[static_cast<std::size_t>(bb->dfn)].size(); i++) {
                const ACCESS& access = events[static_cast<std::size_t>(bb->dfn)][i];
                if (access.kind != ACC_READ) continue;
                std::vector<bool> seen(events.size());
                std::vector<const NODE*> web;
                stores_reaching(bb, i, events, seen, web);
                if (access.assignment != nullptr) web.push_back(access.name); // one name for both
                add(web, webs);
            }
        return static_cast<int>(webs.size());
    }
    static void add(std::vector<const NODE*> web, std::vector<std::vector<const NODE*>>& webs) {
        for (std::size_t i = webs.size(); i > 0; i--) {
            std::vector<const NODE*>& other = webs[i - 1];
            const bool meets = std::any_of(web.begin(), web.end(), [&](const NODE* name) {
                return std::find(other.begin(), other.end(), name) != other.end();
            });
            if (!meets) continue;
            web.insert(web.end(), other.begin(), other.end());
            webs.erase(webs.begin() + static_cast<std::ptrdiff_t>(i - 1));
        }
        webs.push_back(web);
    }
};

} // namespace

TEST_F(WEBS_OF, RandomFunctionsKeepTheirMeaning) {
    std::mt19937 random(31);
    int made = 0, gone = 0;
    for (int round = 0; round < 3000 && !HasFailure(); round++) {
        build_copying(random, round);
        SCOPED_TRACE(graph());
        const std::string before = run({}, 60);
        const int statements_before = statements();
        if (round % 3 != 0) rename_symbols();
        made += temporaries();
        if (round % 3 != 1) merge_symbols();
        gone += statements_before - statements();
        EXPECT_EQ(run({}, 60), before) << graph();
        verify_function("symbols");
    }
    EXPECT_GT(made, 1000);
    EXPECT_GT(gone, 1000);
}

TEST_F(WEBS_OF, EverySymbolHasOneWeb) {
    std::mt19937 random(32);
    for (int round = 0; round < 400 && !HasFailure(); round++) {
        build_copying(random, round);
        simpcfg(false, false); // what is never reached reads what nobody has stored
        SCOPED_TRACE(graph());
        rename_symbols();
        const PRIVATE_SYMBOLS symbols;
        for (int i = 0; i < symbols.count(); i++)
            EXPECT_LE(webs_of(symbols.symbol(i)), 1) << symbols.symbol(i)->name << "\n" << graph();
        const int count = temporaries();
        rename_symbols();
        EXPECT_EQ(temporaries(), count);
    }
}

namespace {

constexpr int BLOCKS = 20000;
constexpr int LOCALS = 2000;

class LARGE : public RANDOM_GRAPH_TEST {
  protected:
    void SetUp() override {
        RANDOM_GRAPH_TEST::SetUp();
        for (int i = 0; i < LOCALS; i++) locals.push_back(local(("v" + std::to_string(i)).c_str(), int_type));
    }
    SYMTAB* v(int i) { return locals[static_cast<std::size_t>(i % LOCALS)]; }
};

} // namespace

// All are live in nearly all of the blocks.
TEST_F(LARGE, EverythingLiveEverywhere) {
    for (SYMTAB* symbol : locals) stmt(asg(symbol, name(y)));
    for (int i = 1; i <= BLOCKS; i++) {
        label(static_cast<unsigned>(i));
        stmt(asg(v(i), name(v(i + 1))));
        stmt(cbranch(name(v(i)), static_cast<unsigned>(i > 100 ? i - 100 : BLOCKS - i)));
    }
    end_uncleaned();
    rename_symbols();
    merge_symbols();
    init_reg_defs();
    allocate_regs();
    int in_registers = 0;
    for (const SYMTAB* list : {currfuninfo->locals, currfuninfo->temps})
        for (const SYMTAB* symbol = list; symbol != nullptr; symbol = symbol->next)
            in_registers += symbol->sclass == SC_REGISTER ? 1 : 0;
    EXPECT_EQ(in_registers, 8);
}

// Values that pass from one to the next, with many webs of one symbol.
TEST_F(LARGE, LongChainsOfCopies) {
    for (int i = 1; i <= BLOCKS; i++) {
        label(static_cast<unsigned>(i));
        stmt(asg(x, name(y)));
        stmt(asg(v(i), name(x)));
        stmt(asg(v(i + 1), name(v(i))));
        stmt(cbranch(name(v(i + 1)), static_cast<unsigned>(i + 1)));
    }
    label(BLOCKS + 1);
    stmt(ret(name(v(1))));
    end_uncleaned();
    rename_symbols();
    merge_symbols();
    EXPECT_EQ(block(BLOCKS / 2)->statements->next, nullptr) << graph().substr(graph().find("10000:"), 500);
}
