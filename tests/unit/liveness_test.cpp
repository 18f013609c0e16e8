// Accesses, private symbols and liveness, against their definitions.

#include <algorithm>
#include <ctime>

#include "OPT5/accesses.h"
#include "OPT5/liveness.h"
#include "OPT5/opt_expr.h"
#include "OPT5/register_pressure.h"
#include "random_graph.h"

using namespace op;

namespace {

class LIVE : public RANDOM_GRAPH_TEST {
  protected:
    using EVENTS = std::vector<ACCESS>;

    // What the tree does, operand by operand, in the order of evaluation.
    static void events_of(NODE* node, bool conditional, EVENTS& events) {
        if (node == nullptr || node->op == LABEL || node->op == BRANCH) return;
        if (node->op == NAME) {
            if (node->symbol()->level > 0) events.push_back({node, nullptr, ACC_READ, conditional});
        } else if (node->op == UAND) {
            if (node->left->symbol()->level > 0)
                events.push_back({node->left, nullptr, ACC_TAKEN, conditional});
        } else if (opcode_is_ASG(node->op)) {
            events_of(node->right, conditional, events);
            if (node->left->op == UMULT) return events_of(node->left, conditional, events);
            if (node->left->symbol()->level == 0) return;
            if (node->op != ASG) events.push_back({node->left, node, ACC_READ, conditional});
            events.push_back({node->left, node, ACC_WRITE, conditional});
        } else {
            const bool guards = node->op == ANDAND || node->op == OROR || node->op == QUEST;
            events_of(node->left, conditional, events);
            if (node->op != IF && node->op != SWITCH) events_of(node->right, conditional || guards, events);
        }
    }
    static EVENTS events_of(const BBLK* bb) {
        EVENTS events;
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            events_of(cell->first, false, events);
        return events;
    }
    static std::vector<ACCESS> accesses_of(const BBLK* bb) {
        std::vector<ACCESS> accesses;
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            list_accesses(cell->first, accesses);
        return accesses;
    }
    // Whether a way from the start of one of `starts` comes to a read of the symbol before a write.
    static bool is_read_from(std::vector<const BBLK*> starts, const SYMTAB* symbol,
                             const std::vector<EVENTS>& events) {
        std::vector<bool> seen(events.size());
        while (!starts.empty()) {
            const BBLK* bb = starts.back();
            starts.pop_back();
            if (seen[bb->dfn]) continue;
            seen[bb->dfn] = true;
            const auto first = std::find_if(events[bb->dfn].begin(), events[bb->dfn].end(), [&](ACCESS e) {
                return e.name->symbol() == symbol && (e.kind == ACC_READ || !e.conditional);
            });
            if (first != events[bb->dfn].end()) {
                if (first->kind == ACC_READ) return true;
                continue;
            }
            for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next)
                starts.push_back(edge->bb);
        }
        return false;
    }
    // The most scalars that are live at once between two events of the block, or at its ends.
    static int pressure_of(const BBLK* bb, const std::vector<const BBLK*>& next,
                           const PRIVATE_SYMBOLS& symbols, const std::vector<EVENTS>& events) {
        const EVENTS& own = events[bb->dfn];
        std::vector<int> live(own.size() + 1, 0);
        for (int i = 0; i < symbols.count(); i++) {
            const SYMTAB* symbol = symbols.symbol(i);
            if (!symbol->type->is_scalar()) continue;
            bool is_live = is_read_from(next, symbol, events);
            for (std::size_t at = own.size();; at--) {
                live[at] += is_live ? 1 : 0;
                if (at == 0) break;
                const ACCESS& event = own[at - 1];
                if (event.name->symbol() != symbol) continue;
                if (event.kind == ACC_READ) is_live = true;
                if (event.kind == ACC_WRITE && !event.conditional) is_live = false;
            }
        }
        return *std::max_element(live.begin(), live.end());
    }
};

} // namespace

