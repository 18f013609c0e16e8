// A statement is gone through in the order of its evaluation, and what it accesses is put on a list. All that
// one assignment accesses, its operands included, is the end of the list when the assignment is finished: it
// may move if nothing further ahead on the list gets in the way, and then takes its part of the list along.
// For each symbol the first read and the first write on the list are known, so that looking is one comparison
// for each access.

#include "embedded_assigns.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "accesses.h"
#include "bblk.h"
#include "bbutils.h"
#include "congruent.h"
#include "copy.h"
#include "debug.h"
#include "dump.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "seq_trees.h"
#include "simp.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

constexpr int TEMP_KIND = 'E';

constexpr std::uint32_t NEVER = std::numeric_limits<std::uint32_t>::max();

// Looking at accesses costs this many steps for each node of a statement at most.
constexpr std::size_t STEPS_PER_NODE = 16;

// What leads to the object that the place is part of: a NAME, a UMULT or STREF of a pointer, or a value.
NODE* base_of(NODE* place) {
    while (place->op == STDOT) place = place->left;
    return place;
}

// Whether the address of the place may be computed twice.
bool has_cheap_address(NODE* place) {
    NODE* base = base_of(place);
    if (base->op == NAME) return true;
    NODE* pointer = base->left;
    if (pointer->op == PLUS && pointer->right->op == ICON) pointer = pointer->left;
    return (pointer->op == NAME && !node_is_volatile_access(pointer)) || pointer->op == UAND;
}

class PROMOTER {
  public:
    bool flow_is_known() const { return symbols_.flow_is_known(); }
    // Takes what can move out of the cell's statement; false if that is nothing.
    bool run(LIST* cell);
    std::vector<NODE*>& ahead() { return ahead_; }

  private:
    enum ACCESS_CLASS : std::uint8_t { READS, WRITES, READS_MEMORY, WRITES_MEMORY, KEEPS_ORDER };
    static constexpr int MEMORY_CLASSES = 3;

    struct EVENT {
        ACCESS_CLASS what;
        bool is_first; // of its kind on the list
        int symbol;    // of READS and WRITES
    };
    struct SYMBOL_TIMES {
        std::uint32_t read = NEVER, written = NEVER;
    };
    // A node in work; `place` is where its parent holds it.
    struct TASK {
        NODE** place;
        int phase;
        bool is_place; // of an assignment or an address: not read
        bool conditional;
        std::uint32_t begin; // of what it accesses
    };

    std::uint32_t now() const { return static_cast<std::uint32_t>(events_.size()); }
    std::uint32_t& first_of(ACCESS_CLASS what, int symbol);
    void note(ACCESS_CLASS what, int symbol = -1);
    void note_barrier();
    void note_access(NODE* place, bool write);
    void forget_from(std::uint32_t begin);
    bool gets_in_the_way(const EVENT& event, std::uint32_t begin);
    bool may_move(std::uint32_t begin);

    void push(NODE** place, const TASK& parent, bool is_place = false, bool conditional = false);
    void visit(TASK task);
    void finish_assignment(const TASK& task);
    NODE* promote(NODE* assignment);
    NODE* promote_store(NODE* assignment);
    NODE* in_temporary(NODE* value, TYPE* type);

    const PRIVATE_SYMBOLS symbols_;
    std::vector<SYMBOL_TIMES> times_{static_cast<std::size_t>(symbols_.count())};
    std::uint32_t memory_times_[MEMORY_CLASSES] = {NEVER, NEVER, NEVER};
    std::vector<EVENT> events_;
    std::vector<TASK> pending_;
    std::vector<NODE*> ahead_;
    NODE* root_ = nullptr;        // the statement, if it is an expression
    SYMTAB* temporary_ = nullptr; // made last
    std::size_t steps_left_ = 0;
};

// --- The list of accesses.

std::uint32_t& PROMOTER::first_of(ACCESS_CLASS what, int symbol) {
    if (what > WRITES) return memory_times_[what - READS_MEMORY];
    SYMBOL_TIMES& times = times_[static_cast<std::size_t>(symbol)];
    return what == READS ? times.read : times.written;
}

void PROMOTER::note(ACCESS_CLASS what, int symbol) {
    std::uint32_t& first = first_of(what, symbol);
    const bool is_first = first == NEVER;
    if (is_first) first = now();
    events_.push_back({what, is_first, symbol});
}

void PROMOTER::note_barrier() {
    for (const ACCESS_CLASS what : {READS_MEMORY, WRITES_MEMORY, KEEPS_ORDER}) note(what);
}

