// A call can be replaced only where it stands alone, as a statement or as all that is assigned to a variable.
// So a statement that holds such calls is taken apart in the order of its evaluation:
//
//     a[i] + f(x) * g()     t1 = a[i]; t2 = f(x); t3 = g(); t1 + t2 * t3
//     p && f(p)             if (p) goto A; r = 0; goto J; A: r = f(p) != 0; goto J; J: r
//
// What is evaluated ahead of the call waits in a temporary, unless nothing that comes in between can change
// it. A conditional part becomes control flow, so that a call under a condition stays under it.
//
// The function is gone through once. Blocks that have been built are marked visited; those of a copy are not,
// and are gone through in their turn, as they may hold calls that are to be integrated themselves.

#include "integrate.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <unordered_set>
#include <utility>
#include <vector>

#include "accesses.h"
#include "bblk.h"
#include "bbutils.h"
#include "bind_call.h"
#include "block_builder.h"
#include "buildcfg.h"
#include "copy.h"
#include "copyprop.h"
#include "debug.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "fold.h"
#include "ls.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "pool.h"
#include "pragma.h"
#include "psn.h"
#include "simp.h"
#include "simpcfg.h"
#include "splice_callee.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

constexpr int TEMP_KIND = 'I';

// Calls that came with a copy are integrated as long as the copies together are no larger than this.
constexpr std::int64_t MAX_NESTED_SIZE = 50000;

class INTEGRATOR {
  public:
    // Whether anything was integrated. Edges and numbers are stale then.
    bool run();

  private:
    enum ACTION {
        VISIT,       // take the tree apart
        SAVE,        // its value has to wait in a temporary
        EFFECT,      // its value is not used
        CALL_NOW,    // a call to integrate, whose arguments are done
        TAKE_RIGHT,  // of a comma whose left operand has become a statement
        SPLIT_BOOL,  // && or ||, whose left operand is done
        SPLIT_QUEST, // a conditional whose condition is done
        END_BOOL,    // the right operand of && or || is done: its truth value is the result
        END_ARM,     // an arm of a conditional is done: its value is the result
        START_BLOCK,
        END_SPLIT // all ways to the result are done; it takes the operator's place
    };
    struct TASK {
        ACTION action;
        NODE** place;
        SYMTAB* result; // null: the value is dropped
        BBLK* bb;       // to start, or where control goes on
    };

    // --- Choosing.
    bool is_chosen(NODE* call, const PSN* psn);
    void refuse(FUNINFO* callee, const PSN* psn, const char* why) const;
    bool choose(const LIST* cell);
    bool is_call_to_integrate(const NODE* node) const { return node->stamp == chosen_stamp_; }
    bool has_mark(const NODE* tree) const {
        return tree != nullptr && (tree->stamp == path_stamp_ || tree->stamp == chosen_stamp_);
    }

    // --- Taking apart.
    void run_block(BBLK* bb);
    void run_statement(LIST* cell);
    void run_condition(LIST* cell);
    void take_apart(NODE** place);
    void do_task(const TASK& task);
    void visit(NODE** place);
    void visit_list(NODE** place);
    void add(ACTION action, NODE** place, SYMTAB* result = nullptr, BBLK* bb = nullptr) {
        steps_.push_back({action, place, result, bb});
    }
    void add_visit(NODE** place) {
        if (has_mark(*place)) add(VISIT, place);
    }
    void schedule();
    void take_right(NODE** place);
    void split_bool(NODE** place);
    void split_quest(NODE** place);
    void end_arm(const TASK& task);
    void end_split(const TASK& task);
    void save(NODE** place);
    bool can_wait(const NODE* value) const;
    void add_effect(NODE* tree);
    void add_assignment(SYMTAB* symbol, NODE* value);
    SYMTAB* new_temp(TYPE* type);
    NODE* value_of(SYMTAB* result, TYPE* type) const;
    void call_now(NODE** place);
    void integrate(NODE* call, SYMTAB* target);

