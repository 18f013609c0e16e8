// Comparisons.
//
// The canonical form: a constant stands on the right; a signed comparison with a constant has the one closest
// to zero (x < 1 is x <= 0, x > -1 is x >= 0); what only one number fulfils is an equality (x >= 65535 of an
// unsigned x is x == 65535, x < 1 is x == 0); constants and operators that the comparison can absorb are gone
// from the left (x + 3 == 5 is x == 2); operands are as narrow as the source's values (a comparison of two
// chars converted to long compares chars); a comparison of a truth value is the truth value or its negation.
//
// The rules run in a fixed order, from the cheap to the dear, until none applies. Each of them decides the
// comparison, takes an operator or a conversion from its operands, turns an ordering into an equality, or
// moves a constant towards zero. None does the reverse of another, so the loop ends.
//
// Integer arithmetic wraps, in signed types too. So x + 3 == 5 may always be x == 2, while x + 3 < 5 may be x
// < 2 only where x + 3 is known not to wrap. All numbers are computed in 128 bits, where nothing overflows.
//
// Floating comparisons keep their operands apart from a constant that moves to the right, by commute_inv: a
// NaN is not equal to itself, and has no order.

#include "simp_relop.h"

#include <algorithm>
#include <utility>

#include "congruent.h"
#include "erase.h"
#include "files.h"
#include "fold.h"
#include "known_bits.h"
#include "node.h"
#include "opcodes.h"
#include "optypes.h"
#include "simp.h"
#include "simp_rules.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

bool holds_for_equals(int op) { return op == EQ || op == LE || op == GE || op == ULE || op == UGE; }

bool gives_less(int op) { return op == LT || op == ULT || op == LE || op == ULE; }

NODE* simp_float_relop(NODE* node) {
    const bool left_is_constant = node->left->op == FCON || node->left->op == ICON;
    const bool right_is_constant = node->right->op == FCON || node->right->op == ICON;
    if (left_is_constant && right_is_constant) return fold_constants(node);
    if (left_is_constant && commute_inv[node->op] != ILLOP) {
        std::swap(node->left, node->right);
        node->op = commute_inv[node->op];
    }
    return node;
}

// simp_node moves these out of an operand.
bool is_hoisted(const NODE* tree) { return tree->op == COMMAOP; }

bool is_object_address(const NODE* tree) { return tree->op == UAND && tree->left->op == NAME; }

// Constants go to the right, the addresses of objects behind other trees.
int weight(const NODE* tree) { return tree->op == ICON ? 2 : is_object_address(tree) ? 1 : 0; }

} // namespace

bool RELOP::is_equality() const { return node_->op == EQ || node_->op == NEQ; }

// Whether the operand's own numbers are the ones compared.
bool RELOP::operand_fits(const NODE* operand) const {
    if (!operand->type->is_integral() || is_truth_type(value_type(operand))) return false;
    const NUMBERS own = numbers_of(operand->type);
    return own.width == numbers_.width && (own.is_unsigned == numbers_.is_unsigned || is_equality());
}

// Reads the node anew. False for operands that are no integers or pointers of one width.
bool RELOP::refresh() {
    type_ = value_type(node_->left);
    TYPE* right_type = value_type(node_->right);
    if (!is_int_or_ptr(type_) || !is_int_or_ptr(right_type)) return false;
    numbers_ = numbers_of(type_);
    if (type_width(right_type) != numbers_.width || numbers_.width > 64) return false;
    if (is_relational()) numbers_.is_unsigned = node_->op >= ULE;
    has_k_ = node_->right->op == ICON;
    k_ = has_k_ ? numbers_.wrap(to_wide(node_->right->u.lval)) : 0;
    return true;
}

// The constant, in the place of the one on the right.
NODE* RELOP::number(WIDE value, TYPE* type) {
    NODE* icon = node_->right;
    icon->u.lval = truncate_to_type(to_int65(numbers_of(type).wrap(value)), type);
    icon->type = type;
    return icon;
}

