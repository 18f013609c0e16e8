// Statements that a walk over the function finds to be needed ahead of others, and that are put there once it
// is over.

#ifndef OPT5_INSERTIONS_H
#define OPT5_INSERTIONS_H

#include <algorithm>
#include <unordered_map>
#include <vector>

#include "bblk.h"
#include "node.h"
#include "simp.h"

class INSERTIONS {
  public:
    // Notes the statement, which becomes this object's, for the place ahead of the cell. Of those ahead of
    // one cell the one with the smaller number comes first.
    void add(const LIST* cell, int order, NODE* statement) { waiting_[cell].push_back({order, statement}); }

    // Puts what waits for a cell of the block into its place, simplified. Linear in the block, apart from the
    // sorting.
    void put_into(BBLK* bb) {
        for (LIST** place = &bb->statements; *place != nullptr; place = &(*place)->next) {
            LIST* cell = *place;
            const auto found = waiting_.find(cell);
            if (found == waiting_.end()) continue;
            std::vector<INSERTION>& ahead = found->second;
            std::sort(ahead.begin(), ahead.end(),
                      [](const INSERTION& a, const INSERTION& b) { return a.order < b.order; });
            for (const INSERTION& insertion : ahead) {
                *place = mkelist(simp_tree(insertion.statement, bb->loop), cell, cell->psn);
                place = &(*place)->next;
            }
        }
    }

  private:
    struct INSERTION {
        int order;
        NODE* statement;
    };
    std::unordered_map<const LIST*, std::vector<INSERTION>> waiting_; // by cell; never walked
};

#endif
