// Building a run of blocks at one place of the current function's list, statement by statement.

#ifndef OPT5_BLOCK_BUILDER_H
#define OPT5_BLOCK_BUILDER_H

#include "node.h"

class BBLK;
struct PSN;

// Appends statements to an open block. Edges are left to rebuildcfg, numbers to renumber_bblocks; the links
// of the list are kept right all the time.
class BLOCK_BUILDER {
  public:
    // Takes the statements off the block, which becomes the open one, and returns them.
    LIST* open(BBLK* bb);
    // A block with a label that is on no list yet.
    static BBLK* make_block();
    // Places the block behind the open one and opens it.
    void start(BBLK* bb);
    // Places the blocks from `first` to `last` behind the open one; the last one counts as open then, but
    // must not be appended to.
    void place(BBLK* first, BBLK* last);

    void append(LIST* cell); // takes the cell over
    void append(NODE* statement);
    void branch(BBLK* target);
    void branch_if(NODE* condition, BBLK* if_true, BBLK* if_false);

    // Of the statements that are made from here on; null for none.
    void set_position(const PSN* psn) { psn_ = psn; }
    const PSN* position() const { return psn_; }
    BBLK* current() const { return bb_; }

  private:
    BBLK* bb_ = nullptr;
    LIST** place_ = nullptr; // where the next cell goes
    const PSN* psn_ = nullptr;
};

#endif