RELOP::OUTCOME RELOP::decide(bool value) {
    NODE* effect = peel_for_effect(node_->left);
    NODE* right_effect = peel_for_effect(node_->right);
    if (effect != nullptr && right_effect != nullptr) {
        effect = simp_node(mk_COMMAOP(effect, right_effect), loop_);
    } else if (effect == nullptr) {
        effect = right_effect;
    }
    NODE* result = mk_number(value ? 1 : 0, node_->type);
    if (effect != nullptr) result = simp_node(mk_COMMAOP(effect, result), loop_);
    erase_node(node_);
    node_ = result;
    return DONE;
}

RELOP::OUTCOME RELOP::become(NODE* tree) {
    TYPE* type = node_->type;
    erase_node(node_);
    node_ = converted(tree, type, loop_);
    return DONE;
}

RELOP::OUTCOME RELOP::rewrite(int op, NODE* left, NODE* right) {
    node_->op = op;
    node_->left = left;
    node_->right = right;
    return AGAIN;
}

RELOP::OUTCOME RELOP::rewrite_or_decide(int op, NODE* left, WIDE k, const NUMBERS& numbers, TYPE* type) {
    node_->left = left;
    if (!numbers.holds(k)) {
        return decide(k < numbers.min() ? op == NEQ || (op != EQ && !gives_less(op))
                                        : op == NEQ || gives_less(op));
    }
    return rewrite(op, left, number(k, type));
}

// --- Identities, limits, known bits and ranges.

RELOP::OUTCOME RELOP::orient() {
    if (node_->left->op == ICON && has_k_) {
        NODE* folded = fold_constants(node_);
        if (folded->op != ICON) return NONE;
        node_ = folded;
        return DONE;
    }
    if (weight(node_->left) <= weight(node_->right)) return NONE;
    return rewrite(commute_inv[node_->op], node_->right, node_->left);
}

RELOP::OUTCOME RELOP::same_operands() {
    if (has_k_ || !trees_are_congruent(node_->left, node_->right)) return NONE;
    return decide(holds_for_equals(node_->op));
}

// The comparison with the constant of a value that lies in the interval.
RELOP::OUTCOME RELOP::within(const INTERVAL& interval) {
    const auto [lo, hi] = interval;
    const auto equality = [this](int op, WIDE k) { return rewrite(op, node_->left, number(k, type_)); };
    switch (node_->op) {
        case EQ:
        case NEQ:
            if (k_ < lo || k_ > hi) return decide(node_->op == NEQ);
            return lo == hi ? decide(node_->op == EQ) : NONE;
        case LT:
        case ULT:
            if (k_ > hi) return decide(true);
            if (k_ <= lo) return decide(false);
            if (k_ == lo + 1) return equality(EQ, lo);
            return k_ == hi ? equality(NEQ, hi) : NONE;
        case LE:
        case ULE:
            if (k_ >= hi) return decide(true);
            if (k_ < lo) return decide(false);
            if (k_ == lo) return equality(EQ, lo);
            return k_ == hi - 1 ? equality(NEQ, hi) : NONE;
        case GE:
        case UGE:
            if (k_ <= lo) return decide(true);
            if (k_ > hi) return decide(false);
            if (k_ == lo + 1) return equality(NEQ, lo);
            return k_ == hi ? equality(EQ, hi) : NONE;
        default:
            if (k_ < lo) return decide(true);
            if (k_ >= hi) return decide(false);
            if (k_ == lo) return equality(NEQ, lo);
            return k_ == hi - 1 ? equality(EQ, hi) : NONE;
    }
}

// A signed comparison takes the constant that is closest to zero.
RELOP::OUTCOME RELOP::adjust_strictness() {
    const auto shifted = [this](int op, int step) {
        return rewrite(op, node_->left, number(k_ + step, type_));
    };
    switch (node_->op) {
        case LT: return k_ > 0 ? shifted(LE, -1) : NONE;
        case GE: return k_ > 0 ? shifted(GT, -1) : NONE;
        case LE: return k_ < 0 ? shifted(LT, 1) : NONE;
        case GT: return k_ < 0 ? shifted(GE, 1) : NONE;
        default: return NONE;
    }
}

