#include "dominator.h"

#include <algorithm>
#include <memory>

#include "bblk.h"
#include "fileopt.h"
#include "files.h"

Dominator::Dominator() {
    dprintf(" ==== Entering Dominator constructor ====\n");
    builder();
    dprintf(" ==== Exiting Dominator constructor ====\n");
}

void Dominator::rebuild() {
    dprintf(" ==== Entering Dominator rebuild ====\n");
    builder();
    dprintf(" ==== Exiting Dominator rebuild ====\n");
}

void Dominator::repair() {
    if (stale || block_count != currfuninfo->bb_count) rebuild();
}

Dominator& compute_dominators(bool anew) {
    std::shared_ptr<Dominator>& dominators = currfuninfo->dominators;
    if (dominators == nullptr) {
        dominators = std::make_shared<Dominator>();
    } else if (anew || currfuninfo->flow_is_stale || dominators->stale ||
               dominators->block_count != currfuninfo->bb_count) {
        dominators->rebuild();
    }
    return *dominators;
}

// --- Building.

void Dominator::descend(BBLK* root, std::vector<BBLK*>& finished) {
    append_post_order(root, &BBLK::successors, finished);
}

void Dominator::ascend(BBLK* root, std::vector<BBLK*>& finished) {
    append_post_order(root, &BBLK::predecessors, finished);
}

void Dominator::df_traverse(const std::vector<BBLK*>& entries, std::vector<int>& order) {
    by_order_.clear();
    for (BBLK* entry : entries) descend(entry, by_order_);
    std::reverse(by_order_.begin(), by_order_.end());
    int number = 0;
    for (const BBLK* bb : by_order_) order[bb->dfn] = ++number;
}

void Dominator::rdf_traverse(const std::vector<BBLK*>& exits, std::vector<int>& order) {
    by_order_.clear();
    for (BBLK* exit : exits) ascend(exit, by_order_);
    std::reverse(by_order_.begin(), by_order_.end());
    int number = block_count;
    for (const BBLK* bb : by_order_) order[bb->dfn] = number--;
}

// One step up the tree. What has been passed on the way to a meeting lies below it, so that the same way is
// not gone again for the next predecessor: a block with many stays cheap.
int Dominator::pass(int dfn, const std::vector<int>& above) {
    passed_[dfn] = meetings_;
    return above[dfn];
}

// Where the ways up from `a`, the result for the predecessors so far, and from `b` meet.
int Dominator::intersect(int a, int b, const std::vector<int>& order) {
    while (order[a] != order[b]) {
        while (order[b] > order[a]) {
            if (is_passed(b)) return a;
            b = pass(b, idom);
        }
        while (order[a] > order[b]) a = pass(a, idom);
    }
    return a;
}

int Dominator::post_intersect(int a, int b, const std::vector<int>& order) {
    while (order[a] != order[b]) {
        while (order[b] < order[a]) {
            if (is_passed(b)) return a;
            b = pass(b, ipostdom);
        }
        while (order[a] < order[b]) a = pass(a, ipostdom);
    }
    return a;
}

void Dominator::find_dominators(const std::vector<int>& order) {
    for (bool changed = true; changed;) {
        changed = false;
        for (const BBLK* bb : by_order_) {
            int meet = DOM_UNDEFINED;
            meetings_++;
            for (const EDGE* edge = bb->predecessors; edge != nullptr; edge = edge->next) {
                const int dfn = edge->bb->dfn;
                if (idom[dfn] == DOM_UNDEFINED) continue;
                meet = meet == DOM_UNDEFINED ? dfn : intersect(meet, dfn, order);
            }
            if (meet == DOM_UNDEFINED || idom[bb->dfn] == meet) continue;
            idom[bb->dfn] = meet;
            changed = true;
        }
    }
}

void Dominator::find_post_dominators(const std::vector<int>& order) {
    for (bool changed = true; changed;) {
        changed = false;
        for (const BBLK* bb : by_order_) {
            // From an exit, a latch that serves as one included, one way leads straight to the end.
            if (ipostdom[bb->dfn] == virtual_exit()) continue;
            int meet = DOM_UNDEFINED;
            meetings_++;
            for (const EDGE* edge = bb->successors; edge != nullptr; edge = edge->next) {
                const int dfn = edge->bb->dfn;
                if (ipostdom[dfn] == DOM_UNDEFINED) continue;
                meet = meet == DOM_UNDEFINED ? dfn : post_intersect(meet, dfn, order);
            }
            if (meet == DOM_UNDEFINED || ipostdom[bb->dfn] == meet) continue;
            ipostdom[bb->dfn] = meet;
            changed = true;
        }
    }
}

// In a function that never ends, blocks that do nothing but go back count as exits.
void Dominator::find_latches(std::vector<BBLK*>& exits) {
    for (BBLK* bb : by_order_) {
        const EDGE* edge = bb->successors;
        if (edge == nullptr || edge->next != nullptr || edge->bb->dfn > bb->dfn) continue;
        ipostdom[bb->dfn] = virtual_exit();
        exits.push_back(bb);
    }
}

void Dominator::generate_tree_walk(const std::vector<BBLK*>& roots,
                                   const std::vector<std::vector<BBLK*>>& children,
                                   std::vector<BBLK*>& walk) {
    std::vector<BBLK*> pending(roots.rbegin(), roots.rend());
    while (!pending.empty()) {
        BBLK* bb = pending.back();
        pending.pop_back();
        walk.push_back(bb);
        const std::vector<BBLK*>& below = children[bb->dfn];
        pending.insert(pending.end(), below.rbegin(), below.rend());
    }
}

