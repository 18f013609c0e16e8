// Basic blocks, edges, labels and loops: the flow graph's records and their primitives.

#ifndef OPT5_BBLK_H
#define OPT5_BBLK_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "serial_object.h"

class BBLK;
class BITVEC;
class LS;
class NODE;
struct FUNINFO;
struct LIST;
struct PSN;

constexpr double UNKNOWN_FREQ = -1.0;

// The intrinsic that marks a block to which control never comes.
constexpr char NEVER_EXECUTED[] = "_never_executed";

// The intrinsic that yields 0, and a second time the value of the catch, when an exception has been caught in
// the function. It stands as the selector of a SWITCH.
constexpr char EH_SWITCH[] = "__eh_switch";

// The comment with which such a block is written.
constexpr char NEVER_REACHED[] = "***\t; this point in the function is never reached";

// A list cell, not a graph object.
struct EDGE {
    BBLK* bb;    // the block at the other end
    double freq; // UNKNOWN_FREQ when unknown
    EDGE* next;
};

struct LBL {
    LBL* next;           // of the function's list of labels
    BBLK* bb;            // the block; null until the flow graph stands
    std::int32_t number; // labels made by the optimizer are negative until renumber_bblocks
    std::int32_t refs;   // references, counted when edges are derived
};

// The loop record of the loop hierarchy. Passes add the working fields that they need.
struct LOOP {
    BBLK* head;
    BBLK* tail;
    BBLK* preheader;
    EDGE* contents; // blocks of the body
    std::int32_t number;
    std::int16_t level; // nesting; the root has 0
    LOOP* parent;
    LOOP* sibling;
    LOOP* child;
};

class BBLK final : public serial_object<BBLK, FUNINFO> {
  public:
    BBLK* next = nullptr;        // layout order
    BBLK* prev = nullptr;        // the first block's is the last block
    BBLK* layout_next = nullptr; // second forward link, kept in step by insert_new_bb
    LIST* statements = nullptr;
    EDGE* predecessors = nullptr;
    EDGE* successors = nullptr;
    LBL* label = nullptr; // made on demand
    LOOP* loop = nullptr; // innermost loop; in the first block the root of the hierarchy
    PSN* first_psn = nullptr;
    PSN* last_psn = nullptr;
    std::int32_t dfn = 0;      // position in the block list, from 1
    std::int32_t dfn_mark = 0; // -1 in a block that insert_new_bb has placed
    std::uint8_t visited = 0;
    bool is_kept = false;  // entered also without an edge: not to be removed, merged or threaded
    void* trace = nullptr; // superblock trace
    double dFreqIn = UNKNOWN_FREQ;
    std::int32_t count = -1;
    std::uint64_t stamp = 0; // mark of the set that was built last, see BLOCK_SET

    explicit BBLK(FUNINFO* function);
    ~BBLK() override;
    // Blocks come from the pool of their function.
    static void* operator new(std::size_t size, FUNINFO* function);
    static void operator delete(void*, std::size_t) {}
    static void operator delete(void*, FUNINFO*) {}
    unsigned uon() const { return id; } // permanent number, as debug texts call it
    bool is_exit() const { return next == nullptr; }
};

// A set of blocks with constant time insertion, kept in the blocks themselves: making a new set empties the
// one before, so only one may be in use at a time.
class BLOCK_SET {
  public:
    BLOCK_SET() : stamp_(++last_stamp_) {}
    bool contains(const BBLK* bb) const { return bb->stamp == stamp_; }
    // False if the block was in the set already.
    bool insert(BBLK* bb) {
        if (bb->stamp == stamp_) return false;
        bb->stamp = stamp_;
        return true;
    }

  private:
    static std::uint64_t last_stamp_;
    std::uint64_t stamp_;
};

// --- Edges. Cells come from the current pool. Every change marks the flow information stale.