void PROMOTER::note_access(NODE* place, bool write) {
    const NODE* base = base_of(place);
    const int number = base->op == NAME ? symbols_.number_of(base->symbol()) : -1;
    if (place_is_volatile(place)) note(KEEPS_ORDER);
    if (number >= 0) {
        note(write ? WRITES : READS, number);
    } else {
        note(write ? WRITES_MEMORY : READS_MEMORY);
    }
}

void PROMOTER::forget_from(std::uint32_t begin) {
    while (now() > begin) {
        const EVENT& last = events_.back();
        if (last.is_first) first_of(last.what, last.symbol) = NEVER;
        events_.pop_back();
    }
}

// Whether something ahead of `begin` has to happen ahead of the access.
bool PROMOTER::gets_in_the_way(const EVENT& event, std::uint32_t begin) {
    const auto is_ahead = [&](ACCESS_CLASS what) { return first_of(what, event.symbol) < begin; };
    switch (event.what) {
        case READS: return is_ahead(WRITES);
        case WRITES: return is_ahead(READS) || is_ahead(WRITES);
        case READS_MEMORY: return is_ahead(WRITES_MEMORY);
        case WRITES_MEMORY: return is_ahead(READS_MEMORY) || is_ahead(WRITES_MEMORY);
        case KEEPS_ORDER: return is_ahead(KEEPS_ORDER);
    }
    return true;
}

bool PROMOTER::may_move(std::uint32_t begin) {
    for (std::uint32_t i = begin; i < now(); i++) {
        if (steps_left_ == 0) return false;
        steps_left_--;
        if (gets_in_the_way(events_[i], begin)) return false;
    }
    return true;
}

// --- The walk.

void PROMOTER::push(NODE** place, const TASK& parent, bool is_place, bool conditional) {
    if (*place != nullptr) pending_.push_back({place, 0, is_place, parent.conditional || conditional, 0});
}

// The task comes again with its next phase behind the operands that it pushes.
void PROMOTER::visit(TASK task) {
    NODE* node = *task.place;
    if (task.phase == 0) {
        task.begin = now();
        task.phase = 1;
        switch (node->op) {
            case NAME:
                if (!task.is_place) note_access(node, false);
                return;
            case STDOT:
            case UMULT:
            case STREF: {
                NODE* base = base_of(node);
                pending_.push_back(task);
                if (base->op == UMULT || base->op == STREF) {
                    push(&base->left, task);
                } else if (base->op != NAME) {
                    NODE** place = &node->left;
                    while ((*place)->op == STDOT) place = &(*place)->left;
                    push(place, task);
                }
                return;
            }
            case UAND:
            case ARGREF: push(&node->left, task, true); return;
            case ANDAND:
            case OROR:
                push(&node->right, task, false, true);
                push(&node->left, task);
                return;
            case QUEST:
                push(&node->right->right, task, false, true);
                push(&node->right->left, task, false, true);
                push(&node->left, task);
                return;
            case NASSERT:
            case ASSERT: task.conditional = true; break;
            default: break;
        }
        if (opcode_is_ASG(node->op)) {
            pending_.push_back(task);
            push(&node->left, task, true);
            push(&node->right, task);
            return;
        }
        if (side_effects[node->op] != SE_NONE) pending_.push_back(task);
        push(&node->right, task);
        push(&node->left, task);
        return;
    }
    if (opcode_is_ASG(node->op)) {
        finish_assignment(task);
    } else if (side_effects[node->op] == SE_NONE) {
        const int base = base_of(node)->op;
        if (!task.is_place && (base == NAME || base == UMULT || base == STREF)) note_access(node, false);
    } else if (node->op != COMMAOP && node->op != NASSERT) {
        note_barrier();
    }
}

void PROMOTER::finish_assignment(const TASK& task) {
    NODE* node = *task.place;
    if (node->op != ASG && node->op != STASG) note_access(node->left, false);
    note_access(node->left, true);
    if (node == root_ || task.conditional || !may_move(task.begin)) return;
    NODE* place = node->left;
    NODE* value = promote(node);
    if (value == nullptr) return;
    *task.place = value;
    forget_from(task.begin);
    // The variable is read where the assignment stood; nothing else touches a temporary.
    const NODE* name = value;
    while (name->left != nullptr) name = name->left;
    if (name->op == NAME && name->symbol() != temporary_) note_access(place, false);
}

// --- Moving.

NODE* PROMOTER::in_temporary(NODE* value, TYPE* type) {
    temporary_ = sym_temp(TEMP_KIND, -1, type, nullptr);
    ahead_.push_back(mk_ASG(mk_NAME(temporary_), coerce_to_type(value, type)));
    return mk_NAME(temporary_);
}

