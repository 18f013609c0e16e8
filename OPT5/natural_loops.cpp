#include "natural_loops.h"

#include <algorithm>
#include <utility>

#include "bblk.h"
#include "dominator.h"
#include "fileopt.h"
#include "files.h"

unsigned NATURAL_LOOPS::number(const BBLK* bb) { return bb->uon(); }

int NATURAL_LOOPS::depth(const BBLK* bb) const {
    const int loop = innermost(bb);
    return loop == NO_LOOP ? 0 : loops_[loop].depth;
}

bool NATURAL_LOOPS::contains(int loop, const BBLK* bb) const {
    return loop == NO_LOOP || (innermost(bb) >= loop && innermost(bb) < loops_[loop].end);
}

int NATURAL_LOOPS::common(const BBLK* a, const BBLK* b) const {
    int loop = innermost(a);
    while (!contains(loop, b))
        loop = contains(loops_[loop].jump, b) ? loops_[loop].parent : loops_[loop].jump;
    return loop;
}

bool NATURAL_LOOPS::is_header(const BBLK* bb) const {
    const int loop = innermost(bb);
    return loop != NO_LOOP && loops_[loop].header == bb;
}

bool NATURAL_LOOPS::is_back_edge(const BBLK* from, const BBLK* to) const {
    return is_header(to) && contains(innermost(to), from);
}

bool NATURAL_LOOPS::is_exit(const BBLK* from, const BBLK* to) const { return !contains(innermost(from), to); }

// A block dominates those whose numbers lie in its range.
void NATURAL_LOOPS::number_dominator_tree(Dominator& dominators) {
    const std::vector<BBLK*>& walk = dominators.depth_first_doms();
    int count = 0;
    for (const BBLK* bb : walk) {
        first_[number(bb)] = ++count;
        last_[number(bb)] = count;
    }
    for (auto bb = walk.rbegin(); bb != walk.rend(); ++bb)
        if (const BBLK* above = dominators.immediate_dominator(*bb))
            last_[number(above)] = std::max(last_[number(above)], last_[number(*bb)]);
}

bool NATURAL_LOOPS::dominates(const BBLK* a, const BBLK* b) const {
    const int place = first_[number(b)];
    return place != 0 && first_[number(a)] != 0 && first_[number(a)] <= place && place <= last_[number(a)];
}

namespace {

// The outermost loop found so far around each block, with shortened ways.
int outermost(int loop, std::vector<int>& around) {
    int top = loop;
    while (around[top] != top) top = around[top];
    while (around[loop] != top) {
        const int above = around[loop];
        around[loop] = top;
        loop = above;
    }
    return top;
}

} // namespace

NATURAL_LOOPS::NATURAL_LOOPS()
    : innermost_(currfuninfo->blocks.size(), NO_LOOP), first_(currfuninfo->blocks.size(), 0),
      last_(currfuninfo->blocks.size(), 0) {
    Dominator& dominators = compute_dominators(false);
    number_dominator_tree(dominators);
    // Headers from the bottom of the dominator tree to its top: inner loops come first. A loop that has been
    // found counts as one block from then on, so every edge is looked at once.
    const std::vector<BBLK*>& walk = dominators.depth_first_doms();
    std::vector<int> around; // by loop
    std::vector<BBLK*> pending;
    for (auto place = walk.rbegin(); place != walk.rend(); ++place) {
        BBLK* header = *place;
        pending.clear();
        for (const EDGE* edge = header->predecessors; edge != nullptr; edge = edge->next)
            if (dominates(header, edge->bb)) pending.push_back(edge->bb);
        if (pending.empty()) continue;
        const int loop = static_cast<int>(loops_.size());
        loops_.push_back({header, NO_LOOP, 0, NO_LOOP, 0, pending, {}});
        around.push_back(loop);
        innermost_[number(header)] = loop;
        while (!pending.empty()) {
            BBLK* bb = pending.back();
            pending.pop_back();
            int& inside = innermost_[number(bb)];
            const EDGE* edges = bb->predecessors;
            if (inside == NO_LOOP) {
                inside = loop;
            } else {
                const int inner = outermost(inside, around);
                if (inner == loop) continue;
                around[inner] = loop;
                loops_[inner].parent = loop;
                edges = loops_[inner].header->predecessors;
            }
            for (; edges != nullptr; edges = edges->next)
                if (dominates(header, edges->bb)) pending.push_back(edges->bb);
        }
    }
    order_loops();
}

// Numbers the loops so that those inside a loop stand right behind it, and tells each block its loop's
// number.
void NATURAL_LOOPS::order_loops() {
    // Found from the inside out: backwards, a loop comes ahead of those inside it.
    const int count = static_cast<int>(loops_.size());
    std::vector<int> size(loops_.size(), 1); // loops in the nest
    for (int i = 0; i < count; i++)
        if (loops_[i].parent != NO_LOOP) size[loops_[i].parent] += size[i];
    std::vector<int> place(loops_.size()), next(loops_.size());
    std::vector<NATURAL_LOOP> ordered(loops_.size());
    const auto depth_of = [&](int loop) { return loop == NO_LOOP ? 0 : ordered[loop].depth; };
    const auto jump_of = [&](int loop) { return loop == NO_LOOP ? NO_LOOP : ordered[loop].jump; };
    int next_outermost = 0;
    for (int i = count - 1; i >= 0; i--) {
        NATURAL_LOOP& loop = loops_[i];
        int& cursor = loop.parent == NO_LOOP ? next_outermost : next[loop.parent];
        place[i] = cursor;
        cursor += size[i];
        next[i] = place[i] + 1;
        loop.end = place[i] + size[i];
        if (loop.parent != NO_LOOP) loop.parent = place[loop.parent];
        loop.depth = depth_of(loop.parent) + 1;
        // Jumps grow as those of a list of skew-binary numbers do.
        const int jump = jump_of(loop.parent);
        const bool joins = depth_of(loop.parent) - depth_of(jump) == depth_of(jump) - depth_of(jump_of(jump));
        loop.jump = joins ? jump_of(jump) : loop.parent;
        std::sort(loop.latches.begin(), loop.latches.end(),
                  [](const BBLK* a, const BBLK* b) { return a->dfn < b->dfn; });
        ordered[place[i]] = std::move(loop);
    }
    loops_ = std::move(ordered);
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        int& loop = innermost_[number(bb)];
        if (loop == NO_LOOP) continue;
        loop = place[loop];
        loops_[loop].contents.push_back(bb);
    }
}