EDGE* mkedge(BBLK* bb, EDGE* next);                // freq unknown
EDGE* add_edge(BBLK* bb, EDGE* list, double freq); // the list unchanged if the block is already on it
EDGE* remove_edge(BBLK* bb, EDGE* list);           // the list unchanged if it is not
bool edge_memberp(const BBLK* bb, const EDGE* list);
int edge_length(const EDGE* list);
EDGE* rev_edge_list(EDGE* list);
EDGE* sort_edge_list(EDGE* list);      // by dfn, insertion sort
EDGE* fast_sort_edge_list(EDGE* list); // by dfn, for long lists
EDGE* copy_edge_list(const EDGE* list);
void erase_edge(EDGE* edge);
EDGE* erase_edge_list(EDGE* list); // returns null
// Makes the block's successor list, and the predecessor lists of old and new successors, agree with the
// branch targets of `tree`, its last statement.
void fixup_edge_lists(BBLK* bb, NODE* tree);
// The blocks that the LABEL references of a transfer name, in tree order, put in front of `list` without
// repeats. Linear.
EDGE* list_branch_targets(NODE* tree, EDGE* list);
// Calls `visit` for each LABEL node of a BRANCH, IF or SWITCH, in tree order; other trees have none.
void for_each_labelref(NODE* transfer, const std::function<void(NODE*)>& visit);

// --- Blocks.

BBLK* mkbblock(LIST* statements, BBLK* place, FUNINFO* function);
BBLK* insert_new_bb(int dfn, BBLK* after, LIST* statements);
void delink_old_bb(BBLK* bb); // out of the block list; edges and statements stay
bool BB_is_in_bb_list(const BBLK* bb);
void renumber_bblocks(); // DFNs, bb_count, label numbers
void clear_visited();
// Appends the blocks not visited yet that can be reached from `root` along `edges`, each behind what it
// reaches, and marks them visited.
void append_post_order(BBLK* root, EDGE* BBLK::*edges, std::vector<BBLK*>& finished);
// Places a new block, which branches to `to`, behind `from` and on the edge between the two, and returns it.
// The edge must come from a label reference.
BBLK* split_cfg_edge(BBLK* from, BBLK* to);
// Splits the edges from a block with several successors to one with several predecessors; unless `all`, the
// back edges of loops stay.
void split_critical_edges(bool all);
// Moves the statements from `at` on into a new block behind `bb`, to which `bb` then branches; returns the
// new block. At the first statement of a block other than the list's head nothing happens unless `always`,
// and at the exit block never: `bb` is returned. Edges stay right; DFNs are stale.
BBLK* split_block(BBLK* bb, LIST* at, bool always);
// In the statements, references to `old_bb` become references to `new_bb`. Edges are the caller's.
void subst_bb_for_bb_in_stmts(BBLK* new_bb, BBLK* old_bb, LIST* statements);
void remap_labelrefs(NODE* tree, BBLK* old_bb, BBLK* new_bb);
// `before` null: behind the other statements that are no transfer. Linear in the block.
void insert_stmt_before_stmt_in_bb(NODE* statement, NODE* before, BBLK* bb, const PSN* psn);
void erase_bblock(BBLK* bb); // leaves a cleared shell; deleting it is the caller's
LOOP* make_LOOP();
bool loop_is_innermost(const LOOP* loop);

// The last statement of the block, null when it has none. Linear in the block.
NODE* last_statement(const BBLK* bb);
LIST* last_cell(const BBLK* bb);
// Whether the block holds the intrinsic "_never_executed", by which a program says that it does not get
// there. Linear in the block.
bool is_never_executed(const BBLK* bb);

// Whether the statement is where caught exceptions resume the function: a SWITCH that stays one, with its
// cases, at the end of its block, whatever its labels lead to.
bool is_EH_switch(const NODE* statement);

// --- Labels of the current function.

LBL* mklabel(int number, LBL* next, BBLK* bb);
LBL* find_label(int number); // of the current function, null when there is none; linear
LBL* label_of(BBLK* bb);     // the block's label, made with the next internal number if it has none
int next_internal_label();   // counts down from -1, starts again behind -30000

#endif
