// The order of blocks, by the bottom-up chains of Pettis and Hansen.
//
// Every block starts as a chain of its own. An edge joins two chains if it leads from the last block of one
// to the first block of the other. Edges are taken loop by loop from the inside out, and those of one loop by
// their weight; when a loop is done, its chains become one, so that the loops around it find it in one piece.
//
// The weight of an edge is what it saves when its target follows: each jump that is taken, and each operator
// that is not executed.
//
//     BRANCH t        t follows: the operator and the jump are saved
//     IF(c, t, f)     one follows: its jump is saved, and the BRANCH beside the conditional jump, which
//                     otherwise serves the arm that is less likely
//
// So the jump back of a loop comes before the edge from its test into its body, and tests end up at the
// bottom.

#include "block_layout.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <vector>

#include "bblk.h"
#include "bbutils.h"
#include "branch_prediction.h"
#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "natural_loops.h"
#include "node.h"
#include "opcodes.h"

using namespace op;

namespace {

struct CANDIDATE {
    BBLK* from;
    BBLK* to;
    double weight;
};

// What a jump that is taken costs, where an operator costs 1. A guess of the likelier arm must not cost more
// operators than it can save.
constexpr double JUMP = 0.5;

// The edge from a block with pragmas of a loop into that loop.
constexpr double BINDING = std::numeric_limits<double>::infinity();

// Whether the order of the blocks has a meaning beyond the edges: marks of loops and of blocks of the source,
// which the code generator reads as they stand.
bool order_is_fixed() {
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
            switch (cell->first->op) {
                case op::LOOP:
                case INITLOOP:
                case ENDLOOP:
                case BGNBLOCK:
                case ENDBLOCK: return true;
                case IF:
                    if (tree_contains_op(cell->first->left, ENDLOOP)) return true;
                    break;
                default: break;
            }
        }
    return false;
}

bool has_pragma(const BBLK* bb) {
    for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
        if (cell->first->op == PPRAGMA) return true;
    return false;
}

class TRACE_LAYOUT {
  public:
    TRACE_LAYOUT();
    // False if the blocks stay as they are.
    bool run();

  private:
    using BLOCKS = std::vector<BBLK*>;
    struct CHAIN {
        BBLK* head;
        BBLK* tail;
    };

    double weight(const BBLK* from, const BBLK* to) const;
    void find_candidates();
    void join_along(std::vector<CANDIDATE>& candidates);
    void join_loop(int loop);
    std::vector<CHAIN> chains_of(const BLOCKS& blocks);
    bool choose_ends(int loop, std::vector<CHAIN>& chains) const;
    double value_at_start(int loop, const BBLK* head) const;
    double value_at_end(int loop, const BBLK* tail) const;
    void join(BBLK* a, BBLK* b);
    BBLK* root(BBLK* bb);
    CHAIN& chain(BBLK* bb) { return chains_[root(bb)->uon()]; }
    BLOCKS final_order();
    BLOCKS present_order() const;
    bool is_bound() const;
    double savings(const BLOCKS& order) const;
    bool is_tidy(const BLOCKS& order) const;
    void note_chances() const;

    BBLK* const first_;
    BBLK* const exit_;
    const NATURAL_LOOPS loops_;
    const BRANCH_PREDICTION prediction_;
    std::vector<std::vector<CANDIDATE>> candidates_; // by loop, the whole function first
    std::vector<BLOCKS> members_;  // by loop, the whole function first: blocks, inner headers
    std::vector<BBLK*> up_;        // by block id: towards the root of its chain
    std::vector<CHAIN> chains_;    // by id of the root
    std::vector<BBLK*> follower_;  // by block id
    std::vector<unsigned> listed_; // by id of the root: the list it was taken into last
    unsigned lists_ = 0;
};

