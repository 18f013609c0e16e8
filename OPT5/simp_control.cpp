// Trees whose value is only compared with zero, and tests whose outcome is known.
//
// A tree in control context may be replaced by any other that is zero at the same time:
//
//     x != 0          ->  x                      x % 8        ->  x & 7
//     (long)x         ->  x                      x >> 15      ->  x & 0x8000
//     -x, ABS(x)      ->  x                      (x >> 3) & 1 ->  x & 8
//     x + k, x ^ k    ->  x != -k, x != k        x - y        ->  x != y
//     x++             ->  (x += 1) != 1          c ? x : 0    ->  c && x
//
// Every step takes an operator away or puts a cheaper one in its place, and none makes an operator that
// another step takes: that is why the loop ends. reduce_zero_test does what needs a look at the top of the
// tree only; simp_for_control also goes into comma operators and the arms of conditionals, with a limit on
// the number of arms looked at, so that a tree which is simplified again and again on its way up stays cheap.

#include <bit>
#include <vector>

#include "bbutils.h"
#include "congruent.h"
#include "debug.h"
#include "erase.h"
#include "files.h"
#include "fold.h"
#include "known_bits.h"
#include "node.h"
#include "opcodes.h"
#include "optypes.h"
#include "simp.h"
#include "simp_cond.h"
#include "simp_rules.h"
#include "target_bif.h"
#include "types.h"

using namespace op;

