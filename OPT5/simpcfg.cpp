// Cleaning the flow graph.
//
// Sweeps over the reachable blocks, until one changes nothing. A sweep goes in postorder, so that a block's
// successors are clean before the block itself: a nest of tests that have become pointless, or a chain of
// blocks, falls in one sweep. On each block these rules apply, as long as one of them does:
//
//   threading     a reference to a block with nothing but a BRANCH goes to where that leads
//   settling      an IF or SWITCH with one outcome becomes a BRANCH
//   conversion    an IF around small assignments becomes an expression (if_convert.cpp), where permitted
//   merging       the target of a BRANCH that nothing else refers to joins the block
//   duplication   a short target that ends with a choice or a return is copied in the place of the BRANCH
//
// During a sweep edge lists are not looked at: reference counts say all that the rules need, and they cost
// nothing for a block with thousands of predecessors. A block whose last reference goes is dead at once, with
// what only it refers to; cycles that nothing enters fall at the start of the next sweep.

#include "simpcfg.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "bblk.h"
#include "bbutils.h"
#include "buildcfg.h"
#include "copy.h"
#include "debug.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "fold.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "pool.h"
#include "seq_trees.h"
#include "simpcfg_rules.h"
#include "types.h"
#include "xint.h"

using namespace op;

BBLK* target_of(const NODE* branch) { return branch->left->label->bb; }

int reference_count(const BBLK* bb) { return bb->label != nullptr ? bb->label->refs : 0; }

LIST* replace_transfer(LIST* last, NODE* statement, NODE* transfer) {
    LIST* effects = nullptr;
    if (statement != nullptr)
        effects = promote_toplevel_COMMAOPs_in_list(mkelist(statement, nullptr, last->psn));
    if (effects == nullptr) {
        last->first = transfer;
        return last;
    }
    last->first = effects->first;
    last->next = effects->next;
    POOL::recycle(effects, sizeof(LIST));
    while (last->next != nullptr) last = last->next;
    last->next = mkelist(transfer, nullptr, last->psn);
    return last->next;
}

LIST* settle_transfer(LIST* last, NODE* label) {
    NODE* transfer = last->first;
    NODE* reference = copy_node(label, false);
    reference->freq = UNKNOWN_FREQ;
    NODE* effects = peel_for_effect(transfer->left);
    erase_tree(transfer->right);
    erase_node(transfer);
    return replace_transfer(last, effects, maketree(BRANCH, reference, nullptr, tp->void_type(), nullptr));
}

bool ok_to_dupe_stmt(NODE* statement) {
    if (is_comment(statement)) return true;
    return !any_node(statement, [](NODE* node) {
        switch (node->op) {
            // What marks one place: a loop's start and what is promised of it, a block of the source, a label
            // that assembly text may define.
            case PPRAGMA:
            case ASM:
            case op::LOOP:
            case ENDLOOP:
            case INITLOOP:
            case BGNBLOCK:
            case ENDBLOCK:
            // What the argument prolog is made of, and what is counted by its place.
            case PCOMMA:
            case CALL:
            case UCALL:
            case MCALL:
            case UMCALL:
            case SWITCH: return true;
            default: return false;
        }
    });
}

NODE* label_for_value(const NODE* transfer, const INT65& value) {
    const INT65 mask = type_mask(transfer->left->type);
    NODE* found = nullptr;
    NODE* otherwise = nullptr;
    for (NODE* list = transfer->right; list != nullptr;) {
        NODE* element = list->op == COMMA ? list->right : list;
        if (element->op == DEFAULT) {
            otherwise = element->left;
        } else if ((element->left->u.lval & mask) == (value & mask)) {
            found = element->right;
        }
        list = list->op == COMMA ? list->left : nullptr;
    }
    return found != nullptr ? found : otherwise;
}

int duplication_budget() {
    switch (size_speed_goal()) {
        case 3: return 16;
        case 4: return 32;
        case 5: return 64;
        default: return 0;
    }
}

