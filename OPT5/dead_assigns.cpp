// Two methods, each cheap by itself.
//
// Without the flow: an edge leads from every symbol to those that are read for computing it and for nothing
// else; what is read in any other place is needed, and so is all that it is computed from. A counter that
// only counts itself is needed by nobody. Whatever is not needed at the end is assigned in vain.
//
// With the flow: each block is gone through from its end, starting from what is live there. A statement that
// goes takes its reads along before the ones ahead of it are looked at. Reads in other blocks may die with
// it.
//
// Both are repeated while there is something new, a limited number of times.

#include "dead_assigns.h"

#include <algorithm>
#include <vector>

#include "accesses.h"
#include "bblk.h"
#include "bbutils.h"
#include "congruent.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "fold.h"
#include "liveness.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "pool.h"
#include "seq_trees.h"
#include "simp.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

// Rounds over one statement or the whole function, each of which finds what the one before has set free.
constexpr int ROUNDS_PER_STATEMENT = 4;
constexpr int ROUNDS_PER_FUNCTION = 6;

class REMOVER {
  public:
    explicit REMOVER(const PRIVATE_SYMBOLS& symbols) : symbols_(symbols) {}

    // Each looks for assignments in vain in the whole function; whether one has gone.
    bool remove_unneeded();
    bool remove_not_live();

  private:
    int number_of(const ACCESS& access) const { return symbols_.number_of(access.name->symbol()); }
    void mark(const ACCESS& write, const NODE* statement);
    bool remove_marked(LIST* cell, ::LOOP* loop);

    void need(int number);
    void find_needed();
    bool mark_unneeded(NODE* statement);

    void set_live(int number, char live);
    bool go_back_over(NODE* statement, bool marking);
    bool remove_not_live(LIST* cell, ::LOOP* loop);

    const PRIVATE_SYMBOLS& symbols_;
    std::vector<ACCESS> accesses_; // of the statement in work
    std::uint32_t dead_ = 0;       // the stamp of the assignments to be removed from it
    bool found_ = false;           // there is one

    // By number.
    std::vector<char> needed_;
    std::vector<char> live_; // where the way back through a block has got to
    std::vector<int> newly_needed_;
    std::vector<std::pair<int, char>> changes_; // of `live_`, with the state before
};

// --- Removing.

// What gives the value of an assignment that goes; null where it has to stay. `op=` becomes `op`.
NODE* value_of_assignment(NODE* assignment) {
    if (assignment->op == PLUSPLUS || assignment->op == MINMIN) {
        NODE* old = assignment->left;
        erase_tree(assignment->right);
        erase_node(assignment);
        return old;
    }
    if (assignment->op != ASG && assignment->op != STASG) {
        if (opASG_to_ASG(assignment)->op != ASG) return nullptr;
    }
    TYPE* type = assignment->type;
    NODE* value = assignment->right;
    erase_tree(assignment->left);
    erase_node(assignment);
    return coerce_to_type(value, type);
}

// Takes the marked assignments out of the statement, whose `first` is null then if nothing is left.
bool REMOVER::remove_marked(LIST* cell, ::LOOP* loop) {
    NODE* root = cell->first;
    bool changed = false;
    const auto is_marked = [this](const NODE* node) {
        return opcode_is_ASG(node->op) && node->stamp == dead_;
    };
    NODE* statement = rewrite_tree(root, [&](NODE* node) {
        if (node == root || !is_marked(node)) return node;
        NODE* value = value_of_assignment(node);
        if (value == nullptr) return node;
        changed = true;
        return value;
    });
    if (is_marked(statement)) {
        statement = effects_of_assignment(statement);
        changed = true;
    }
    if (changed && statement != nullptr) {
        statement = simp_tree(statement, loop);
        if (!opcode_is_transfer(statement->op)) statement = peel_for_effect(statement);
    }
    cell->first = statement;
    return changed;
}

