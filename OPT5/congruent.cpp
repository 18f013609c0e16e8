#include "congruent.h"

#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "bbutils.h"
#include "copy.h"
#include "erase.h"
#include "files.h"
#include "fpsmath.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "pragma.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

bool same_payload(NODE* a, NODE* b) {
    switch (a->op) {
        case NAME: return a->symbol() == b->symbol();
        case ICON:
        case SKIP:
        case SWITCH: return a->u.lval == b->u.lval;
        case FCON: return get_ieee_flt_fmt(a->fval()) == get_ieee_flt_fmt(b->fval());
        case FIELD: return a->mdata == b->mdata && a->csu() == b->csu();
        case SCON:
            return a->text_length == b->text_length &&
                   std::string_view(a->text, a->text_length) == std::string_view(b->text, b->text_length);
        case LABEL:
        case LABELDEF: return a->label == b->label && (a->label != nullptr || a->u.lval == b->u.lval);
        case ICALL:
        case UICALL:
        case MCALL:
        case UMCALL: return a->intrinsic() == b->intrinsic();
        case PPRAGMA: return a->pragma() == b->pragma();
        case ASM: return a->u.lval == b->u.lval && std::string_view(a->text) == std::string_view(b->text);
        default: return true;
    }
}

bool fitting_types(NODE* a, NODE* b, int exact_types) {
    if (a->type == b->type) return true;
    if (exact_types != 0 || a->type == nullptr || b->type == nullptr) return false;
    if (a->op == ICON && is_int_or_ptr(a->type) && is_int_or_ptr(b->type)) return true;
    return same_representation(a->type, b->type) ||
           (a->type->uid() != 0 && b->type->uid() != 0 && tp->compatible_types(a->type, b->type, true));
}

bool congruent(NODE* a, NODE* b, int exact_types, bool effects_are_ok) {
    std::vector<std::pair<NODE*, NODE*>> pending;
    for (;;) {
        for (; a != nullptr && b != nullptr; a = a->left, b = b->left) {
            if (a->op != b->op || !same_payload(a, b) || !fitting_types(a, b, exact_types)) return false;
            if (!effects_are_ok && (side_effects[a->op] != SE_NONE || node_is_volatile_access(a)))
                return false;
            if (a->right != nullptr || b->right != nullptr) pending.emplace_back(a->right, b->right);
        }
        if (a != b) return false; // one is null, the other is not
        if (pending.empty()) return true;
        std::tie(a, b) = pending.back();
        pending.pop_back();
    }
}

} // namespace

bool trees_are_congruent(NODE* a, NODE* b, int exact_types) { return congruent(a, b, exact_types, false); }

bool trees_are_congruent_se_ok(NODE* a, NODE* b, int exact_types) {
    return congruent(a, b, exact_types, true);
}

bool tree_lists_are_congruent(const LIST* a, const LIST* b, int exact_types) {
    for (; a != nullptr && b != nullptr; a = a->next, b = b->next)
        if (!trees_are_congruent_se_ok(a->first, b->first, exact_types)) return false;
    return a == b;
}

namespace {

bool is_zero(const NODE* node) { return node->op == ICON && node->u.lval.is_zero(); }

// Below what only tells zero from other values.
NODE* under_test(NODE* tree) {
    for (;;) {
        if (tree->op == NEQ && is_zero(tree->right)) {
            tree = tree->left;
        } else if (tree->op == SCONV && is_int_or_ptr(tree->type) && is_int_or_ptr(tree->left->type) &&
                   (tree->type->is_bool() || tree->type->size() >= tree->left->type->size())) {
            tree = tree->left;
        } else {
            return tree;
        }
    }
}

// How deep nested logical operators are compared in both orders of their operands.
constexpr int MAX_LOGICAL_DEPTH = 6;

bool bools_congruent(NODE* a, NODE* b, int depth) {
    a = under_test(a);
    b = under_test(b);
    if (trees_are_congruent(a, b)) return true;
    if (depth == 0) return false;
    if (a->op == b->op && (a->op == ANDAND || a->op == OROR))
        return (bools_congruent(a->left, b->left, depth - 1) &&
                bools_congruent(a->right, b->right, depth - 1)) ||
               (bools_congruent(a->left, b->right, depth - 1) &&
                bools_congruent(a->right, b->left, depth - 1));
    const bool swapped = boolean_result[a->op] != 0 && a->op != EXCLAIM && commute_inv[a->op] == b->op;
    return swapped && trees_are_congruent(a->left, b->right) && trees_are_congruent(a->right, b->left);
}

} // namespace

bool bools_are_congruent(NODE* a, NODE* b) { return bools_congruent(a, b, MAX_LOGICAL_DEPTH); }

bool tree_references_NAME(NODE* tree, const SYMTAB* symbol) {
    return any_node(tree, [symbol](NODE* node) { return node->op == NAME && node->symbol() == symbol; });
}

namespace {

// The object whose address `UAND(place)` is, null where the place hangs on a pointer.
NODE* named_base(NODE* place) {
    while (place->op == STDOT) place = place->left;
    return place->op == NAME ? place : nullptr;
}

bool has_fixed_address(const SYMTAB* symbol) { return symbol->level == 0; }

} // namespace

