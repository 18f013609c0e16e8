// Blocks that do the same, and tests that are settled.
//
// Cross-jumping gives every block a class by what it does and where it goes on. Blocks are visited last
// first, so that the classes of the targets are known; one hash of the statements finds the few blocks worth
// a comparison. Of each class the first block stays, the others jump to it.
//
// A test is settled if a test above it in the dominator tree has decided it, and nothing between the two
// changes what it reads. Each test looks at a bounded number of blocks and of changes.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "bblk.h"
#include "bbutils.h"
#include "block_effects.h"
#include "buildcfg.h"
#include "congruent.h"
#include "copy.h"
#include "debug.h"
#include "dominator.h"
#include "dump.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "simp.h"
#include "simpcfg.h"
#include "simpcfg_rules.h"
#include "symbol.h"

using namespace op;

namespace {

// --- Cross-jumping.

class CROSS_JUMPER {
  public:
    bool run();

  private:
    struct STATE {
        const BBLK* target_class = nullptr; // of a block with one successor: its class
        std::uint64_t hash = 0;
        BBLK* representative = nullptr; // of the block's class: the member seen first
        BBLK* first = nullptr;          // of a representative: the member that stays
    };
    STATE& state(const BBLK* bb) { return states_[bb->id]; }

    bool takes_part(const BBLK* bb, const NODE* transfer) const;
    std::uint64_t hash_of(const BBLK* bb);
    bool do_the_same(BBLK* a, BBLK* b);
    void classify(BBLK* bb);
    bool merge_classes();

    std::vector<STATE> states_;
    std::unordered_map<std::uint64_t, std::vector<BBLK*>> representatives_; // by hash; never walked
};

// Different blocks of one hash that are compared with a new one.
constexpr std::size_t MAX_CANDIDATES = 8;

bool is_loop_block(const BBLK* bb) { return bb->loop != nullptr && bb->loop->level > 0; }

bool CROSS_JUMPER::takes_part(const BBLK* bb, const NODE* transfer) const {
    if (bb == currfuninfo->bb_list) return false;
    if (transfer->op == BRANCH) return bb->statements->first != transfer;
    if (transfer->op != RETURN) return false;
    if (!is_loop_block(bb)) return true;
    for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
        if (!ok_to_dupe_stmt(cell->first)) return false;
    return true;
}

void mix(std::uint64_t& hash, std::uint64_t value) {
    hash = (hash ^ value) * 0x9e3779b97f4a7c15u + 0x7f4a7c15u;
}

std::uint64_t CROSS_JUMPER::hash_of(const BBLK* bb) {
    std::uint64_t hash = 0;
    for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
        const NODE* statement = cell->first;
        if (statement->op == BRANCH) {
            mix(hash, state(bb).target_class->id);
            break;
        }
        walk_tree(cell->first, [&hash](const NODE* node) {
            mix(hash, static_cast<std::uint64_t>(node->op));
            if (node->op == NAME) mix(hash, std::hash<std::string_view>()(node->symbol()->name));
            if (node->op == ICON) mix(hash, node->u.lval.bits());
        });
    }
    return hash;
}

// Whether an edge goes backwards, as far as the layout tells.
bool goes_back(const BBLK* bb, const NODE* transfer) {
    return transfer->op == BRANCH && bb->dfn >= target_of(transfer)->dfn;
}

// Blocks of one hash. To join a way into a loop with one around it would give the loop a second entry.
bool CROSS_JUMPER::do_the_same(BBLK* a, BBLK* b) {
    if (a->loop != b->loop || state(a).target_class != state(b).target_class) return false;
    const LIST *x = a->statements, *y = b->statements;
    for (; x != nullptr && y != nullptr; x = x->next, y = y->next) {
        if (x->first->op == BRANCH && y->first->op == BRANCH)
            return goes_back(a, x->first) == goes_back(b, y->first);
        // A constant of another type makes another argument, so types must be the same.
        if (!trees_are_congruent_se_ok(x->first, y->first, 1)) return false;
    }
    return x == y;
}