RELOP::BITS RELOP::bits_of(NODE* tree) {
    return {to_wide(find_known_zeros(tree, type_)), to_wide(find_known_ones(tree, type_))};
}

// What the proved bits say of the value.
INTERVAL RELOP::interval_by_bits(const BITS& bits) {
    const WIDE sign = WIDE{1} << (numbers_.width - 1);
    if ((bits.ones & ~bits.may_be) != 0) return {numbers_.min(), numbers_.max()}; // never reached
    if (numbers_.is_unsigned || (bits.may_be & sign) == 0) return {bits.ones, bits.may_be};
    const WIDE modulus = sign << 1;
    if ((bits.ones & sign) != 0) return {bits.ones - modulus, bits.may_be - modulus};
    return {(bits.ones | sign) - modulus, bits.may_be & ~sign};
}

RELOP::OUTCOME RELOP::by_bits() {
    bits_are_known_ = type_->is_integral() && node_->right->type->is_integral();
    if (!bits_are_known_) return NONE;
    left_bits_ = bits_of(node_->left);
    right_bits_ = bits_of(node_->right);
    if (!is_equality()) return NONE; // the intervals tell
    const bool differ =
        ((left_bits_.ones & ~right_bits_.may_be) | (right_bits_.ones & ~left_bits_.may_be)) != 0;
    return differ ? decide(node_->op == NEQ) : NONE;
}

RELOP::OUTCOME RELOP::by_range() {
    INTERVAL left = interval_of(node_->left, numbers_, loop_);
    INTERVAL right = interval_of(node_->right, numbers_, loop_);
    if (bits_are_known_) {
        const auto narrow = [](INTERVAL& interval, const INTERVAL& by_bits) {
            const INTERVAL both{std::max(interval.lo, by_bits.lo), std::min(interval.hi, by_bits.hi)};
            if (both.lo <= both.hi) interval = both;
        };
        narrow(left, interval_by_bits(left_bits_));
        narrow(right, interval_by_bits(right_bits_));
    }
    if (has_k_) return within(left);
    const bool all_less = left.hi<right.lo, all_greater = left.lo> right.hi;
    if (all_less || all_greater) {
        if (is_equality()) return decide(node_->op == NEQ);
        return decide(gives_less(node_->op) == all_less);
    }
    if (left.hi == right.lo && (node_->op == LE || node_->op == ULE)) return decide(true);
    if (left.hi == right.lo && (node_->op == GT || node_->op == UGT)) return decide(false);
    if (left.lo == right.hi && (node_->op == GE || node_->op == UGE)) return decide(true);
    if (left.lo == right.hi && (node_->op == LT || node_->op == ULT)) return decide(false);
    return NONE;
}

// The address of an object is not null, and those of different objects differ.
RELOP::OUTCOME RELOP::pointer_against_null() {
    if (!type_->is_ptr() || !is_equality()) return NONE;
    if (has_k_) {
        const bool is_object =
            k_ == 0 && (node_->left->op == SCON || pointer_contains_adcon_term(node_->left));
        return is_object ? decide(node_->op == NEQ) : NONE;
    }
    if (!is_object_address(node_->left) || !is_object_address(node_->right)) return NONE;
    const auto is_own_object = [](const SYMTAB* symbol) {
        switch (symbol->sclass) {
            case SC_AUTO:
            case SC_REGISTER:
            case SC_PARM:
            case SC_REGPARM: return symbol->size > 0;
            case SC_EXTDEF:
            case SC_STATIC: return symbol->size > 0 && !symbol->type->is_func();
            default: return false;
        }
    };
    const SYMTAB *a = node_->left->left->symbol(), *b = node_->right->left->symbol();
    return a != b && is_own_object(a) && is_own_object(b) ? decide(node_->op == NEQ) : NONE;
}

// --- Truth values and tests for zero.