namespace {

// A chain of jumps is followed so far in one go.
constexpr int MAX_HOPS = 16;

// More sweeps than any program needs; an end in any case.
constexpr int MAX_SWEEPS = 64;

// The constant that decides the transfer, null where there is none.
const NODE* deciding_constant(const NODE* transfer) {
    const NODE* condition = transfer->left;
    while (condition->op == COMMAOP) condition = condition->right;
    return condition->op == ICON ? condition : nullptr;
}

// The one LABEL node that can be taken, null where more than one block is possible.
NODE* only_outcome(NODE* transfer) {
    if (const NODE* constant = deciding_constant(transfer)) {
        if (transfer->op == SWITCH) return label_for_value(transfer, constant->u.lval);
        return constant->u.lval.is_zero() ? transfer->right->right : transfer->right->left;
    }
    NODE* only = nullptr;
    bool differ = false;
    const auto compare = [&](NODE* label) {
        if (only == nullptr) only = label;
        differ = differ || label->label->bb != only->label->bb;
    };
    if (transfer->op == IF) {
        compare(transfer->right->left);
        compare(transfer->right->right);
    } else {
        for_each_labelref(transfer, compare);
    }
    return differ ? nullptr : only;
}

void mark_kept_blocks() {
    for (const EHT_ENTRY& entry : currfuninfo->eht)
        walk_tree(static_cast<NODE*>(entry.tree), [](const NODE* node) {
            if (node->op == LABEL && node->label != nullptr && node->label->bb != nullptr)
                node->label->bb->is_kept = true;
        });
}

class CFG_CLEANER {
  public:
    explicit CFG_CLEANER(bool quest_is_ok);
    void run();

  private:
    // Of a block, by its permanent number.
    struct STATE {
        LIST* last = nullptr;         // the cell of the transfer
        std::uint32_t order = 0;      // in the postorder, from 1
        std::int32_t branch_refs = 0; // references by a BRANCH
        bool is_head = false;         // a loop's first block, as far as known
        bool joins_arms = false;      // the end of an IF that can become an expression
        bool is_gone = false;
        BBLK* merged_into = nullptr; // of a block that is gone
    };
    STATE& state(const BBLK* bb) { return states_[bb->id]; }

    bool sweep();
    void find_order();
    void drop_unreachable();
    void count_references();
    void find_heads_and_joins();
    void unlink_gone();
    void mend_loops();

    void reference(NODE* label, bool by_branch);
    void unreference(BBLK* target, bool by_branch);
    void unreference_all(NODE* transfer);
    void bury(BBLK* bb);

    void clean(BBLK* bb);
    bool thread(BBLK* bb);
    bool settle(BBLK* bb);
    bool convert(BBLK* bb);
    bool merge(BBLK* bb);
    bool duplicate(BBLK* bb);
    bool is_worth_duplicating(BBLK* target);
    BBLK* end_of_chain(BBLK* start);