    const PRIVATE_SYMBOLS symbols_;
    CALLEE_SPLICER splicer_;
    BLOCK_BUILDER builder_;
    const BBLK* block_ = nullptr;                   // whose statements are in work
    LIST* cell_ = nullptr;                          // the statement in work
    std::unordered_set<const SYMTAB*> temporaries_; // assigned once for each use; never walked
    std::vector<TASK> pending_;                     // the next one is the last
    std::vector<TASK> steps_;                       // of the node in work, in order
    std::uint32_t chosen_stamp_ = 0;                // of the statement's calls to integrate
    std::uint32_t path_stamp_ = 0;                  // of the nodes above them
    bool may_change_locals_ = false;                // the statement does, somewhere inside
    std::int64_t nested_size_ = 0;
    bool changed_ = false;
};

// --- Choosing.

long line_of(const PSN* psn) { return psn != nullptr ? static_cast<long>(psn->line) : 0; }

bool tells() { return write_opt_info != 0 && finfo != nullptr; }

// The call stays, for a reason that the policy could not see.
void INTEGRATOR::refuse(FUNINFO* callee, const PSN* psn, const char* why) const {
    info_sentence(psn, "the call of %s() in %s() is not inlined: %s", callee->name.c_str(),
                  currfuninfo->name.c_str(), why);
    unsuppress_inline_function(callee);
}

bool INTEGRATOR::is_chosen(NODE* call, const PSN* psn) {
    FUNINFO* callee = find_FUNINFO_for_call(call);
    if (callee == nullptr || callee->integrable_cfg == nullptr || callee->symbol == nullptr) return false;
    if (!is_asked_for(callee->symbol) && (opt_level() <= 2 || auto_inline() == 0)) {
        unsuppress_inline_function(callee);
        return false;
    }
    const FUNINFO* owner = call->call_owner;
    const std::uint32_t index = call->unique_call_index;
    if (owner == nullptr || index >= owner->inlined_sites.size() || !owner->inlined_sites[index])
        return false;
    if (call->inline_depth() >= inline_recursion_limit()) {
        dprintf("\n\t>>>>> WARNING: INLINE recursion limit exceeded.\n");
        if (tells())
            std::fprintf(finfo, "\n>>>> WARNING: INLINE recursion limit exceeded on line %ld.\n",
                         line_of(psn));
        unsuppress_inline_function(callee);
        callee->flags &= ~FUN_is_inlined;
        return false;
    }
    if (has_volatile_part(call->type)) {
        refuse(callee, psn, "it returns a structure with a volatile member");
        return false;
    }
    if (!CALLEE_SPLICER::can_bind(call, callee)) {
        refuse(callee, psn, "it is not passed what it takes");
        return false;
    }
    if (call->inline_depth() > 0) {
        if (nested_size_ + callee->size > MAX_NESTED_SIZE) {
            refuse(callee, psn, "too much has been inlined already");
            return false;
        }
        nested_size_ += callee->size;
    }
    return true;
}

// Whether the node's operands are evaluated one by one, each before the node, or as conditionals do.
bool can_take_apart(const NODE* node) {
    switch (node->op) {
        case NASSERT:
        case ASSERT:
        case ARASG:
        case PCOMMA:
        case DDNODE:
        case CSE_ORIG:
        case CSE_DUPE:
        case op::LOOP:
        case ENDLOOP:
        case INITLOOP: return false;
        default:
            return node->op < EXPRSTUB || node->op == IDENTITY || node->op == ISP2CHAR ||
                   opcode_is_transfer(node->op);
    }
}

// Whether the node can't wait in a temporary, as a value or as a part of one.
bool cannot_wait(const NODE* node) {
    return node->op == ARGREF || node->op == VREG || node->type->is_vector();
}

// Finds the calls of the statement that are to be integrated and marks what leads to them.
bool INTEGRATOR::choose(const LIST* cell) {
    NODE* statement = cell->first;
    if (tree_is_arg_prolog(statement)) return false;
    may_change_locals_ = false;
    chosen_stamp_ = fresh_stamp();
    path_stamp_ = fresh_stamp();
    bool any = false, fits = true;
    walk_tree(statement, [&](NODE* node) {
        if (node->op == CALL || node->op == UCALL) {
            if (is_chosen(node, cell->psn)) {
                node->stamp = chosen_stamp_;
                any = true;
            }
        } else if (cannot_wait(node)) {
            fits = false;
        } else if (opcode_is_ASG(node->op) && node != statement) {
            may_change_locals_ = true;
        }
    });
    if (!any) return false;
    rewrite_tree(statement, [&](NODE* node) {
        if (!has_mark(node->left) && !has_mark(node->right)) return node;
        fits = fits && can_take_apart(node);
        if (!is_call_to_integrate(node)) node->stamp = path_stamp_;
        return node;
    });
    if (fits) return true;
    walk_tree(statement, [&](NODE* node) {
        if (is_call_to_integrate(node))
            refuse(find_FUNINFO_for_call(node), cell->psn, "the statement around it can't be taken apart");
    });
    return false;
}