RELOP::OUTCOME RELOP::truth_values() {
    if (!has_k_ || !type_->is_integral()) return NONE;
    NODE* left = node_->left;
    if (returns_1_or_0(left)) {
        if (is_relational() || k_ < 0 || k_ > 1) return within({0, 1});
        if (k_ == 1) return rewrite(node_->op == EQ ? NEQ : EQ, left, number(0, type_));
        if (node_->op == NEQ) {
            erase_node(node_->right);
            return become(left);
        }
        // That the left side is a comparison with zero of a truth value, is for simp_inverse to see.
        if (!tree_is_trivially_invertible(left)) return NONE;
        erase_node(node_->right);
        TYPE* type = node_->type;
        erase_node(node_);
        node_ = converted(simp_inverse(left, loop_), type, loop_);
        return DONE;
    }
    // One bit alone may be set: it is set when it is not zero.
    if (!is_equality() || k_ == 0) return NONE;
    const WIDE may_be = left_bits_.may_be;
    if ((may_be & (may_be - 1)) != 0 || numbers_.wrap(may_be) != k_) return NONE;
    return rewrite(node_->op == EQ ? NEQ : EQ, left, number(0, type_));
}

RELOP::OUTCOME RELOP::zero_test() {
    if (!has_k_ || k_ != 0 || !is_equality()) return NONE;
    NODE* left = node_->left;
    if (!reduce_zero_test(left, loop_)) return NONE;
    NODE* value = left->op == COMMAOP ? left->right : left;
    return rewrite(node_->op, left, number(0, value_type(value)));
}

// --- Operators on both sides.

// (long)a < (long)b compares a with b, where the conversions keep the numbers apart and in order.
RELOP::OUTCOME RELOP::narrow_both() {
    NODE *left = node_->left, *right = node_->right;
    const bool pointers = left->op == PCONV && right->op == PCONV;
    if (!pointers && (left->op != SCONV || right->op != SCONV)) return NONE;
    if (pointers) {
        if (!left->left->type->is_ptr() || !right->left->type->is_ptr() ||
            type_width(left->left->type) != numbers_.width || type_width(right->left->type) != numbers_.width)
            return NONE;
        return rewrite(node_->op, take_left(left), take_left(right));
    }
    TYPE *a = value_type(left->left), *b = value_type(right->left);
    if (!a->is_integral() || !b->is_integral() || is_truth_type(type_) || !right->type->is_integral())
        return NONE;
    TYPE* common = int_type_min(a) <= int_type_min(b) && int_type_max(b) <= int_type_max(a)   ? a
                   : int_type_min(b) <= int_type_min(a) && int_type_max(a) <= int_type_max(b) ? b
                                                                                              : nullptr;
    if (common == nullptr || is_truth_type(common)) return NONE;
    const NUMBERS narrow = numbers_of(common);
    if (narrow.width > numbers_.width) return NONE;
    // A narrower signed number that turns into an unsigned one keeps its order among the unsigned ones of its
    // width.
    bool as_unsigned = narrow.is_unsigned;
    if (is_relational()) {
        const bool keeps_numbers = numbers_.min() <= narrow.min() && narrow.max() <= numbers_.max();
        if (!keeps_numbers && narrow.is_unsigned) return NONE; // read as signed numbers of that width
        as_unsigned = narrow.is_unsigned || !keeps_numbers;
        if (as_unsigned && narrow.width == numbers_.width && !narrow.is_unsigned) return NONE;
        if (as_unsigned && !narrow.is_unsigned) common = tp->mk_unsigned(common);
    } else if (numbers_of(left->type).is_unsigned != numbers_of(right->type).is_unsigned) {
        return NONE;
    }
    NODE *x = take_left(left), *y = take_left(right);
    x = converted(x, common, loop_);
    y = converted(y, common, loop_);
    return rewrite(comparison_with_sign(node_->op, as_unsigned), x, y);
}

