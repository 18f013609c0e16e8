// Building the flow graph of the current function.
//
// The statement list is held last statement first, so one walk over it builds the block list from its end:
//
//     pending     statements of the block under construction, in order
//     following   the block built last: the one that control runs into
//
//   1. The exit block, a URETURN, stands alone.
//   2. A transfer ends a block: what is pending behind it becomes a block without a label (unreachable,
//   unless
//      it is what a SWITCH without a DEFAULT runs into), and the transfer starts the new pending list.
//   3. A LABELDEF makes what is pending a block that carries the label. With nothing pending, the label is
//   one
//      more name of the following block.
//   4. A statement ahead of a label, with nothing pending, runs into the following block: it gets a BRANCH.
//      So does the end of a body.
//   5. A SWITCH without a DEFAULT gets one for the following block.
//   6. Edges are derived from the last statement of each block. A first block that has predecessors gets an
//      empty block ahead of it.
//   7. The blocks get counters, or the counts of a profile (instrument.h, profile.h).
//   8. Calls of the function by itself as its last act become jumps (tail_recursion.cpp).
//
// A LABEL node refers to its target through an LBL, and an LBL knows its block, so labels need no table. As
// edges are derived, each LABEL node is turned to the one LBL that its block keeps.

#include "buildcfg.h"

#include <algorithm>
#include <vector>

#include "bblk.h"
#include "bbutils.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "instrument.h"
#include "ls.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "profile.h"
#include "symbol.h"
#include "tail_recursion.h"
#include "types.h"

using namespace op;

namespace {

NODE* mk_URETURN() {
    NODE* function = mk_NAME(currfunc, LS::level_2_scope(currfuninfo));
    return maketree(URETURN, function, nullptr, tp->void_type(), nullptr);
}

class CFG_BUILDER {
  public:
    void build();

  private:
    void close_block(LBL* label);
    void take_label(LBL* label);
    void take_statement(LIST* cell);
    void complete_switch(NODE* statement);

    LIST* pending_ = nullptr;
    BBLK* following_ = nullptr;
};

// What is pending becomes the block ahead of `following_`.
void CFG_BUILDER::close_block(LBL* label) {
    BBLK* bb = mkbblock(pending_, following_, currfuninfo);
    bb->label = label;
    if (label != nullptr) label->bb = bb;
    following_->prev = bb;
    following_ = bb;
    pending_ = nullptr;
}

void CFG_BUILDER::take_label(LBL* label) {
    if (pending_ != nullptr) {
        close_block(label);
    } else {
        label->bb = following_;
        if (following_->label == nullptr) following_->label = label;
    }
}

// Appends DEFAULT(LABEL of the following block) to a case list without one.
void CFG_BUILDER::complete_switch(NODE* statement) {
    NODE* list = statement->right;
    const NODE* last = list != nullptr && list->op == COMMA ? list->right : list;
    if (last != nullptr && last->op == DEFAULT) return;
    TYPE* type = tp->void_type();
    NODE* otherwise = maketree(DEFAULT, mk_LABELREF_to_bb(following_, nullptr), nullptr, type, nullptr);
    statement->right = list != nullptr ? maketree(COMMA, list, otherwise, type, nullptr) : otherwise;
}

void CFG_BUILDER::take_statement(LIST* cell) {
    if (opcode_is_transfer(cell->first->op)) {
        if (pending_ != nullptr) close_block(nullptr);
        if (cell->first->op == SWITCH) complete_switch(cell->first);
        cell->next = nullptr;
    } else {
        if (pending_ == nullptr) pending_ = mkelist(mk_BRANCH(following_, nullptr), nullptr, cell->psn);
        cell->next = pending_;
    }
    pending_ = cell;
}

void CFG_BUILDER::build() {
    following_ = mkbblock(mkelist(mk_URETURN(), nullptr, currfuninfo->end_psn), nullptr, currfuninfo);
    BBLK* exit = following_;
    currfuninfo->labels = exit->label = mklabel(next_internal_label(), currfuninfo->labels, exit);
    LIST* next = nullptr;
    for (LIST* cell = currfuninfo->statements; cell != nullptr; cell = next) {
        next = cell->next;
        if (cell->first->op == LABELDEF) {
            take_label(cell->first->label);
        } else {
            take_statement(cell);
        }
    }
    currfuninfo->statements = nullptr;
    if (pending_ == nullptr && following_ == exit)
        pending_ = mkelist(mk_BRANCH(exit, nullptr), nullptr, currfuninfo->end_psn);
    if (pending_ != nullptr) close_block(nullptr);
    currfuninfo->bb_list = following_;
    following_->prev = exit;
}

// The exit block alone holds a URETURN.
void replace_early_ureturn(BBLK* bb, BBLK* exit) {
    LIST* last = last_cell(bb);
    if (bb == exit || last->first->op != URETURN) return;
    NODE* ureturn = last->first;
    last->first = mk_BRANCH(exit, ureturn->ls);
    erase_tree(ureturn);
}

void derive_successors(BBLK* bb, BBLK* exit) {
    replace_early_ureturn(bb, exit);
    NODE* transfer = last_statement(bb);
    if (transfer->op == RETURN) {
        bb->successors = mkedge(exit, nullptr);
        return;
    }
    for_each_labelref(transfer, [](NODE* reference) {
        reference->label = label_of(reference->label->bb);
        reference->label->refs++;
    });
    bb->successors = list_branch_targets(transfer, nullptr);
}

// Steps from the statements to edges; the lists must be empty. Predecessors come out in layout order.
void derive_edges() {
    BBLK* exit = currfuninfo->bb_list->prev;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        if (bb->label != nullptr) bb->label->refs = 0;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) derive_successors(bb, exit);
    for (BBLK* bb = exit;; bb = bb->prev) {
        for (EDGE* edge = bb->successors; edge != nullptr; edge = edge->next)
            edge->bb->predecessors = mkedge(bb, edge->bb->predecessors);
        if (bb == currfuninfo->bb_list) break;
    }
}

// A loop to the function's start must not reach the block that receives the parameters.
void make_entry_block() {
    BBLK* first = currfuninfo->bb_list;
    if (first->predecessors == nullptr) return;
    BBLK* exit = first->prev;
    const PSN* psn = first->statements->psn;
    BBLK* entry = mkbblock(mkelist(mk_BRANCH(first, nullptr), nullptr, psn), first, currfuninfo);
    first->label->refs++;
    entry->prev = exit;
    first->prev = entry;
    currfuninfo->bb_list = entry;
    entry->successors = mkedge(first, nullptr);
    first->predecessors = mkedge(entry, first->predecessors);
}

// Blocks were made from the last to the first; their permanent numbers are to follow the layout.
void number_in_layout_order() {
    std::vector<BBLK*>& blocks = currfuninfo->blocks;
    std::reverse(blocks.begin(), blocks.end());
    for (std::size_t i = 0; i < blocks.size(); i++) blocks[i]->id = static_cast<std::uint32_t>(i);
}

} // namespace

void buildcfg() {
    CFG_BUILDER().build();
    derive_edges();
    make_entry_block();
    number_in_layout_order();
    renumber_bblocks();
    // The graph is still the same at every level.
    if (GO_FOR_INSTRUMENTATION) {
        instrument_function();
    } else {
        apply_profile();
    }
    remove_tail_recursion();
}

void rebuildcfg() {
    std::int32_t count = 0;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        bb->successors = erase_edge_list(bb->successors);
        bb->predecessors = erase_edge_list(bb->predecessors);
        bb->visited = 0;
        count++;
    }
    currfuninfo->bb_count = count;
    derive_edges();
}
