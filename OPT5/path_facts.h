// Where a transfer leads when its block is reached over known blocks.
//
// The test is taken back along the path, against the flow: an assignment to a variable of the test puts what
// it assigns in the variable's place, an edge tells what the transfer that it comes from has decided. Ahead
// of the given path it goes on for as long as every block has one predecessor. What is found out this way
// holds for every run that takes the path. What holds on all ways to a block holds there.

#ifndef OPT5_PATH_FACTS_H
#define OPT5_PATH_FACTS_H

#include <utility>
#include <vector>

#include "block_effects.h"

class BBLK;
class NODE;
struct INT65;

// A snapshot: valid until a statement or an edge changes. Near linear to build; a query looks at a bounded
// number of blocks and statements.
class PATH_FACTS {
  public:
    // Edges must be right.
    PATH_FACTS();

    // Whether control moves along the edges only. Otherwise nothing is known of any path.
    bool flow_is_known() const { return !effects_.has_hidden_edges(); }
    // Whether the block ends with a test of which `outcome` can find out anything: one without effects, not
    // volatile, not too large, not constant.
    bool can_ask(const BBLK* bb) const;
    // The LABEL node of the last block's transfer that is taken behind the path, null where that is not
    // known. Each block of the path is a successor of the one before; there is at least one.
    NODE* outcome(const std::vector<BBLK*>& path) const;
    // The same for a block, whatever way leads there.
    NODE* only_outcome(BBLK* bb) const;

  private:
    // The end of a block: its last statements, the last one first.
    struct TAIL {
        std::vector<NODE*> statements;
        bool is_whole = true;
    };
    class QUESTION;

    const TAIL& tail(const BBLK* bb) const { return tails_[index(bb)]; }
    NODE* only_element(const BBLK* from, const BBLK* to) const;
    static std::size_t index(const BBLK* bb);
    static NODE* label_of_answer(NODE* transfer, const INT65& answer);
    void list_cases(const BBLK* bb, NODE* transfer);

    const BLOCK_EFFECTS effects_;
    std::vector<TAIL> tails_; // by block id
    // By the id of a block: the SWITCH blocks that lead to it, each with the only CASE or DEFAULT that does;
    // null where several do.
    std::vector<std::vector<std::pair<const BBLK*, NODE*>>> cases_;
};

#endif