namespace {

// The tree is never zero (`truth` 1) or always (0).
bool decide(NODE*& tree, int truth, ::LOOP* loop) {
    if (is_icon(tree, truth) && tree->type == tp->int_type(IK_INT)) return false;
    tree = known_value(tree, INT65::from_signed(truth), tp->int_type(IK_INT), loop);
    return true;
}

// The operand takes the node's place.
bool keep_left(NODE*& tree) {
    tree = take_left(tree);
    return true;
}

bool keep_test(NODE*& tree, int op, NODE* left, NODE* right, ::LOOP* loop) {
    erase_node(tree);
    tree = build(op, left, right, tp->int_type(IK_INT), loop);
    return true;
}

// `left & mask` takes the node's place.
bool keep_bits(NODE*& tree, NODE* left, WIDE mask, TYPE* type, ::LOOP* loop) {
    tree = build(ANDB, left, mk_number(mask, type), type, loop);
    return true;
}

WIDE bits_of(const NODE* icon, int width) { return to_wide(icon->u.lval) & ((WIDE{1} << width) - 1); }

int trailing_zeros(WIDE bits) { return std::countr_zero(static_cast<std::uint64_t>(bits)); }

bool is_plain_integer(TYPE* type) { return type->is_integral() && !is_truth_type(type); }

// The constant count of a shift, when it moves the bits by at least one place and not all of them out; else
// 0.
int shift_count(const NODE* shift) {
    if (shift->right->op != ICON || !is_plain_integer(value_type(shift))) return 0;
    const WIDE count = to_wide(shift->right->u.lval);
    return count > 0 && count < type_width(shift->type) ? static_cast<int>(count) : 0;
}

// SCONV, PCONV: a conversion that keeps zero and everything else apart.
bool reduce_conversion(NODE*& tree) {
    TYPE* from = tree->left->type;
    if (!is_int_or_ptr(from)) return false;
    // A conversion to a truth value is a test itself.
    const bool keeps = is_truth_type(value_type(tree)) || type_width(tree->type) >= type_width(from);
    if (!keeps) return false;
    if (tree->op != SCONV && tree->left->op != ICON && !from->is_ptr()) return false;
    return keep_left(tree);
}

// (x >> s) & m tests bits of x that one mask can test in place, (x << s) & m likewise.
bool reduce_masked_shift(NODE*& tree, ::LOOP* loop) {
    NODE* shift = tree->left;
    if (shift->op == SCONV && shift->left->op == SRL && shift->left->type->is_integral() &&
        is_plain_integer(value_type(shift)))
        shift = shift->left;
    if (shift->op != SRL && (shift->op != SLL || shift != tree->left)) return false;
    const int count = shift_count(shift);
    if (count == 0 || !same_representation(shift->type, shift->left->type)) return false;
    const int width = type_width(shift->type);
    WIDE mask = bits_of(tree->right, type_width(tree->type));
    if (shift->op == SLL) {
        mask >>= count;
    } else {
        if (mask >> (width - count) != 0) return false; // bits that the shift has filled in
        mask <<= count;
        // A mask that needs more than 32 bits costs more than the shift.
        if (mask >> 32 != 0 && type_width(promoted_type(shift->left->type)) > 32) return false;
    }
    if (mask == 0) return false;
    TYPE* type = value_type(shift);
    while (tree != shift) tree = take_left(tree);
    return keep_bits(tree, take_left(shift), mask, type, loop);
}

// The bits of an ORB's constant are not among the ones tested.
bool reduce_masked_or(NODE*& tree, ::LOOP* loop) {
    NODE* sum = tree->left;
    if (sum->op != ORB || sum->right->op != ICON) return false;
    if (!(sum->right->u.lval & tree->right->u.lval & type_mask(value_type(tree))).is_zero()) return false;
    tree->left = take_left(sum);
    tree = simp_node(tree, loop);
    return true;
}

// x ^ k where x has no other bit than k: zero when the bit is set.
bool reduce_flipped_bit(NODE*& tree, ::LOOP* loop) {
    TYPE* type = value_type(tree);
    const WIDE k = bits_of(tree->right, type_width(type));
    if (k == 0 || (k & (k - 1)) != 0) return false;
    if ((to_wide(find_known_zeros(tree->left, type)) & ~k) != 0) return false;
    tree->op = ANDB;
    NODE* test = simp_node(tree, loop);
    tree = build(EQ, test, mk_number(0, value_type(test)), tp->int_type(IK_INT), loop);
    return true;
}

// x op y is zero when x equals some y'.
bool reduce_to_inequality(NODE*& tree, ::LOOP* loop) {
    TYPE* type = value_type(tree);
    if (!is_plain_integer(type) || !is_int_or_ptr(tree->left->type) ||
        type_width(tree->left->type) != type_width(type))
        return false;
    const bool with_ICON = tree->right != nullptr && tree->right->op == ICON;
    TYPE* left_type = value_type(tree->left);
    if (is_truth_type(left_type)) return false;
    switch (tree->op) {
        case NOTB: {
            NODE* left = tree->left;
            return keep_test(tree, NEQ, left, mk_number(-1, left_type), loop);
        }
        case XORB:
            if (with_ICON && reduce_flipped_bit(tree, loop)) return true;
            [[fallthrough]];
        case MINUS: {
            if (!is_int_or_ptr(tree->right->type) || tree->right->type->is_ptr() != left_type->is_ptr() ||
                type_width(tree->right->type) != type_width(type))
                return false;
            NODE *left = tree->left, *right = tree->right;
            return keep_test(tree, NEQ, left, right, loop);
        }
        case PLUS: {
            if (!with_ICON || !left_type->is_integral()) return false;
            NODE *left = tree->left, *right = tree->right;
            right->u.lval = truncate_to_type(-right->u.lval, left_type);
            right->type = left_type;
            return keep_test(tree, NEQ, left, right, loop);
        }
        default: return false;
    }
}

// x * k, x << k: zero when the bits of x that stay in the product are.
bool reduce_product(NODE*& tree, ::LOOP* loop) {
    TYPE* type = value_type(tree);
    if (!is_plain_integer(type) || tree->right->op != ICON || !same_representation(type, tree->left->type))
        return false;
    int lost = 0;
    if (tree->op == MULT) {
        const WIDE factor = bits_of(tree->right, type_width(type));
        if (factor == 0) return false;
        lost = trailing_zeros(factor);
    } else {
        lost = shift_count(tree);
        if (lost == 0) return false;
    }
    NODE* left = take_left(tree);
    tree = left;
    return lost == 0 || keep_bits(tree, left, (WIDE{1} << (type_width(type) - lost)) - 1, type, loop);
}

bool reduce_division(NODE*& tree, ::LOOP* loop) {
    TYPE* type = value_type(tree);
    if (!is_plain_integer(type) || tree->right->op != ICON || !same_representation(type, tree->left->type))
        return false;
    const WIDE divisor = numbers_of(type).wrap(to_wide(tree->right->u.lval));
    if (divisor == 0) return false;
    if (tree->op == DIV) {
        if (type->is_signed()) return false;
        NODE *left = tree->left, *right = tree->right;
        return keep_test(tree, UGE, left, right, loop);
    }
    // The rest of a negative number is not the masked one, but it is zero at the same time.
    const WIDE size = divisor < 0 ? -divisor : divisor;
    if ((size & (size - 1)) != 0) return false;
    NODE* left = take_left(tree);
    return keep_bits(tree, left, size - 1, type, loop);
}

// x++ has the old value: it is zero when the new one is 1.
bool reduce_increment(NODE*& tree, ::LOOP* loop) {
    TYPE* type = value_type(tree);
    if (type != tp->int_type(IK_INT) && type != tp->int_type(IK_UINT)) return false;
    if (!is_icon(tree->right, 1) || node_is_volatile_access(tree->left)) return false;
    const NODE* target = tree->left;
    if ((target->op == STDOT || target->op == STREF) && target->right->mdata->bit_field) return false;
    const int step = tree->op == PLUSPLUS ? 1 : -1;
    tree->op = tree->op == PLUSPLUS ? PLUSASG : MINUSASG;
    NODE* assignment = simp_node(tree, loop);
    tree = build(NEQ, assignment, mk_number(step, type), tp->int_type(IK_INT), loop);
    return true;
}

// How often simp_for_control is at work on trees inside of each other: conditionals may nest deeply.
int nesting = 0;
constexpr int MAX_NESTING = 32;

// A conditional with a constant arm is a logical operator.
bool reduce_conditional(NODE*& tree, ::LOOP* loop) {
    if (nesting >= MAX_NESTING) return false;
    NODE* arms = tree->right;
    const bool left_known = arms->left->op == ICON, right_known = arms->right->op == ICON;
    if (left_known == right_known || !is_int_or_ptr(tree->type)) return false;
    NODE* condition = tree->left;
    NODE* arm = left_known ? arms->right : arms->left;
    const bool constant_is_true = !(left_known ? arms->left : arms->right)->u.lval.is_zero();
    if (left_known != constant_is_true) condition = simp_inverse(condition, loop);
    erase_node(left_known ? arms->left : arms->right);
    erase_node(arms);
    erase_node(tree);
    nesting++;
    tree = build(constant_is_true ? OROR : ANDAND, condition, arm, tp->int_type(IK_INT), loop);
    nesting--;
    return true;
}

// A saturating difference is zero when the operands are equal.
bool reduce_intrinsic(NODE*& tree, ::LOOP* loop) {
    if (!is_ICALL_callee(tree, "_ssub") && !is_ICALL_callee(tree, "_ssub2")) return false;
    NODE* arguments = tree->left;
    if (arguments->op != COMMA || !same_representation(arguments->left->type, tree->type) ||
        !same_representation(arguments->right->type, tree->type))
        return false;
    NODE *left = arguments->left, *right = arguments->right;
    erase_node(arguments);
    return keep_test(tree, NEQ, left, right, loop);
}

bool reduce_mask(NODE*& tree, ::LOOP* loop) {
    if (tree->right->op != ICON || !is_plain_integer(value_type(tree))) return false;
    return reduce_masked_shift(tree, loop) || reduce_masked_or(tree, loop);
}

bool reduce_right_shift(NODE*& tree, ::LOOP* loop) {
    const int count = shift_count(tree);
    if (count == 0 || !same_representation(tree->type, tree->left->type)) return false;
    TYPE* type = value_type(tree);
    NODE* left = take_left(tree);
    return keep_bits(tree, left, -(WIDE{1} << count), type, loop);
}

// What is proved of the value: never zero, always zero.
bool reduce_known(NODE*& tree, ::LOOP* loop) {
    if (boolean_result[tree->op] != 0) return false;
    TYPE* type = value_type(tree);
    if (type->is_ptr() && (tree->op == SCON || pointer_contains_adcon_term(tree)))
        return decide(tree, 1, loop);
    if (tree->op == ICON) return decide(tree, tree->u.lval.is_zero() ? 0 : 1, loop);
    if (!type->is_integral()) return false;
    if (!find_known_ones(tree, type).is_zero()) return decide(tree, 1, loop);
    if (find_known_zeros(tree, type).is_zero()) return decide(tree, 0, loop);
    return false;
}

bool reduce_operator(NODE*& tree, ::LOOP* loop) {
    switch (tree->op) {
        case MOD:
        case DIV: return reduce_division(tree, loop);
        case SRL: return reduce_right_shift(tree, loop);
        case ANDB: return reduce_mask(tree, loop);
        case UMINUS:
        case ABS: return same_representation(tree->type, tree->left->type) && keep_left(tree);
        case XORB:
        case MINUS:
        case PLUS:
        case NOTB: return reduce_to_inequality(tree, loop);
        case MULT:
        case SLL: return reduce_product(tree, loop);
        case PLUSPLUS:
        case MINMIN: return reduce_increment(tree, loop);
        case QUEST: return reduce_conditional(tree, loop);
        case ICALL: return reduce_intrinsic(tree, loop);
        default: return false;
    }
}

bool reduce_once(NODE*& tree, ::LOOP* loop) {
    if (!is_int_or_ptr(tree->type)) return false;
    switch (tree->op) {
        case NEQ:
            if (is_zero_ICON(tree->right) && is_int_or_ptr(tree->left->type)) return keep_left(tree);
            return false;
        case SCONV:
        case PCONV:
        case ISP2CHAR:
            if (reduce_conversion(tree)) return true;
            break;
        case COMMAOP: return false;
        default: break;
    }
    return reduce_known(tree, loop) || reduce_operator(tree, loop);
}

} // namespace

