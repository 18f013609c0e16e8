// A trace grows from the block that runs most often and is in no trace yet: forwards to the likeliest
// successor, backwards to the likeliest predecessor, for as long as both ends of the edge agree. It stays
// within its loop, with the header, if it has it, in front, and so never runs into itself.
//
// Two things are gained.
//
// Tests. PATH_FACTS tells which tests are settled for control that has come along the trace from its start.
// From the first block with another entry up to the last such test, the trace goes over copies; in these the
// tests are gone. The originals stay for the other entries. A header is never copied, so loops keep their
// single entries.
//
// Assignments in vain on the trace. What is assigned in a block, read nowhere below in it, and live in only
// one of its two successors moves to that one. It runs there at most as often. A successor with other
// predecessors gets the assignment in a block on the edge, which only a side exit is worth.

#include "superblocks.h"

#include <algorithm>
#include <cstddef>
#include <deque>
#include <utility>
#include <vector>

#include "accesses.h"
#include "bblk.h"
#include "bbutils.h"
#include "block_effects.h"
#include "branch_prediction.h"
#include "buildcfg.h"
#include "copy.h"
#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "liveness.h"
#include "natural_loops.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "path_facts.h"
#include "simpcfg.h"
#include "simpcfg_rules.h"
#include "symbol.h"

using namespace op;

namespace {

// An edge of a trace is at least this likely.
constexpr double LIKELY = 0.6;

// A side exit that gets a block of its own is less likely than this.
constexpr double UNLIKELY = 0.25;

// The tests that may add up their budgets for the copies of one trace.
constexpr int MAX_TESTS_OF_BUDGET = 3;

struct TRACE {
    std::vector<BBLK*> blocks;
};

// --- Traces.

// All blocks in traces, single ones included.
class TRACES {
  public:
    TRACES();
    ~TRACES() {
        for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) bb->trace = nullptr;
    }
    TRACES(const TRACES&) = delete;
    TRACES& operator=(const TRACES&) = delete;

    const std::deque<TRACE>& all() const { return traces_; }
    double probability(const BBLK* from, const BBLK* to) const { return prediction_.probability(from, to); }

  private:
    BBLK* likeliest_successor(const BBLK* bb) const;
    BBLK* likeliest_predecessor(const BBLK* bb) const;
    bool may_follow(const BBLK* from, const BBLK* to) const;
    void grow(BBLK* seed);

    const NATURAL_LOOPS loops_;
    const BRANCH_PREDICTION prediction_;
    std::deque<TRACE> traces_; // blocks point to these
};

TRACES::TRACES() : prediction_(loops_) {
    std::vector<BBLK*> seeds;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        bb->trace = nullptr;
        seeds.push_back(bb);
    }
    std::stable_sort(seeds.begin(), seeds.end(), [this](const BBLK* a, const BBLK* b) {
        return prediction_.frequency(a) > prediction_.frequency(b);
    });
    for (BBLK* seed : seeds)
        if (seed->trace == nullptr) grow(seed);
}

BBLK* TRACES::likeliest_successor(const BBLK* bb) const {
    std::size_t position = 0;
    for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next)
        if (prediction_.probability(bb, position++) >= LIKELY) return edge->bb;
    return nullptr;
}

BBLK* TRACES::likeliest_predecessor(const BBLK* bb) const {
    BBLK* likeliest = nullptr;
    double most = 0;
    for (const EDGE* edge = bb->predecessors; edge != nullptr; edge = edge->next) {
        const double frequency = prediction_.frequency(edge->bb);
        if (likeliest != nullptr && frequency <= most) continue;
        likeliest = edge->bb;
        most = frequency;
    }
    return likeliest;
}

bool TRACES::may_follow(const BBLK* from, const BBLK* to) const {
    return to->trace == nullptr && !to->is_kept && !to->is_exit() && !prediction_.is_cold(to) &&
           !loops_.is_header(to) && loops_.innermost(from) == loops_.innermost(to);
}