TRACE_LAYOUT::TRACE_LAYOUT()
    : first_(currfuninfo->bb_list), exit_(first_->prev), prediction_(loops_),
      candidates_(loops_.loops().size() + 1), members_(loops_.loops().size() + 1),
      up_(currfuninfo->blocks.size()), chains_(currfuninfo->blocks.size()),
      follower_(currfuninfo->blocks.size()), listed_(currfuninfo->blocks.size()) {
    for (BBLK* bb = first_; bb != nullptr; bb = bb->next) {
        chains_[bb->uon()] = {bb, bb};
        if (bb == exit_) break;
        const int loop = loops_.innermost(bb);
        members_[static_cast<std::size_t>(loop + 1)].push_back(bb);
        if (loops_.is_header(bb))
            members_[static_cast<std::size_t>(loops_.loops()[loop].parent + 1)].push_back(bb);
    }
}

// --- Chains.

BBLK* TRACE_LAYOUT::root(BBLK* bb) {
    while (BBLK* above = up_[bb->uon()]) {
        if (BBLK* next = up_[above->uon()]) up_[bb->uon()] = next;
        bb = above;
    }
    return bb;
}

// The chain of `b` follows that of `a`.
void TRACE_LAYOUT::join(BBLK* a, BBLK* b) {
    const CHAIN behind = chain(b);
    follower_[chain(a).tail->uon()] = behind.head;
    up_[root(b)->uon()] = root(a);
    chain(a).tail = behind.tail;
}

// The chains of the blocks, each once, in the order of the blocks.
std::vector<TRACE_LAYOUT::CHAIN> TRACE_LAYOUT::chains_of(const BLOCKS& blocks) {
    std::vector<CHAIN> list;
    lists_++;
    for (BBLK* bb : blocks) {
        unsigned& listed = listed_[root(bb)->uon()];
        if (listed == lists_) continue;
        listed = lists_;
        list.push_back(chain(bb));
    }
    return list;
}

// --- Edges.

double TRACE_LAYOUT::weight(const BBLK* from, const BBLK* to) const {
    const double taken = prediction_.frequency(from, to);
    switch (last_statement(from)->op) {
        case BRANCH: return (1 + JUMP) * taken;
        case IF:
            // At the end of a loop, what follows the loop saves the operator as well.
            if (loops_.is_back_edge(from, to)) return JUMP * taken;
            return JUMP * taken + std::min(taken, prediction_.frequency(from) - taken);
        default: return 0; // a SWITCH and a RETURN have no fall through
    }
}

void TRACE_LAYOUT::find_candidates() {
    for (BBLK* bb = first_; bb != exit_; bb = bb->next) {
        const int op = last_statement(bb)->op;
        if (op != BRANCH && op != IF) continue;
        const bool binds = has_pragma(bb);
        for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next) {
            BBLK* to = edge->bb;
            if (to == exit_ || to == bb || prediction_.is_cold(bb) != prediction_.is_cold(to)) continue;
            const bool enters = loops_.is_header(to) && !loops_.contains(loops_.innermost(to), bb);
            candidates_[static_cast<std::size_t>(loops_.common(bb, to) + 1)].push_back(
                {bb, to, binds && enters ? BINDING : weight(bb, to)});
        }
    }
}

void TRACE_LAYOUT::join_along(std::vector<CANDIDATE>& candidates) {
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const CANDIDATE& a, const CANDIDATE& b) { return a.weight > b.weight; });
    for (const CANDIDATE& edge : candidates) {
        if (root(edge.from) == root(edge.to)) continue;
        const BBLK* to = edge.weight == BINDING ? chain(edge.to).head : edge.to;
        if (chain(edge.from).tail == edge.from && chain(edge.to).head == to) join(edge.from, edge.to);
    }
}

// --- Loops.

// What it saves if a loop's first block is its header: entering is a fall through.
double TRACE_LAYOUT::value_at_start(int loop, const BBLK* head) const {
    if (loop == NO_LOOP) return head == first_ ? BINDING : 0;
    if (loops_.loops()[loop].header != head) return 0;
    double best = 0;
    for (const EDGE* edge = head->predecessors; edge != nullptr; edge = edge->next)
        if (!loops_.contains(loop, edge->bb)) best = std::max(best, weight(edge->bb, head));
    return best;
}

