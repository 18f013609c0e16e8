#include "bblk.h"

#include <algorithm>
#include <cstring>
#include <unordered_map>
#include <vector>

#include "bbutils.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "pool.h"

using namespace op;

std::uint64_t BLOCK_SET::last_stamp_ = 0;

BBLK::BBLK(FUNINFO* function) : serial_object(function) {}

BBLK::~BBLK() = default;

void* BBLK::operator new(std::size_t size, FUNINFO* function) { return function->pool.allocate(size); }

// --- Edges.

namespace {

void mark_flow_stale() {
    if (currfuninfo != nullptr) currfuninfo->flow_is_stale = true;
}

bool by_dfn(const EDGE* a, const EDGE* b) { return a->bb->dfn < b->bb->dfn; }

} // namespace

EDGE* mkedge(BBLK* bb, EDGE* next) {
    auto* edge = static_cast<EDGE*>(current_pool().allocate_cell(sizeof(EDGE)));
    edge->bb = bb;
    edge->freq = UNKNOWN_FREQ;
    edge->next = next;
    mark_flow_stale();
    return edge;
}

EDGE* add_edge(BBLK* bb, EDGE* list, double freq) {
    mark_flow_stale();
    if (edge_memberp(bb, list)) return list;
    list = mkedge(bb, list);
    list->freq = freq;
    return list;
}

EDGE* remove_edge(BBLK* bb, EDGE* list) {
    mark_flow_stale();
    for (EDGE** place = &list; *place != nullptr; place = &(*place)->next) {
        EDGE* edge = *place;
        if (edge->bb != bb) continue;
        *place = edge->next;
        erase_edge(edge);
        break;
    }
    return list;
}

bool edge_memberp(const BBLK* bb, const EDGE* list) {
    while (list != nullptr && list->bb != bb) list = list->next;
    return list != nullptr;
}

int edge_length(const EDGE* list) {
    int length = 0;
    for (; list != nullptr; list = list->next) length++;
    return length;
}

EDGE* rev_edge_list(EDGE* list) {
    EDGE* reversed = nullptr;
    while (list != nullptr) {
        EDGE* next = list->next;
        list->next = reversed;
        reversed = list;
        list = next;
    }
    return reversed;
}

EDGE* sort_edge_list(EDGE* list) {
    EDGE* sorted = nullptr;
    while (list != nullptr) {
        EDGE* next = list->next;
        EDGE** place = &sorted;
        while (*place != nullptr && !by_dfn(list, *place)) place = &(*place)->next;
        list->next = *place;
        *place = list;
        list = next;
    }
    return sorted;
}

EDGE* fast_sort_edge_list(EDGE* list) {
    std::vector<EDGE*> edges;
    for (EDGE* edge = list; edge != nullptr; edge = edge->next) edges.push_back(edge);
    std::stable_sort(edges.begin(), edges.end(), by_dfn);
    EDGE* sorted = nullptr;
    for (auto edge = edges.rbegin(); edge != edges.rend(); ++edge) {
        (*edge)->next = sorted;
        sorted = *edge;
    }
    return sorted;
}

EDGE* copy_edge_list(const EDGE* list) {
    EDGE* head = nullptr;
    for (EDGE** place = &head; list != nullptr; list = list->next, place = &(*place)->next) {
        *place = mkedge(list->bb, nullptr);
        (*place)->freq = list->freq;
    }
    return head;
}

void erase_edge(EDGE* edge) { POOL::recycle(edge, sizeof(EDGE)); }

EDGE* erase_edge_list(EDGE* list) {
    while (list != nullptr) {
        EDGE* next = list->next;
        erase_edge(list);
        list = next;
    }
    return nullptr;
}

void for_each_labelref(NODE* transfer, const std::function<void(NODE*)>& visit) {
    if (transfer == nullptr) return;
    NODE* labels = nullptr;
    switch (transfer->op) {
        case BRANCH: labels = transfer->left; break;
        case IF:
        case SWITCH: labels = transfer->right; break;
        default: return;
    }
    walk_tree(labels, [&visit](NODE* node) {
        if (node->op == LABEL) visit(node);
    });
}