void TRACES::grow(BBLK* seed) {
    traces_.emplace_back();
    TRACE& trace = traces_.back();
    seed->trace = &trace;
    std::vector<BBLK*>& blocks = trace.blocks;
    // Backwards, each new block checked from its predecessor's side.
    BBLK* first = seed;
    while (!first->is_kept && !first->is_exit() && !loops_.is_header(first)) {
        BBLK* from = likeliest_predecessor(first);
        if (from == nullptr || from->trace != nullptr || likeliest_successor(from) != first ||
            loops_.innermost(from) != loops_.innermost(first))
            break;
        blocks.push_back(from);
        from->trace = &trace;
        first = from;
    }
    std::reverse(blocks.begin(), blocks.end());
    blocks.push_back(seed);
    for (BBLK* last = seed;;) {
        BBLK* next = likeliest_successor(last);
        if (next == nullptr || !may_follow(last, next)) break;
        blocks.push_back(next);
        next->trace = &trace;
        last = next;
    }
}

// --- Tests settled along a trace.

class TEST_SETTLER {
  public:
    explicit TEST_SETTLER(const TRACES& traces) : traces_(traces), budget_(duplication_budget()) {}
    // Whether the graph has changed; edges are stale then.
    bool run();

  private:
    // The part of a trace that is copied.
    struct PART {
        std::size_t first, last;
        std::vector<NODE*> outcomes; // of each block: the label to which its test leads, or null
    };

    void settle_in_place(const TRACE& trace, std::size_t count);
    bool choose(const TRACE& trace, PART& part);
    void copy(const TRACE& trace, const PART& part) const;
    bool add_cost(const BBLK* bb, int& cost) const;

    const TRACES& traces_;
    const PATH_FACTS facts_;
    const int budget_;
    std::vector<std::pair<BBLK*, NODE*>> settled_; // tests that go where they are, and their labels
};

// Adds the nodes of the block; false for one of which there may be no copy.
bool TEST_SETTLER::add_cost(const BBLK* bb, int& cost) const {
    for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
        const auto exceeds = [&](const NODE*) { return ++cost > MAX_TESTS_OF_BUDGET * budget_; };
        if (any_node(cell->first, exceeds) || !ok_to_dupe_stmt(cell->first)) return false;
    }
    return true;
}

bool has_other_entry(const BBLK* bb) {
    return bb->predecessors != nullptr && bb->predecessors->next != nullptr;
}

// The first blocks of the trace, which have no other entry.
void TEST_SETTLER::settle_in_place(const TRACE& trace, std::size_t count) {
    std::vector<BBLK*> path;
    for (std::size_t i = 0; i < count; i++) {
        path.push_back(trace.blocks[i]);
        if (NODE* label = facts_.outcome(path)) settled_.push_back({path.back(), label});
    }
}

bool TEST_SETTLER::choose(const TRACE& trace, PART& part) {
    const std::vector<BBLK*>& blocks = trace.blocks;
    std::size_t first = 1;
    while (first < blocks.size() && !has_other_entry(blocks[first])) first++;
    settle_in_place(trace, first);
    part = {first, 0, {}};
    std::vector<BBLK*> path(blocks.begin(), blocks.begin() + static_cast<std::ptrdiff_t>(first));
    int cost = 0, tests = 0;
    for (std::size_t i = first; i < blocks.size(); i++) {
        if (!add_cost(blocks[i], cost)) break;
        path.push_back(blocks[i]);
        NODE* label = facts_.outcome(path);
        part.outcomes.push_back(label);
        if (label == nullptr) continue;
        tests = std::min(tests + 1, MAX_TESTS_OF_BUDGET);
        if (cost <= tests * budget_) part.last = i;
        if (i + 1 < blocks.size() && label->label->bb != blocks[i + 1]) break;
    }
    return part.last != 0;
}

void TEST_SETTLER::copy(const TRACE& trace, const PART& part) const {
    BBLK* before = trace.blocks[part.first - 1];
    BBLK* place = before;
    NODE* way_in = last_statement(before);
    for (std::size_t i = part.first; i <= part.last; i++) {
        BBLK* bb = trace.blocks[i];
        BBLK* own = insert_new_bb(bb->dfn, place, copy_statements(bb->statements, false));
        dprintf("\tBB%d gets a copy for the trace from BB%d\n", bb->dfn, trace.blocks.front()->dfn);
        for_each_labelref(way_in, [bb, own](NODE* label) {
            if (label->label->bb == bb) label->label = label_of(own);
        });
        LIST* last = last_cell(own);
        if (const NODE* outcome = part.outcomes[i - part.first]) {
            dprintf("\t\twithout its test\n");
            BBLK* target = outcome->label->bb;
            NODE* taken = nullptr;
            for_each_labelref(last->first, [&](NODE* label) {
                if (label->label->bb == target) taken = label;
            });
            last = settle_transfer(last, taken);
        }
        way_in = last->first;
        place = own;
    }
}

