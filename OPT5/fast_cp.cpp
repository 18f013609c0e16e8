// Propagation of values that are assigned once: a symbol with one definition has its value at every use.
// What is read ahead of the definition is undefined in the source.

#include <cstdint>
#include <vector>

#include "aliasing.h"
#include "bblk.h"
#include "bbutils.h"
#include "buildcfg.h"
#include "congruent.h"
#include "copy.h"
#include "copyprop.h"
#include "dead_assigns.h"
#include "debug.h"
#include "def_use.h"
#include "dump.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "fold.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "pool.h"
#include "seq_trees.h"
#include "simp.h"
#include "simpcfg.h"
#include "symbol.h"
#include "types.h"

using namespace op;

long replacement_count;

// --- What the propagators share.

NODE* value_for_use(const NODE* use, const SYMTAB* symbol, NODE* value) {
    const auto convert = [](NODE* tree, TYPE* type) {
        NODE* result = coerce_to_type(tree, type);
        return result == tree ? tree : simp_node(result, nullptr);
    };
    return convert(convert(copy_tree(value, false), symbol->type), use->type);
}

namespace {

// The condition of a statement that chooses its successor, past what is done ahead of it; null for others.
const NODE* choice_of(const NODE* statement) {
    if (statement->op != IF && statement->op != SWITCH) return nullptr;
    const NODE* condition = statement->left;
    while (condition->op == COMMAOP) condition = condition->right;
    return condition;
}

} // namespace

NODE* tidy_statement(NODE* statement, bool& settled) {
    statement = simp_tree(statement, nullptr);
    if (!opcode_is_transfer(statement->op)) return peel_for_effect(statement);
    const NODE* choice = choice_of(statement);
    if (choice != nullptr && choice->op == ICON) settled = true;
    return statement;
}

LIST* tidy_statement_list(LIST* list) {
    for (LIST** place = &list; *place != nullptr;) {
        LIST* cell = *place;
        if (cell->first == nullptr) {
            *place = cell->next;
            POOL::recycle(cell, sizeof(LIST));
        } else {
            place = &cell->next;
        }
    }
    return promote_toplevel_COMMAOPs_in_list(list);
}

void repair_flow() {
    rebuildcfg();
    simpcfg(false, false);
}

namespace {

// Replaces the uses of known symbols in one statement.
class SUBSTITUTION {
  public:
    // Whether anything was replaced; `statement` is what takes its place.
    bool run(NODE*& statement);

  private:
    void visit(NODE*& place);
    bool replace_NAME(NODE*& place, NODE* name);

    std::vector<NODE**> pending_;
    bool changed_ = false;
};

bool SUBSTITUTION::replace_NAME(NODE*& place, NODE* name) {
    const SYMTAB* symbol = name->symbol();
    if (symbol->def_count != 1 || symbol->sole_def == nullptr || !place->type->is_scalar()) return false;
    if (place->type->is_volatile() || symbol->otype->is_volatile()) return false;
    NODE* value = currfuninfo->snmap.value(symbol, false);
    // A constant gets its value from its initialisation, like every other constant.
    if (value == nullptr || symbol->otype->is_const()) return false;
    NODE* replacement = value_for_use(place, symbol, value);
    replacement_count++;
    if (print_debug != 0) {
        dprintf("\n\t(%ld) fcpNAME() is replacing %s with %s\n", replacement_count,
                tree_to_text(place).c_str(), tree_to_text(replacement).c_str());
        if (!is_automatic(symbol)) dprintf("\t\t(%s is a GLOBAL variable)\n", symbol->name);
    }
    erase_tree(place);
    place = replacement;
    changed_ = true;
    return true;
}

void SUBSTITUTION::visit(NODE*& place) {
    NODE* node = place;
    if (node->op == NAME) {
        replace_NAME(place, node);
        return;
    }
    if (NODE* name = name_behind_address(node); name != nullptr && replace_NAME(place, name)) return;
    for_each_value_operand(node, [this](NODE*& operand) { pending_.push_back(&operand); });
}

bool SUBSTITUTION::run(NODE*& statement) {
    changed_ = false;
    pending_.push_back(&statement);
    while (!pending_.empty()) {
        NODE** place = pending_.back();
        pending_.pop_back();
        visit(*place);
    }
    return changed_;
}

// Whether there is nothing in the block to replace.
bool is_idle(const BBLK* bb) {
    const NODE* first = bb->statements != nullptr ? bb->statements->first : nullptr;
    if (first == nullptr || first->op == BRANCH || first->op == URETURN) return true;
    return first->op == RETURN && expr_is_constant(first->right);
}

// One round over the function. Returns whether anything was replaced; `settled` is set when a branch has
// only one way left.
bool substitute(bool& settled) {
    SUBSTITUTION walk;
    bool any = false;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        if (is_idle(bb)) continue;
        bool changed = false;
        for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
            if (tree_is_arg_prolog(cell->first)) continue;
            const long before = replacement_count;
            cell->first = propagate_global_constants(cell->first, cell, false);
            walk.run(cell->first);
            if (replacement_count == before) continue;
            changed = true;
            cell->first = tidy_statement(cell->first, settled);
        }
        if (!changed) continue;
        bb->statements = tidy_statement_list(bb->statements);
        any = true;
    }
    return any;
}

} // namespace

void fast_CP(int limit, int full) {
    if (opt_level() == 0) return;
    if (full != 0) combine_asgs_to_memory();
    const int alias_vars_in_force = alias_vars;
    alias_vars = 1;
    init_aliasing_info();
    alias_vars = alias_vars_in_force;
    sym_split(currfuninfo);

    bool replaced = false;
    for (int round = 0; round < limit; round++) {
        dprintf("\n\n\t\t\t---------- ENTERING 'fast_CP' -----------------\n");
        currfuninfo->snmap.clear();
        find_single_assignments();
        bool settled = false;
        if (substitute(settled)) replaced = true;
        if (!settled) break;
        repair_flow();
    }
    if (full != 0 || replaced) elim_dead_assigns(false, true);
    currfuninfo->snmap.clear();
}
