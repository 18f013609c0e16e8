// Conversions.

#include "erase.h"
#include "known_bits.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "simp.h"
#include "simp_rules.h"
#include "types.h"

using namespace op;

namespace {

// An integral type whose conversions only cut or extend.
bool is_number(TYPE* type) { return type->is_integral() && !type->is_bool() && !type->is_marked_bool(); }

// Whether every value of `from` is one of `to`.
bool holds(TYPE* to, TYPE* from) {
    return value_fits_in_type(int_type_min(from), to) && value_fits_in_type(int_type_max(from), to);
}

bool is_nonnegative(NODE* tree) {
    TYPE* type = tree->type;
    if (!type->is_signed()) return true;
    return (find_known_zeros(tree, type) & (INT65::from_signed(1) << (type_width(type) - 1))).is_zero();
}

// Whether `inner` holds the number that x is.
bool keeps_number(TYPE* inner, NODE* x) {
    return holds(inner, x->type) ||
           (x->type->is_signed() && inner->size() >= x->type->size() && is_nonnegative(x));
}

// Whether (T)(S)x is (T)x.
bool inner_is_idle(TYPE* outer, TYPE* inner, NODE* x) {
    TYPE* from = x->type;
    if (!from->is_integral()) return false;
    if (!is_number(inner)) return returns_1_or_0(x);
    if (outer->is_fltpt()) return keeps_number(inner, x);
    if (!outer->is_integral()) return false;
    if (outer->size() <= inner->size() && is_number(outer)) return true;
    if (!is_number(outer)) return inner->size() >= from->size();
    return keeps_number(inner, x);
}

// Whether converting the operand to a narrower type costs nothing.
bool narrows_freely(const NODE* operand) {
    return operand->op == ICON || (operand->op == SCONV && operand->left->type->is_integral());
}

// (T)(x op y) as (T)x op (T)y: what carries no bits down can be computed in the narrower type. Null where it
// cannot, or gains nothing.
NODE* narrow_operation(NODE* node, ::LOOP* loop) {
    NODE* operation = node->left;
    TYPE* type = node->type;
    if (!is_number(type) || !is_number(operation->type) || type->size() >= operation->type->size())
        return nullptr;
    NODE* right = operation->right;
    switch (operation->op) {
        case PLUS:
        case MINUS:
        case MULT:
        case ANDB:
        case ORB:
        case XORB:
            if (!operation->left->type->is_integral() || !right->type->is_integral()) return nullptr;
            if (!narrows_freely(operation->left) && !narrows_freely(right)) return nullptr;
            operation->right = converted(right, type, loop);
            break;
        case NOTB:
        case UMINUS:
            if (!narrows_freely(operation->left)) return nullptr;
            break;
        case SLL:
            if (right->op != ICON || right->u.lval.is_negative() ||
                right->u.lval >= INT65::from_signed(type_width(type)))
                return nullptr;
            break;
        default: return nullptr;
    }
    operation->left = converted(operation->left, type, loop);
    operation->type = operation->otype = type;
    erase_node(node);
    return simp_node(operation, loop);
}

// (T)(c ? k1 : k2)
NODE* convert_arms(NODE* node, ::LOOP* loop) {
    NODE* quest = node->left;
    if (quest->op != QUEST || quest->right->op != COLON) return nullptr;
    NODE* arms = quest->right;
    if (arms->left->op != ICON || arms->right->op != ICON || !node->type->is_integral()) return nullptr;
    TYPE* type = node->type;
    arms->left = converted(arms->left, type, loop);
    arms->right = converted(arms->right, type, loop);
    for (NODE* changed : {arms, quest}) changed->type = changed->otype = type;
    erase_node(node);
    return simp_node(quest, loop);
}

} // namespace

NODE* simp_SCONV(NODE* node, ::LOOP* loop) {
    NODE* operand = node->left;
    TYPE* type = node->type;
    TYPE* from = operand->type;
    if (!type->is_scalar() || !from->is_scalar()) return node;
    if ((operand->op == ICON || operand->op == FCON) && convert_constant(operand, type)) {
        erase_node(node);
        return operand;
    }
    // The promoted type has to stay the same too: an assign-op computes in it.
    if (same_representation(type, from) && type->is_ptr() == from->is_ptr() &&
        (!type->is_integral() || promoted_type(type) == promoted_type(from)))
        return take_left(node);
    if (operand->op == SCONV && inner_is_idle(type, from, operand->left)) {
        node->left = take_left(operand);
        return simp_node(node, loop);
    }
    if (operand->op == PCONV && operand->left->type->is_integral() && is_number(type) &&
        operand->left->type->size() == from->size() && type->size() <= from->size()) {
        node->left = take_left(operand);
        return simp_node(node, loop);
    }
    if (NODE* narrowed = narrow_operation(node, loop); narrowed != nullptr) return narrowed;
    if (NODE* pushed = convert_arms(node, loop); pushed != nullptr) return pushed;
    return node;
}

NODE* simp_PCONV(NODE* node, ::LOOP* loop) {
    NODE* operand = node->left;
    TYPE* type = node->type;
    if (!type->is_ptr()) return node;
    if (operand->op == ICON && convert_constant(operand, type)) {
        erase_node(node);
        return operand;
    }
    if (operand->type->true_type() == type->true_type()) return take_left(node);
    const bool converts = operand->op == PCONV || operand->op == SCONV;
    if (converts && is_int_or_ptr(operand->left->type) && is_int_or_ptr(operand->type) &&
        !operand->type->is_bool() && operand->left->type->size() == type->size() &&
        operand->type->size() == type->size()) {
        node->left = take_left(operand);
        return simp_node(node, loop);
    }
    return node;
}

NODE* simp_ACONV(NODE* node, ::LOOP*) {
    NODE* operand = node->left;
    TYPE* type = node->type;
    if ((operand->op == ICON || operand->op == FCON) && convert_constant(operand, type)) {
        erase_node(node);
        return operand;
    }
    return operand->type->true_type() == type->true_type() ? take_left(node) : node;
}
