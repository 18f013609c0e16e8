// A definition is stored as it is written: statements in order, a chain of symbols whose numbers count from 0,
// and the tree of scopes as four arrays by the number of a scope: its parent, its level, and the positions at
// which a walk of the tree opens and closes it, so that a scope lies in another if its positions do.
//
// Integration puts the statements of the callee ahead of the statement with the call. So a call can only be
// replaced where what the statement evaluates ahead of it may be evaluated behind it as well: constants,
// addresses, and locals that nobody else knows. A condition with && or || is split first, so that the second
// operand's calls get a statement of their own.

#include "integrate_stmts.h"

#include <cstddef>
#include <cstdint>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "bblk.h"
#include "bbutils.h"
#include "bind_call.h"
#include "copy.h"
#include "copy_cfg.h"
#include "debug.h"
#include "dump.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "fold.h"
#include "if_file.h"
#include "integrate.h"
#include "ls.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "pool.h"
#include "pragma.h"
#include "psn.h"
#include "psnmap.h"
#include "seq_trees.h"
#include "simp.h"
#include "symbol.h"
#include "types.h"

using namespace op;

// The callee in work, and by the numbers of its scopes what has become of them in the caller.
static FUNINFO* inlined_funinfo;
static std::vector<LS*> inlined_scopes;

// --- The stored definition.

namespace {

// Rewrites copied trees of one function: its symbols, labels, scopes and texts become those of the copy.
class TREE_COPIER {
  public:
    using SYMBOLS = std::unordered_map<const SYMTAB*, SYMTAB*>; // never walked
    explicit TREE_COPIER(const SYMBOLS& symbols) : symbols_(symbols) {}
    virtual ~TREE_COPIER() = default;

    NODE* copy(NODE* tree) {
        NODE* copied = copy_tree(tree, false);
        walk_tree(copied, [this](NODE* node) { adopt(node); });
        return copied;
    }

  protected:
    virtual LBL* new_label() = 0;
    virtual LS* scope_of(LS* scope) = 0;

  private:
    void adopt(NODE* node);

    const SYMBOLS& symbols_;
    std::unordered_map<const LBL*, LBL*> labels_;
};

void TREE_COPIER::adopt(NODE* node) {
    if (node->ls != nullptr) node->ls = scope_of(node->ls);
    switch (node->op) {
        case NAME:
            if (node->symbol()->level > 0) {
                const auto symbol = symbols_.find(node->symbol());
                OPTASSERT(symbol != symbols_.end());
                node->u.rval = symbol->second;
                node->ls = symbol->second->scope;
            }
            break;
        case LABEL:
        case LABELDEF:
            if (node->label != nullptr) {
                LBL*& label = labels_[node->label];
                if (label == nullptr) label = new_label();
                node->label = label;
                node->u.lval = INT65::from_signed(label->number);
            }
            break;
        case SCON: node->text = current_pool().copy_text({node->text, node->text_length}); break;
        case FCON:
        case ASM:
            if (node->text != nullptr) node->text = current_pool().copy_text(node->text);
            break;
        default: break;
    }
}

// Into the definition: its labels are on no list, its scopes are the function's own.
class DEFINITION_COPIER final : public TREE_COPIER {
  public:
    using TREE_COPIER::TREE_COPIER;

  private:
    LBL* new_label() override { return mklabel(0, nullptr, nullptr); }
    LS* scope_of(LS* scope) override { return scope; }
};

// Out of the definition, into the function in work.
class CALLER_COPIER final : public TREE_COPIER {
  public:
    using TREE_COPIER::TREE_COPIER;