void CROSS_JUMPER::classify(BBLK* bb) {
    STATE& block = state(bb);
    block.representative = block.first = bb;
    const NODE* transfer = last_statement(bb);
    if (transfer->op == BRANCH) block.target_class = state(target_of(transfer)).representative;
    // The target stands behind the block that goes back to it: its class is not known yet.
    if (transfer->op == BRANCH && block.target_class == nullptr) block.target_class = target_of(transfer);
    if (!takes_part(bb, transfer)) return;
    std::vector<BBLK*>& candidates = representatives_[hash_of(bb)];
    for (BBLK* candidate : candidates) {
        if (!do_the_same(candidate, bb)) continue;
        block.representative = candidate;
        state(candidate).first = bb;
        return;
    }
    if (candidates.size() < MAX_CANDIDATES) candidates.push_back(bb);
}

bool CROSS_JUMPER::merge_classes() {
    bool merged = false;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        BBLK* first = state(state(bb).representative).first;
        if (first == bb) continue;
        dprintf("\n\tBB %d is redundant with BB %d\n", bb->dfn, first->dfn);
        NODE* branch = mk_BRANCH(first, nullptr);
        LIST* cell = mkelist(branch, nullptr, bb->statements->psn);
        erase_tree_list(bb->statements);
        bb->statements = cell;
        merged = true;
    }
    return merged;
}

bool CROSS_JUMPER::run() {
    // Calls that look the same may stand in regions of different handlers.
    if (!currfuninfo->eht.empty()) return false;
    states_.resize(currfuninfo->blocks.size());
    BBLK* const first = currfuninfo->bb_list;
    for (BBLK* bb = first->prev;; bb = bb->prev) {
        classify(bb);
        if (bb == first) break;
    }
    return merge_classes();
}

// --- Settled tests.

// What the test `known`, whose outcome is `truth`, says of another: 1, 0, or -1 for nothing.
int pred_implies_pred(NODE* known, bool truth, NODE* asked) {
    std::map<int, int> outcomes{{0, truth ? 1 : 0}};
    NODE* answer = simp_redundant_test(copy_tree(asked, false), outcomes, {known}, nullptr);
    const int outcome = answer->op != ICON ? -1 : answer->u.lval.is_zero() ? 0 : 1;
    erase_tree(answer);
    return outcome;
}

class REDUNDANT_IFS {
  public:
    bool run();

  private:
    static constexpr int MAX_TEST_NODES = 64;
    static constexpr int MAX_LEVELS = 16;    // of the dominator tree, above one test
    static constexpr int MAX_BLOCKS = 64;    // between a test and the one that settles it
    static constexpr int MAX_CHANGES = 1024; // symbols that these blocks change

    struct SETTLED {
        BBLK* bb;
        BBLK* by;
        NODE* label; // where the test leads
    };

    BBLK* above(const BBLK* bb) const;
    bool may_be_asked(NODE* test) const;
    bool passes_unchanged(BBLK* from, const BBLK* to, const TREE_READS& reads, int& blocks,
                          int& budget) const;
    void look_at(BBLK* bb);

    const BLOCK_EFFECTS effects_;
    std::vector<int> idom_; // of the graph at the start
    std::vector<BBLK*> dfn_to_bb_;
    std::vector<const NODE*> transfers_; // by DFN
    std::vector<SETTLED> settled_;
};

BBLK* REDUNDANT_IFS::above(const BBLK* bb) const {
    const int dfn = idom_[static_cast<std::size_t>(bb->dfn)];
    return dfn > 0 ? dfn_to_bb_[static_cast<std::size_t>(dfn)] : nullptr;
}

