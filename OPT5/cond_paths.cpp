// Straightening of conditional paths.
//
// A test that is settled wherever control comes from is none.
//
// For each block that ends with a test, and each block ahead of it, PATH_FACTS says whether the test's
// outcome is known on the edge between the two. If it is, the edge goes to where the test would lead, over a
// copy of the statements that stand ahead of the test. No run does anything else than before, so what has
// been found out about one way still holds when others have been led past their tests.
//
// Loops stay natural. An edge that is led past a block enters a loop in its middle only if that block is the
// loop's header. So no way from outside goes past a header into its loop, with one exception: where all
// ways in do, and the header's test leads to one block of the loop only, that block is the new header, and
// the old one tests at the end of each turn. Nor does a back edge go past the header into the loop, which
// would make a second loop in it.

#include "cond_paths.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "bblk.h"
#include "bbutils.h"
#include "buildcfg.h"
#include "copy.h"
#include "debug.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "natural_loops.h"
#include "node.h"
#include "opcodes.h"
#include "path_facts.h"
#include "simpcfg.h"
#include "simpcfg_rules.h"

using namespace op;

namespace {

// Each round can follow up on what the one before has straightened.
constexpr int MAX_ROUNDS = 3;

// Statements ahead of a test that are copied at most.
constexpr int MAX_COPIED_STATEMENTS = 8;

class STRAIGHTENER {
  public:
    STRAIGHTENER()
        : budget_(duplication_budget()), redirected_(currfuninfo->blocks.size()),
          states_(currfuninfo->blocks.size()) {}
    // Whether the graph has changed; edges are stale then.
    bool run();

  private:
    // A way from a block past the test of the next one.
    struct WAY {
        BBLK* from;
        BBLK* target; // null: not known
    };
    // Of a block, by its permanent number.
    struct STATE {
        bool is_fixed = false;     // the entries of a loop have been led past it, or to it
        BBLK* is_led_to = nullptr; // of a target of the test in work: where edges go instead
    };
    STATE& state(const BBLK* bb) { return states_[bb->uon()]; }

    int cost_of_copy(const BBLK* bb) const;
    bool find_ways(BBLK* bb);
    void look_at(BBLK* bb, bool rotate);
    bool may_rotate(const BBLK* header) const;
    bool has_room(const BBLK* bb, int cost);
    void take_ways(BBLK* bb);
    BBLK* place_copy(BBLK* bb, BBLK* target);
    void redirect();

