// Conditionals, c ? a : b.
//
// The condition is in control form, and is no negation (the arms change places instead). A conditional that
// gives a truth value is a logical operator; one that picks the less or greater of its condition's operands
// is an intrinsic, where the target has it:
//
//     c ? 1 : 0          ->  c != 0              a < b ? a : b      ->  MIN(a, b)
//     c ? x : 0          ->  c && x              x <= 9 ? x : 10    ->  MIN(x, 10)
//     x == 3 ? x : y     ->  x == 3 ? 3 : y      x == y ? x : y     ->  y
//     c ? a + x : b + x  ->  (c ? a : b) + x     c ? (x = a) : (x = b)  ->  x = (c ? a : b)
//     c ? d ? a : b : b  ->  c && d ? a : b
//
// What both arms do is done once, behind the condition: so it may move out only where it has no effect that
// the condition sees, and the condition none that it sees. Every rule makes the tree smaller or replaces an
// arm by a constant.

#include <utility>

#include "congruent.h"
#include "debug.h"
#include "erase.h"
#include "files.h"
#include "known_bits.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "simp.h"
#include "simp_cond.h"
#include "simp_rules.h"
#include "target_bif.h"
#include "types.h"

using namespace op;

namespace {

// The conditional without its condition, which has no effects: one arm stays.
NODE* keep_arm(NODE* node, bool of_left, ::LOOP* loop) {
    NODE* arms = node->right;
    NODE* arm = of_left ? arms->left : arms->right;
    TYPE* type = node->type;
    erase_tree(of_left ? arms->right : arms->left);
    erase_node(arms);
    erase_tree(node->left);
    erase_node(node);
    return type->is_scalar() ? converted(arm, type, loop) : arm;
}

// Frees the node and its arms; the condition and what was taken from the arms stay.
void erase_frame(NODE* node) {
    erase_node(node->right);
    erase_node(node);
}

// --- Truth values.

// Null where the arms are no truth values of which one is known.
NODE* as_logical_operator(NODE* node, ::LOOP* loop) {
    NODE* arms = node->right;
    TYPE* type = node->type;
    if (!type->is_integral()) return nullptr;
    NODE *left = arms->left, *right = arms->right;
    const bool left_known = is_icon(left, 0) || is_icon(left, 1);
    const bool right_known = is_icon(right, 0) || is_icon(right, 1);
    NODE* condition = node->left;
    if (left_known && right_known && left->u.lval != right->u.lval) {
        const bool is_straight = is_icon(left, 1);
        erase_tree(arms);
        erase_node(node);
        condition = is_straight ? make_boolean(condition, loop) : simp_inverse(condition, loop);
        return converted(condition, type, loop);
    }
    if (left_known == right_known || !returns_1_or_0(left_known ? right : left)) return nullptr;
    const bool value = is_icon(left_known ? left : right, 1);
    if (left_known != value) condition = simp_inverse(condition, loop);
    NODE* other = left_known ? right : left;
    erase_node(left_known ? left : right);
    erase_frame(node);
    NODE* result = build(value ? OROR : ANDAND, condition, other, tp->int_type(IK_INT), loop);
    return converted(result, type, loop);
}

// x & 8 ? 8 : 0 is x & 8.
NODE* as_its_bit(NODE* node, ::LOOP* loop) {
    NODE *condition = node->left, *arms = node->right;
    if (!node->type->is_integral() || !condition->type->is_integral() || arms->left->op != ICON ||
        !is_icon(arms->right, 0) || !same_representation(condition->type, node->type))
        return nullptr;
    TYPE* type = value_type(condition);
    const INT65 bit = find_known_zeros(condition, type);
    if (power_of_2(bit) < 0 || truncate_to_type(bit, type) != arms->left->u.lval) return nullptr;
    type = node->type;
    erase_tree(arms);
    erase_node(node);
    return converted(condition, type, loop);
}

// --- Minimum and maximum.

bool holds_numbers(TYPE* type, TYPE* from) {
    return int_type_min(type) <= int_type_min(from) && int_type_max(from) <= int_type_max(type);
}

// Below conversions that keep every number.
NODE* without_widening(NODE* tree) {
    while (tree->op == SCONV && tree->type->is_integral() && tree->left->type->is_integral() &&
           holds_numbers(tree->type, tree->left->type))
        tree = tree->left;
    return tree;
}

const BIF_DESCRIPTOR* descriptor_of(TYPE* type, bool of_minimum, bool is_unsigned) {
    static constexpr const char* NAMES[2][2][3] = {{{"MAX", "LMAX", "LLMAX"}, {"MAXU", "LMAXU", "LLMAXU"}},
                                                   {{"MIN", "LMIN", "LLMIN"}, {"MINU", "LMINU", "LLMINU"}}};
    static constexpr const char* FLOATING[2][3] = {{"FMAX", "DMAX", "LDMAX"}, {"FMIN", "DMIN", "LDMIN"}};
    if (type->is_fltpt()) return find_target_BIF_descriptor(FLOATING[of_minimum ? 1 : 0][type->fkind()]);
    const int width = type_width(type);
    const int rank = width <= type_width(tp->int_type(IK_INT))    ? 0
                     : width <= type_width(tp->int_type(IK_LONG)) ? 1
                                                                  : 2;
    return find_target_BIF_descriptor(NAMES[of_minimum ? 1 : 0][is_unsigned ? 1 : 0][rank]);
}

// The call, in the node's type. The operands are taken from the node, which goes.
NODE* call_of(NODE* node, const BIF_DESCRIPTOR* descriptor, NODE* a, NODE* b, TYPE* type, TYPE* result_type,
              ::LOOP* loop) {
    erase_tree(node);
    TYPE *const a_type = descriptor->operand_type[0], *const b_type = descriptor->operand_type[1];
    a = converted(a, a_type != nullptr ? a_type : type, loop);
    b = converted(b, b_type != nullptr ? b_type : type, loop);
    NODE* arguments = maketree(COMMA, a, b, tp->void_type(), nullptr);
    TYPE* const value_type = descriptor->result_type != nullptr ? descriptor->result_type : type;
    NODE* call = simp_node(mk_ICALL(descriptor->name, arguments, value_type), loop);
    return converted(call, result_type, loop);
}

// Takes the operand out of its parent.
NODE* taken(NODE*& place) {
    NODE* tree = place;
    place = nullptr;
    return tree;
}

// x op c ? x : k, where k is c or its neighbour on the side on which the choice makes no difference.
bool constant_arm_fits(int op, WIDE c, WIDE k) {
    if (k == c) return true;
    switch (op) {
        case LE:
        case ULE:
        case GT:
        case UGT: return k == c + 1;
        default: return k == c - 1;
    }
}

NODE* as_integer_choice(NODE* node, ::LOOP* loop) {
    NODE *condition = node->left, *arms = node->right;
    int op = condition->op;
    if (!is_integer_comparison(op) || op == EQ || op == NEQ || !node->type->is_integral()) return nullptr;
    NODE *a = without_widening(condition->left), *b = without_widening(condition->right);
    NODE *first = without_widening(arms->left), *second = without_widening(arms->right);
    if (!a->type->is_integral() || !b->type->is_integral()) return nullptr;
    TYPE* type = combined_type(a->type, b->type);
    const bool is_unsigned = op >= ULE;
    if (b->op == ICON) {
        type = promoted_type(value_type(a));
        const NUMBERS numbers = numbers_of(a->type);
        if (numbers.is_unsigned != is_unsigned) return nullptr;
        const bool straight = second->op == ICON;
        NODE *x = straight ? first : second, *k = straight ? second : first;
        if (k->op != ICON || !trees_are_congruent(a, x)) return nullptr;
        const WIDE limit = numbers_of(k->type).wrap(to_wide(k->u.lval));
        const WIDE c = numbers_of(condition->right->type).wrap(to_wide(b->u.lval));
        if (!numbers.holds(limit) || !constant_arm_fits(op, c, limit)) return nullptr;
        const bool less = op == LT || op == LE || op == ULT || op == ULE;
        const BIF_DESCRIPTOR* descriptor = descriptor_of(type, less == straight, is_unsigned);
        if (descriptor == nullptr) return nullptr;
        while (condition->left != a) condition->left = take_left(condition->left);
        a = taken(condition->left);
        return call_of(node, descriptor, a, mk_number(limit, type), type, node->type, loop);
    }
    if (is_unsigned != numbers_of(condition->left->type).is_unsigned) {
        if (!is_unsigned) return nullptr;
        // Signed operands read without their signs.
        if (condition->left != a || condition->right != b) return nullptr;
        type = tp->mk_unsigned(type);
    } else if (!holds_numbers(type, a->type) || !holds_numbers(type, b->type)) {
        // The promotions of C would change a number that the wider comparison keeps.
        a = condition->left;
        b = condition->right;
        first = arms->left;
        second = arms->right;
        type = value_type(a);
    }
    const bool straight = trees_are_congruent(a, first) && trees_are_congruent(b, second);
    if (!straight && !(trees_are_congruent(a, second) && trees_are_congruent(b, first))) return nullptr;
    const bool less = op == LT || op == LE || op == ULT || op == ULE;
    const BIF_DESCRIPTOR* descriptor = descriptor_of(type, less == straight, is_unsigned);
    if (descriptor == nullptr) return nullptr;
    while (condition->left != a) condition->left = take_left(condition->left);
    while (condition->right != b) condition->right = take_left(condition->right);
    a = taken(condition->left);
    b = taken(condition->right);
    return call_of(node, descriptor, a, b, type, node->type, loop);
}

// The floating intrinsics are a < b ? a : b and a > b ? a : b. The other forms differ from these for zeros of
// different signs only.
NODE* as_floating_choice(NODE* node, ::LOOP* loop) {
    NODE *condition = node->left, *arms = node->right;
    if (!node->type->is_fltpt() || condition->left == nullptr || !condition->left->type->is_fltpt())
        return nullptr;
    bool is_less, swaps_arms = false, is_exact = true;
    switch (condition->op) {
        case FLT: is_less = true; break;
        case FGT: is_less = false; break;
        case FGEN: // not less
            is_less = true;
            swaps_arms = true;
            break;
        case FLEN:
            is_less = false;
            swaps_arms = true;
            break;
        case FLE:
            is_less = true;
            is_exact = false;
            break;
        case FGE:
            is_less = false;
            is_exact = false;
            break;
        default: return nullptr;
    }
    if (!is_exact && strict_fp != 0) return nullptr;
    NODE *a = condition->left, *b = condition->right;
    if (!same_representation(a->type, node->type)) return nullptr;
    NODE *chosen = arms->left, *other = arms->right;
    if (swaps_arms) std::swap(chosen, other);
    const bool straight = trees_are_congruent(a, chosen) && trees_are_congruent(b, other);
    if (!straight && !(trees_are_congruent(a, other) && trees_are_congruent(b, chosen))) return nullptr;
    TYPE* type = value_type(node);
    const BIF_DESCRIPTOR* descriptor = descriptor_of(type, is_less == straight, false);
    if (descriptor == nullptr) return nullptr;
    a = taken(condition->left);
    b = taken(condition->right);
    if (!straight) std::swap(a, b);
    return call_of(node, descriptor, a, b, type, node->type, loop);
}

// --- An arm that equals an operand of the condition.

// Replaces the arm, which has no effects, by the constant that it is known to be.
void set_arm(NODE*& arm, const INT65& value) {
    TYPE* type = value_type(arm);
    erase_tree(arm);
    arm = mk_ICON(value, type);
}

enum class ARM_RULE { NONE, AGAIN, KEEP_LEFT, KEEP_RIGHT };

ARM_RULE compare_arms(NODE* node) {
    NODE *condition = node->left, *arms = node->right;
    if (!is_int_or_ptr(node->type)) return ARM_RULE::NONE;
    if (condition->op != EQ && condition->op != NEQ) {
        // x ? y : x
        if (boolean_result[condition->op] != 0 || !is_int_or_ptr(condition->type) ||
            arms->right->op == ICON || !trees_are_congruent(condition, arms->right))
            return ARM_RULE::NONE;
        set_arm(arms->right, INT65::from_signed(0));
        return ARM_RULE::AGAIN;
    }
    const bool is_EQ = condition->op == EQ;
    NODE *a = condition->left, *b = condition->right;
    NODE *equal = is_EQ ? arms->left : arms->right, *differing = is_EQ ? arms->right : arms->left;
    if (!is_int_or_ptr(a->type)) return ARM_RULE::NONE;
    if ((trees_are_congruent(a, equal) && trees_are_congruent(b, differing)) ||
        (trees_are_congruent(a, differing) && trees_are_congruent(b, equal)))
        return is_EQ ? ARM_RULE::KEEP_RIGHT : ARM_RULE::KEEP_LEFT;
    if (b->op != ICON || equal->op == ICON || !trees_are_congruent(a, equal)) return ARM_RULE::NONE;
    set_arm(is_EQ ? arms->left : arms->right, truncate_to_type(b->u.lval, value_type(a)));
    return ARM_RULE::AGAIN;
}

// --- Conditionals in the arms.

bool is_conditional(const NODE* tree) { return tree->op == QUEST && tree->right->op == COLON; }

// The inner conditional's condition is the outer one's: its arm is chosen already.
bool settle_inner(NODE* node, ::LOOP* loop) {
    bool changed = false;
    for (const bool of_left : {true, false}) {
        NODE*& arm = of_left ? node->right->left : node->right->right;
        if (!is_conditional(arm) || !bools_are_congruent(node->left, arm->left)) continue;
        arm = keep_arm(arm, of_left, loop);
        changed = true;
    }
    return changed;
}

// c ? (d ? a : b) : b is c && d ? a : b, and its three relatives.
bool join_conditions(NODE* node, ::LOOP* loop) {
    NODE* arms = node->right;
    for (const bool inner_is_left : {true, false}) {
        NODE* inner = inner_is_left ? arms->left : arms->right;
        NODE* outer = inner_is_left ? arms->right : arms->left;
        if (!is_conditional(inner)) continue;
        NODE *a = inner->right->left, *b = inner->right->right;
        const bool is_b = trees_are_congruent_se_ok(outer, b);
        if (!is_b && !trees_are_congruent_se_ok(outer, a)) continue;
        // The outer value is chosen by the outer condition: as `b` where the whole is false, as `a` where it
        // is true. The condition holds where the inner conditional is asked, so an "and" needs it to lead
        // there.
        const bool straight = inner_is_left == is_b;
        if (!straight && !tree_is_trivially_invertible(node->left)) continue;
        NODE* condition = straight ? node->left : simp_inverse(node->left, loop);
        node->left = build(is_b ? ANDAND : OROR, condition, inner->left, tp->int_type(IK_INT), loop);
        erase_tree(outer);
        erase_node(inner->right);
        erase_node(inner);
        arms->left = a;
        arms->right = b;
        return true;
    }
    return false;
}

// --- What both arms do.

bool is_common_unary(const NODE* tree) {
    switch (tree->op) {
        case UMINUS:
        case NOTB:
        case SCONV:
        case PCONV: return true;
        default: return false;
    }
}

bool is_common_binary(const NODE* tree) {
    switch (tree->op) {
        case PLUS:
        case MINUS:
        case MULT:
        case ANDB:
        case ORB:
        case XORB:
        case DIV:
        case MOD:
        case SLL:
        case SRL: return true;
        default: return false;
    }
}

// Operators that are cheap with a constant only.
bool wants_constant(int op) { return op == MULT || op == DIV || op == MOD || op == SLL || op == SRL; }

NODE* choice(NODE* condition, NODE* a, NODE* b, ::LOOP* loop) {
    TYPE* type = a->type;
    return build(QUEST, condition, maketree(COLON, a, b, type, nullptr), type, loop);
}

// Null where the arms have nothing in common that can be done once.
NODE* distribute(NODE* node, ::LOOP* loop) {
    NODE *condition = node->left, *arms = node->right;
    NODE *left = arms->left, *right = arms->right;
    if (left->op != right->op || left->type != right->type || !node->type->is_scalar()) return nullptr;
    if (is_common_unary(left)) {
        if (left->left->type != right->left->type || !left->left->type->is_scalar()) return nullptr;
        erase_frame(node);
        TYPE* type = left->type;
        const int op = left->op;
        NODE* value = choice(condition, take_left(left), take_left(right), loop);
        return build(op, value, nullptr, type, loop);
    }
    if (!is_common_binary(left)) return nullptr;
    NODE** const sides[2] = {&left->left, &left->right};
    NODE** const others[2] = {&right->left, &right->right};
    const bool commutes = commute_inv[left->op] == left->op;
    for (int i = 0; i < 2; i++) {
        for (int j = 0; j < 2; j++) {
            if (i != j && !commutes) continue;
            NODE *common = *sides[i], *a = *sides[1 - i], *b = *others[1 - j];
            if (a->type != b->type || !a->type->is_scalar() || !trees_are_congruent(common, *others[j]))
                continue;
            if (common->type != (*others[j])->type) continue;
            if (i == 0 && wants_constant(left->op) && (a->op == ICON || b->op == ICON)) continue;
            // The common operand is no longer behind the condition.
            if (common->op != ICON && has_effects(condition)) continue;
            erase_frame(node);
            erase_tree(*others[j]);
            erase_node(right);
            NODE* value = choice(condition, a, b, loop);
            const bool keeps_place = i == 0 && (!commutes || common->type->is_ptr());
            left->left = keeps_place ? common : value;
            left->right = keeps_place ? value : common;
            return simp_node(left, loop);
        }
    }
    return nullptr;
}

// c ? (x = a) : (x = b) is x = (c ? a : b): an assignment evaluates its right side before its left.
NODE* as_assignment(NODE* node, ::LOOP* loop) {
    NODE *condition = node->left, *arms = node->right;
    NODE *left = arms->left, *right = arms->right;
    if (left->op != right->op || side_effects[left->op] != SE_ASSIGNS) return nullptr;
    const bool is_plain = left->op == ASG;
    if (!is_plain && op_of_opASG[left->op] == ILLOP) return nullptr;
    NODE *a = left->right, *b = right->right;
    if (a->type != b->type || !a->type->is_scalar() || !left->type->is_scalar()) return nullptr;
    if (!trees_are_congruent(left->left, right->left, 1)) return nullptr;
    // A compound assignment may read its left side before its right one.
    if (!is_plain && (has_effects(condition) || has_effects(a) || has_effects(b))) return nullptr;
    erase_frame(node);
    erase_tree(right->left);
    erase_node(right);
    left->right = choice(condition, a, b, loop);
    return simp_node(left, loop);
}

} // namespace

