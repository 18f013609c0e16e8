// A loop is written with its test at the top and a jump back at its end:
//
//     A      ...                           A      ...; goto B
//     B..C   if (c) goto D; else goto F    D..E   ...
//     D..E   ...; goto B                   B..C   if (c) goto D; else goto F
//     F      ...                           F      ...
//
// On the left each turn takes two transfers, on the right one; entering the loop takes one more.

#include "rotate_loops.h"

#include "bblk.h"
#include "bbutils.h"
#include "block_layout.h"
#include "branch_prediction.h"
#include "debug.h"
#include "dump.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"

using namespace op;

namespace {

// So many blocks at most lead to the test.
constexpr int MAX_CHAIN = 16;

// Whether something in the block depends on the place where it stands: the code generator's marks of a loop,
// labels that assembly text may define.
bool is_bound_to_its_place(const BBLK* bb) {
    for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
        const NODE* statement = cell->first;
        if (statement->op == op::LOOP || statement->op == PPRAGMA || statement->op == BGNBLOCK ||
            statement->op == ENDBLOCK || (statement->op == ASM && !is_comment(statement)))
            return true;
        if (cell->next == nullptr && statement->op == IF && tree_contains_op(statement->left, ENDLOOP))
            return true;
    }
    return false;
}

class ROTATOR {
  public:
    void run();

  private:
    bool find_chain(BBLK* e);
    bool pays(BBLK* e) const;
    void move_chain(BBLK* e) const;

    const BRANCH_PREDICTION prediction_;
    BBLK* b_ = nullptr; // the blocks that lead to the test
    BBLK* c_ = nullptr; // the test
};

// The test of the loop that ends with `e`. A block that has moved bears the number of the block behind which
// it stands now, so that numbers keep telling the order.
bool ROTATOR::find_chain(BBLK* e) {
    b_ = nullptr;
    for (const EDGE* edge = e->successors; edge != nullptr; edge = edge->next)
        if (b_ == nullptr || edge->bb->dfn > b_->dfn) b_ = edge->bb;
    if (b_ == nullptr || b_->dfn >= e->dfn || b_ == currfuninfo->bb_list) return false;
    // Only a jump gains; a test that leads back twice stands at the bottom already.
    if (e->successors->next != nullptr || is_bound_to_its_place(e)) return false;
    c_ = b_;
    for (int i = 0; i < MAX_CHAIN; i++, c_ = c_->next) {
        if (c_ == e || c_->is_kept || is_bound_to_its_place(c_)) return false;
        const EDGE* edges = c_->successors;
        if (edges == nullptr) return false;
        if (edges->next != nullptr) {
            if (last_statement(c_)->op != IF) return false;
            const auto is_inside = [&](const BBLK* bb) { return bb->dfn >= b_->dfn && bb->dfn <= e->dfn; };
            return (edges->bb == c_->next && !is_inside(edges->next->bb)) ||
                   (edges->next->bb == c_->next && !is_inside(edges->bb));
        }
        if (edges->bb != c_->next) return false;
    }
    return false;
}

// Whether more is saved by what follows what then.
bool ROTATOR::pays(BBLK* e) const {
    const auto saving = [this](const BBLK* from, const BBLK* to) {
        return fall_through_saving(prediction_, from, to);
    };
    const BBLK* a = b_->prev;
    const double now = saving(a, b_) + saving(c_, c_->next) + saving(e, e->next);
    return saving(a, c_->next) + saving(e, b_) + saving(c_, e->next) > now;
}

void ROTATOR::move_chain(BBLK* e) const {
    BBLK* a = b_->prev;
    BBLK* d = c_->next;
    BBLK* f = e->next;
    dprintf("Candidate: A=%d, B=%d, C=%d, D=%d, E=%d, F=%d", a->dfn, b_->dfn, c_->dfn, d->dfn, e->dfn,
            f->dfn);
    if (print_debug != 0) prbbinfix(0, 0, 0);
    a->next = d;
    d->prev = a;
    e->next = b_;
    b_->prev = e;
    c_->next = f;
    f->prev = c_;
    for (BBLK* bb = b_; bb != f; bb = bb->next) bb->dfn = e->dfn;
    dprintf("\n\tAfter loop rotation:\n\n");
    if (print_debug != 0) prbbinfix(0, 0, 0);
}

void ROTATOR::run() {
    // The exit block is the end of no loop and has none behind it.
    for (BBLK* e = currfuninfo->bb_list->prev; e != currfuninfo->bb_list;) {
        BBLK* before = e->prev;
        if (find_chain(e) && pays(e)) {
            move_chain(e);
            currfuninfo->flow_is_stale = true; // numbers have changed
            if (before == c_) before = e->prev;
        }
        e = before;
    }
}

} // namespace

void rotate_loops() {
    dprintf("\n\n\t\t\t---------- ENTERING 'rotate_loops' ----------\n");
    renumber_bblocks();
    ROTATOR().run();
    renumber_bblocks();
}