// Puts the assignment ahead and returns its value as a tree without effects; null, and no change, where that
// is not possible.
NODE* PROMOTER::promote(NODE* assignment) {
    NODE* place = assignment->left;
    const int base = base_of(place)->op;
    if ((base != NAME && base != UMULT && base != STREF) || place_is_volatile(place) || is_bit_field(place))
        return nullptr;
    if (assignment->op == ARASG || assignment->op == STASG) {
        if (assignment->op == ARASG || place->op != NAME) return nullptr;
    } else if (!place->type->is_scalar()) {
        return nullptr;
    }
    TYPE* wanted = assignment->type->normalized();
    const bool is_private = place->op == NAME && symbols_.number_of(place->symbol()) >= 0;
    NODE* value;
    if (assignment->op == PLUSPLUS || assignment->op == MINMIN) {
        if (tree_has_side_effects(place) || !has_cheap_address(place) || place->type->is_bool())
            return nullptr;
        TYPE* type = place->type->normalized();
        value = in_temporary(copy_tree(place, false), type);
        if (is_private) {
            assignment->op = assignment->op == PLUSPLUS ? PLUSASG : MINUSASG;
        } else { // memory is read once
            NODE* step = type->is_ptr() ? assignment->right : coerce_to_type(assignment->right, type);
            assignment->right = maketree(assignment->op == PLUSPLUS ? PLUS : MINUS, copy_tree(value, false),
                                         step, type, nullptr);
            assignment->op = ASG;
        }
        ahead_.push_back(assignment);
    } else if (is_private || assignment->op == STASG) {
        value = copy_tree(place, false);
        ahead_.push_back(assignment);
    } else {
        value = promote_store(assignment);
    }
    return value == nullptr || assignment->op == STASG ? value : coerce_to_type(value, wanted);
}

// The same for an assignment to memory, whose value need not be read back.
NODE* PROMOTER::promote_store(NODE* assignment) {
    NODE* place = assignment->left;
    if (assignment->op != ASG) {
        if (!has_cheap_address(place)) return nullptr;
        if (opASG_to_ASG(assignment)->op != ASG) return nullptr;
    }
    TYPE* type = place->type->normalized();
    NODE* stored = assignment->right;
    const bool is_constant = (stored->op == ICON || stored->op == FCON) && convert_constant(stored, type);
    if (!is_constant) assignment->right = in_temporary(stored, type);
    ahead_.push_back(assignment);
    return copy_tree(assignment->right, false);
}

// --- Statements.

bool PROMOTER::run(LIST* cell) {
    NODE* statement = cell->first;
    ahead_.clear();
    if (tree_is_arg_prolog(statement)) return false;
    NODE** expression = &cell->first;
    root_ = nullptr;
    switch (statement->op) {
        case IF:
        case SWITCH: expression = &statement->left; break;
        case RETURN: expression = &statement->right; break;
        default:
            if (opcode_is_transfer(statement->op)) return false;
            root_ = statement;
    }
    std::size_t nodes = 0;
    bool any = false;
    walk_tree(*expression, [&](const NODE* node) {
        nodes++;
        any = any || (opcode_is_ASG(node->op) && node != root_);
    });
    if (!any) return false;
    steps_left_ = nodes * STEPS_PER_NODE;
    pending_.push_back({expression, 0, false, false, 0});
    while (!pending_.empty()) {
        const TASK task = pending_.back();
        pending_.pop_back();
        visit(task);
    }
    forget_from(0);
    if (ahead_.empty()) return false;
    cell->first = simp_tree(cell->first, nullptr);
    for (NODE*& tree : ahead_) tree = simp_tree(tree, nullptr);
    return true;
}

} // namespace

void promote_all_embedded_assignments() {
    dprintf("\n\n\t\t\t---------- ENTERING 'promote_all_embedded_assignments' ----------\n");
    PROMOTER promoter;
    if (!promoter.flow_is_known()) return;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        bool changed = false;
        for (LIST** place = &bb->statements; *place != nullptr; place = &(*place)->next) {
            LIST* cell = *place;
            if (!promoter.run(cell)) continue;
            changed = true;
            for (NODE* tree : promoter.ahead()) {
                if (print_debug != 0) dprintf("Promoting %s\n", tree_to_text(tree).c_str());
                *place = mkelist(tree, *place, cell->psn);
                place = &(*place)->next;
            }
        }
        if (changed) bb->statements = promote_toplevel_COMMAOPs_in_list(bb->statements);
    }
}
