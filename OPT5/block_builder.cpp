#include "block_builder.h"

#include "bblk.h"
#include "fileopt.h"
#include "files.h"

LIST* BLOCK_BUILDER::open(BBLK* bb) {
    LIST* statements = bb->statements;
    bb->statements = nullptr;
    bb->first_psn = bb->last_psn = nullptr;
    bb->visited = 1;
    bb_ = bb;
    place_ = &bb->statements;
    return statements;
}

BBLK* BLOCK_BUILDER::make_block() {
    BBLK* bb = mkbblock(nullptr, nullptr, currfuninfo);
    label_of(bb);
    return bb;
}

void BLOCK_BUILDER::start(BBLK* bb) {
    place(bb, bb);
    open(bb);
}

void BLOCK_BUILDER::place(BBLK* first, BBLK* last) {
    BBLK* next = bb_->next;
    bb_->next = bb_->layout_next = first;
    first->prev = bb_;
    last->next = last->layout_next = next;
    (next != nullptr ? next : currfuninfo->bb_list)->prev = last;
    bb_ = last;
}

void BLOCK_BUILDER::append(LIST* cell) {
    cell->next = nullptr;
    *place_ = cell;
    place_ = &cell->next;
    if (cell->psn == nullptr) return;
    if (bb_->first_psn == nullptr) bb_->first_psn = cell->psn;
    bb_->last_psn = cell->psn;
}

void BLOCK_BUILDER::append(NODE* statement) { append(mkelist(statement, nullptr, psn_)); }

void BLOCK_BUILDER::branch(BBLK* target) { append(mk_BRANCH(target, nullptr)); }

void BLOCK_BUILDER::branch_if(NODE* condition, BBLK* if_true, BBLK* if_false) {
    append(mk_IF(condition, mk_LABELREF_to_bb(if_true, nullptr), mk_LABELREF_to_bb(if_false, nullptr)));
}