// Takes out the cells that have lost their statements, and makes statements of the parts of commas.
void tidy(BBLK* bb) {
    for (LIST** place = &bb->statements; *place != nullptr;) {
        LIST* cell = *place;
        if (cell->first != nullptr) {
            place = &cell->next;
            continue;
        }
        *place = cell->next;
        POOL::recycle(cell, sizeof(LIST));
    }
    bb->statements = promote_toplevel_COMMAOPs_in_list(bb->statements);
}

// An assignment to a part of the width of its own cuts its value: where that is used, the store stays.
void REMOVER::mark(const ACCESS& write, const NODE* statement) {
    NODE* assignment = write.assignment;
    if (assignment != statement && is_bit_field(assignment->left)) return;
    assignment->stamp = dead_;
    found_ = true;
}

// --- Symbols that are not needed.

bool is_write(const ACCESS& access) { return access.kind == ACC_WRITE || access.kind == ACC_PART_WRITE; }

void REMOVER::need(int number) {
    if (number < 0 || needed_[static_cast<std::size_t>(number)] != 0) return;
    needed_[static_cast<std::size_t>(number)] = 1;
    newly_needed_.push_back(number);
}

// The private symbol for whose value alone the statement computes; -1 for one that does more.
int only_result(NODE* statement, const PRIVATE_SYMBOLS& symbols) {
    if (!opcode_is_ASG(statement->op) || tree_is_arg_prolog(statement)) return -1;
    const NODE* name = name_of_place(statement->left);
    if (name == nullptr || tree_has_side_effects(statement->right)) return -1;
    return symbols.number_of(name->symbol());
}

void REMOVER::find_needed() {
    const auto count = static_cast<std::size_t>(symbols_.count());
    needed_.assign(count, 0);
    newly_needed_.clear();
    std::vector<std::vector<int>> computed_from(count);
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
            accesses_.clear();
            list_accesses(cell->first, accesses_);
            const int result = only_result(cell->first, symbols_);
            for (const ACCESS& access : accesses_) {
                if (access.kind != ACC_READ) continue;
                if (access.assignment == cell->first) continue; // counts itself
                const int number = number_of(access);
                if (result < 0) {
                    need(number);
                } else if (number >= 0 && number != result) {
                    computed_from[static_cast<std::size_t>(result)].push_back(number);
                }
            }
        }
    }
    while (!newly_needed_.empty()) {
        const int number = newly_needed_.back();
        newly_needed_.pop_back();
        for (int source : computed_from[static_cast<std::size_t>(number)]) need(source);
    }
}

// Marks the assignments of the statement to symbols that nobody needs; whether there are any.
bool REMOVER::mark_unneeded(NODE* statement) {
    dead_ = fresh_stamp();
    found_ = false;
    if (tree_is_arg_prolog(statement)) return false;
    accesses_.clear();
    list_accesses(statement, accesses_);
    for (const ACCESS& access : accesses_) {
        const int number = is_write(access) ? number_of(access) : -1;
        if (number >= 0 && needed_[static_cast<std::size_t>(number)] == 0) mark(access, statement);
    }
    return found_;
}

bool REMOVER::remove_unneeded() {
    find_needed();
    bool changed = false;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        bool block_changed = false;
        for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            if (mark_unneeded(cell->first) && remove_marked(cell, bb->loop)) block_changed = true;
        if (block_changed) tidy(bb);
        changed = changed || block_changed;
    }
    return changed;
}

// --- Values that no way through the function reads.

void REMOVER::set_live(int number, char live) {
    char& state = live_[static_cast<std::size_t>(number)];
    changes_.push_back({number, state});
    state = live;
}