EDGE* list_branch_targets(NODE* tree, EDGE* list) {
    BLOCK_SET listed;
    for (EDGE* edge = list; edge != nullptr; edge = edge->next) listed.insert(edge->bb);
    EDGE* head = nullptr;
    EDGE** place = &head;
    for_each_labelref(tree, [&](NODE* node) {
        BBLK* target = node->label->bb;
        if (!listed.insert(target)) return;
        *place = mkedge(target, nullptr);
        place = &(*place)->next;
    });
    *place = list;
    return head;
}

namespace {

// The successors that the block's transfer asks for.
EDGE* targets_of(NODE* transfer) {
    if (transfer != nullptr && transfer->op == RETURN) return mkedge(currfuninfo->bb_list->prev, nullptr);
    return list_branch_targets(transfer, nullptr);
}

} // namespace

void fixup_edge_lists(BBLK* bb, NODE* tree) {
    EDGE* targets = targets_of(tree);
    BLOCK_SET kept;
    for (EDGE* edge = targets; edge != nullptr; edge = edge->next) kept.insert(edge->bb);
    std::unordered_map<const BBLK*, double> before; // the edges that stay, with their frequencies
    for (EDGE* edge = bb->successors; edge != nullptr; edge = edge->next) {
        if (kept.contains(edge->bb)) {
            before.emplace(edge->bb, edge->freq);
        } else {
            edge->bb->predecessors = remove_edge(bb, edge->bb->predecessors);
        }
    }
    for (EDGE* edge = targets; edge != nullptr; edge = edge->next) {
        auto old = before.find(edge->bb);
        if (old != before.end()) {
            edge->freq = old->second;
        } else {
            edge->bb->predecessors = mkedge(bb, edge->bb->predecessors);
        }
    }
    erase_edge_list(bb->successors);
    bb->successors = targets;
}

// --- Blocks.

BBLK* mkbblock(LIST* statements, BBLK* place, FUNINFO* function) {
    BBLK* bb = new (function) BBLK(function);
    bb->next = bb->layout_next = place;
    bb->statements = statements;
    for (LIST* cell = statements; cell != nullptr; cell = cell->next) {
        if (cell->psn == nullptr) continue;
        if (bb->first_psn == nullptr) bb->first_psn = cell->psn;
        bb->last_psn = cell->psn;
    }
    function->flow_is_stale = true;
    return bb;
}

BBLK* insert_new_bb(int dfn, BBLK* after, LIST* statements) {
    BBLK* bb = mkbblock(statements, after->next, currfuninfo);
    bb->layout_next = after->layout_next;
    bb->prev = after;
    (after->next != nullptr ? after->next : currfuninfo->bb_list)->prev = bb;
    after->next = after->layout_next = bb;
    bb->dfn = dfn;
    bb->dfn_mark = -1;
    label_of(bb);
    currfuninfo->bb_count++;
    currfuninfo->dfn_is_valid = false;
    return bb;
}

void delink_old_bb(BBLK* bb) {
    BBLK* head = currfuninfo->bb_list;
    BBLK* last = head->prev;
    if (bb == head) {
        currfuninfo->bb_list = bb->next;
        if (bb->next != nullptr) bb->next->prev = last;
    } else {
        bb->prev->next = bb->prev->layout_next = bb->next;
        (bb->next != nullptr ? bb->next : head)->prev = bb->prev;
    }
    bb->next = bb->prev = bb->layout_next = nullptr;
    currfuninfo->bb_count--;
    currfuninfo->dfn_is_valid = false;
    mark_flow_stale();
}

bool BB_is_in_bb_list(const BBLK* bb) {
    const BBLK* other = currfuninfo->bb_list;
    while (other != nullptr && other != bb) other = other->next;
    return other != nullptr;
}