NODE* simp_QUEST(NODE* node, ::LOOP* loop) {
    NODE* arms = node->right;
    if (arms->op != COLON || node->left->type->is_vector()) return node;
    for (;;) {
        node->left = simp_for_control(node->left, loop);
        if (node->left->op == COMMAOP) return simp_node(node, loop);
        if (node->left->op == ICON) return keep_arm(node, !node->left->u.lval.is_zero(), loop);
        if (node->left->op == EQ && is_zero_ICON(node->left->right) &&
            is_int_or_ptr(node->left->left->type)) {
            node->left = take_left(node->left);
            std::swap(arms->left, arms->right);
            continue;
        }
        if (NODE* logical = as_logical_operator(node, loop); logical != nullptr) return logical;
        if (trees_are_congruent_se_ok(arms->left, arms->right)) {
            NODE* condition = taken(node->left);
            NODE* arm = keep_arm(node, true, loop);
            return build(COMMAOP, condition, arm, arm->type, loop);
        }
        if (NODE* bit = as_its_bit(node, loop); bit != nullptr) return bit;
        if (NODE* call = as_integer_choice(node, loop); call != nullptr) return call;
        if (NODE* call = as_floating_choice(node, loop); call != nullptr) return call;
        switch (compare_arms(node)) {
            case ARM_RULE::AGAIN: continue;
            case ARM_RULE::KEEP_LEFT: return keep_arm(node, true, loop);
            case ARM_RULE::KEEP_RIGHT: return keep_arm(node, false, loop);
            case ARM_RULE::NONE: break;
        }
        if (settle_inner(node, loop) || join_conditions(node, loop)) continue;
        if (NODE* operation = distribute(node, loop); operation != nullptr) return operation;
        if (NODE* assignment = as_assignment(node, loop); assignment != nullptr) return assignment;
        return node;
    }
}
