// Of each variable the places in a block that touch it are listed: uses, increments, and what ends a run of
// these. Within a run the value is known as one unknown plus a sum S of constants. What the register holds
// lags behind S until an increment is carried out, by all that is pending then; so the question is which of
// the increments are.
//
//   use  (S = 0)        *p         *p
//   p += 1              -          -
//   use  (S = 1)        *(p + 1)   *(p + 1)
//   p += 1              p += 2     -
//   use  (S = 2)        *p         *(p + 2)
//
// The left choice serves a variable that is live behind the run, the right one one that is not. The costs are
// operators: an increment 1, one whose old value is used 2, a use at an offset 1, but nothing where it is
// added to a constant or becomes a variable of its own. The cheapest choice is found by a table over the
// increments: the best way to come to each with nothing pending. A run is rewritten if that beats what it
// costs as it is.

#include "propagate_increments.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "accesses.h"
#include "bblk.h"
#include "bbutils.h"
#include "copyprop.h"
#include "debug.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "liveness.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "simp.h"
#include "symbol.h"
#include "types.h"
#include "xint.h"

using namespace op;

namespace {

// How many increments may be pending at a time.
constexpr std::size_t MOST_PENDING = 32;
// How many copies of a variable are looked at in one run.
constexpr int MOST_COPIES = 8;
constexpr int NEVER = std::numeric_limits<int>::max() / 2;

struct EVENT {
    enum KIND : std::uint8_t {
        USE,
        STEP,      // a statement
        OLD_VALUE, // x++ as a value
        NEW_VALUE, // ++x as a value
        END,       // anything else
        DEAD_END,  // a new value
        GONE       // a use that the variable it was copied from has taken over
    };
    KIND kind;
    int cost = 0;     // USE: of an offset
    int copy_to = -1; // USE: the variable that the statement copies the value to
    int statement = 0;
    LIST* cell = nullptr;
    NODE* node = nullptr; // the NAME or the increment
    std::int64_t step = 0;
    std::int64_t sum = 0;   // S behind it, within the run
    std::int64_t value = 0; // USE: S when the value was taken
};

bool is_step(const EVENT& event) {
    return event.kind == EVENT::STEP || event.kind == EVENT::OLD_VALUE || event.kind == EVENT::NEW_VALUE;
}

class INCREMENTS {
  public:
    INCREMENTS(const PRIVATE_SYMBOLS& symbols, const LIVENESS& liveness)
        : symbols_(symbols), liveness_(liveness), events_(static_cast<std::size_t>(symbols.count())) {}
    void run_block(BBLK* bb);

  private:
    void list_statement(LIST* cell);
    void list_variable(LIST* cell, std::size_t first, std::size_t last);
    int cost_of_offset(NODE* name) const;
    int copied_to(const NODE* root, const NODE* name) const;
    NODE* parent_of(const NODE* node) const { return parents_[node->scratch[0]]; }
    void run_variable(const BBLK* bb, int number);
    void run_events(const BBLK* bb, SYMTAB* symbol, std::vector<EVENT>& run, bool is_dead);
    bool uses_of_copy(const BBLK* bb, const EVENT& copy, const std::vector<EVENT>& run,
                      std::vector<EVENT>& uses) const;
    void take_over(const EVENT& copy, const std::vector<EVENT>& uses);
    void rewrite(SYMTAB* symbol, const std::vector<EVENT>& run, const std::vector<std::size_t>& carried_out);
    void note_changed(LIST* cell) { changed_.push_back(cell); }

    const PRIVATE_SYMBOLS& symbols_;
    const LIVENESS& liveness_;
    std::vector<std::vector<EVENT>> events_; // by variable, of the block in work
    std::vector<int> touched_;
    std::vector<LIST*> changed_;
    std::vector<LIST*> behind_; // cells to be put behind the one at the same place of `behind_what_`
    std::vector<LIST*> behind_what_;