// What it saves if the loop's last block leaves it; for the whole function, if that ends it.
double TRACE_LAYOUT::value_at_end(int loop, const BBLK* tail) const {
    const int op = last_statement(tail)->op;
    double best = 0;
    if (op != BRANCH && op != IF) return best;
    // A jump to the end of the function is written as a return, wherever it stands.
    if (loop == NO_LOOP && op == BRANCH) return best;
    for (const EDGE* edge = tail->successors; edge != nullptr; edge = edge->next)
        if (loop == NO_LOOP ? edge->bb == exit_ : !loops_.contains(loop, edge->bb))
            best = std::max(best, weight(tail, edge->bb));
    return best;
}

// Moves the chain that gains most from it to the start, and the one that gains most to the end. A chain that
// could be either goes where it gains more.
bool TRACE_LAYOUT::choose_ends(int loop, std::vector<CHAIN>& chains) const {
    if (chains.size() < 2) return false;
    double at_start = 0, at_end = 0;
    std::size_t start = 0, end = 0;
    for (std::size_t i = 0; i < chains.size(); i++) {
        const double as_start = value_at_start(loop, chains[i].head);
        const double as_end = value_at_end(loop, chains[i].tail);
        if (as_start > at_start) at_start = as_start, start = i;
        if (as_end > at_end) at_end = as_end, end = i;
    }
    if (start == end && at_start > 0 && at_end > 0) (at_start >= at_end ? at_end : at_start) = 0;
    const auto first = chains.begin();
    if (at_end > 0) {
        std::rotate(first + static_cast<std::ptrdiff_t>(end), first + static_cast<std::ptrdiff_t>(end) + 1,
                    chains.end());
        if (start > end) start--;
    }
    if (at_start > 0)
        std::rotate(first, first + static_cast<std::ptrdiff_t>(start),
                    first + static_cast<std::ptrdiff_t>(start) + 1);
    return true;
}

void TRACE_LAYOUT::join_loop(int loop) {
    join_along(candidates_[static_cast<std::size_t>(loop + 1)]);
    if (loop == NO_LOOP) return;
    BLOCKS& members = members_[static_cast<std::size_t>(loop + 1)];
    if (!prediction_.is_cold(loops_.loops()[loop].header))
        std::erase_if(members, [this](const BBLK* bb) { return prediction_.is_cold(bb); });
    std::vector<CHAIN> chains = chains_of(members);
    if (!choose_ends(loop, chains)) return;
    for (std::size_t i = 1; i < chains.size(); i++) join(chains[0].head, chains[i].head);
}

// --- The function.

TRACE_LAYOUT::BLOCKS TRACE_LAYOUT::final_order() {
    BLOCKS warm, cold;
    for (BBLK* bb = first_; bb != exit_; bb = bb->next) (prediction_.is_cold(bb) ? cold : warm).push_back(bb);
    std::vector<CHAIN> chains = chains_of(warm);
    choose_ends(NO_LOOP, chains);
    const std::vector<CHAIN> behind = chains_of(cold);
    chains.insert(chains.end(), behind.begin(), behind.end());
    BLOCKS order;
    for (const CHAIN& chain : chains)
        for (BBLK* bb = chain.head; bb != nullptr; bb = follower_[bb->uon()]) order.push_back(bb);
    order.push_back(exit_);
    return order;
}

// Where neither arm follows, the writer makes two transfers, and is to know which arm goes with the first.
// The labels of other transfers stay without a guess.
void TRACE_LAYOUT::note_chances() const {
    for (const BBLK* bb = first_; bb != exit_; bb = bb->next) {
        const NODE* transfer = last_statement(bb);
        if (transfer->op != IF) continue;
        NODE* arms[] = {transfer->right->left, transfer->right->right};
        if (arms[0]->label->bb == bb->next || arms[1]->label->bb == bb->next) continue;
        for (NODE* arm : arms) arm->freq = prediction_.probability(bb, arm->label->bb);
        // A return on the spot takes no jump.
        for (int i = 0; i < 2; i++)
            if (arms[i]->label->bb == exit_) arms[i]->freq = 0, arms[1 - i]->freq = 1;
    }
}

