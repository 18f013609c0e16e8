// One walk over each statement, in order of evaluation, up to the first thing with effects that has to stay:
// whatever comes behind that stays as well.

#include "embedded_assigns.h"

#include <vector>

#include "accesses.h"
#include "bblk.h"
#include "bbutils.h"
#include "congruent.h"
#include "debug.h"
#include "def_use.h"
#include "dump.h"
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

class PROMOTION {
  public:
    // The assignments taken out of the statement, in order of execution.
    const std::vector<NODE*>& run(NODE*& statement);

  private:
    struct WORK {
        NODE** place;
        bool operands_done;
    };

    void push(NODE*& place) { work_.push_back({&place, false}); }
    void push_operands(NODE* node);
    bool promote(NODE*& place);
    NODE* keep(NODE* value);

    const PRIVATE_SYMBOLS private_symbols_;
    std::vector<WORK> work_;
    std::vector<NODE**> operands_;
    std::vector<NODE*> ahead_;
};

bool has_effect(const NODE* node) {
    return side_effects[node->op] != SE_NONE || node_is_volatile_access(node);
}

// Whether the place is a plain scalar, and what is assigned to it what is read back.
bool is_simple_target(const NODE* place) {
    if (!place->type->is_scalar() || place->type->is_bool() || place->type->is_marked_bool()) return false;
    const NODE* at = place;
    for (; at->op == STDOT; at = at->left)
        if (node_is_volatile_access(at) || node_is_volatile_access(at->right) || at->right->mdata->bit_field)
            return false;
    if (at->op == STREF && (node_is_volatile_access(at->right) || at->right->mdata->bit_field)) return false;
    return (at->op == NAME || at->op == UMULT || at->op == STREF) && !node_is_volatile_access(at);
}

// Puts the operands that are evaluated in any case on the stack, the first on top. Where something with
// effects depends on a condition, or a promise is made, nothing behind it is looked at.
void PROMOTION::push_operands(NODE* node) {
    switch (node->op) {
        case ANDAND:
        case OROR:
        case QUEST:
            if (tree_has_side_effects(node->right)) work_.clear();
            push(node->left);
            return;
        case NASSERT:
        case ASSERT: work_.clear(); return;
        case IF:
        case SWITCH: push(node->left); return;
        case RETURN: push(node->right); return;
        default: break;
    }
    if (opcode_is_ASG(node->op)) {
        if (NODE** pointer = pointer_of_place(node->left)) push(*pointer);
        push(node->right);
        return;
    }
    operands_.clear();
    for_each_value_operand(node, [this](NODE*& operand) { operands_.push_back(&operand); });
    for (auto operand = operands_.rbegin(); operand != operands_.rend(); ++operand) push(**operand);
}

NODE* PROMOTION::keep(NODE* value) {
    SYMTAB* temporary = sym_temp(TEMP_KIND, -1, value->type, nullptr);
    const auto name = [&] {
        NODE* node = mk_NAME(temporary);
        node->type = value->type->true_type();
        return node;
    };
    ahead_.push_back(simp_tree(mk_ASG(name(), value), nullptr));
    return name();
}

bool PROMOTION::promote(NODE*& place) {
    NODE* assignment = place;
    if (assignment->op == PLUSPLUS || assignment->op == MINMIN || assignment->op == STASG ||
        assignment->op == ARASG || !is_simple_target(assignment->left))
        return false;
    NODE* target = assignment->left;
    const bool is_private = target->op == NAME && private_symbols_.number_of(target->symbol()) >= 0;
    if (assignment->op != ASG) {
        if (target->op != NAME) return false; // what leads to the place would be computed twice
        if (!is_private && opASG_to_ASG(assignment)->op != ASG) return false;
    }
    NODE* result = nullptr;
    if (is_private) {
        result = mk_NAME(target->symbol());
        result->type = target->type;
    } else if (assignment->right->op != ICON) {
        result = keep(coerce_to_type(assignment->right, target->type->true_type()));
        assignment->right = mk_NAME(result->symbol());
        assignment->right->type = result->type;
    } else {
        result =
            mk_ICON(truncate_to_type(assignment->right->u.lval, target->type), target->type->true_type());
    }
    ahead_.push_back(simp_tree(assignment, nullptr));
    place = result;
    return true;
}

const std::vector<NODE*>& PROMOTION::run(NODE*& statement) {
    ahead_.clear();
    work_.clear();
    push(statement);
    while (!work_.empty()) {
        WORK& top = work_.back();
        NODE* node = *top.place;
        if (!top.operands_done) {
            top.operands_done = true;
            push_operands(node);
            continue;
        }
        NODE** place = top.place;
        work_.pop_back();
        if (node == statement || !has_effect(node)) continue;
        if (!opcode_is_ASG(node->op) || !promote(*place)) break;
    }
    return ahead_;
}

} // namespace

void promote_all_embedded_assignments() {
    if (opt_level() == 0) return;
    dprintf("\n\n\t\t\t---------- ENTERING 'promote_all_embedded_assignments' ----------\n");
    PROMOTION promotion;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        bool changed = false;
        for (LIST** place = &bb->statements; *place != nullptr; place = &(*place)->next) {
            LIST* cell = *place;
            if (tree_is_arg_prolog(cell->first)) continue;
            const std::vector<NODE*>& ahead = promotion.run(cell->first);
            if (ahead.empty()) continue;
            for (NODE* assignment : ahead) {
                if (print_debug != 0) dprintf("\t%s\n", tree_to_text(assignment).c_str());
                *place = mkelist(assignment, cell, cell->psn);
                place = &(*place)->next;
            }
            cell->first = simp_tree(cell->first, bb->loop);
            changed = true;
        }
        if (changed) bb->statements = promote_toplevel_COMMAOPs_in_list(bb->statements);
    }
}