bool REDUNDANT_IFS::may_be_asked(NODE* test) const {
    int size = 0;
    return !any_node(test, [&size](const NODE* node) {
        return ++size > MAX_TEST_NODES || side_effects[node->op] != SE_NONE || node_is_volatile_access(node);
    });
}

// Looks at all blocks on the ways from `to`, which dominates `from`, to `from`, without these two.
bool REDUNDANT_IFS::passes_unchanged(BBLK* from, const BBLK* to, const TREE_READS& reads, int& blocks,
                                     int& budget) const {
    BLOCK_SET seen;
    std::vector<const BBLK*> pending{from};
    while (!pending.empty()) {
        const BBLK* bb = pending.back();
        pending.pop_back();
        for (const EDGE* edge = bb->predecessors; edge != nullptr; edge = edge->next) {
            if (edge->bb == to || !seen.insert(edge->bb)) continue;
            if (--blocks < 0 || bb_modifies_lvalue_in_tree(effects_.of(edge->bb), reads, budget))
                return false;
            pending.push_back(edge->bb);
        }
    }
    return true;
}

void REDUNDANT_IFS::look_at(BBLK* bb) {
    const NODE* fork = transfers_[static_cast<std::size_t>(bb->dfn)];
    if (fork->op != IF || fork->left->op == ICON || !may_be_asked(fork->left)) return;
    const TREE_READS reads = effects_.reads_of(fork->left);
    int blocks = MAX_BLOCKS;
    int budget = MAX_CHANGES;
    BBLK* below = bb;
    for (int level = 0; level < MAX_LEVELS; level++) {
        BBLK* dominator = above(below);
        if (dominator == nullptr || bb_modifies_lvalue_in_tree(effects_.of(below), reads, budget)) return;
        const NODE* known = transfers_[static_cast<std::size_t>(dominator->dfn)];
        const EDGE* entry = below->predecessors;
        if (known->op == IF && entry->bb == dominator && entry->next == nullptr && !below->is_kept &&
            known->right->left->label->bb != known->right->right->label->bb && may_be_asked(known->left)) {
            const bool truth = known->right->left->label->bb == below;
            const int outcome = pred_implies_pred(known->left, truth, fork->left);
            if (outcome >= 0) {
                settled_.push_back({bb, dominator, outcome == 1 ? fork->right->left : fork->right->right});
                return;
            }
        }
        if (!passes_unchanged(below, dominator, reads, blocks, budget)) return;
        below = dominator;
    }
}

bool REDUNDANT_IFS::run() {
    if (effects_.has_hidden_edges()) return false;
    Dominator& dominators = compute_dominators(true);
    idom_ = dominators.idom;
    dfn_to_bb_ = dominators.dfn_to_bblk;
    transfers_.resize(dfn_to_bb_.size());
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        transfers_[static_cast<std::size_t>(bb->dfn)] = last_statement(bb);
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) look_at(bb);
    for (const SETTLED& settled : settled_) {
        LIST* last = last_cell(settled.bb);
        dprintf("\n\tIF in bb %d is redundant with bb %d:\n\t\t%s\n", settled.bb->dfn, settled.by->dfn,
                tree_to_text(last->first->left).c_str());
        BBLK* bb = last != settled.bb->statements ? split_block(settled.bb, last, false) : settled.bb;
        settle_transfer(last_cell(bb), settled.label);
    }
    return !settled_.empty();
}

} // namespace

bool cross_jump() {
    if (opt_level() == 0 || currfuninfo->bb_list == nullptr) return false;
    dprintf("\n\n\t\t\t---------- ENTERING 'cross_jump' ----------\n");
    return CROSS_JUMPER().run();
}

bool remove_redundant_ifs() { return opt_level() > 0 && REDUNDANT_IFS().run(); }

void do_early_cross_jumping() {
    const auto renew = [] {
        rebuildcfg();
        renumber_bblocks();
    };
    if (cross_jump()) renew();
    if (remove_redundant_ifs()) renew();
}