// --- Taking apart.

// The steps of the node are next, in their order.
void INTEGRATOR::schedule() {
    pending_.insert(pending_.end(), steps_.rbegin(), steps_.rend());
    steps_.clear();
}

void INTEGRATOR::take_apart(NODE** place) {
    add_visit(place);
    schedule();
    while (!pending_.empty()) {
        const TASK task = pending_.back();
        pending_.pop_back();
        do_task(task);
        schedule();
    }
}

void INTEGRATOR::do_task(const TASK& task) {
    switch (task.action) {
        case VISIT: visit(task.place); break;
        case SAVE: save(task.place); break;
        case EFFECT:
            add_effect(*task.place);
            *task.place = nullptr;
            break;
        case CALL_NOW: call_now(task.place); break;
        case TAKE_RIGHT: take_right(task.place); break;
        case SPLIT_BOOL: split_bool(task.place); break;
        case SPLIT_QUEST: split_quest(task.place); break;
        case END_BOOL:
            *task.place = make_boolean(simp_tree(*task.place, nullptr), nullptr);
            end_arm(task);
            break;
        case END_ARM: end_arm(task); break;
        case START_BLOCK: builder_.start(task.bb); break;
        case END_SPLIT: end_split(task); break;
    }
}

void INTEGRATOR::visit(NODE** place) {
    NODE* node = *place;
    switch (node->op) {
        case COMMA: visit_list(place); return;
        case COMMAOP:
            add_visit(&node->left);
            add(EFFECT, &node->left);
            add(TAKE_RIGHT, place);
            return;
        case ANDAND:
        case OROR:
            add_visit(&node->left);
            if (has_mark(node->right)) add(SPLIT_BOOL, place);
            return;
        case QUEST:
            add_visit(&node->left);
            if (has_mark(node->right)) add(SPLIT_QUEST, place);
            return;
        case IF:
        case SWITCH: add_visit(&node->left); return;
        case RETURN: add_visit(&node->right); return;
        default: break;
    }
    if (opcode_is_ASG(node->op)) {
        add_visit(&node->right);
        if (has_mark(node->left)) add(SAVE, &node->right);
        add_visit(&node->left);
        return;
    }
    add_visit(&node->left);
    if (has_mark(node->right)) add(SAVE, &node->left);
    add_visit(&node->right);
    if (is_call_to_integrate(node)) add(CALL_NOW, place);
}

// The elements of a list, in order; all but what stands behind the last call have to wait for it.
void INTEGRATOR::visit_list(NODE** place) {
    std::vector<NODE**> elements;
    for (; (*place)->op == COMMA; place = &(*place)->left) elements.push_back(&(*place)->right);
    elements.push_back(place);
    std::reverse(elements.begin(), elements.end());
    std::size_t last = elements.size();
    while (!has_mark(*elements[last - 1])) last--;
    for (std::size_t i = 0; i < last; i++) {
        add_visit(elements[i]);
        if (i + 1 < last) add(SAVE, elements[i]);
    }
}

void INTEGRATOR::take_right(NODE** place) {
    NODE* comma = *place;
    *place = comma->right;
    comma->right = nullptr;
    erase_node(comma);
    add_visit(place);
}

void INTEGRATOR::split_bool(NODE** place) {
    NODE* node = *place;
    SYMTAB* result = new_temp(node->type);
    BBLK* decided = BLOCK_BUILDER::make_block();
    BBLK* open = BLOCK_BUILDER::make_block();
    BBLK* join = BLOCK_BUILDER::make_block();
    const bool is_or = node->op == OROR;
    builder_.branch_if(node->left, is_or ? decided : open, is_or ? open : decided);
    node->left = nullptr;
    builder_.start(decided);
    add_assignment(result, mk_ICON(INT65::from_signed(is_or ? 1 : 0), node->type));
    builder_.branch(join);
    builder_.start(open);
    add_visit(&node->right);
    add(END_BOOL, &node->right, result, join);
    add(END_SPLIT, place, result, join);
}