void renumber_bblocks() {
    BBLK* previous = nullptr;
    std::int32_t position = 0;
    std::int32_t number = 0;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; previous = bb, bb = bb->next) {
        bb->prev = previous;
        bb->layout_next = bb->next;
        bb->dfn = ++position;
        bb->dfn_mark = 0;
        if (bb->label != nullptr && bb->label->refs > 0) bb->label->number = ++number;
    }
    if (currfuninfo->bb_list != nullptr) currfuninfo->bb_list->prev = previous;
    currfuninfo->bb_count = position;
    currfuninfo->dfn_is_valid = true;
}

void clear_visited() {
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) bb->visited = 0;
}

void append_post_order(BBLK* root, EDGE* BBLK::*edges, std::vector<BBLK*>& finished) {
    struct OPEN {
        BBLK* bb;
        const EDGE* rest;
    };
    std::vector<OPEN> open;
    const auto enter = [&](BBLK* bb) {
        if (bb->visited != 0) return;
        bb->visited = 1;
        open.push_back({bb, bb->*edges});
    };
    enter(root);
    while (!open.empty()) {
        OPEN& top = open.back();
        if (top.rest == nullptr) {
            finished.push_back(top.bb);
            open.pop_back();
            continue;
        }
        BBLK* bb = top.rest->bb;
        top.rest = top.rest->next;
        enter(bb);
    }
}

void remap_labelrefs(NODE* tree, BBLK* old_bb, BBLK* new_bb) {
    LBL* label = label_of(new_bb);
    for_each_labelref(tree, [=](NODE* node) {
        if (node->label->bb != old_bb) return;
        node->label->refs--;
        label->refs++;
        node->label = label;
    });
}

void subst_bb_for_bb_in_stmts(BBLK* new_bb, BBLK* old_bb, LIST* statements) {
    for (; statements != nullptr; statements = statements->next)
        remap_labelrefs(statements->first, old_bb, new_bb);
}

namespace {

// A BRANCH, counted as a reference of its target.
NODE* branch_to(BBLK* target) {
    NODE* branch = mk_BRANCH(target, nullptr);
    target->label->refs++;
    return branch;
}

void replace_in_list(EDGE* list, BBLK* old_bb, BBLK* new_bb) {
    for (; list != nullptr; list = list->next)
        if (list->bb == old_bb) list->bb = new_bb;
}

} // namespace

BBLK* split_cfg_edge(BBLK* from, BBLK* to) {
    LIST* last = last_cell(from);
    OPTASSERT(last != nullptr && last->first->op != RETURN && last->first->op != URETURN);
    EDGE* edge = from->successors;
    while (edge != nullptr && edge->bb != to) edge = edge->next;
    OPTASSERT(edge != nullptr);
    BBLK* bb = insert_new_bb(from->dfn, from, mkelist(branch_to(to), nullptr, last->psn));
    bb->first_psn = bb->last_psn = last->psn;
    remap_labelrefs(last->first, to, bb);
    edge->bb = bb;
    bb->predecessors = mkedge(from, nullptr);
    bb->predecessors->freq = edge->freq;
    bb->successors = mkedge(to, nullptr);
    bb->successors->freq = 1.0;
    replace_in_list(to->predecessors, from, bb);
    return bb;
}

namespace {

bool is_back_edge(const BBLK* from, const BBLK* to) {
    const ::LOOP* loop = from->loop;
    if (loop == nullptr || loop->level == 0) return from->dfn >= to->dfn;
    return to == loop->head && from == loop->tail;
}

void join_inner_loop(BBLK* bb, BBLK* from, BBLK* to) {
    ::LOOP* loop = from->loop;
    if (to->loop != nullptr && (loop == nullptr || to->loop->level > loop->level)) loop = to->loop;
    bb->loop = loop;
    if (loop != nullptr) loop->contents = fast_sort_edge_list(mkedge(bb, loop->contents));
}

} // namespace