  private:
    LBL* new_label() override {
        return currfuninfo->labels = mklabel(next_internal_label(), currfuninfo->labels, nullptr);
    }
    LS* scope_of(LS* scope) override { return inlined_scopes[scope->sequence]; }
};

void store_scopes(FUNINFO* function) {
    OPTASSERT(function->scopes != nullptr && function->scope_count >= 2);
    const std::size_t count = function->scope_count;
    for (std::vector<int>* array : {&function->scope_parent, &function->scope_level, &function->scope_open,
                                    &function->scope_close})
        array->assign(count, -1);
    std::size_t found = 0;
    int position = 0;
    for (const LS* scope = function->scopes; scope != nullptr;) {
        const std::size_t number = scope->sequence;
        if (number >= count || function->scope_open[number] >= 0) abort_optimizer();
        function->scope_parent[number] =
            scope->parent != nullptr ? static_cast<int>(scope->parent->sequence) : -1;
        function->scope_level[number] = scope->level;
        function->scope_open[number] = position++;
        found++;
        if (scope->children != nullptr) {
            scope = scope->children;
            continue;
        }
        while (scope != nullptr) {
            function->scope_close[scope->sequence] = position++;
            if (scope->sibling != nullptr) break;
            scope = scope->parent;
        }
        if (scope != nullptr) scope = scope->sibling;
    }
    if (found != count) abort_optimizer();
}

// A local that is not storage of one call belongs to the function itself, and so does one with an initialiser.
bool symbols_can_be_copied(const FUNINFO* function) {
    for (const SYMTAB* list : {function->params, function->locals, function->temps})
        for (const SYMTAB* symbol = list; symbol != nullptr; symbol = symbol->next)
            if (!is_automatic(symbol) || symbol->init != nullptr) return false;
    return true;
}

// turn  hook(..)  into  0
NODE* without_hooks(NODE* tree) {
    return rewrite_tree(tree, [](NODE* node) {
        const SYMTAB* callee = get_callee_for_call(node);
        if (callee == nullptr || !symbol_has_pragma(callee, PRAG_HOOK_FUNCTION)) return node;
        erase_tree(node);
        return mk_ICON(INT65::from_signed(0), tp->int_type(IK_INT));
    });
}

void append(LIST**& place, NODE* statement, const PSN* psn) {
    *place = mkelist(statement, nullptr, psn);
    place = &(*place)->next;
}

// The statements in order of execution; the list holds the last one first.
std::vector<const LIST*> statements_in_order(const FUNINFO* function) {
    std::vector<const LIST*> cells;
    for (const LIST* cell = function->statements; cell != nullptr; cell = cell->next) cells.push_back(cell);
    return {cells.rbegin(), cells.rend()};
}

// What the option says of the parameters becomes a remark at the head of the copy.
void note_disjoint_parameters(const FUNINFO* function, LIST**& place) {
    std::string text = "\tThese pointer parameters are disjoint:";
    int count = 0;
    for (const SYMTAB* parameter = function->params; parameter != nullptr; parameter = parameter->next) {
        if (!parameter->type->is_ptr()) continue;
        text += std::string(" ") + parameter->name;
        count++;
    }
    if (count < 2) return;
    auto* remark = new NODE(ASM, tp->void_type());
    remark->u.lval = INT65::from_signed(REC_COMMENT);
    remark->text = current_pool().copy_text(text.c_str());
    append(place, remark, nullptr);
}

void store_symbols(FUNINFO* function, TREE_COPIER::SYMBOLS& symbols) {
    const std::uint32_t serial = std::exchange(function->next_serial, 0);
    SYMTAB** place = &function->integrable_symbols;
    for (SYMTAB* list : {function->params, function->locals, function->temps})
        for (SYMTAB* symbol = list; symbol != nullptr; symbol = symbol->next) {
            *place = copy_symbol(symbol);
            (*place)->scope = symbol->scope;
            (*place)->flags &= static_cast<std::uint8_t>(~SF_ADDRESS_TAKEN);
            symbols.emplace(symbol, *place);
            place = &(*place)->next;
        }
    function->next_serial = serial;
}

void note_addresses(NODE* tree) {
    walk_tree(tree, [](NODE* node) {
        if (node->op != UAND) return;
        const NODE* object = node->left;
        while (object->op == STDOT) object = object->left;
        if (object->op == NAME && object->symbol()->level > 0) object->symbol()->flags |= SF_ADDRESS_TAKEN;
    });
}

void store_body(FUNINFO* function, const TREE_COPIER::SYMBOLS& symbols) {
    DEFINITION_COPIER copier(symbols);
    LIST** place = &function->integrable_body;
    bool first = true, leaves = false;
    for (const LIST* cell : statements_in_order(function)) {
        NODE* statement = copier.copy(cell->first);
        if (remove_hooks_when_inlining != 0) statement = without_hooks(statement);
        leaves = statement->op == BRANCH || statement->op == RETURN || statement->op == URETURN;
        append(place, statement, cell->psn);
        note_addresses(statement);
        if (first && pointer_args_are_disjoint != 0 && tree_is_arg_prolog(statement))
            note_disjoint_parameters(function, place);
        first = false;
    }
    if (!leaves)
        append(place, maketree(URETURN, mk_NAME(function->symbol), nullptr, tp->void_type(), nullptr), nullptr);
    function->integrable_eht = function->eht;
    for (EHT_ENTRY& entry : function->integrable_eht) {
        if (entry.tree == nullptr) continue;
        NODE* tree = copier.copy(static_cast<NODE*>(entry.tree));
        entry.tree = tree;
        note_addresses(tree);
    }
}

void print_definition(const FUNINFO* function) {
    if (print_debug < 3) return;
    dprintf("\n\nINTEGRABLE DEFINITION FOR FUNCTION %s()\n\n", function->symbol->name);
    for (const SYMTAB* symbol = function->integrable_symbols; symbol != nullptr; symbol = symbol->next)
        dprintf("         LOCAL SYMBOL (LEVEL %d):  %s\n", symbol->level, symbol->name);
    for (const LIST* cell = function->integrable_body; cell != nullptr; cell = cell->next)
        dprintf("%s\n", tree_to_text(cell->first).c_str());
}

} // namespace