TRACE_LAYOUT::BLOCKS TRACE_LAYOUT::present_order() const {
    BLOCKS order;
    for (BBLK* bb = first_; bb != nullptr; bb = bb->next) order.push_back(bb);
    return order;
}

// Whether there is a pragma of a loop, whose place decides.
bool TRACE_LAYOUT::is_bound() const {
    for (const auto& candidates : candidates_)
        for (const CANDIDATE& edge : candidates)
            if (edge.weight == BINDING) return true;
    return false;
}

// What the order saves, the whole of it.
double TRACE_LAYOUT::savings(const BLOCKS& order) const {
    double sum = 0;
    for (std::size_t i = 0; i + 1 < order.size(); i++)
        sum += fall_through_saving(prediction_, order[i], order[i + 1]);
    return sum;
}

// Whether every loop is in one piece, and what is never executed stands behind everything else.
bool TRACE_LAYOUT::is_tidy(const BLOCKS& order) const {
    struct SPAN {
        std::size_t first = std::numeric_limits<std::size_t>::max(), last = 0, count = 0;
    };
    std::vector<SPAN> spans(loops_.loops().size());
    bool cold = false;
    for (std::size_t i = 0; i + 1 < order.size(); i++) {
        if (cold && !prediction_.is_cold(order[i])) return false;
        cold = prediction_.is_cold(order[i]);
        const int loop = loops_.innermost(order[i]);
        if (loop == NO_LOOP || (cold && !prediction_.is_cold(loops_.loops()[loop].header))) continue;
        SPAN& span = spans[static_cast<std::size_t>(loop)];
        span.first = std::min(span.first, i);
        span.last = i;
        span.count++;
    }
    // Inner loops come behind those around them.
    for (std::size_t loop = spans.size(); loop-- > 0;) {
        const SPAN& span = spans[loop];
        if (span.count != 0 && span.last - span.first + 1 != span.count) return false;
        const int parent = loops_.loops()[static_cast<int>(loop)].parent;
        if (parent == NO_LOOP || span.count == 0) continue;
        SPAN& around = spans[static_cast<std::size_t>(parent)];
        around.first = std::min(around.first, span.first);
        around.last = std::max(around.last, span.last);
        around.count += span.count;
    }
    return true;
}

bool TRACE_LAYOUT::run() {
    find_candidates();
    for (int loop = static_cast<int>(loops_.loops().size()); loop-- > 0;) join_loop(loop);
    join_loop(NO_LOOP);
    const BLOCKS order = final_order();
    // An order that is no better is not worth a change: what has been laid out stays as it is.
    const BLOCKS present = present_order();
    if (!is_bound() && is_tidy(present) && savings(order) <= savings(present)) {
        note_chances();
        return false;
    }
    bool changed = false;
    BBLK* before = nullptr;
    for (BBLK* bb : order) {
        if (before != nullptr && before->next != bb) {
            before->next = bb;
            changed = true;
        }
        before = bb;
    }
    exit_->next = nullptr;
    note_chances();
    return changed;
}

} // namespace

double fall_through_saving(const BRANCH_PREDICTION& prediction, const BBLK* from, const BBLK* to) {
    const int op = last_statement(from)->op;
    if ((op != BRANCH && op != IF) || !edge_memberp(to, from->successors)) return 0;
    const double taken = prediction.frequency(from, to);
    if (op == IF) return JUMP * taken + std::min(taken, prediction.frequency(from) - taken);
    return to->is_exit() ? 0 : (1 + JUMP) * taken; // a jump to the exit is written as a return anywhere
}

void straighten_traces_in_cfg() {
    if (pass_disable("trace_straighten") != 0) return;
    dprintf("\n\n\t\t\t---------- ENTERING 'straighten_traces_in_cfg' ----------\n");
    if (currfuninfo->bb_count <= 2 || order_is_fixed()) return;
    const bool changed = TRACE_LAYOUT().run();
    if (!changed) return;
    currfuninfo->flow_is_stale = true; // numbers change
    renumber_bblocks();
    dprintf("\n\tBlocks by UON:");
    if (print_debug != 0)
        for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) dprintf(" %u", bb->uon());
    dprintf("\n");
}