    const bool quest_is_ok_;
    const bool may_duplicate_;
    const int budget_; // nodes that the copies of one block may add
    BBLK* const first_;
    BBLK* const exit_;
    BBLK* in_work_ = nullptr;
    bool changed_ = false;
    std::vector<STATE> states_;
    std::vector<BBLK*> postorder_;
};

CFG_CLEANER::CFG_CLEANER(bool quest_is_ok)
    : quest_is_ok_(quest_is_ok),
      may_duplicate_(opt_level() > 0 && size_speed_goal() >= 3 && pass_disable("tail_duplication") == 0),
      budget_(duplication_budget()), first_(currfuninfo->bb_list), exit_(first_->prev),
      states_(currfuninfo->blocks.size()) {}

// --- What a sweep knows at its start.

// On right edges.
void CFG_CLEANER::find_order() {
    postorder_.clear();
    append_post_order(first_, &BBLK::successors, postorder_);
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        if (bb->is_kept) append_post_order(bb, &BBLK::successors, postorder_);
    // An endless function reaches no exit, and keeps it.
    append_post_order(exit_, &BBLK::successors, postorder_);
    for (std::size_t i = 0; i < postorder_.size(); i++) {
        BBLK* bb = postorder_[i];
        state(bb) = STATE();
        state(bb).last = last_cell(bb);
        state(bb).order = static_cast<std::uint32_t>(i + 1);
    }
}

void CFG_CLEANER::drop_unreachable() {
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        if (bb->visited == 0) state(bb).is_gone = true;
    unlink_gone();
}

void CFG_CLEANER::count_references() {
    for (LBL* label = currfuninfo->labels; label != nullptr; label = label->next) label->refs = 0;
    for (BBLK* bb : postorder_) {
        NODE* transfer = state(bb).last->first;
        for_each_labelref(transfer, [&](NODE* label) { reference(label, transfer->op == BRANCH); });
    }
}

void CFG_CLEANER::find_heads_and_joins() {
    for (BBLK* bb : postorder_) {
        const LIST* last = state(bb).last;
        for_each_labelref(last->first, [&](const NODE* label) {
            STATE& target = state(label->label->bb);
            if (target.order >= state(bb).order) target.is_head = true;
        });
        if (may_duplicate_ && last->first->op == IF && if_is_convertible(bb, last)) {
            const NODE* arms = last->first->right;
            for (const NODE* arm : {arms->left, arms->right}) {
                const NODE* jump = state(arm->label->bb).last->first;
                if (jump->op == BRANCH) state(target_of(jump)).joins_arms = true;
            }
        }
    }
}

// --- References.

void CFG_CLEANER::reference(NODE* label, bool by_branch) {
    BBLK* target = label->label->bb;
    label->label = label_of(target);
    label->label->refs++;
    if (by_branch) state(target).branch_refs++;
}

void CFG_CLEANER::unreference(BBLK* target, bool by_branch) {
    target->label->refs--;
    if (by_branch) state(target).branch_refs--;
    if (target->label->refs == 0) bury(target);
}

void CFG_CLEANER::unreference_all(NODE* transfer) {
    std::vector<BBLK*> targets;
    for_each_labelref(transfer, [&](const NODE* label) { targets.push_back(label->label->bb); });
    for (BBLK* target : targets) unreference(target, transfer->op == BRANCH);
}

// Nothing refers to the block any more: it is gone, and so is what only it refers to.
void CFG_CLEANER::bury(BBLK* bb) {
    std::vector<BBLK*> dead{bb};
    while (!dead.empty()) {
        bb = dead.back();
        dead.pop_back();
        // A block in work that is part of a cycle without an entry waits for the next sweep.
        if (bb == first_ || bb == exit_ || bb == in_work_ || bb->is_kept || state(bb).is_gone) continue;
        state(bb).is_gone = true;
        NODE* transfer = state(bb).last->first;
        for_each_labelref(transfer, [&](const NODE* label) {
            BBLK* target = label->label->bb;
            if (transfer->op == BRANCH) state(target).branch_refs--;
            if (--target->label->refs == 0) dead.push_back(target);
        });
    }
}

// --- The rules.

// The block at which a jump to `start` ends up.
BBLK* CFG_CLEANER::end_of_chain(BBLK* start) {
    BBLK* seen[MAX_HOPS];
    int hops = 0;
    for (BBLK* bb = start;;) {
        // A chain that comes back to itself is left at the block where it does.
        if (std::find(seen, seen + hops, bb) != seen + hops) return bb;
        const LIST* only = bb->statements;
        if (hops == MAX_HOPS || only->first->op != BRANCH || bb->is_kept) return bb;
        seen[hops++] = bb;
        BBLK* next = target_of(only->first);
        if (state(bb).is_head) state(next).is_head = true;
        bb = next;
    }
}

bool CFG_CLEANER::thread(BBLK* bb) {
    NODE* transfer = state(bb).last->first;
    bool threaded = false;
    for_each_labelref(transfer, [&](NODE* label) {
        BBLK* before = label->label->bb;
        BBLK* target = end_of_chain(before);
        if (target == before) return;
        label->label = label_of(target);
        reference(label, transfer->op == BRANCH);
        unreference(before, transfer->op == BRANCH);
        threaded = true;
    });
    return threaded;
}

bool CFG_CLEANER::settle(BBLK* bb) {
    STATE& block = state(bb);
    NODE* transfer = block.last->first;
    if ((transfer->op != IF && transfer->op != SWITCH) || is_EH_switch(transfer)) return false;
    NODE* label = only_outcome(transfer);
    if (label == nullptr) return false;
    reference(label, true);
    unreference_all(transfer);
    block.last = settle_transfer(block.last, label);
    return true;
}

bool CFG_CLEANER::convert(BBLK* bb) {
    STATE& block = state(bb);
    const NODE* transfer = block.last->first;
    if (!quest_is_ok_ || transfer->op != IF) return false;
    BBLK* arms[] = {transfer->right->left->label->bb, transfer->right->right->label->bb};
    LIST* last = convert_if(bb, block.last);
    if (last == nullptr) return false;
    block.last = last;
    reference(last->first->left, true);
    for (BBLK* arm : arms) unreference(arm, false);
    return true;
}

// The target's statements take the place of the BRANCH.
bool CFG_CLEANER::merge(BBLK* bb) {
    STATE& block = state(bb);
    NODE* branch = block.last->first;
    BBLK* target = target_of(branch);
    if (target == bb || target == exit_ || target->is_kept || reference_count(target) != 1 ||
        target->loop != bb->loop)
        return false;
    erase_tree(branch);
    target->label->refs = 0;
    LIST* moved = target->statements;
    LIST* end = state(target).last;
    *block.last = *moved;
    if (end != moved) block.last = end;
    POOL::recycle(moved, sizeof(LIST));
    target->statements = nullptr;
    if (bb->first_psn == nullptr) bb->first_psn = target->first_psn;
    if (target->last_psn != nullptr) bb->last_psn = target->last_psn;
    state(target).is_gone = true;
    state(target).merged_into = bb;
    return true;
}

bool CFG_CLEANER::is_worth_duplicating(BBLK* target) {
    STATE& block = state(target);
    const NODE* transfer = block.last->first;
    if (transfer->op != RETURN && transfer->op != IF) return false;
    if (block.joins_arms) return false;
    // A loop keeps its only entry if the copies leave nothing of its first block.
    const std::int32_t references = reference_count(target);
    if (block.is_head && block.branch_refs != references) return false;
    // Copies of a return come for the BRANCH that they replace.
    const int size_limit =
        transfer->op == RETURN ? std::max(budget_ / 4, budget_ / references) : budget_ / references;
    int size = 0;
    for (const LIST* cell = target->statements; cell != nullptr; cell = cell->next) {
        const auto exceeds = [&](const NODE* node) {
            return node->op != COLON && node->op != LABEL && ++size > size_limit;
        };
        if (any_node(cell->first, exceeds) || !ok_to_dupe_stmt(cell->first)) return false;
    }
    return true;
}

bool CFG_CLEANER::duplicate(BBLK* bb) {
    STATE& block = state(bb);
    NODE* branch = block.last->first;
    BBLK* target = target_of(branch);
    if (target == bb || target == exit_ || target->loop != bb->loop || !is_worth_duplicating(target))
        return false;
    LIST* copy = copy_statements(target->statements, false);
    *block.last = *copy;
    POOL::recycle(copy, sizeof(LIST));
    while (block.last->next != nullptr) block.last = block.last->next;
    for_each_labelref(block.last->first, [&](NODE* label) {
        reference(label, false);
        if (state(target).is_head) state(label->label->bb).is_head = true;
    });
    erase_tree(branch);
    unreference(target, true);
    return true;
}

void CFG_CLEANER::clean(BBLK* bb) {
    in_work_ = bb;
    int copies = 0;
    constexpr int MAX_COPIES = 4; // an end where copies settle and jump on
    for (;;) {
        const NODE* transfer = state(bb).last->first;
        if (transfer->op == RETURN || transfer->op == URETURN) break;
        bool changed = thread(bb) || settle(bb) || convert(bb);
        if (!changed && transfer->op == BRANCH) {
            changed = merge(bb);
            if (!changed && may_duplicate_ && copies++ < MAX_COPIES) changed = duplicate(bb);
        }
        if (!changed) break;
        changed_ = true;
    }
    in_work_ = nullptr;
}

// --- Sweeps.

void CFG_CLEANER::mend_loops() {
    if (first_->loop == nullptr) return;
    const auto mended = [this](BBLK* bb) {
        while (bb != nullptr && state(bb).is_gone) bb = state(bb).merged_into;
        return bb;
    };
    std::vector<::LOOP*> pending{first_->loop};
    while (!pending.empty()) {
        ::LOOP* loop = pending.back();
        pending.pop_back();
        if (loop->sibling != nullptr) pending.push_back(loop->sibling);
        if (loop->child != nullptr) pending.push_back(loop->child);
        loop->head = mended(loop->head);
        loop->tail = mended(loop->tail);
        loop->preheader = mended(loop->preheader);
        for (EDGE** place = &loop->contents; *place != nullptr;) {
            EDGE* edge = *place;
            if (state(edge->bb).is_gone) {
                *place = edge->next;
                erase_edge(edge);
            } else {
                place = &edge->next;
            }
        }
    }
}

void CFG_CLEANER::unlink_gone() {
    mend_loops();
    BBLK* next = nullptr;
    for (BBLK* bb = first_; bb != nullptr; bb = next) {
        next = bb->next;
        if (!state(bb).is_gone) continue;
        delink_old_bb(bb);
        if (bb->label != nullptr) bb->label->bb = nullptr;
        erase_bblock(bb);
        delete bb;
    }
}

bool CFG_CLEANER::sweep() {
    changed_ = false;
    rebuildcfg();
    find_order();
    drop_unreachable();
    count_references();
    find_heads_and_joins();
    for (BBLK* bb : postorder_)
        if (!state(bb).is_gone) clean(bb);
    unlink_gone();
    return changed_;
}

void CFG_CLEANER::run() {
    mark_kept_blocks();
    for (int i = 0; i < MAX_SWEEPS && sweep(); i++) {
    }
    rebuildcfg();
    find_order();
    drop_unreachable();
}

} // namespace

void simpcfg(bool quest_is_ok, bool cross_jump_ok) {
    OPTASSERT(quest_is_ok || currfuninfo->bb_list->loop == NULL);
    dprintf("\n\n\t\t\t---------- ENTERING 'simpcfg' ----------\n");
    renumber_bblocks();
    if (cross_jump_ok && currfuninfo->profile_state != 1) do_early_cross_jumping();
    CFG_CLEANER(quest_is_ok).run();
    rebuildcfg();
    renumber_bblocks();
}