void INTEGRATOR::split_quest(NODE** place) {
    NODE* node = *place;
    NODE* arms = node->right;
    SYMTAB* result = node->type->is_void() ? nullptr : new_temp(node->type);
    BBLK* if_true = BLOCK_BUILDER::make_block();
    BBLK* if_false = BLOCK_BUILDER::make_block();
    BBLK* join = BLOCK_BUILDER::make_block();
    builder_.branch_if(node->left, if_true, if_false);
    node->left = nullptr;
    builder_.start(if_true);
    add_visit(&arms->left);
    add(END_ARM, &arms->left, result, join);
    add(START_BLOCK, nullptr, nullptr, if_false);
    add_visit(&arms->right);
    add(END_ARM, &arms->right, result, join);
    add(END_SPLIT, place, result, join);
}

void INTEGRATOR::end_arm(const TASK& task) {
    NODE* value = *task.place;
    *task.place = nullptr;
    if (task.result != nullptr) {
        add_assignment(task.result, value);
    } else {
        add_effect(value);
    }
    builder_.branch(task.bb);
}

void INTEGRATOR::end_split(const TASK& task) {
    NODE* node = *task.place;
    *task.place = value_of(task.result, node->type);
    erase_tree(node);
    builder_.start(task.bb);
}

// Whether the value is the same later in the statement, whatever the calls in between do.
bool INTEGRATOR::can_wait(const NODE* value) const {
    while (value->op == SCONV || value->op == PCONV || value->op == ISP2CHAR) value = value->left;
    switch (value->op) {
        case ICON:
        case FCON:
        case SCON: return true;
        case UAND: {
            const NODE* object = value->left;
            while (object->op == STDOT) object = object->left;
            return object->op == NAME;
        }
        case NAME:
            return temporaries_.contains(value->symbol()) ||
                   (!may_change_locals_ && symbols_.number_of(value->symbol()) >= 0);
        default: return false;
    }
}

void INTEGRATOR::save(NODE** place) {
    // What belongs to the call stays with it.
    while ((*place)->op == ACONV || (*place)->op == STARG) place = &(*place)->left;
    NODE* value = *place;
    if (can_wait(value)) return;
    if (value->type->is_void()) {
        add_effect(value);
        *place = value_of(nullptr, value->type);
        return;
    }
    TYPE* type = value->type;
    SYMTAB* temp = new_temp(type);
    add_assignment(temp, value);
    *place = value_of(temp, type);
}

void INTEGRATOR::add_effect(NODE* tree) {
    NODE* effect = peel_for_effect(tree);
    if (effect != nullptr) builder_.append(simp_tree(effect, nullptr));
}

void INTEGRATOR::add_assignment(SYMTAB* symbol, NODE* value) {
    if (symbol->type->is_scalar()) value = coerce_to_type(value, symbol->type);
    builder_.append(simp_tree(mk_ASG(mk_NAME(symbol, symbol->scope), value), nullptr));
}

SYMTAB* INTEGRATOR::new_temp(TYPE* type) {
    SYMTAB* symbol = sym_temp(TEMP_KIND, -1, type->normalized(), splicer_.scope_of(block_));
    temporaries_.insert(symbol);
    return symbol;
}

// What stands where the value was computed; 0 for one that is dropped.
NODE* INTEGRATOR::value_of(SYMTAB* result, TYPE* type) const {
    if (result == nullptr) return mk_ICON(INT65::from_signed(0), tp->int_type(IK_INT));
    NODE* name = mk_NAME(result, result->scope);
    return type->is_scalar() ? coerce_to_type(name, type->normalized()) : name;
}

void INTEGRATOR::call_now(NODE** place) {
    NODE* call = *place;
    NODE* root = cell_->first;
    SYMTAB* target = nullptr;
    if (place == &cell_->first || call->type->is_void()) {
        *place = value_of(nullptr, call->type);
    } else if (place == &root->right && (root->op == ASG || root->op == STASG) && root->left->op == NAME &&
               !node_is_volatile_access(root->left)) {
        target = root->left->symbol();
        root->right = nullptr;
        erase_tree(root);
        cell_->first = value_of(nullptr, call->type);
    } else {
        target = new_temp(call->type);
        *place = value_of(target, call->type);
    }
    integrate(call, target);
}