    const PATH_FACTS facts_;
    const NATURAL_LOOPS loops_;
    const int budget_;
    std::vector<WAY> ways_;                        // of the test in work
    std::vector<std::pair<BBLK*, NODE*>> settled_; // tests with one outcome, and its label
    // By the id of a block: which of its successors are replaced, and by what.
    std::vector<std::vector<std::pair<BBLK*, BBLK*>>> redirected_;
    std::vector<STATE> states_;
    bool changed_ = false;
};

// The nodes ahead of the block's test; -1 for a block of which there may be no copy.
int STRAIGHTENER::cost_of_copy(const BBLK* bb) const {
    int size = 0, count = 0;
    for (const LIST* cell = bb->statements; cell->next != nullptr; cell = cell->next) {
        const auto exceeds = [&](const NODE*) { return ++size > budget_; };
        if (++count > MAX_COPIED_STATEMENTS || any_node(cell->first, exceeds) ||
            !ok_to_dupe_stmt(cell->first))
            return -1;
    }
    return size;
}

// The ways to the block, with those known where they lead; false where none is.
bool STRAIGHTENER::find_ways(BBLK* bb) {
    ways_.clear();
    bool is_any_known = false;
    for (const EDGE* edge = bb->predecessors; edge != nullptr; edge = edge->next) {
        const NODE* label = edge->bb != bb ? facts_.outcome({edge->bb, bb}) : nullptr;
        BBLK* target = label != nullptr && label->label->bb != bb ? label->label->bb : nullptr;
        ways_.push_back({edge->bb, target});
        is_any_known = is_any_known || target != nullptr;
    }
    return is_any_known;
}

// Whether all ways into the loop of the header go past its test into the loop, to the only block there to
// which it leads.
bool STRAIGHTENER::may_rotate(const BBLK* header) const {
    const int loop = loops_.innermost(header);
    const BBLK* inside = nullptr;
    for (const EDGE* edge = header->successors; edge != nullptr; edge = edge->next) {
        if (!loops_.contains(loop, edge->bb)) continue;
        if (inside != nullptr) return false;
        inside = edge->bb;
    }
    return std::all_of(ways_.begin(), ways_.end(), [&](const WAY& way) {
        return loops_.contains(loop, way.from) || (way.target != nullptr && way.target == inside);
    });
}

// Whether the copies that the ways need fit the budget. The block itself goes where all ways do.
bool STRAIGHTENER::has_room(const BBLK* bb, int cost) {
    if (cost == 0) return true;
    std::vector<const BBLK*> targets;
    bool all_known = !bb->is_kept;
    for (const WAY& way : ways_) {
        all_known = all_known && way.target != nullptr;
        if (way.target == nullptr || std::find(targets.begin(), targets.end(), way.target) != targets.end())
            continue;
        if (targets.size() > static_cast<std::size_t>(budget_ / cost)) return false;
        targets.push_back(way.target);
    }
    const int copies = static_cast<int>(targets.size()) - (all_known ? 1 : 0);
    return copies * cost <= budget_;
}

// Where a way past the test to the target goes: over a copy of what stands ahead of the test.
BBLK* STRAIGHTENER::place_copy(BBLK* bb, BBLK* target) {
    const LIST* last = last_cell(bb);
    if (last == bb->statements) return target;
    LIST* copy = copy_statements(bb->statements, false);
    LIST* end = copy;
    while (end->next->next != nullptr) end = end->next;
    erase_tree_list(end->next);
    end->next = mkelist(mk_BRANCH(target, nullptr), nullptr, last->psn);
    return insert_new_bb(bb->dfn, bb, copy);
}

void STRAIGHTENER::take_ways(BBLK* bb) {
    std::vector<BBLK*> targets;
    for (const WAY& way : ways_) {
        if (way.target == nullptr) continue;
        dprintf("\tway from BB%d past the test of BB%d to BB%d\n", way.from->dfn, bb->dfn, way.target->dfn);
        BBLK*& led_to = state(way.target).is_led_to;
        if (led_to == nullptr) {
            led_to = place_copy(bb, way.target);
            targets.push_back(way.target);
        }
        redirected_[way.from->uon()].push_back({bb, led_to});
        changed_ = true;
    }
    for (const BBLK* target : targets) state(target).is_led_to = nullptr;
}

void STRAIGHTENER::look_at(BBLK* bb, bool rotate) {
    if (state(bb).is_fixed || !facts_.can_ask(bb)) return;
    const bool is_header = loops_.is_header(bb);
    if (rotate && !is_header) return;
    if (!rotate) {
        if (NODE* label = facts_.only_outcome(bb)) {
            settled_.push_back({bb, label});
            return;
        }
    }
    if (bb == currfuninfo->bb_list || bb->is_kept) return;
    const int cost = cost_of_copy(bb);
    if (cost < 0 || !find_ways(bb)) return;
    const int loop = loops_.innermost(bb);
    if (is_header) {
        const bool rotates = rotate && may_rotate(bb);
        if (rotate && !rotates) return;
        for (WAY& way : ways_)
            if (way.target != nullptr && loops_.contains(loop, way.target) &&
                (!rotates || loops_.contains(loop, way.from)))
                way.target = nullptr;
    }
    for (WAY& way : ways_) {
        if (way.target == nullptr || !state(way.target).is_fixed) continue;
        if (rotate) return;
        way.target = nullptr;
    }
    if (!has_room(bb, cost)) return;
    if (rotate) {
        state(bb).is_fixed = true;
        for (const WAY& way : ways_)
            if (way.target != nullptr && loops_.contains(loop, way.target)) state(way.target).is_fixed = true;
    }
    take_ways(bb);
}

// Leads the edges of all ways that have been taken to their new targets.
void STRAIGHTENER::redirect() {
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        if (bb->uon() >= redirected_.size() || redirected_[bb->uon()].empty()) continue;
        const auto& replaced = redirected_[bb->uon()];
        for (const auto& [from, to] : replaced) state(from).is_led_to = to;
        for_each_labelref(last_statement(bb), [this](NODE* label) {
            const BBLK* target = label->label->bb;
            if (target->uon() >= states_.size()) return;
            if (BBLK* to = state(target).is_led_to) label->label = label_of(to);
        });
        for (const auto& [from, to] : replaced) state(from).is_led_to = nullptr;
    }
}

bool STRAIGHTENER::run() {
    if (!facts_.flow_is_known()) return false;
    std::vector<BBLK*> blocks;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) blocks.push_back(bb);
    for (const bool rotate : {true, false})
        for (BBLK* bb : blocks) look_at(bb, rotate);
    redirect();
    for (const auto& [bb, label] : settled_) {
        dprintf("\ttest of BB%d is settled\n", bb->dfn);
        settle_transfer(last_cell(bb), label);
    }
    return changed_ || !settled_.empty();
}

} // namespace

void straighten_cond_paths() {
    if (opt_level() == 0 || pass_disable("cps") != 0) return;
    if (currfuninfo->bb_list->loop != nullptr) return;
    dprintf("\n\n\t\t\t---------- ENTERING 'straighten_cond_paths' ----------\n");
    do_early_cross_jumping();
    simpcfg(false, false);
    for (int round = 0; round < MAX_ROUNDS && STRAIGHTENER().run(); round++) {
        rebuildcfg();
        simpcfg(false, false);
    }
}