bool TEST_SETTLER::run() {
    bool changed = false;
    PART part;
    for (const TRACE& trace : traces_.all()) {
        if (!choose(trace, part)) continue;
        copy(trace, part);
        changed = true;
    }
    for (const auto& [bb, label] : settled_) {
        dprintf("\ttest of BB%d is settled\n", bb->dfn);
        settle_transfer(last_cell(bb), label);
    }
    return changed || !settled_.empty();
}

// --- Assignments that are of use behind one exit only.

class SINKER {
  public:
    explicit SINKER(const TRACES& traces)
        : traces_(traces), liveness_(symbols_), last_access_(size()), last_change_(size()) {
        for (auto& overlay : is_live_) overlay.resize(size());
    }
    // Whether anything has moved; edges are stale then.
    bool run();

  private:
    // The ways out of the block in work.
    struct EXITS {
        BBLK* bb;
        BBLK* to[2];
        bool may_take[2]; // whether assignments may move there
    };

    std::size_t size() const { return static_cast<std::size_t>(symbols_.count()); }
    bool find_exits(BBLK* bb, EXITS& exits) const;
    int number_of_target(NODE* statement) const;
    bool is_live_at(const EXITS& exits, int side, int number) const;
    void note_staying(const BBLK* bb, NODE* statement);
    bool can_pass(const BBLK* bb, NODE* statement, int number) const;
    bool sink_from(const EXITS& exits);

    const TRACES& traces_;
    const PRIVATE_SYMBOLS symbols_;
    const BLOCK_EFFECTS effects_;
    const LIVENESS liveness_;
    // By number: the block in work where a statement that stays, below the place that has been reached, names
    // or changes the symbol.
    std::vector<const BBLK*> last_access_, last_change_;
    // For either exit, by number: the block in work, if what moves there has changed whether the symbol is
    // live, and whether it is now.
    std::vector<std::pair<const BBLK*, bool>> is_live_[2];
    TREE_CHANGES passed_; // by statements that stay; without symbols
    std::vector<LIST*> cells_;
};

bool SINKER::find_exits(BBLK* bb, EXITS& exits) const {
    const NODE* transfer = last_statement(bb);
    if (transfer->op != IF) return false;
    exits = {bb, {transfer->right->left->label->bb, transfer->right->right->label->bb}, {}};
    if (exits.to[0] == exits.to[1]) return false;
    for (const int side : {0, 1}) {
        BBLK* to = exits.to[side];
        const bool is_side_exit = bb->trace != nullptr && exits.to[1 - side]->trace == bb->trace &&
                                  traces_.probability(bb, to) < UNLIKELY;
        exits.may_take[side] =
            to != bb && !to->is_kept && !to->is_exit() && (!has_other_entry(to) || is_side_exit);
    }
    return exits.may_take[0] || exits.may_take[1];
}

// The number of the private symbol that the statement assigns and besides which it does nothing; -1 for
// another statement.
int SINKER::number_of_target(NODE* statement) const {
    if (!opcode_is_ASG(statement->op) || statement->left->op != NAME || tree_is_arg_prolog(statement) ||
        tree_has_side_effects(statement->right))
        return -1;
    return symbols_.number_of(statement->left->symbol());
}

bool SINKER::is_live_at(const EXITS& exits, int side, int number) const {
    const auto& [bb, is_live] = is_live_[side][static_cast<std::size_t>(number)];
    if (bb == exits.bb) return is_live;
    return liveness_.is_live_in(exits.to[side], number);
}

