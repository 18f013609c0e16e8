#include "bbutils.h"

#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "bblk.h"
#include "debug.h"
#include "fpsmath.h"
#include "if_file.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "symbol.h"
#include "types.h"

using namespace op;

std::uint32_t fresh_stamp() {
    static std::uint32_t last_stamp;
    return ++last_stamp;
}

int count_nodes_in_tree(NODE* tree) {
    int count = 0;
    walk_tree(tree, [&count](NODE*) { count++; });
    return count;
}

bool tree_contains_op(NODE* tree, int op) {
    return any_node(tree, [op](NODE* node) { return node->op == op; });
}

bool tree_has_DDNODE_subtrees(NODE* tree) { return tree_contains_op(tree, DDNODE); }

bool node_is_volatile_access(const NODE* node) {
    switch (node->op) {
        case NAME: {
            const SYMTAB* symbol = node->symbol();
            if (node->type != nullptr && node->type->is_volatile()) return true;
            if (symbol->otype != nullptr && symbol->otype->is_volatile()) return true;
            return volit_vars != 0 && symbol->level == 0;
        }
        case UMULT:
        case STREF: {
            if (volit_vars != 0) return true;
            if (node->type != nullptr && node->type->is_volatile()) return true;
            TYPE* pointer = node->left != nullptr ? node->left->type : nullptr;
            return pointer != nullptr && pointer->is_ptr() && pointer->type_pointed_to()->is_volatile();
        }
        case STDOT: return node->type != nullptr && node->type->is_volatile();
        case FIELD:
            return (node->type != nullptr && node->type->is_volatile()) ||
                   (node->mdata->type != nullptr && node->mdata->type->is_volatile());
        default: return false;
    }
}

bool place_is_volatile(const NODE* place) {
    for (; place->op == STDOT; place = place->left)
        if (node_is_volatile_access(place) || node_is_volatile_access(place->right)) return true;
    return node_is_volatile_access(place) || (place->op == STREF && node_is_volatile_access(place->right));
}

bool is_bit_field(const NODE* place) {
    return (place->op == STDOT || place->op == STREF) && place->right->op == FIELD &&
           place->right->mdata->bit_field;
}

bool tree_has_side_effects(NODE* tree) {
    return any_node(
        tree, [](NODE* node) { return side_effects[node->op] != SE_NONE || node_is_volatile_access(node); });
}

namespace {

bool receives_parameter(const NODE* asg) {
    if (asg->op != ASG && asg->op != STASG) return false;
    const NODE* target = asg->left;
    const NODE* source = asg->right;
    while (source != nullptr && source->op == SCONV) source = source->left;
    return target != nullptr && target->op == NAME && source != nullptr && source->op == NAME &&
           target->symbol() == source->symbol() && target->symbol()->level == 1;
}

} // namespace

void mark_arg_prolog(NODE* first_statement) {
    NODE* tree = first_statement;
    for (; tree->op == PCOMMA; tree = tree->left)
        if (!receives_parameter(tree->right)) return;
    if (!receives_parameter(tree)) return;
    for (tree = first_statement; tree->op == PCOMMA; tree = tree->left) {
        tree->flags |= NF_RECEIVES_PARAMETER;
        tree->right->flags |= NF_RECEIVES_PARAMETER;
    }
    tree->flags |= NF_RECEIVES_PARAMETER;
}

bool is_comment(const NODE* statement) {
    return statement->op == ASM && statement->u.lval == INT65::from_signed(REC_COMMENT);
}

SYMTAB* get_callee_for_call(NODE* call) {
    if (call->op != CALL && call->op != UCALL) return nullptr;
    const NODE* function = call->left;
    if (function == nullptr || function->op != UAND || function->left == nullptr) return nullptr;
    const NODE* name = function->left;
    return name->op == NAME && name->symbol()->otype->is_func() ? name->symbol() : nullptr;
}
