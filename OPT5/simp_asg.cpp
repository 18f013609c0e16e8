// Assignments.

#include <utility>

#include "bbutils.h"
#include "congruent.h"
#include "copy.h"
#include "erase.h"
#include "fold.h"
#include "known_bits.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "simp.h"
#include "simp_rules.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

bool is_truth(TYPE* type) { return type->is_bool() || type->is_marked_bool(); }

// Bits that an assignment to the place keeps.
int stored_width(const NODE* place) {
    return is_bit_field(place) ? static_cast<int>(place->right->mdata->width) : type_width(place->type);
}

// The constant as the place holds it.
void truncate_RHS_for_assignment(NODE* constant, const NODE* place) {
    TYPE* type = place->type;
    convert_constant(constant, type);
    if (is_truth(type)) return;
    const int unused = 64 - stored_width(place);
    const std::uint64_t bits = constant->u.lval.bits() << unused;
    if (unused >= 64 || !is_bit_field(place)) return;
    constant->u.lval = type->is_signed() ? INT65::from_signed(static_cast<std::int64_t>(bits) >> unused)
                                         : INT65::from_unsigned(bits >> unused);
}

// The right side brought to the width of the left one, without conversions that change nothing there.
void fit_right_side(NODE* node, ::LOOP* loop) {
    NODE* target = node->left;
    TYPE* type = target->type;
    if (!type->is_integral() || !node->right->type->is_integral()) return;
    if (node->right->op == ICON) {
        truncate_RHS_for_assignment(node->right, target);
        return;
    }
    NODE* right = node->right;
    if (is_truth(type) ? !is_truth(right->type) : right->type->size() != type->size())
        node->right = right = converted(right, type, loop);
    if (is_truth(type)) return;
    for (bool changed = true; changed;) {
        while (right->op == SCONV && !is_truth(right->type) && right->left->type->is_integral() &&
               !is_truth(right->left->type) && right->left->type->size() == type->size())
            right = take_left(right);
        changed = false;
        if (is_bit_field(target)) {
            const INT65 mask = (INT65::from_signed(1) << stored_width(target)) - INT65::from_signed(1);
            right = prop_mask_into_subtree(right, mask, &changed);
            if (right->op == ANDB && right->right->op == ICON && (right->right->u.lval & mask) == mask) {
                right = take_left(right);
                changed = true;
            }
        }
    }
    node->right = right;
    if (right->op == ICON) {
        truncate_RHS_for_assignment(right, target);
    } else if (right->type->size() != type->size()) {
        node->right = converted(right, type, loop);
    }
}

bool is_local_number(const NODE* target) {
    if (target->op != NAME || !is_int_or_ptr(target->type)) return false;
    const SYMTAB* symbol = target->symbol();
    return symbol->sclass == SC_AUTO || symbol->sclass == SC_REGISTER ||
           (symbol->sclass == SC_STATIC && symbol->level > 1);
}

// `v = x + k`, the form in which the loop passes look for a step.
bool is_step(const NODE* value) {
    if (value->op != PLUS && value->op != MINUS) return false;
    const NODE* right = value->right;
    return right->op == ICON || (right->op == NAME && right->symbol()->otype->is_const());
}

bool commutes_with_itself(int op) {
    switch (op) {
        case PLUS:
        case MULT:
        case ANDB:
        case ORB:
        case XORB: return true;
        default: return false;
    }
}

bool is_term(NODE* candidate, NODE* term) {
    if (candidate->op == SCONV && candidate->type->size() == candidate->left->type->size() &&
        candidate->left->type->is_integral() && !is_truth(candidate->type))
        candidate = candidate->left;
    return trees_are_congruent(candidate, term);
}

// The operand without a conversion that keeps all its bits.
NODE* bare(NODE* operand) {
    return operand->op == SCONV && operand->type->size() == operand->left->type->size() ? take_left(operand)
                                                                                        : operand;
}

} // namespace

