// The walk over extended basic blocks: trees of blocks along which every block but the first has one
// predecessor.

#ifndef OPT5_EXTENDED_BLOCKS_H
#define OPT5_EXTENDED_BLOCKS_H

#include <utility>
#include <vector>

#include "bblk.h"
#include "fileopt.h"
#include "files.h"

// Whether control comes to the block from the end of one other block only.
inline bool continues_its_predecessor(const BBLK* bb) {
    return bb->predecessors != nullptr && bb->predecessors->next == nullptr && !bb->is_kept;
}

// Calls `enter` for each block that can be reached from the head of an extended block, ahead of the blocks
// that continue it, and `leave` behind them with what `enter` has returned. Edges must be right and stay so.
// Linear.
template <class ENTER, class LEAVE> void walk_extended_blocks(ENTER enter, LEAVE leave) {
    struct OPEN {
        const EDGE* rest;
        decltype(enter(std::declval<BBLK*>())) mark;
    };
    std::vector<OPEN> open;
    const auto open_block = [&](BBLK* bb) { open.push_back({bb->successors, enter(bb)}); };
    for (BBLK* root = currfuninfo->bb_list; root != nullptr; root = root->next) {
        if (continues_its_predecessor(root)) continue;
        open_block(root);
        while (!open.empty()) {
            OPEN& top = open.back();
            if (top.rest == nullptr) {
                leave(top.mark);
                open.pop_back();
                continue;
            }
            BBLK* bb = top.rest->bb;
            top.rest = top.rest->next;
            if (continues_its_predecessor(bb)) open_block(bb);
        }
    }
}

#endif