void make_integrable_definition(FUNINFO* function) {
    if (function->integrable_body != nullptr) return;
    if (!TEST_FLAG(function, FUN_cannot_inline)) check_integrable_definition(function);
    if (TEST_FLAG(function, FUN_cannot_inline) || !symbols_can_be_copied(function)) return;
    seq_trees();
    store_scopes(function);
    TREE_COPIER::SYMBOLS symbols;
    store_symbols(function, symbols);
    store_body(function, symbols);
    function->flags |= FUN_is_inlined;
    print_definition(function);
}

// --- One call.

// turn the arrays of the callee's scopes into scopes under that of the call
void LS::integrate_integrable_scopes(FUNINFO* callee, NODE* call) {
    LS* outer = call->ls != nullptr ? call->ls : level_2_scope(currfuninfo);
    inlined_funinfo = callee;
    inlined_scopes.assign(callee->scope_parent.size(), nullptr);
    // A scope is opened behind its parent, so ascending numbers meet parents first.
    for (std::size_t i = 0; i < callee->scope_parent.size(); i++) {
        const int parent = callee->scope_parent[i];
        if (parent < 0) { // the file's
            inlined_scopes[i] = outer;
            continue;
        }
        auto* scope = new (current_pool().allocate(sizeof(LS))) LS;
        scope->level = callee->scope_level[i] - callee->scope_level[static_cast<std::size_t>(parent)];
        inlined_scopes[static_cast<std::size_t>(parent)]->splice_scope(
            scope, static_cast<int>(currfuninfo->integrated_calls));
        inlined_scopes[i] = scope;
    }
}

namespace {

TREE_COPIER::SYMBOLS merged_symbols;

} // namespace

void merge_integrable_symbols(FUNINFO* callee) {
    currfuninfo->integrated_calls++;
    merged_symbols.clear();
    for (const SYMTAB* symbol = callee->integrable_symbols; symbol != nullptr; symbol = symbol->next) {
        SYMTAB* copy = copy_symbol(symbol);
        make_local_of_caller(copy);
        inlined_scopes[symbol->scope != nullptr ? symbol->scope->sequence : 0]->add_symbol(copy);
        merged_symbols.emplace(symbol, copy);
        if (is_internal_symbol(copy)) {
            copy->next = currfuninfo->temps;
            currfuninfo->temps = copy;
        } else {
            sym_def(copy);
        }
    }
}

bool verify_that_args_match(const NODE* call, const FUNINFO* callee) {
    const std::vector<NODE*> arguments = arguments_of(call);
    std::size_t i = 0;
    for (const SYMTAB* parameter = callee->integrable_symbols; parameter != nullptr && parameter->level == 1;
         parameter = parameter->next, i++) {
        if (i == arguments.size()) return false;
        const TYPE* passed = arguments[i]->type;
        if (arguments[i]->op == ARGREF || passed->is_scalar() != parameter->type->is_scalar()) return false;
        if (!passed->is_scalar() && passed->size() != parameter->type->size()) return false;
    }
    for (; i < arguments.size(); i++)
        if (arguments[i]->op == ARGREF) return false;
    return true;
}

