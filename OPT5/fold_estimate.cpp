#include "fold_estimate.h"

#include <utility>

#include "bblk.h"
#include "bbutils.h"
#include "congruent.h"
#include "copy.h"
#include "copy_cfg.h"
#include "copyprop.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "in_function.h"
#include "inliner.h"
#include "inliner_selection.h"
#include "ls.h"
#include "node.h"
#include "opcodes.h"
#include "optypes.h"
#include "simp.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

// Gives the record the copied body for its own.
void adopt_body(FUNINFO& scratch, const FUNINFO* callee) {
    scratch.symbol = callee->symbol;
    scratch.return_type = callee->return_type;
    scratch.name = "  dummy  ";
    scratch.flags = callee->flags;
    CFG_COPY copy = copy_cfg(callee, &scratch);
    scratch.bb_list = copy.first;
    scratch.bb_count = callee->bb_count;
    scratch.params = copy.params;
    scratch.locals = copy.locals;
    scratch.temps = copy.temps;
    scratch.scopes = copy.scopes;
    scratch.body_scope = copy.scopes != nullptr && copy.scopes->children != nullptr
                             ? copy.scopes->children->children
                             : nullptr;
    scratch.eht = std::move(copy.eht);
}

int count_nodes() {
    int count = 0;
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            count += count_nodes_in_tree(cell->first);
    return count;
}

// An argument's tree as the parameter receives it; null if it does not fold.
NODE* constant_for(NODE* argument, TYPE* type) {
    if (!expr_is_constant(argument) || !type->is_scalar()) return nullptr;
    NODE* copy = copy_tree(argument, false);
    NODE* converted = coerce_to_type(copy, type);
    return converted == copy ? copy : simp_node(converted, nullptr);
}

// The prolog becomes assignments of the constants, and of the other parameters to themselves.
void bind_constants(LIST* prolog, NODE* arguments) {
    NODE* assignments = prolog->first;
    for (NODE* list = arguments; list != nullptr && assignments != nullptr;) {
        NODE* argument = list->op == COMMA ? list->right : list;
        NODE* assignment = assignments->op == PCOMMA ? assignments->right : assignments;
        if (NODE* constant = constant_for(argument, assignment->left->type)) {
            erase_tree(assignment->right);
            assignment->right = constant;
        }
        list = list->op == COMMA ? list->left : nullptr;
        assignments = assignments->op == PCOMMA ? assignments->left : nullptr;
    }
    LIST* behind = prolog->next;
    NODE* rest = prolog->first;
    for (; rest->op == PCOMMA; rest = rest->left) {
        rest->right->flags &= ~NF_RECEIVES_PARAMETER;
        behind = mkelist(rest->right, behind, nullptr);
    }
    rest->flags &= ~NF_RECEIVES_PARAMETER;
    prolog->first = rest;
    prolog->next = behind;
}

} // namespace

void estimate_folding(CALLSITE& site) {
    FUNINFO* callee = site.callee;
    if (site.args == nullptr || site.nconstargs == 0 || callee->params == nullptr) return;
    const LIST* first = callee->bb_list->statements;
    if (first == nullptr || !tree_is_arg_prolog(first->first)) return;
    sym_split(callee);
    FUNINFO scratch;
    adopt_body(scratch, callee);
    const IN_FUNCTION current(&scratch);
    const int before = count_nodes();
    bind_constants(scratch.bb_list->statements, site.args);
    fast_CP(4, 1);
    const int after = count_nodes();
    if (after > 0) site.fold_ratio = static_cast<float>(before) / static_cast<float>(after);
    comment_on_inlining("[constant folding in %s:  before %d, after %d, ratio %.2f]\n", callee->name.c_str(),
                        before, after, static_cast<double>(site.fold_ratio));
    erase_all();
}