NODE* bubble_term_to_top(NODE* term, NODE* tree, ::LOOP* loop) {
    if (!tree->type->is_integral()) return tree;
    if (tree->op == MINUS) {
        // (t + a) - b
        NODE* left = tree->left;
        if (left->op != PLUS || !same_representation(left->type, tree->type) || has_effects(tree))
            return tree;
        left = bubble_term_to_top(term, left, loop);
        tree->left = left;
        if (left->op != PLUS || !is_term(left->left, term)) return tree;
        NODE* rest = left->right;
        left->right = tree;
        tree->left = rest;
        left->right = simp_node(tree, loop);
        return left;
    }
    if (!commutes_with_itself(tree->op) || has_effects(tree)) return tree;
    NODE* above = nullptr;
    NODE* spine = tree;
    for (;; above = spine, spine = spine->left) {
        if (is_term(spine->right, term)) {
            NODE* found = bare(spine->right);
            if (above == nullptr) {
                spine->right = spine->left;
                spine->left = found;
                return spine;
            }
            above->left = spine->left;
            spine->left = found;
            spine->right = simp_node(tree, loop);
            return spine;
        }
        NODE* next = spine->left;
        if (next->op != tree->op || !same_representation(next->type, tree->type)) break;
    }
    if (!is_term(spine->left, term)) return tree;
    spine->left = bare(spine->left);
    if (above == nullptr) return tree;
    above->left = spine->right;
    spine->right = simp_node(tree, loop);
    return spine;
}

NODE* simp_ASG(NODE* node, ::LOOP* loop) {
    if (tree_is_arg_prolog(node)) return node;
    fit_right_side(node, loop);
    NODE* target = node->left;
    NODE* right = node->right;
    if (right->op == COMMAOP) return simp_node(node, loop);
    // x = (y = k)
    if (right->op == ASG && right->right->op == ICON && is_int_or_ptr(right->type) &&
        !is_bit_field(right->left) && is_int_or_ptr(target->type)) {
        node->right = coerce_to_type(copy_node(right->right, false), target->type);
        return simp_node(mk_COMMAOP(right, simp_node(node, loop)), loop);
    }
    // b = (a == 0)
    if (right->op == EQ && is_icon(right->right, 0) && target->type->is_integral() &&
        returns_1_or_0(target) && returns_1_or_0(right->left) && right->left->type->is_integral()) {
        right->op = XORB;
        right->type = right->otype = right->left->type->true_type();
        right->right->u.lval = INT65::from_signed(1);
        right->right->type = right->right->otype = right->type;
        node->right = simp_node(right, loop);
        return simp_node(node, loop);
    }
    if (trees_are_congruent(target, right)) return take_right(node);
    const bool to_integer = right->type->is_fltpt() && !target->type->is_fltpt();
    if (to_integer || (is_local_number(target) && is_step(right))) return node;
    NODE* value = bubble_term_to_top(target, right, loop);
    node->right = value;
    if (value->left == nullptr || value->right == nullptr || has_effects(value->right)) return node;
    if (NODE* compound = ASG_to_opASG(node); compound->op != ASG) return simp_node(compound, loop);
    if (value != right || commutes_with_itself(value->op)) node->right = simp_node(value, loop);
    return node;
}

NODE* simp_STASG(NODE* node, ::LOOP*) {
    if (tree_is_arg_prolog(node) || node->left->op != node->right->op ||
        !trees_are_congruent(node->left, node->right))
        return node;
    return take_right(node);
}

namespace {

// Whether `x op= k` leaves x as it is.
bool is_idle(int op, const NODE* constant, const NODE* place) {
    const INT65& k = constant->u.lval;
    switch (op) {
        case PLUSASG:
        case MINUSASG:
        case ORBASG:
        case XORBASG:
        case SLLASG:
        case SRLASG: return k.is_zero();
        case MULTASG:
        case DIVASG: return k == INT65::from_signed(1);
        case ANDBASG: return (k & type_mask(place->type)) == type_mask(place->type);
        default: return false;
    }
}

} // namespace

NODE* simp_opASG(NODE* node, ::LOOP* loop) {
    NODE* target = node->left;
    NODE* right = node->right;
    TYPE* type = target->type;
    if (right->op != ICON || !is_int_or_ptr(type) || is_truth(type) || !right->type->is_integral())
        return node;
    right->u.lval = truncate_to_type(right->u.lval, right->type);
    if (!has_effects(target)) {
        if (is_idle(node->op, right, target)) return take_left(node);
        if (right->u.lval.is_zero() && type->is_integral() && (node->op == MULTASG || node->op == ANDBASG)) {
            node->op = ASG;
            convert_constant(right, type);
            return simp_node(node, loop);
        }
    }
    if (node->op == MINUSASG) {
        const bool wraps_alike = right->type->size() >= type->size();
        if (wraps_alike || (right->type->is_signed() && right->u.lval != int_type_min(right->type))) {
            right->u.lval = truncate_to_type(-right->u.lval, right->type);
            node->op = PLUSASG;
            return simp_node(node, loop);
        }
    }
    return node;
}