// a + b == a + c is b == c, a - b == a is b == 0, and so on: equality knows no wrapping.
RELOP::OUTCOME RELOP::cancel_common() {
    if (!is_equality()) return NONE;
    NODE *left = node_->left, *right = node_->right;
    const auto is_sum = [](const NODE* tree) {
        return tree->op == PLUS || tree->op == MINUS || tree->op == XORB;
    };
    const auto width_fits = [this](const NODE* tree) {
        return is_int_or_ptr(tree->type) && type_width(tree->type) == numbers_.width &&
               !is_truth_type(value_type(tree));
    };
    if (!is_sum(left) && is_sum(right)) std::swap(left, right);
    if (!is_sum(left) || !width_fits(left->left) || !width_fits(left->right)) return NONE;
    const bool commutes = left->op != MINUS;
    if (is_sum(right) && right->op == left->op) {
        if (!width_fits(right->left) || !width_fits(right->right)) return NONE;
        NODE** const sides[2] = {&left->left, &left->right};
        NODE** const others[2] = {&right->left, &right->right};
        for (int i = 0; i < 2; i++) {
            for (int j = 0; j < 2; j++) {
                if ((i != j && !commutes) || !trees_are_congruent(*sides[i], *others[j])) continue;
                NODE *a = *sides[1 - i], *b = *others[1 - j];
                if (!same_representation(a->type, b->type)) continue;
                erase_tree(*sides[i]);
                erase_tree(*others[j]);
                erase_node(left);
                erase_node(right);
                return rewrite(node_->op, a, b);
            }
        }
        return NONE;
    }
    for (const bool first : {true, false}) {
        if (!first && !commutes) break;
        NODE* same = first ? left->left : left->right;
        NODE* rest = first ? left->right : left->left;
        if (!trees_are_congruent(same, right)) continue;
        erase_tree(same);
        erase_tree(right);
        erase_node(left);
        return rewrite(node_->op, rest, mk_number(0, value_type(rest)));
    }
    return NONE;
}

// -x == -y, ~x < ~y, x * 3 == y * 3: one-to-one operators on both sides.
RELOP::OUTCOME RELOP::strip_both() {
    NODE *left = node_->left, *right = node_->right;
    if (left->op != right->op || left->left == nullptr || right->left == nullptr) return NONE;
    if (!operand_fits(left->left) || !operand_fits(right->left)) return NONE;
    if (!same_representation(left->left->type, right->left->type)) return NONE;
    switch (left->op) {
        case NOTB: return rewrite(commute_inv[node_->op], take_left(left), take_left(right));
        case UMINUS:
            if (is_relational()) return NONE;
            return rewrite(node_->op, take_left(left), take_left(right));
        case MULT: {
            if (is_relational() || left->right->op != ICON || right->right->op != ICON ||
                left->right->u.lval != right->right->u.lval || (left->right->u.lval.low & 1) == 0)
                return NONE;
            return rewrite(node_->op, take_left(left), take_left(right));
        }
        default: return NONE;
    }
}

// x + 5 == y + 3 has one constant too many.
RELOP::OUTCOME RELOP::move_constants() {
    NODE *left = node_->left, *right = node_->right;
    if (left->op != PLUS || right->op != PLUS || left->right->op != ICON || right->right->op != ICON)
        return NONE;
    if (!operand_fits(left->left) || !operand_fits(right->left)) return NONE;
    const WIDE a = numbers_.wrap(to_wide(left->right->u.lval));
    const WIDE b = numbers_.wrap(to_wide(right->right->u.lval));
    if (is_relational()) {
        // The same constant on both sides, and neither sum wraps.
        if (a != b) return NONE;
        const WIDE step = NUMBERS{numbers_.width, false}.wrap(a);
        for (const NODE* sum : {left, right}) {
            const INTERVAL x = interval_of(sum->left, numbers_, loop_);
            if (!numbers_.holds(x.lo + step) || !numbers_.holds(x.hi + step)) return NONE;
        }
        return rewrite(node_->op, take_left(left), take_left(right));
    }
    NODE* y = take_left(right);
    if (a == b) return rewrite(node_->op, take_left(left), y);
    TYPE* type = value_type(left);
    return rewrite(node_->op, build(PLUS, take_left(left), mk_number(a - b, type), type, loop_), y);
}