TEST_F(LIVE, RandomFunctionsFollowTheDefinition) {
    std::mt19937 random(11);
    for (int round = 0; round < 1500 && !HasFailure(); round++) {
        begin_another(random() % 3 == 0 ? 90 : 3); // more than a word of them, or few
        build_random(random, 2 + random() % 10, round % 3 != 0, [&](unsigned) {
            for (unsigned i = random() % 4; i > 0; i--) random_statement(random);
        });
        SCOPED_TRACE(graph());
        const PRIVATE_SYMBOLS symbols;
        EXPECT_GE(symbols.count(), static_cast<int>(locals.size()) + 3); // and `f` and pointers
        const LIVENESS liveness(symbols);
        std::vector<EVENTS> events(1);
        for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
            events.push_back(events_of(bb));
            const auto same = [](ACCESS a, ACCESS b) {
                return a.name == b.name && a.kind == b.kind && a.conditional == b.conditional &&
                       a.assignment == b.assignment;
            };
            const std::vector<ACCESS> listed = accesses_of(bb);
            EXPECT_TRUE(
                std::equal(listed.begin(), listed.end(), events.back().begin(), events.back().end(), same));
        }
        const REGISTER_PRESSURE pressure;
        int most = 0;
        for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
            std::vector<const BBLK*> next;
            for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next)
                next.push_back(edge->bb);
            std::vector<bool> out(static_cast<std::size_t>(symbols.count()));
            liveness.for_each_live_out(bb, [&](int number) { out[static_cast<std::size_t>(number)] = true; });
            for (int i = 0; i < symbols.count(); i++) {
                const bool live = is_read_from(next, symbols.symbol(i), events);
                EXPECT_EQ(liveness.is_live_in(bb, i), is_read_from({bb}, symbols.symbol(i), events));
                EXPECT_EQ(liveness.is_live_out(bb, i), live);
                EXPECT_EQ(out[static_cast<std::size_t>(i)], live);
            }
            EXPECT_EQ(pressure.of(bb), pressure_of(bb, next, symbols, events));
            most = std::max(most, pressure.of(bb));
        }
        EXPECT_EQ(pressure.maximum(), most);
    }
}

TEST_F(LIVE, OnlySymbolsThatNothingElseReachesArePrivate) {
    SYMTAB* taken = local("taken", int_type);
    SYMTAB* pointer = local("pointer", tp->mk_ptr(int_type));
    SYMTAB* flagged = local("flagged", tp->mk_qual(int_type, QUAL_VOLATILE));
    SYMTAB* read_volatile = local("read_volatile", int_type);
    SYMTAB* referred = local("referred", int_type);
    SYMTAB* caught = local("caught", int_type);
    SYMTAB* kept = symbol("kept", int_type, SC_STATIC, 0);
    SYMTAB* last = symbol("last", int_type, SC_VARARG, 1);
    SYMTAB* inner = symbol("inner", int_type, SC_REGISTER, 3);
    stmt(asg(pointer, address(taken)));
    NODE* through_volatile = name(read_volatile);
    through_volatile->type = tp->mk_qual(int_type, QUAL_VOLATILE);
    stmt(asg(y, through_volatile));
    NODE* intrinsic = tree(ICALL, int_type, tree(ARGREF, int_type, name(referred)));
    intrinsic->mk_icall("_step");
    stmt(asg(y, intrinsic));
    stmt(asg(inner, icon(1)));
    end_uncleaned();
    {
        const PRIVATE_SYMBOLS symbols;
        EXPECT_TRUE(symbols.flow_is_known());
        for (SYMTAB* other : {taken, flagged, read_volatile, referred, kept, last})
            EXPECT_EQ(symbols.number_of(other), -1) << other->name;
        for (SYMTAB* own : {x, y, f, pointer, inner, caught}) {
            ASSERT_GE(symbols.number_of(own), 0) << own->name;
            EXPECT_EQ(symbols.symbol(symbols.number_of(own)), own);
        }
    }
    EHT_ENTRY entry{};
    entry.tree = name(caught);
    currfuninfo->eht = {entry};
    const PRIVATE_SYMBOLS symbols;
    EXPECT_EQ(symbols.number_of(caught), -1);
    EXPECT_FALSE(symbols.flow_is_known());
}

TEST_F(LIVE, SetjmpMayReturnAgain) {
    stmt(asg(x, icon(1)));
    stmt(asg(y, call(function("_setjmp", SC_EXTERN))));
    end_uncleaned();
    const PRIVATE_SYMBOLS symbols;
    EXPECT_FALSE(symbols.flow_is_known());
    const LIVENESS liveness(symbols);
    EXPECT_TRUE(liveness.is_live_out(block(1), symbols.number_of(x)));
}

TEST_F(LIVE, ManyVariablesInManyBlocks) {
    constexpr unsigned BLOCKS = 20000;
    for (unsigned i = 0; i < 200; i++) locals.push_back(local(("v" + std::to_string(i)).c_str(), int_type));
    for (unsigned i = 1; i <= BLOCKS; i++) {
        label(i);
        stmt(inc(locals[i % 200]));
        stmt(cbranch(name(locals[i % 199]), i > 100 ? i - 100 : BLOCKS - i));
    }
    end_uncleaned();
    const std::clock_t start = std::clock();
    const PRIVATE_SYMBOLS symbols;
    const LIVENESS liveness(symbols);
    EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC);
    EXPECT_TRUE(liveness.is_live_in(block(2), symbols.number_of(locals[0])));
    EXPECT_FALSE(liveness.is_live_in(block(2), symbols.number_of(x)));
}