void split_critical_edges(bool all) {
    for (BBLK* from = currfuninfo->bb_list; from != nullptr; from = from->next) {
        if (from->successors == nullptr || from->successors->next == nullptr) continue;
        for (EDGE* edge = from->successors; edge != nullptr; edge = edge->next) {
            BBLK* to = edge->bb;
            if (to->predecessors == nullptr || to->predecessors->next == nullptr) continue;
            if (!all && is_back_edge(from, to)) continue;
            dprintf("Splitting critical edge between BB%d and BB%d\n", from->dfn, to->dfn);
            BBLK* bb = split_cfg_edge(from, to);
            join_inner_loop(bb, from, to);
        }
    }
}

BBLK* split_block(BBLK* bb, LIST* at, bool always) {
    if (bb->is_exit() || (bb->statements == at && !always && bb != currfuninfo->bb_list)) return bb;
    LIST** place = &bb->statements;
    while (*place != nullptr && *place != at) place = &(*place)->next;
    *place = nullptr;
    BBLK* half = insert_new_bb(bb->dfn, bb, at);
    half->loop = bb->loop;
    half->last_psn = bb->last_psn;
    half->successors = bb->successors;
    for (EDGE* edge = half->successors; edge != nullptr; edge = edge->next)
        replace_in_list(edge->bb->predecessors, bb, half);
    bb->successors = mkedge(half, nullptr);
    bb->successors->freq = bb->dFreqIn;
    half->predecessors = mkedge(bb, nullptr);
    half->predecessors->freq = bb->dFreqIn;
    NODE* branch = branch_to(half);
    branch->left->freq = 1.0;
    *place = mkelist(branch, nullptr, at != nullptr ? at->psn : nullptr);
    return half;
}

void insert_stmt_before_stmt_in_bb(NODE* statement, NODE* before, BBLK* bb, const PSN* psn) {
    LIST** place = &bb->statements;
    while (*place != nullptr && (*place)->first != before) {
        if (before == nullptr && opcode_is_transfer((*place)->first->op)) break;
        place = &(*place)->next;
    }
    *place = mkelist(statement, *place, psn);
}

void erase_bblock(BBLK* bb) {
    bb->statements = erase_tree_list(bb->statements);
    bb->predecessors = erase_edge_list(bb->predecessors);
    bb->successors = erase_edge_list(bb->successors);
    bb->first_psn = bb->last_psn = nullptr;
    bb->loop = nullptr;
    bb->label = nullptr;
}

::LOOP* make_LOOP() { return static_cast<::LOOP*>(current_pool().allocate(sizeof(::LOOP))); }

bool loop_is_innermost(const ::LOOP* loop) { return loop->child == nullptr; }

LIST* last_cell(const BBLK* bb) {
    LIST* cell = bb->statements;
    while (cell != nullptr && cell->next != nullptr) cell = cell->next;
    return cell;
}

bool is_never_executed(const BBLK* bb) {
    for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
        const NODE* statement = cell->first;
        if (statement->op == UMCALL && std::strcmp(statement->intrinsic(), NEVER_EXECUTED) == 0) return true;
    }
    return false;
}

bool is_EH_switch(const NODE* statement) {
    return statement->op == SWITCH && statement->left->op == UMCALL &&
           std::strcmp(statement->left->intrinsic(), EH_SWITCH) == 0;
}

NODE* last_statement(const BBLK* bb) {
    const LIST* cell = last_cell(bb);
    return cell != nullptr ? cell->first : nullptr;
}

// --- Labels.

LBL* mklabel(int number, LBL* next, BBLK* bb) {
    auto* label = static_cast<LBL*>(current_pool().allocate(sizeof(LBL)));
    label->number = number;
    label->next = next;
    label->bb = bb;
    return label;
}

LBL* find_label(int number) {
    LBL* label = currfuninfo->labels;
    while (label != nullptr && label->number != number) label = label->next;
    return label;
}

LBL* label_of(BBLK* bb) {
    if (bb->label == nullptr)
        bb->label = currfuninfo->labels = mklabel(next_internal_label(), currfuninfo->labels, bb);
    return bb->label;
}

int next_internal_label() {
    if (currfuninfo->next_label < -30000) currfuninfo->next_label = -1;
    return currfuninfo->next_label--;
}