void Dominator::builder() {
    stale = false;
    currfuninfo->flow_is_stale = false;
    renumber_bblocks();
    block_count = currfuninfo->bb_count;
    const std::size_t size = static_cast<std::size_t>(block_count) + 1;
    idom.assign(size, DOM_UNDEFINED);
    ipostdom.assign(size, DOM_UNDEFINED);
    dom_walk.clear();
    postdom_walk.clear();
    dom_children.assign(size, {});
    postdom_children.assign(size, {});
    dfn_to_bblk.assign(size, nullptr);
    passed_.assign(size, 0);
    meetings_ = 0;

    std::vector<int> order(size + 1, 0);
    order[virtual_exit()] = virtual_exit();
    std::vector<BBLK*> entries, exits;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        bb->visited = 0;
        dfn_to_bblk[bb->dfn] = bb;
        if (bb->predecessors == nullptr) {
            idom[bb->dfn] = 0;
            entries.push_back(bb);
        }
        if (bb->successors == nullptr) {
            ipostdom[bb->dfn] = virtual_exit();
            exits.push_back(bb);
        }
    }

    df_traverse(entries, order);
    find_dominators(order);
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        if (idom[bb->dfn] == DOM_UNDEFINED) {
            dprintf("**** >>>> WARNING: BB%d doesn't have a dominator\n", bb->dfn);
        } else {
            dom_children[idom[bb->dfn]].push_back(bb);
        }
    }
    generate_tree_walk(dom_children[0], dom_children, dom_walk);

    // The exit block stays in the list of a function that never reaches it; such a one has no exit.
    clear_visited();
    std::vector<BBLK*> reached;
    if (currfuninfo->bb_list != nullptr) descend(currfuninfo->bb_list, reached);
    if (std::none_of(exits.begin(), exits.end(), [](const BBLK* bb) { return bb->visited != 0; }))
        find_latches(exits);

    clear_visited();
    order.assign(order.size(), 0);
    order[virtual_exit()] = virtual_exit();
    rdf_traverse(exits, order);
    find_post_dominators(order);
    std::vector<BBLK*> last;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        const int above = ipostdom[bb->dfn];
        if (above == DOM_UNDEFINED) {
            dprintf("**** >>>> WARNING: BB%d doesn't have a postdominator\n", bb->dfn);
        } else {
            (above == virtual_exit() ? last : postdom_children[above]).push_back(bb);
        }
    }
    generate_tree_walk(last, postdom_children, postdom_walk);
    clear_visited();
}

// --- Queries.

BBLK* Dominator::immediate_dominator(int dfn) {
    repair();
    return has_block(dfn) ? block_at(idom[dfn]) : nullptr;
}

BBLK* Dominator::immediate_dominator(const BBLK* bb) {
    repair();
    return immediate_dominator(bb->dfn);
}

BBLK* Dominator::immediate_post_dominator(int dfn) {
    repair();
    return has_block(dfn) ? block_at(ipostdom[dfn]) : nullptr;
}

BBLK* Dominator::immediate_post_dominator(const BBLK* bb) {
    repair();
    return immediate_post_dominator(bb->dfn);
}

bool Dominator::dominates(int a, int b) {
    repair();
    if (a == b) return true;
    while (has_block(b) && b != a) b = idom[b];
    return has_block(b);
}

bool Dominator::post_dominates(int a, int b) {
    repair();
    if (a == b) return true;
    while (has_block(b) && b != a) b = ipostdom[b];
    return has_block(b);
}

BBLK* Dominator::DFSblock(int dfn) {
    repair();
    if (!has_block(dfn))
        dprintf(" Error attempting to find BB with dfn=%d (currfuninfo->bb_count=%d)\n", dfn,
                currfuninfo->bb_count);
    return block_at(dfn);
}

const std::vector<BBLK*>& Dominator::dominator_children(int dfn) {
    repair();
    return dom_children.at(static_cast<std::size_t>(dfn));
}

const std::vector<BBLK*>& Dominator::dominator_children(const BBLK* bb) {
    repair();
    return dominator_children(bb->dfn);
}

const std::vector<BBLK*>& Dominator::post_dominator_children(int dfn) {
    repair();
    return postdom_children.at(static_cast<std::size_t>(dfn));
}

const std::vector<BBLK*>& Dominator::post_dominator_children(const BBLK* bb) {
    repair();
    return post_dominator_children(bb->dfn);
}

const std::vector<BBLK*>& Dominator::depth_first_doms() {
    repair();
    return dom_walk;
}

const std::vector<BBLK*>& Dominator::depth_first_postdoms() {
    repair();
    return postdom_walk;
}

void Dominator::print_IDOM() {
    repair();
    dprintf(" IDOM tree          : ");
    for (int dfn = 1; dfn <= block_count; dfn++) dprintf("%d<-[%d] ", idom[dfn], dfn);
    dprintf("\n");
}

void Dominator::print_POSTDOM() {
    repair();
    dprintf(" IPOSTDOM tree      : ");
    for (int dfn = 1; dfn <= block_count; dfn++) dprintf("[%d]->%d ", dfn, ipostdom[dfn]);
    dprintf("\n");
}