bool expr_is_constant(NODE* tree) {
    NODE_STACK pending;
    pending.push(tree);
    while (!pending.empty()) {
        NODE* node = pending.pop();
        switch (node->op) {
            case ICON:
            case FCON:
            case SCON: break;
            case UAND: {
                const NODE* base = named_base(node->left);
                if (base == nullptr || !has_fixed_address(base->symbol())) return false;
                break;
            }
            case STDOT: return false;
            default:
                if (node->left == nullptr || side_effects[node->op] != SE_NONE || node->op == UMULT ||
                    node->op == STREF || node->op == ICALL)
                    return false;
                pending.push(node->left);
                if (node->right != nullptr) pending.push(node->right);
        }
    }
    return true;
}

bool tree_is_subtree_of_tree(NODE* part, NODE* tree) {
    return any_node(tree, [part](NODE* node) { return node == part; });
}

bool tree_is_strict_subtree_of_tree(NODE* part, NODE* tree) {
    return part != tree && tree_is_subtree_of_tree(part, tree);
}

namespace {

bool is_address_of_object(NODE* node) {
    if (node->op != UAND) return false;
    const NODE* base = named_base(node->left);
    return base != nullptr && !symbol_has_pragma(base->symbol(), PRAG_NORVANE_WEAK);
}

} // namespace

bool pointer_is_an_adcon(NODE* pointer) {
    while (pointer->op == PCONV ||
           ((pointer->op == PLUS || pointer->op == MINUS) && pointer->right->op == ICON))
        pointer = pointer->left;
    return is_address_of_object(pointer);
}

bool pointer_contains_adcon_term(NODE* pointer) {
    NODE_STACK pending;
    pending.push(pointer);
    while (!pending.empty()) {
        NODE* node = pending.pop();
        if (is_address_of_object(node)) return true;
        if (!node->type->is_ptr()) continue;
        if (node->op == PLUS) pending.push(node->right);
        if (node->op == PLUS || node->op == MINUS || node->op == PCONV) pending.push(node->left);
    }
    return false;
}

namespace {

int opASG_of_op(int op) {
    for (int i = PLUSASG; i <= SRLASG; i++)
        if (op_of_opASG[i] == op) return i;
    return ILLOP;
}

// A bit-field is promoted by its width, which its type does not tell.
// Whether `x op= y` computes what `op` in `type` does: the sign of the operation's type counts only for
// these.
bool sign_matters(int op) { return op == DIV || op == MOD || op == SRL; }

} // namespace

NODE* ASG_to_opASG(NODE* assignment) {
    if (assignment->op != ASG) return assignment;
    NODE* target = assignment->left;
    NODE* value = assignment->right;
    const int op = opASG_of_op(value->op);
    if (op == ILLOP || !trees_are_congruent(target, value->left)) return assignment;
    TYPE* type = target->type;
    TYPE* operand = value->right->type;
    if (type->is_ptr()) {
        if ((op != PLUSASG && op != MINUSASG) || !value->type->is_ptr() || !operand->is_integral())
            return assignment;
    } else if (type->is_integral() || type->is_fltpt()) {
        if (type->is_fltpt() != value->type->is_fltpt() || type->is_fltpt() != operand->is_fltpt() ||
            type->is_bool() || value->type->size() != type->size() || !value->type->is_arithmetic())
            return assignment;
        TYPE* computed = operator_type_for_operand_types(value->op, type, operand);
        if (computed->size() != value->type->size()) return assignment;
        if (sign_matters(value->op) &&
            (is_bit_field(target) || computed->is_signed() != value->type->is_signed()))
            return assignment;
    } else {
        return assignment;
    }
    assignment->op = op;
    assignment->right = value->right;
    erase_tree(value->left);
    erase_node(value);
    return assignment;
}

NODE* opASG_to_ASG(NODE* assignment) {
    const int op = op_of_opASG[assignment->op];
    if (op == ILLOP || tree_has_side_effects(assignment->left)) return assignment;
    if (sign_matters(op) && is_bit_field(assignment->left)) return assignment;
    TYPE* type = assignment->left->type;
    NODE* operand = assignment->right;
    NODE* old = copy_tree(assignment->left, false);
    TYPE* computed = operator_type_for_operand_types(op, type, operand->type);
    if (!type->is_ptr()) {
        old = coerce_to_type(old, computed);
        if (op != SLL && op != SRL) operand = coerce_to_type(operand, computed);
    }
    NODE* value = maketree(op, old, operand, type->is_ptr() ? type : computed, nullptr);
    assignment->op = ASG;
    assignment->right = coerce_to_type(value, type);
    return assignment;
}

NODE* expunge_IDENTITY_ops_from_tree(NODE* tree) {
    NODE* root = tree;
    const auto strip = [](NODE*& place) {
        while (place != nullptr && place->op == IDENTITY) {
            NODE* marker = place;
            place = marker->left;
            erase_node(marker);
        }
    };
    strip(root);
    walk_tree(root, [&strip](NODE* node) {
        strip(node->left);
        strip(node->right);
    });
    return root;
}