void INTEGRATOR::integrate(NODE* call, SYMTAB* target) {
    FUNINFO* callee = find_FUNINFO_for_call(call);
    const long line = line_of(builder_.position());
    dprintf("\n\t>>>>> (%ld) Integrating procedure %s() <<<<<\n", line, callee->symbol->name);
    splicer_.integrate(builder_, call, callee, target, block_);
    changed_ = true;
}

// --- Statements and blocks.

// A test of several conditions that hold calls becomes a test of each.
void INTEGRATOR::run_condition(LIST* cell) {
    struct TEST {
        NODE* condition;
        NODE *if_true, *if_false; // labels
        BBLK* bb;                 // where it stands; null for here
    };
    NODE* statement = cell->first;
    NODE* arms = statement->right;
    std::vector<TEST> tests{{statement->left, arms->left, arms->right, nullptr}};
    arms->left = arms->right = statement->left = nullptr;
    while (!tests.empty()) {
        TEST test = tests.back();
        tests.pop_back();
        NODE* condition = test.condition;
        const bool is_or = condition->op == OROR;
        if (has_mark(condition) && condition->op == EXCLAIM) {
            tests.push_back({condition->left, test.if_false, test.if_true, test.bb});
        } else if (has_mark(condition) && (condition->op == ANDAND || is_or)) {
            BBLK* open = BLOCK_BUILDER::make_block();
            NODE* decided = copy_tree(is_or ? test.if_true : test.if_false, false);
            NODE* undecided = mk_LABELREF_to_bb(open, nullptr);
            tests.push_back({condition->right, test.if_true, test.if_false, open});
            tests.push_back(
                {condition->left, is_or ? decided : undecided, is_or ? undecided : decided, test.bb});
        } else {
            if (test.bb != nullptr) builder_.start(test.bb);
            take_apart(&test.condition);
            builder_.append(mk_IF(test.condition, test.if_true, test.if_false));
            continue;
        }
        condition->left = condition->right = nullptr;
        erase_node(condition);
    }
    erase_tree(statement);
    POOL::recycle(cell, sizeof(LIST));
}

void INTEGRATOR::run_statement(LIST* cell) {
    cell_ = cell;
    builder_.set_position(cell->psn);
    if (!choose(cell)) {
        builder_.append(cell);
        return;
    }
    if (cell->first->op == IF) return run_condition(cell);
    take_apart(&cell->first);
    if (!opcode_is_transfer(cell->first->op)) {
        cell->first = peel_for_effect(cell->first);
        if (cell->first == nullptr) {
            POOL::recycle(cell, sizeof(LIST));
            return;
        }
        cell->first = simp_tree(cell->first, nullptr);
    }
    builder_.append(cell);
}

bool has_call(const BBLK* bb) {
    for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
        if (any_node(cell->first, [](const NODE* node) { return node->op == CALL || node->op == UCALL; }))
            return true;
    return false;
}

void INTEGRATOR::run_block(BBLK* bb) {
    block_ = bb;
    for (LIST *cell = builder_.open(bb), *next; cell != nullptr; cell = next) {
        next = cell->next;
        run_statement(cell);
    }
}

bool INTEGRATOR::run() {
    clear_visited();
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        if (bb->visited == 0 && has_call(bb)) run_block(bb);
    return changed_;
}

// Whether a definition is there that a call of the function could be replaced with.
bool is_worth_a_look() {
    return currfuninfo->bb_list != nullptr && !symbol_has_pragma(currfunc, PRAG_FUNC_SYNONYM) &&
           fileinfo.definition_count > 0;
}

} // namespace

void integrate_calls_in_function() {
    dprintf("\n\n\t\t\t---------- ENTERING 'integrate_calls_in_function' ----------\n");
    if (!is_worth_a_look() || !INTEGRATOR().run()) return;
    renumber_bblocks();
    rebuildcfg();
    simpcfg(false, false);
    fast_CP(4, 1);
}