void SINKER::note_staying(const BBLK* bb, NODE* statement) {
    const TREE_CHANGES changes = effects_.changes_of(statement);
    passed_.memory = passed_.memory || changes.memory;
    passed_.all = passed_.all || changes.all;
    for (const SYMTAB* symbol : changes.symbols)
        if (const int number = symbols_.number_of(symbol); number >= 0)
            last_change_[static_cast<std::size_t>(number)] = bb;
    for (const SYMTAB* symbol : effects_.reads_of(statement).symbols)
        if (const int number = symbols_.number_of(symbol); number >= 0)
            last_access_[static_cast<std::size_t>(number)] = bb;
}

// Whether the assignment to the symbol of that number means the same at the end of the block.
bool SINKER::can_pass(const BBLK* bb, NODE* statement, int number) const {
    if (passed_.all || last_access_[static_cast<std::size_t>(number)] == bb) return false;
    const TREE_READS reads = effects_.reads_of(statement->right);
    if (reads.memory && passed_.memory) return false;
    return std::none_of(reads.symbols.begin(), reads.symbols.end(), [&](const SYMTAB* symbol) {
        const int read = symbols_.number_of(symbol);
        return read >= 0 && last_change_[static_cast<std::size_t>(read)] == bb;
    });
}

// From the last statement to the first, so that what moves keeps its order.
bool SINKER::sink_from(const EXITS& exits) {
    cells_.clear();
    for (LIST* cell = exits.bb->statements; cell != nullptr; cell = cell->next) cells_.push_back(cell);
    passed_ = {};
    note_staying(exits.bb, cells_.back()->first);
    BBLK* home[2] = {nullptr, nullptr};
    for (std::size_t i = cells_.size() - 1; i-- > 0;) {
        LIST* cell = cells_[i];
        const int number = number_of_target(cell->first);
        int side = -1;
        if (number >= 0 && can_pass(exits.bb, cell->first, number)) {
            const bool live[] = {is_live_at(exits, 0, number), is_live_at(exits, 1, number)};
            if (live[0] != live[1]) side = live[0] ? 0 : 1;
        }
        if (side < 0 || !exits.may_take[side]) {
            note_staying(exits.bb, cell->first);
            continue;
        }
        BBLK* to = exits.to[side];
        dprintf("\tassignment to %s moves from BB%d to the way to BB%d\n", cell->first->left->symbol()->name,
                exits.bb->dfn, to->dfn);
        if (home[side] == nullptr) home[side] = has_other_entry(to) ? split_cfg_edge(exits.bb, to) : to;
        const bool reads_itself = cell->first->op != ASG && cell->first->op != STASG;
        is_live_[side][static_cast<std::size_t>(number)] = {exits.bb, reads_itself};
        for (const SYMTAB* symbol : effects_.reads_of(cell->first->right).symbols)
            if (const int read = symbols_.number_of(symbol); read >= 0)
                is_live_[side][static_cast<std::size_t>(read)] = {exits.bb, true};
        (i > 0 ? cells_[i - 1]->next : exits.bb->statements) = cell->next;
        cell->next = home[side]->statements;
        home[side]->statements = cell;
    }
    return home[0] != nullptr || home[1] != nullptr;
}

bool SINKER::run() {
    bool changed = false;
    EXITS exits;
    for (const TRACE& trace : traces_.all())
        for (BBLK* bb : trace.blocks)
            if (find_exits(bb, exits) && sink_from(exits)) changed = true;
    return changed;
}

} // namespace

void optimize_superblocks_in_cfg() {
    if (opt_level() == 0 || pass_disable("superblock_opt") != 0) return;
    if (currfuninfo->bb_list->loop != nullptr) return;
    dprintf("\n\n\t\t\t---------- ENTERING 'optimize_superblocks_in_cfg' ----------\n");
    if (!PRIVATE_SYMBOLS().flow_is_known()) return;
    const auto clean_up = [](bool is_needed) {
        if (!is_needed) return;
        rebuildcfg();
        simpcfg(false, false);
    };
    const auto settle_tests = [] {
        const TRACES traces;
        return TEST_SETTLER(traces).run();
    };
    const auto sink_assignments = [] {
        const TRACES traces;
        return SINKER(traces).run();
    };
    clean_up(settle_tests());
    clean_up(sink_assignments());
}