// Unsigned: x & y, x >> n, x / y and x % y are at most x, x | y at least.
RELOP::OUTCOME RELOP::bounded_by_operand() {
    if (!is_relational() || !numbers_.is_unsigned || has_k_) return NONE;
    for (const bool swapped : {false, true}) {
        NODE* tree = swapped ? node_->right : node_->left;
        NODE* other = swapped ? node_->left : node_->right;
        const int op = swapped ? commute_inv[node_->op] : node_->op;
        if (tree->left == nullptr || tree->right == nullptr || !operand_fits(tree->left)) continue;
        if ((op == ULE || op == UGT) &&
            (tree->op == ANDB || tree->op == SRL || tree->op == DIV || tree->op == MOD) &&
            (trees_are_congruent(tree->left, other) ||
             (tree->op == ANDB && trees_are_congruent(tree->right, other))))
            return decide(op == ULE);
        if ((op == UGE || op == ULT) && tree->op == ORB &&
            (trees_are_congruent(tree->left, other) || trees_are_congruent(tree->right, other)))
            return decide(op == UGE);
        if ((op == ULT || op == UGE) && tree->op == MOD && trees_are_congruent(tree->right, other))
            return decide(op == ULT);
    }
    return NONE;
}

// (x & 1 << n) == 1 << n asks whether one bit is set.
RELOP::OUTCOME RELOP::test_of_one_bit() {
    if (!is_equality()) return NONE;
    NODE *mask = node_->left, *bit = node_->right;
    if (mask->op != ANDB) std::swap(mask, bit);
    if (mask->op != ANDB || bit->op != SLL || !is_icon(bit->left, 1)) return NONE;
    if (!trees_are_congruent(mask->right, bit) && !trees_are_congruent(mask->left, bit)) return NONE;
    erase_tree(bit);
    return rewrite(node_->op == EQ ? NEQ : EQ, mask, mk_number(0, value_type(mask)));
}

RELOP::OUTCOME RELOP::two_operators() {
    if (has_k_) return NONE;
    using RULE = OUTCOME (RELOP::*)();
    static constexpr RULE RULES[] = {&RELOP::narrow_both,        &RELOP::strip_both,
                                     &RELOP::cancel_common,      &RELOP::move_constants,
                                     &RELOP::bounded_by_operand, &RELOP::test_of_one_bit};
    for (const RULE rule : RULES)
        if (const OUTCOME outcome = (this->*rule)(); outcome != NONE) return outcome;
    return NONE;
}

// --- The order of the rules.

RELOP::OUTCOME RELOP::one_rule() {
    if (!refresh()) return NONE;
    using RULE = OUTCOME (RELOP::*)();
    static constexpr RULE FIRST[] = {&RELOP::orient, &RELOP::same_operands};
    for (const RULE rule : FIRST)
        if (const OUTCOME outcome = (this->*rule)(); outcome != NONE) return outcome;
    // A plain comparison of unsigned values is no form that the limits and ranges speak of.
    if (is_relational() && !numbers_.is_unsigned && numbers_of(type_).is_unsigned) return NONE;
    if (has_k_) {
        if (is_relational())
            if (const OUTCOME outcome = within({numbers_.min(), numbers_.max()}); outcome != NONE)
                return outcome;
        if (const OUTCOME outcome = adjust_strictness(); outcome != NONE) return outcome;
    }
    static constexpr RULE REST[] = {
        &RELOP::by_bits,      &RELOP::by_range,  &RELOP::pointer_against_null,
        &RELOP::truth_values, &RELOP::zero_test, &RELOP::operator_against_constant,
        &RELOP::two_operators};
    for (const RULE rule : REST)
        if (const OUTCOME outcome = (this->*rule)(); outcome != NONE) return outcome;
    return NONE;
}

NODE* RELOP::run() {
    for (;;) {
        const OUTCOME outcome = one_rule();
        if (outcome != AGAIN) return node_;
        if (is_hoisted(node_->left) || is_hoisted(node_->right)) return simp_node(node_, loop_);
    }
}

NODE* simp_relop(NODE* node, ::LOOP* loop) {
    if (node->left->type->is_vector() || node->right->type->is_vector()) return node;
    return is_integer_comparison(node->op) ? RELOP(node, loop).run() : simp_float_relop(node);
}