    // Of the statement in work.
    std::vector<ACCESS> accesses_;
    std::vector<NODE*> parents_;
    int statement_ = 0;
};

// --- Listing.

bool is_counted(const SYMTAB* symbol) {
    TYPE* type = symbol->type;
    if (!is_int_or_ptr(type) || type->is_bool() || type->is_enum()) return false;
    return type->is_ptr() || promoted_type(type)->size() == type->size();
}

bool constant_step(const NODE* constant, bool is_minus, std::int64_t& step) {
    constexpr std::int64_t most = 1 << 16;
    if (constant->op != ICON || constant->u.lval < INT65::from_signed(-most) ||
        constant->u.lval > INT65::from_signed(most))
        return false;
    step = constant->u.lval.to_signed();
    if (is_minus) step = -step;
    return true;
}

// The step of an assignment that increments by a constant.
bool step_of(const NODE* assignment, std::int64_t& step) {
    switch (assignment->op) {
        case PLUSASG:
        case PLUSPLUS: return constant_step(assignment->right, false, step);
        case MINUSASG:
        case MINMIN: return constant_step(assignment->right, true, step);
        case ASG: {
            const NODE* value = assignment->right;
            return (value->op == PLUS || value->op == MINUS) && value->left->op == NAME &&
                   assignment->left->op == NAME && value->left->symbol() == assignment->left->symbol() &&
                   same_representation(value->type->normalized(), assignment->left->type->normalized()) &&
                   constant_step(value->right, value->op == MINUS, step);
        }
        default: return false;
    }
}

// What it costs to add a constant to the use.
int INCREMENTS::cost_of_offset(NODE* name) const {
    const NODE* node = name;
    for (const NODE* parent = parent_of(node); parent != nullptr; node = parent, parent = parent_of(node)) {
        if (parent->op == NASSERT) return 0;
        if (parent->op == ASG && node == name && parent->left->op == NAME && node == parent->right) {
            const SYMTAB* target = parent->left->symbol();
            return symbols_.number_of(target) >= 0 && target->type->is_scalar() ? 0 : 1;
        }
        if (parent->op != PLUS && parent->op != MINUS) return 1;
        if (parent->type->size() != name->type->size()) return 1;
        if (parent->right->op == ICON && parent->left == node) return 0;
        if (parent->op == MINUS && node == parent->right) return 1;
    }
    return 1;
}

// The variable to which the statement copies the named one; -1 if it does something else.
int INCREMENTS::copied_to(const NODE* root, const NODE* name) const {
    if (root->op != ASG || root->right != name || root->left->op != NAME) return -1;
    const SYMTAB* target = root->left->symbol();
    if (!is_counted(target) || target == name->symbol()) return -1;
    TYPE* type = name->symbol()->type;
    const bool same = same_representation(target->type, type) &&
                      same_representation(root->left->type->normalized(), type) &&
                      same_representation(name->type->normalized(), type);
    return same ? symbols_.number_of(target) : -1;
}

// The accesses [first, last) are those of one variable in the statement.
void INCREMENTS::list_variable(LIST* cell, std::size_t first, std::size_t last) {
    NODE* root = cell->first;
    const int number = symbols_.number_of(accesses_[first].name->symbol());
    std::vector<EVENT>& events = events_[static_cast<std::size_t>(number)];
    if (events.empty()) touched_.push_back(number);
    const ACCESS* write = nullptr;
    std::size_t uses = 0;
    bool is_simple = !tree_is_arg_prolog(root);
    for (std::size_t i = first; i < last; i++) {
        const ACCESS& access = accesses_[i];
        if (access.kind == ACC_READ) {
            uses += access.assignment == nullptr ? 1 : 0;
        } else {
            is_simple = is_simple && access.kind == ACC_WRITE && write == nullptr && !access.conditional;
            write = &access;
        }
    }
    EVENT event{EVENT::END};
    event.cell = cell;
    event.statement = statement_;
    if (write == nullptr) {
        event.kind = EVENT::USE;
        for (std::size_t i = first; i < last; i++) {
            event.node = accesses_[i].name;
            event.cost = cost_of_offset(event.node);
            event.copy_to = copied_to(root, event.node);
            events.push_back(event);
        }
        return;
    }
    NODE* assignment = write->assignment;
    event.node = assignment;
    if (is_simple && step_of(assignment, event.step) && uses == (assignment->op == ASG ? 1U : 0U) &&
        same_representation(assignment->left->type->normalized(), write->name->symbol()->type)) {
        if (assignment == root) {
            event.kind = EVENT::STEP;
        } else if (assignment->op != ASG && !opcode_is_transfer(root->op)) {
            event.kind =
                assignment->op == PLUSPLUS || assignment->op == MINMIN ? EVENT::OLD_VALUE : EVENT::NEW_VALUE;
        }
    } else if (is_simple && uses == 0 && assignment->op == ASG) {
        event.kind = EVENT::DEAD_END;
    }
    events.push_back(event);
}

void INCREMENTS::list_statement(LIST* cell) {
    accesses_.clear();
    list_accesses(cell->first, accesses_);
    accesses_.erase(std::remove_if(accesses_.begin(), accesses_.end(),
                                   [this](const ACCESS& access) {
                                       const SYMTAB* symbol = access.name->symbol();
                                       return symbols_.number_of(symbol) < 0 || !is_counted(symbol);
                                   }),
                    accesses_.end());
    if (accesses_.empty()) return;
    parents_.assign(1, nullptr);
    cell->first->scratch[0] = 0;
    walk_tree(cell->first, [this](NODE* node) {
        if (node->left == nullptr) return;
        parents_.push_back(node);
        const auto index = static_cast<std::uint32_t>(parents_.size() - 1);
        node->left->scratch[0] = index;
        if (node->right != nullptr) node->right->scratch[0] = index;
    });
    std::stable_sort(accesses_.begin(), accesses_.end(), [this](const ACCESS& a, const ACCESS& b) {
        return symbols_.number_of(a.name->symbol()) < symbols_.number_of(b.name->symbol());
    });
    for (std::size_t i = 0; i < accesses_.size();) {
        std::size_t end = i + 1;
        while (end < accesses_.size() && accesses_[end].name->symbol() == accesses_[i].name->symbol()) end++;
        list_variable(cell, i, end);
        i = end;
    }
}

// --- The choice.

// What the event costs as it is.
int cost_as_is(const EVENT& event) {
    switch (event.kind) {
        case EVENT::STEP:
        case EVENT::NEW_VALUE: return 1;
        case EVENT::OLD_VALUE: return 2;
        default: return 0;
    }
}

// What its value costs while the register holds the value at the sum `held`.
int cost_of_value(const EVENT& event, std::int64_t held) {
    switch (event.kind) {
        case EVENT::USE: return event.value != held ? event.cost : 0;
        case EVENT::OLD_VALUE: return event.sum - event.step != held ? 1 : 0;
        case EVENT::NEW_VALUE: return event.sum != held ? 1 : 0;
        default: return 0;
    }
}

// What the step costs when all that is pending is carried out there.
int cost_of_carrying_out(const EVENT& event, std::int64_t held) {
    const int change = event.sum != held ? 1 : 0;
    return event.kind == EVENT::OLD_VALUE ? cost_of_value(event, held) + change : change;
}

// What to do with a run, and what that costs.
struct PLAN {
    int as_is = 0;
    int cost = NEVER;
    std::vector<std::size_t> carried_out; // the steps, by their places in the run
};

// The value is not needed behind the run if `is_dead`.
PLAN plan_run(const std::vector<EVENT>& run, bool is_dead) {
    PLAN plan;
    std::vector<std::size_t> stops{0}; // the start, then the steps
    for (std::size_t i = 0; i < run.size(); i++) {
        plan.as_is += cost_as_is(run[i]);
        if (is_step(run[i])) stops.push_back(i);
    }
    if (stops.size() == 1) return plan;
    std::vector<int> best(stops.size(), NEVER);
    std::vector<std::size_t> from(stops.size(), 0);
    best[0] = 0;
    std::size_t last_stop = 0;
    for (std::size_t stop = 0; stop < stops.size(); stop++) {
        if (best[stop] >= NEVER) continue;
        const std::int64_t held = stop == 0 ? 0 : run[stops[stop]].sum;
        int cost = best[stop];
        std::size_t next = stop + 1;
        std::size_t i = stop == 0 ? 0 : stops[stop] + 1;
        for (; i < run.size() && next - stop <= MOST_PENDING; i++) {
            const EVENT& event = run[i];
            if (is_step(event)) {
                const int carried = cost + cost_of_carrying_out(event, held);
                if (carried < best[next]) {
                    best[next] = carried;
                    from[next] = stop;
                }
                next++;
            }
            cost += cost_of_value(event, held);
        }
        if (i == run.size() && (is_dead || held == run.back().sum) && cost < plan.cost) {
            plan.cost = cost;
            last_stop = stop;
        }
    }
    for (; last_stop != 0; last_stop = from[last_stop]) plan.carried_out.push_back(stops[last_stop]);
    std::reverse(plan.carried_out.begin(), plan.carried_out.end());
    return plan;
}

// --- Copies.
//
// t = p; p += 1; *t = 0 becomes *p = 0; p += 1: uses of the copy are uses of the variable as it was.

std::size_t event_of_statement(const std::vector<EVENT>& events, int statement) {
    const auto first = std::lower_bound(events.begin(), events.end(), statement,
                                        [](const EVENT& event, int at) { return event.statement < at; });
    return static_cast<std::size_t>(first - events.begin());
}

// The uses of the copy, if all of them stand in the run and can take the variable's place.
bool INCREMENTS::uses_of_copy(const BBLK* bb, const EVENT& copy, const std::vector<EVENT>& run,
                              std::vector<EVENT>& uses) const {
    const std::vector<EVENT>& all = events_[static_cast<std::size_t>(copy.copy_to)];
    std::size_t i = event_of_statement(all, copy.statement);
    if (i == all.size() || all[i].cell != copy.cell || all[i].kind != EVENT::DEAD_END) return false;
    for (i++; i < all.size() && all[i].kind == EVENT::USE; i++) {
        uses.push_back(all[i]);
        uses.back().value = copy.sum;
        uses.back().copy_to = -1;
    }
    const bool is_dead =
        i < all.size() ? all[i].kind == EVENT::DEAD_END : !liveness_.is_live_out(bb, copy.copy_to);
    if (!is_dead || uses.empty() || uses.back().statement > run.back().statement) return false;
    // A step inside of a statement stays alone with the variable there.
    auto step = run.begin();
    for (const EVENT& use : uses) {
        while (step != run.end() && step->statement < use.statement) ++step;
        for (auto same = step; same != run.end() && same->statement == use.statement; ++same)
            if (is_step(*same)) return false;
    }
    return true;
}

// Takes the copy out of the block.
void INCREMENTS::take_over(const EVENT& copy, const std::vector<EVENT>& uses) {
    std::vector<EVENT>& all = events_[static_cast<std::size_t>(copy.copy_to)];
    const std::size_t first = event_of_statement(all, copy.statement) + 1;
    for (std::size_t i = first; i < first + uses.size(); i++) all[i].kind = EVENT::GONE;
    copy.cell->first = erase_tree(copy.cell->first);
    note_changed(copy.cell);
}

// The run with the uses instead of the copy.
std::vector<EVENT> merge_uses(const std::vector<EVENT>& run, std::size_t copy,
                              const std::vector<EVENT>& uses) {
    std::vector<EVENT> merged;
    std::size_t next = 0;
    std::int64_t sum = 0;
    for (std::size_t i = 0; i <= run.size(); i++) {
        while (next < uses.size() && (i == run.size() || uses[next].statement < run[i].statement)) {
            merged.push_back(uses[next++]);
            merged.back().sum = sum;
        }
        if (i == run.size() || i == copy) continue;
        merged.push_back(run[i]);
        sum = run[i].sum;
    }
    return merged;
}

void INCREMENTS::run_events(const BBLK* bb, SYMTAB* symbol, std::vector<EVENT>& run, bool is_dead) {
    std::int64_t sum = 0;
    for (EVENT& event : run) {
        sum += event.step;
        event.sum = event.value = sum;
    }
    PLAN plan = plan_run(run, is_dead);
    bool takes_over = false;
    int copies = 0;
    for (std::size_t i = 0; i < run.size() && copies < MOST_COPIES;) {
        std::vector<EVENT> uses;
        if (run[i].kind == EVENT::USE && run[i].copy_to >= 0) {
            copies++;
            if (uses_of_copy(bb, run[i], run, uses)) {
                std::vector<EVENT> merged = merge_uses(run, i, uses);
                PLAN other = plan_run(merged, is_dead);
                // The copy itself is an operator, with an offset or without.
                if (other.cost < (takes_over ? plan.cost : std::min(plan.cost, plan.as_is)) + 1) {
                    take_over(run[i], uses);
                    run = std::move(merged);
                    plan = std::move(other);
                    takes_over = true;
                    continue; // another event has this place now
                }
            }
        }
        i++;
    }
    if (takes_over || plan.cost < plan.as_is) rewrite(symbol, run, plan.carried_out);
}

// --- Rewriting.

// The number as a constant that is added to the variable.
NODE* addend(const SYMTAB* symbol, std::int64_t value) {
    TYPE* type = symbol->type->is_ptr() ? tp->int_type(IK_INT) : promoted_type(symbol->type);
    const INT65 low = INT65::from_signed(value) & type_mask(type);
    return mk_ICON(type->is_signed() ? sign_extend_by_type(low, type) : low, type);
}

NODE* value_with_offset(SYMTAB* symbol, std::int64_t offset, TYPE* type) {
    NODE* name = mk_NAME(symbol);
    if (offset == 0) return coerce_to_type(name, type);
    TYPE* computed = symbol->type->is_ptr() ? symbol->type : promoted_type(symbol->type);
    return coerce_to_type(
        maketree(PLUS, coerce_to_type(name, computed), addend(symbol, offset), computed, nullptr), type);
}

NODE* step_statement(SYMTAB* symbol, std::int64_t change) {
    return maketree(PLUSASG, mk_NAME(symbol), addend(symbol, change), symbol->type, nullptr);
}

void overwrite(NODE* node, NODE* value) {
    if (node->left != nullptr) erase_tree(node->left);
    if (node->right != nullptr) erase_tree(node->right);
    *node = *value;
    erase_node(value);
}

void INCREMENTS::rewrite(SYMTAB* symbol, const std::vector<EVENT>& run,
                         const std::vector<std::size_t>& carried_out) {
    if (print_debug != 0) dprintf("\n\tJoining increments of %s\n", symbol->name);
    std::int64_t held = 0;
    auto next = carried_out.begin();
    for (std::size_t i = 0; i < run.size(); i++) {
        const EVENT& event = run[i];
        const bool is_carried_out = next != carried_out.end() && *next == i;
        const std::int64_t change = event.sum - held;
        NODE* node = event.node;
        switch (event.kind) {
            case EVENT::USE:
                if (event.value == held && node->symbol() == symbol) break;
                overwrite(node, value_with_offset(symbol, event.value - held, node->type));
                note_changed(event.cell);
                break;
            case EVENT::STEP:
                erase_tree(event.cell->first);
                event.cell->first = is_carried_out && change != 0 ? step_statement(symbol, change) : nullptr;
                note_changed(event.cell);
                break;
            case EVENT::OLD_VALUE:
                overwrite(node, value_with_offset(symbol, change - event.step, node->type));
                note_changed(event.cell);
                if (!is_carried_out || change == 0) break;
                behind_.push_back(mkelist(step_statement(symbol, change), nullptr, event.cell->psn));
                behind_what_.push_back(event.cell);
                note_changed(behind_.back());
                break;
            case EVENT::NEW_VALUE: {
                NODE* value = is_carried_out && change != 0 ? step_statement(symbol, change)
                                                            : value_with_offset(symbol, change, symbol->type);
                overwrite(node, coerce_to_type(value, node->type));
                note_changed(event.cell);
                break;
            }
            default: break;
        }
        if (!is_carried_out) continue;
        held = event.sum;
        ++next;
    }
}

void INCREMENTS::run_variable(const BBLK* bb, int number) {
    std::vector<EVENT>& listed = events_[static_cast<std::size_t>(number)];
    if (std::none_of(listed.begin(), listed.end(), is_step)) return; // may still be another one's copy
    const std::vector<EVENT> events = std::move(listed);
    listed.clear();
    std::vector<EVENT> run;
    for (const EVENT& event : events) {
        if (event.kind == EVENT::GONE) continue;
        if (event.kind != EVENT::END && event.kind != EVENT::DEAD_END) {
            run.push_back(event);
            continue;
        }
        run_events(bb, symbols_.symbol(number), run, event.kind == EVENT::DEAD_END);
        run.clear();
    }
    run_events(bb, symbols_.symbol(number), run, !liveness_.is_live_out(bb, number));
}

void INCREMENTS::run_block(BBLK* bb) {
    for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next, statement_++) list_statement(cell);
    for (int number : touched_) run_variable(bb, number);
    for (int number : touched_) events_[static_cast<std::size_t>(number)].clear();
    touched_.clear();
    if (changed_.empty()) return;
    for (std::size_t i = 0; i < behind_.size(); i++) {
        behind_[i]->next = behind_what_[i]->next;
        behind_what_[i]->next = behind_[i];
    }
    behind_.clear();
    behind_what_.clear();
    for (LIST* cell : changed_)
        if (cell->first != nullptr) cell->first = simp_tree(cell->first, bb->loop);
    changed_.clear();
    bb->statements = tidy_statement_list(bb->statements);
}

} // namespace

void propagate_increments() {
    dprintf("\n\n\t\t\t---------- ENTERING 'propagate_increments' ----------\n");
    const PRIVATE_SYMBOLS symbols;
    if (!symbols.flow_is_known()) return;
    const LIVENESS liveness(symbols);
    INCREMENTS increments(symbols, liveness);
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) increments.run_block(bb);
}