namespace {

constexpr int TEMP_KIND = 'I';

NODE* branch_to(LBL* label) {
    NODE* reference = mk_LABELREF(INT65::from_signed(label->number), NO_PROFILE);
    reference->label = label;
    return maketree(BRANCH, reference, nullptr, tp->void_type(), nullptr);
}

// The variable that the value goes to, and what stays of it in the statement; null where it is dropped.
SYMTAB* take_value(CALL_POSITION position, NODE** place, LIST* cell) {
    NODE* call = *place;
    NODE* root = cell->first;
    if (position == CALL_IS_STATEMENT || call->type->is_void()) {
        *place = mk_ICON(INT65::from_signed(0), tp->int_type(IK_INT));
        return nullptr;
    }
    if (place == &root->right && (root->op == ASG || root->op == STASG) && root->left->op == NAME &&
        !node_is_volatile_access(root->left)) {
        SYMTAB* target = root->left->symbol();
        root->right = nullptr;
        erase_tree(root);
        cell->first = mk_ICON(INT65::from_signed(0), tp->int_type(IK_INT));
        return target;
    }
    SYMTAB* target = sym_temp(TEMP_KIND, -1, call->type->normalized(), LS::level_2_scope(currfuninfo));
    NODE* name = mk_NAME(target, target->scope);
    *place = call->type->is_scalar() ? coerce_to_type(name, call->type->normalized()) : name;
    return target;
}

} // namespace

LIST* integrate_call(CALL_POSITION position, NODE** place, LIST* cell) {
    NODE* call = *place;
    FUNINFO* callee = find_FUNINFO_for_call(call);
    const long line = cell->psn != nullptr ? static_cast<long>(cell->psn->line) : 0;
    dprintf("\n\t>>>>> (%ld) Integrating procedure %s() <<<<<\n", line, callee->symbol->name);
    SYMTAB* target = take_value(position, place, cell);
    LS::integrate_integrable_scopes(callee, call);
    merge_integrable_symbols(callee);
    psnref_add(callee->symbol);

    CALLER_COPIER copier(merged_symbols);
    std::vector<EHT_ENTRY> table = callee->integrable_eht;
    for (EHT_ENTRY& entry : table)
        if (entry.tree != nullptr) entry.tree = copier.copy(static_cast<NODE*>(entry.tree));
    const std::size_t first = currfuninfo->eht.empty() ? 0 : currfuninfo->eht.size();
    const unsigned offset = append_exception_table(std::move(table), call->u2.i_eht_id);
    for (std::size_t i = first; i < currfuninfo->eht.size(); i++)
        adjust_copied_calls(static_cast<NODE*>(currfuninfo->eht[i].tree), call, offset);

    // The arguments.
    LIST* list = nullptr;
    LIST** end = &list;
    const LIST* body = callee->integrable_body;
    PROLOG prolog;
    if (tree_is_arg_prolog(body->first)) {
        prolog = take_prolog_apart(copier.copy(body->first));
        body = body->next;
    }
    const SYMTAB* parameter = callee->integrable_symbols;
    for (NODE* value : take_arguments(call)) {
        if (parameter != nullptr && parameter->level == 1) {
            append(end, assignment_to_parameter(prolog, merged_symbols.at(parameter), value), cell->psn);
            parameter = parameter->next;
        } else if (NODE* effect = peel_for_effect(value); effect != nullptr) {
            append(end, effect, cell->psn); // the callee ignores it
        }
    }

    // The body.
    LBL* behind = currfuninfo->labels = mklabel(next_internal_label(), currfuninfo->labels, nullptr);
    for (; body != nullptr; body = body->next) {
        psnmap_add(body->psn, callee->symbol);
        if (body->first->op == URETURN) {
            append(end, branch_to(behind), body->psn);
            continue;
        }
        NODE* statement = copier.copy(body->first);
        adjust_copied_calls(statement, call, offset);
        if (statement->op != RETURN) {
            append(end, statement, body->psn);
            continue;
        }
        NODE* value = returned_value(std::exchange(statement->right, nullptr), call, target);
        erase_tree(statement);
        if (value != nullptr) append(end, value, body->psn);
        append(end, branch_to(behind), body->psn);
    }
    append(end, mk_LABELDEF(behind), nullptr);
    erase_node(call);
    return list;
}