bool reduce_zero_test(NODE*& tree, ::LOOP* loop) {
    bool changed = false;
    while (reduce_once(tree, loop)) changed = true;
    return changed;
}

namespace {

bool has_control_arms(const NODE* tree) {
    return tree->op == QUEST && (tree->type == tp->int_type(IK_INT) || tree->type == tp->int_type(IK_UINT)) &&
           tree->right->op == COLON;
}

// The arm reduced, in the conditional's type; `changed` tells whether it is another tree now.
NODE* reduced_arm(NODE* arm, TYPE* type, ::LOOP* loop, bool& changed) {
    const auto fits = [type](const NODE* tree) {
        return tree->type->is_integral() && type_width(tree->type) <= type_width(type);
    };
    // What the way back to the type would bring in again stays.
    if (arm->op == SCONV && is_int_or_ptr(arm->left->type) && !is_truth_type(value_type(arm))) return arm;
    if (arm->op == NEQ && is_zero_ICON(arm->right) && !fits(arm->left)) return arm;
    if (arm->op == ICON || !reduce_zero_test(arm, loop)) return arm;
    changed = true;
    if (!fits(arm)) arm = make_boolean(arm, loop);
    return converted(arm, type, loop);
}

// Reduces the arms of the conditional and of the conditionals that are its arms, innermost first.
bool reduce_arms(NODE*& tree, ::LOOP* loop) {
    constexpr std::size_t LIMIT = 64;
    std::vector<NODE**> places{&tree};
    for (std::size_t i = 0; i < places.size() && places.size() < LIMIT; i++) {
        NODE* arms = (*places[i])->right;
        if (has_control_arms(arms->left)) places.push_back(&arms->left);
        if (has_control_arms(arms->right)) places.push_back(&arms->right);
    }
    bool changed = false;
    for (; !places.empty(); places.pop_back()) {
        NODE*& place = *places.back();
        NODE* arms = place->right;
        bool arm_changed = false;
        if (arms->left->op != QUEST) arms->left = reduced_arm(arms->left, place->type, loop, arm_changed);
        if (arms->right->op != QUEST) arms->right = reduced_arm(arms->right, place->type, loop, arm_changed);
        if (!arm_changed && !changed) continue;
        place = simp_node(place, loop);
        changed = true;
    }
    return changed;
}

} // namespace