// Takes what is live behind the statement to what is live ahead of it. With `marking`, marks what is stored
// in vain; where there is any, returns true and leaves the liveness as it was.
bool REMOVER::go_back_over(NODE* statement, bool marking) {
    dead_ = fresh_stamp();
    found_ = false;
    const std::size_t start = changes_.size();
    accesses_.clear();
    list_accesses(statement, accesses_);
    for (auto access = accesses_.rbegin(); access != accesses_.rend(); ++access) {
        const int number = number_of(*access);
        if (number < 0) continue;
        if (access->kind == ACC_READ) {
            // A compound statement in vain reads its left side in vain.
            if (access->assignment == statement && statement->stamp == dead_) continue;
            set_live(number, 1);
        } else if (is_write(*access)) {
            if (marking && live_[static_cast<std::size_t>(number)] == 0) mark(*access, statement);
            if (access->kind == ACC_WRITE && !access->conditional) set_live(number, 0);
        }
    }
    if (!found_) return false;
    for (; changes_.size() > start; changes_.pop_back())
        live_[static_cast<std::size_t>(changes_.back().first)] = changes_.back().second;
    return true;
}

// The same for a statement that may lose assignments; whether it has.
bool REMOVER::remove_not_live(LIST* cell, ::LOOP* loop) {
    const bool is_prolog = tree_is_arg_prolog(cell->first);
    bool changed = false;
    for (int round = 0; round < ROUNDS_PER_STATEMENT && !is_prolog; round++) {
        if (!go_back_over(cell->first, true)) return changed;
        if (!remove_marked(cell, loop)) break;
        changed = true;
        if (cell->first == nullptr) return true;
    }
    go_back_over(cell->first, false);
    return changed;
}

bool REMOVER::remove_not_live() {
    const LIVENESS liveness(symbols_);
    live_.assign(static_cast<std::size_t>(symbols_.count()), 0);
    std::vector<LIST*> cells;
    bool changed = false;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        changes_.clear();
        liveness.for_each_live_out(bb, [this](int number) { set_live(number, 1); });
        cells.clear();
        for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next) cells.push_back(cell);
        bool block_changed = false;
        for (auto cell = cells.rbegin(); cell != cells.rend(); ++cell)
            if (remove_not_live(*cell, bb->loop)) block_changed = true;
        for (const auto& change : changes_) live_[static_cast<std::size_t>(change.first)] = 0;
        if (block_changed) tidy(bb);
        changed = changed || block_changed;
    }
    return changed;
}

// --- Cleaning up.

void count_uses(NODE* tree) {
    walk_tree(tree, [](NODE* node) {
        if (node->op == NAME && node->symbol()->level > 0) node->symbol()->use_count = 1;
    });
}

void reset_uses(SYMTAB* list) {
    for (SYMTAB* symbol = list; symbol != nullptr; symbol = symbol->next) symbol->use_count = 0;
}

// Takes the symbols without uses off the list; returns its last one.
SYMTAB* drop_unused(SYMTAB*& list) {
    SYMTAB* last = nullptr;
    for (SYMTAB** place = &list; *place != nullptr;) {
        SYMTAB* symbol = *place;
        if (symbol->use_count == 0) {
            *place = symbol->next;
            continue;
        }
        last = symbol;
        place = &symbol->next;
    }
    return last;
}

void clean_up() {
    reset_uses(currfuninfo->locals);
    reset_uses(currfuninfo->temps);
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        bb->statements = promote_toplevel_COMMAOPs_in_list(bb->statements);
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) count_uses(cell->first);
    }
    for (const EHT_ENTRY& entry : currfuninfo->eht) count_uses(static_cast<NODE*>(entry.tree));
    currfuninfo->locals_tail = drop_unused(currfuninfo->locals);
    drop_unused(currfuninfo->temps);
}

} // namespace

NODE* effects_of_assignment(NODE* assignment) {
    NODE* value = assignment->right;
    erase_tree(assignment->left);
    erase_node(assignment);
    return peel_for_effect(value);
}

void elim_dead_assigns(bool use_flow, bool cleanup) {
    dprintf("\n\n\t\t\t---------- ENTERING 'elim_dead_assigns' --------\n");
    bool changed = true;
    for (int round = 0; changed && round < ROUNDS_PER_FUNCTION; round++) {
        const PRIVATE_SYMBOLS symbols; // what goes may have taken an address
        REMOVER remover(symbols);
        changed = remover.remove_unneeded();
        if (use_flow && symbols.flow_is_known() && remover.remove_not_live()) changed = true;
    }
    if (cleanup) clean_up();
}