// --- The calls of a function.

namespace {

// Copies within copies go on until they are so many statements, and calls are looked for in so many nodes.
constexpr std::size_t MAX_NESTED_STATEMENTS = 50000;
constexpr std::size_t MAX_EFFORT = 20000000;

class STATEMENT_INTEGRATOR {
  public:
    void run();

  private:
    bool is_chosen(NODE* call) const;
    void note_locals();
    bool can_wait(const NODE* node) const;
    NODE** first_call(LIST* cell);
    LIST* split_condition(LIST* cell) const;

    bool changes_locals_ = false; // the statement in work does, below its root
    std::size_t nested_ = 0;       // statements that came with calls in copies
    std::size_t effort_ = 0;       // nodes looked at
};

bool STATEMENT_INTEGRATOR::is_chosen(NODE* call) const {
    if (call->op != CALL && call->op != UCALL) return false;
    FUNINFO* callee = find_FUNINFO_for_call(call);
    if (callee == nullptr || callee->integrable_body == nullptr || callee == currfuninfo) return false;
    if (nested_ > MAX_NESTED_STATEMENTS || effort_ > MAX_EFFORT) return false;
    if (call->inline_depth() >= inline_recursion_limit()) {
        dprintf("\n\t>>>>> WARNING: INLINE recursion limit exceeded.\n");
        return false;
    }
    return verify_that_args_match(call, callee);
}

// Marks the locals whose address is taken somewhere.
void STATEMENT_INTEGRATOR::note_locals() {
    for (SYMTAB* list : {currfuninfo->params, currfuninfo->locals, currfuninfo->temps})
        for (SYMTAB* symbol = list; symbol != nullptr; symbol = symbol->next)
            symbol->flags &= static_cast<std::uint8_t>(~SF_ADDRESS_TAKEN);
    for (LIST* cell = currfuninfo->statements; cell != nullptr; cell = cell->next) note_addresses(cell->first);
    for (const EHT_ENTRY& entry : currfuninfo->eht) note_addresses(static_cast<NODE*>(entry.tree));
}

// Whether the operator gives the same behind the call, if its operands do.
bool STATEMENT_INTEGRATOR::can_wait(const NODE* node) const {
    switch (node->op) {
        case NAME: {
            const SYMTAB* symbol = node->symbol();
            return !changes_locals_ && symbol->level > 0 && is_automatic(symbol) &&
                   (symbol->flags & SF_ADDRESS_TAKEN) == 0 && !symbol->otype->is_volatile() &&
                   !node->type->is_volatile();
        }
        case ICON:
        case FCON:
        case SCON:
        case FIELD:
        case COMMA:
        case STARG:
        case ICALL: return true;
        case UMULT: // what is read there may change
        case STREF:
        case STDOT:
        case ANDAND: // of what comes behind the condition nothing is known
        case OROR:
        case QUEST: return false;
        default: return side_effects[node->op] == SE_NONE && !node->type->is_volatile();
    }
}

// The place of the call to integrate that the statement evaluates first, if nothing is in its way; else null.
NODE** STATEMENT_INTEGRATOR::first_call(LIST* cell) {
    struct TASK {
        NODE** place;
        bool is_done; // its operands have been evaluated
    };
    NODE* root = cell->first;
    bool any = false, is_promise = false;
    changes_locals_ = false;
    walk_tree(root, [&](NODE* node) {
        any = any || is_chosen(node);
        is_promise = is_promise || node->op == NASSERT || node->op == ASSERT; // may not be evaluated
        changes_locals_ = changes_locals_ || (opcode_is_ASG(node->op) && node != root);
        effort_++;
    });
    if (!any || is_promise) return nullptr;
    std::vector<TASK> pending{{&cell->first, false}};
    while (!pending.empty()) {
        const TASK task = pending.back();
        pending.pop_back();
        NODE* node = *task.place;
        if (task.is_done) {
            if (!can_wait(node)) return nullptr;
            continue;
        }
        if (is_chosen(node)) return task.place;
        // An address needs no value of the object that it is of.
        if (node->op == UAND) {
            const NODE* object = node->left;
            while (object->op == STDOT) object = object->left;
            if (object->op == NAME) continue;
        }
        pending.push_back({task.place, true});
        const bool right_first = opcode_is_ASG(node->op);
        NODE** first = right_first ? &node->right : &node->left;
        NODE** second = right_first ? &node->left : &node->right;
        // What comes behind depends on the condition; the target of an assignment is no value.
        const bool only_first = node->op == ANDAND || node->op == OROR || node->op == QUEST ||
                                opcode_is_transfer(node->op) || (right_first && (*second)->op == NAME);
        if (node->op == RETURN) first = &node->right;
        if (!only_first && *second != nullptr) pending.push_back({second, false});
        if (*first != nullptr) pending.push_back({first, false});
    }
    return nullptr;
}

// turn  IF(a && b, T, F)  into  IF(a, next, F); next: IF(b, T, F),  and the like for ||, where b has a call to
// integrate. Returns what is to stand ahead of the cell; null where nothing was split.
LIST* STATEMENT_INTEGRATOR::split_condition(LIST* cell) const {
    NODE* statement = cell->first;
    if (statement->op != IF) return nullptr;
    if (!any_node(statement->left, [this](NODE* node) { return is_chosen(node); })) return nullptr;
    NODE* arms = statement->right;
    while (statement->left->op == EXCLAIM) {
        NODE* inverted = statement->left;
        statement->left = std::exchange(inverted->left, nullptr);
        erase_node(inverted);
        std::swap(arms->left, arms->right);
    }
    NODE* condition = statement->left;
    if (condition->op != ANDAND && condition->op != OROR) return nullptr;
    if (!any_node(condition->right, [this](NODE* node) { return is_chosen(node); })) return nullptr;
    LBL* next = currfuninfo->labels = mklabel(next_internal_label(), currfuninfo->labels, nullptr);
    NODE* open = mk_LABELREF(INT65::from_signed(next->number), NO_PROFILE);
    open->label = next;
    NODE* decided = copy_tree(condition->op == ANDAND ? arms->right : arms->left, false);
    if (condition->op == OROR) std::swap(open, decided);
    LIST* ahead = mkelist(mk_IF(condition->left, open, decided), nullptr, cell->psn);
    ahead->next = mkelist(mk_LABELDEF(next), nullptr, nullptr);
    statement->left = condition->right;
    condition->left = condition->right = nullptr;
    erase_node(condition);
    return ahead;
}

LIST* last_of(LIST* list) {
    while (list->next != nullptr) list = list->next;
    return list;
}

CALL_POSITION position_of(NODE** place, const LIST* cell) {
    if (place == &cell->first) return CALL_IS_STATEMENT;
    return cell->first->op == IF || cell->first->op == SWITCH ? CALL_DECIDES : CALL_GIVES_VALUE;
}

void STATEMENT_INTEGRATOR::run() {
    note_locals();
    LIST* todo = nullptr; // in order
    for (LIST *cell = currfuninfo->statements, *next; cell != nullptr; cell = next) {
        next = cell->next;
        cell->next = todo;
        todo = cell;
    }
    LIST* done = nullptr; // the last statement first
    while (todo != nullptr) {
        LIST* cell = todo;
        LIST* ahead = nullptr;
        if (!tree_is_arg_prolog(cell->first)) {
            ahead = split_condition(cell);
            NODE** place = ahead == nullptr ? first_call(cell) : nullptr;
            if (place != nullptr) {
                const bool is_nested = (*place)->inline_depth() > 0;
                ahead = integrate_call(position_of(place, cell), place, cell);
                for (const LIST* copied = ahead; is_nested && copied != nullptr; copied = copied->next)
                    nested_++;
            }
        }
        if (ahead != nullptr) {
            last_of(ahead)->next = todo;
            todo = ahead;
            continue;
        }
        todo = cell->next;
        cell->next = done;
        done = cell;
    }
    currfuninfo->statements = done;
}

} // namespace

void integrate_calls_in_statements() {
    STATEMENT_INTEGRATOR().run();
    seq_trees();
}