NODE* simp_for_control(NODE* tree, ::LOOP* loop) {
    for (;;) {
        reduce_zero_test(tree, loop);
        if (tree->op == COMMAOP) {
            // A comma operator under its right side has been turned into one around it already.
            NODE* value = tree->right;
            if (value->op == COMMAOP || !reduce_zero_test(value, loop)) return tree;
            tree->right = value;
            tree->type = value->type;
            return simp_node(tree, loop);
        }
        if (nesting >= MAX_NESTING || !has_control_arms(tree)) return tree;
        nesting++;
        const bool changed = reduce_arms(tree, loop);
        nesting--;
        if (!changed) return tree;
    }
}

namespace {

// 1 or 0 where a test with the outcome `truth` decides `test`, else -1.
int decided_by(NODE* test, NODE* known, int truth) {
    if (bools_are_congruent(test, known)) return truth;
    VALUE_TEST asked, given;
    if (!read_value_test(test, asked) || !read_value_test(known, given)) return -1;
    if (asked.numbers.width != given.numbers.width ||
        asked.numbers.is_unsigned != given.numbers.is_unsigned ||
        !trees_are_congruent(asked.value, given.value))
        return -1;
    const INTERVAL inside = asked.interval, have = given.interval;
    const auto outcome = [&asked](bool is_inside) { return is_inside != asked.outside ? 1 : 0; };
    const bool disjoint = have.hi < inside.lo || inside.hi < have.lo;
    const bool have_is_inside = inside.lo <= have.lo && have.hi <= inside.hi;
    if (given.outside != (truth != 0)) { // the value lies in `have`
        if (disjoint) return outcome(false);
        return have_is_inside ? outcome(true) : -1;
    }
    if (have.lo <= inside.lo && inside.hi <= have.hi) return outcome(false);
    const NUMBERS& all = asked.numbers;
    const bool below = have.lo == all.min() || (inside.lo == all.min() && inside.hi >= have.lo - 1);
    const bool above = have.hi == all.max() || (inside.hi == all.max() && inside.lo <= have.hi + 1);
    return below && above ? outcome(true) : -1;
}

int known_outcome(NODE* test, const std::map<int, int>& outcomes, const std::vector<NODE*>& tests) {
    if (test->op == MIXVALUE) {
        const WIDE number = to_wide(test->u.lval);
        if (number == 0 || number == 1) return static_cast<int>(number);
        const auto found = outcomes.find(static_cast<int>(number));
        return found != outcomes.end() ? found->second : -1;
    }
    for (const auto& [number, truth] : outcomes) {
        if (number < 0 || static_cast<std::size_t>(number) >= tests.size()) continue;
        NODE* known = tests[static_cast<std::size_t>(number)];
        if (known == nullptr) continue;
        if (const int outcome = decided_by(test, known, truth); outcome >= 0) return outcome;
        // The other way round: `known` is the zero test of this one.
        if (known->op == EQ && is_zero_ICON(known->right) && bools_are_congruent(test, known->left))
            return 1 - truth;
    }
    return -1;
}

bool is_test_operator(const NODE* node) {
    switch (node->op) {
        case ANDAND:
        case OROR:
        case EXCLAIM:
        case MIX_CONJ:
        case MIX_DISJ: return true;
        case EQ:
        case NEQ: return is_zero_ICON(node->right) && boolean_result[node->left->op] != 0;
        default: return false;
    }
}

// MIX_CONJ and MIX_DISJ have no meaning to the simplifier.
NODE* simp_test_node(NODE* node, ::LOOP* loop) {
    if (node->op != MIX_CONJ && node->op != MIX_DISJ) return simp_node(node, loop);
    const bool is_conj = node->op == MIX_CONJ;
    for (const bool of_left : {true, false}) {
        NODE* side = of_left ? node->left : node->right;
        if (side->op != ICON) continue;
        NODE* other = of_left ? node->right : node->left;
        (of_left ? node->right : node->left) = nullptr;
        if (side->u.lval.is_zero() == is_conj) {
            // The constant decides: MIXVALUEs have no effects that would be lost.
            erase_tree(other);
            other = mk_number(is_conj ? 0 : 1, tp->int_type(IK_INT));
        }
        erase_tree(node);
        return other;
    }
    return node;
}

} // namespace

