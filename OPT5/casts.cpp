#include "casts.h"

#include "bbutils.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "types.h"

using namespace op;

namespace {

bool is_number(const TYPE* type) { return type->is_integral() || type->is_fltpt(); }

void cast(NODE*& operand, TYPE* type) {
    if (is_number(operand->type) && is_number(type) && !same_representation(operand->type, type))
        operand = coerce_to_type(operand, type->true_type());
}

// Both sides of a comparison; plain forms compare numbers with sign, so a lone unsigned side stays wide.
void cast_comparison(NODE* node) {
    TYPE *left = node->left->type, *right = node->right->type;
    if (!is_number(left) || !is_number(right) || same_representation(left, right)) return;
    TYPE* common = left->size() >= right->size() ? left : right;
    cast(node->left, common);
    cast(node->right, common);
}

} // namespace

NODE* insert_mandatory_casts(NODE* node) {
    switch (node->op) {
        case PLUS:
        case MINUS:
        case MULT:
        case DIV:
        case MOD:
        case ANDB:
        case ORB:
        case XORB:
            cast(node->left, node->type);
            cast(node->right, node->type);
            return node;
        case UMINUS:
        case NOTB:
        case ABS:
        case SLL:
        case SRL: cast(node->left, node->type); return node;
        case ASG: cast(node->right, node->left->type); return node;
        case QUEST:
            if (node->right->op != COLON) return node;
            cast(node->right->left, node->type);
            cast(node->right->right, node->type);
            return node;
        default: break;
    }
    if (boolean_inv[node->op] != ILLOP && node->right != nullptr) cast_comparison(node);
    return node;
}

NODE* insert_mandatory_casts_in_tree(NODE* tree) {
    walk_tree(tree, [](NODE* node) { insert_mandatory_casts(node); });
    return tree;
}