NODE* simp_redundant_test(NODE* test, std::map<int, int>& outcomes, const std::vector<NODE*>& tests,
                          ::LOOP* loop) {
    if (outcomes.empty()) return test;
    struct PLACE {
        NODE** tree;
        bool is_operator;
    };
    // The places of the logical operators and of their operands, outer ones first.
    std::vector<PLACE> places{{&test, is_test_operator(test)}};
    const auto add = [&places](NODE*& operand) { places.push_back({&operand, is_test_operator(operand)}); };
    for (std::size_t i = 0; i < places.size(); i++) {
        if (!places[i].is_operator) continue;
        NODE* node = *places[i].tree;
        add(node->left);
        if (node->op == ANDAND || node->op == OROR || node->op == MIX_CONJ || node->op == MIX_DISJ)
            add(node->right);
    }
    for (; !places.empty(); places.pop_back()) {
        NODE*& place = *places.back().tree;
        if (places.back().is_operator) {
            const auto is_settled = [](const NODE* operand) {
                return operand != nullptr && (operand->op == ICON || operand->op == COMMAOP);
            };
            if (is_settled(place->left) || is_settled(place->right)) place = simp_test_node(place, loop);
        }
        if (place->op == ICON) continue;
        const int outcome = known_outcome(place, outcomes, tests);
        if (outcome < 0) continue;
        place = known_value(place, INT65::from_signed(outcome), tp->int_type(IK_INT), loop);
    }
    return test;
}
