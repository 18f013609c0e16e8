// Comparisons of one operator with a constant: the constant takes the operator's work over.

#include "simp_relop.h"

#include <bit>

#include "erase.h"
#include "files.h"
#include "known_bits.h"
#include "node.h"
#include "opcodes.h"
#include "optypes.h"
#include "simp.h"
#include "simp_rules.h"
#include "target_bif.h"
#include "types.h"

using namespace op;

namespace {

WIDE floor_divided(WIDE a, WIDE b) {
    const WIDE quotient = a / b;
    return a % b != 0 && (a < 0) != (b < 0) ? quotient - 1 : quotient;
}

WIDE ceiling_divided(WIDE a, WIDE b) { return -floor_divided(-a, b); }

// The inverse of an odd number modulo 2 to the 64.
std::uint64_t odd_inverse(std::uint64_t odd) {
    std::uint64_t inverse = odd; // right in the low 3 bits; every step doubles the number of right bits
    for (int bits = 3; bits < 64; bits *= 2) inverse *= 2 - odd * inverse;
    return inverse;
}

WIDE low_bits(int count) { return (WIDE{1} << count) - 1; }

} // namespace

// x + c == k becomes x == k - c; an ordering likewise, where the sum doesn't wrap. x - c is the sum with -c.
RELOP::OUTCOME RELOP::addition() {
    NODE* left = node_->left;
    if (left->right->op != ICON || !operand_fits(left->left)) return NONE;
    WIDE c = NUMBERS{numbers_.width, false}.wrap(to_wide(left->right->u.lval));
    if (left->op == MINUS) c = -c;
    TYPE* type = value_type(left->left);
    if (is_equality()) {
        node_->left = take_left(left);
        return rewrite(node_->op, node_->left, number(k_ - c, type));
    }
    const INTERVAL x = interval_of(left->left, numbers_, loop_);
    // The constant of an unsigned sum may be meant as a great number or as a negative one.
    for (const WIDE step : {c, numbers_.wrap(c)}) {
        if (!numbers_.holds(x.lo + step) || !numbers_.holds(x.hi + step)) continue;
        return rewrite_or_decide(node_->op, take_left(left), k_ - step, numbers_, type);
    }
    return NONE;
}

// c - x == k becomes x == c - k; -x is 0 - x.
RELOP::OUTCOME RELOP::subtraction_from_constant() {
    NODE* left = node_->left;
    NODE* x = left->op == UMINUS ? left->left : left->right;
    if (!operand_fits(x)) return NONE;
    const WIDE c = left->op == UMINUS ? 0 : numbers_.wrap(to_wide(left->left->u.lval));
    TYPE* type = value_type(x);
    if (is_relational()) {
        const INTERVAL range = interval_of(x, numbers_, loop_);
        if (!numbers_.holds(c - range.hi) || !numbers_.holds(c - range.lo)) return NONE;
    }
    if (left->op == MINUS) erase_node(left->left);
    erase_node(left);
    if (is_equality()) return rewrite(node_->op, x, number(c - k_, type));
    return rewrite_or_decide(commute_inv[node_->op], x, c - k_, numbers_, type);
}

// x - y < 0 becomes x < y where the difference doesn't wrap. (x - y == 0 is a test for zero.)
RELOP::OUTCOME RELOP::difference() {
    NODE* left = node_->left;
    if (left->left->op == ICON) return subtraction_from_constant();
    if (left->right->op == ICON) return addition();
    if (is_equality() || k_ != 0 || !operand_fits(left->left) || !operand_fits(left->right)) return NONE;
    const INTERVAL x = interval_of(left->left, numbers_, loop_),
                   y = interval_of(left->right, numbers_, loop_);
    if (!numbers_.holds(x.lo - y.hi) || !numbers_.holds(x.hi - y.lo)) return NONE;
    erase_node(node_->right);
    NODE *a = left->left, *b = left->right;
    erase_node(left);
    return rewrite(node_->op, a, b);
}

// ~x < k becomes x > ~k: complement turns every order around.
RELOP::OUTCOME RELOP::complement() {
    NODE* left = node_->left;
    if (!operand_fits(left->left)) return NONE;
    TYPE* type = value_type(left->left);
    node_->left = take_left(left);
    return rewrite(commute_inv[node_->op], node_->left, number(~k_, type));
}

// x * c == k, x << n == k. Where the product doesn't wrap, the constant is divided. Where it may, an odd
// factor has an inverse, and of an even one the number of low zero bits tells which bits of x are lost.
RELOP::OUTCOME RELOP::product() {
    NODE* left = node_->left;
    if (left->right->op != ICON || !operand_fits(left->left)) return NONE;
    WIDE factor = numbers_.wrap(to_wide(left->right->u.lval));
    if (left->op == SLL) {
        const WIDE count = to_wide(left->right->u.lval);
        if (count <= 0 || count >= numbers_.width) return NONE;
        factor = WIDE{1} << static_cast<int>(count);
    }
    if (factor == 0) return NONE;
    TYPE* type = value_type(left->left);
    const INTERVAL x = interval_of(left->left, numbers_, loop_);
    WIDE first, last;
    const bool wraps = __builtin_mul_overflow(x.lo, factor, &first) ||
                       __builtin_mul_overflow(x.hi, factor, &last) || !numbers_.holds(first) ||
                       !numbers_.holds(last);
    if (!wraps) {
        int op = node_->op;
        WIDE k = k_;
        if (factor < 0) {
            factor = -factor;
            k = -k;
            op = commute_inv[op];
        }
        if (is_equality() && k % factor != 0) return decide(op == NEQ);
        const bool rounds_up = op == LT || op == ULT || op == GE || op == UGE;
        const WIDE limit = rounds_up ? ceiling_divided(k, factor) : floor_divided(k, factor);
        return rewrite_or_decide(op, take_left(left), limit, numbers_, type);
    }
    if (is_relational()) return NONE;
    const int lost = std::countr_zero(static_cast<std::uint64_t>(factor));
    const WIDE k = k_ & low_bits(numbers_.width);
    if ((k & low_bits(lost)) != 0) return decide(node_->op == NEQ);
    const std::uint64_t odd = static_cast<std::uint64_t>((factor & low_bits(numbers_.width)) >> lost);
    const auto quotient = static_cast<WIDE>(static_cast<std::uint64_t>(k >> lost) * odd_inverse(odd)) &
                          low_bits(numbers_.width - lost);
    NODE* value = take_left(left);
    if (lost > 0) value = build(ANDB, value, mk_number(low_bits(numbers_.width - lost), type), type, loop_);
    return rewrite(node_->op, value, number(quotient, type));
}

// x >> n == k becomes (x & ~lowbits) == k << n, x >> n < k becomes x < k << n.
RELOP::OUTCOME RELOP::right_shift() {
    NODE* left = node_->left;
    if (left->right->op != ICON || !operand_fits(left->left) ||
        !same_representation(left->type, left->left->type))
        return NONE;
    const WIDE amount = to_wide(left->right->u.lval);
    if (amount <= 0 || amount >= numbers_.width) return NONE;
    const int count = static_cast<int>(amount);
    TYPE* type = value_type(left->left);
    const WIDE scaled = k_ * (WIDE{1} << count);
    if (is_equality()) {
        if (!numbers_.holds(scaled)) return decide(node_->op == NEQ);
        NODE* value = build(ANDB, take_left(left), mk_number(-(WIDE{1} << count), type), type, loop_);
        return rewrite(node_->op, value, number(scaled, type));
    }
    const bool up_to_end = node_->op == LE || node_->op == ULE || node_->op == GT || node_->op == UGT;
    return rewrite_or_decide(node_->op, take_left(left), scaled + (up_to_end ? low_bits(count) : 0), numbers_,
                             type);
}

// x / d <= m: the quotient is truncated, so the greatest x is m * d + d - 1 from zero on, m * d below.
RELOP::OUTCOME RELOP::division() {
    NODE* left = node_->left;
    if (left->right->op != ICON || !operand_fits(left->left) || !operand_fits(left->right)) return NONE;
    if (numbers_of(left->type).is_unsigned != numbers_.is_unsigned) return NONE;
    const WIDE divisor = numbers_.wrap(to_wide(left->right->u.lval));
    if (divisor < 2) return NONE;
    int op = node_->op;
    WIDE m = k_;
    switch (op) {
        case EQ:
        case NEQ:
            // Of unsigned numbers: the quotient is zero up to the divisor.
            if (m != 0 || !numbers_.is_unsigned) return NONE;
            op = op == EQ ? ULE : UGT;
            break;
        case LT:
        case ULT:
        case GE:
        case UGE:
            op = op == LT ? LE : op == ULT ? ULE : op == GE ? GT : UGT;
            m = m - 1;
            break;
        default: break;
    }
    TYPE* type = value_type(left->left);
    WIDE limit;
    if (__builtin_mul_overflow(m, divisor, &limit)) return NONE;
    if (m >= 0) limit += divisor - 1;
    return rewrite_or_decide(op, take_left(left), limit, numbers_, type);
}

// (x & m) == k.
RELOP::OUTCOME RELOP::mask() {
    NODE* left = node_->left;
    if (!is_equality() || left->right->op != ICON || !operand_fits(left->left)) return NONE;
    const WIDE all = low_bits(numbers_.width);
    const WIDE mask = to_wide(left->right->u.lval) & all, k = k_ & all;
    NODE* inner = left->left;
    TYPE* type = value_type(left);
    const auto replaced = [&](NODE* x, WIDE new_k) {
        left->left = x;
        NODE* value = simp_node(left, loop_);
        return rewrite(node_->op, value, number(new_k & mask, type));
    };
    switch (inner->op) {
        case NOTB:
            if (!operand_fits(inner->left)) break;
            return replaced(take_left(inner), ~k);
        case XORB: {
            if (inner->right->op != ICON || !operand_fits(inner->left)) break;
            const WIDE flipped = k ^ to_wide(inner->right->u.lval);
            return replaced(take_left(inner), flipped);
        }
        case PLUS: {
            // The carries run upwards: those into a mask of low bits come from within.
            if ((mask & (mask + 1)) != 0 || inner->right->op != ICON || !operand_fits(inner->left)) break;
            const WIDE addend = to_wide(inner->right->u.lval);
            return replaced(take_left(inner), k - addend);
        }
        default: break;
    }
    if (k != 0) return NONE;
    // Bits that are zero in any case need no test, and what makes them needs no computing.
    const WIDE asked = mask & to_wide(find_known_zeros(inner, type));
    if (asked == mask || asked == 0) return NONE;
    left->right->u.lval = truncate_to_type(to_int65(asked), left->right->type);
    left->left = prop_mask_into_subtree(inner, to_int65(asked));
    return rewrite(node_->op, simp_node(left, loop_), node_->right);
}

// (x | m) == k: the bits of m are decided (known bits have done so), the others are those of x.
RELOP::OUTCOME RELOP::union_of_bits() {
    NODE* left = node_->left;
    if (!is_equality() || left->right->op != ICON || !operand_fits(left->left)) return NONE;
    const WIDE all = low_bits(numbers_.width);
    const WIDE bits = to_wide(left->right->u.lval) & all;
    TYPE* type = value_type(left);
    NODE* value = build(ANDB, take_left(left), mk_number(all & ~bits, type), type, loop_);
    return rewrite(node_->op, value, number(k_ & all & ~bits, type));
}

RELOP::OUTCOME RELOP::flipped_bits() {
    NODE* left = node_->left;
    if (!is_equality() || left->right->op != ICON || !operand_fits(left->left)) return NONE;
    const WIDE bits = to_wide(left->right->u.lval);
    TYPE* type = value_type(left);
    node_->left = take_left(left);
    return rewrite(node_->op, node_->left, number(k_ ^ bits, type));
}

// A signed x that was widened to an unsigned type: the numbers from 0 on stay, those below zero come behind
// all of them, in order. Between the two kinds is a gap.
RELOP::OUTCOME RELOP::sign_extension(NODE* operand) {
    TYPE* type = value_type(operand);
    const NUMBERS narrow = numbers_of(type);
    const WIDE below_zero = numbers_.max() + 1 + narrow.min(); // the image of the least number
    const bool in_gap = k_ > narrow.max() && k_ < below_zero;
    const WIDE k = k_ >= below_zero ? k_ - (numbers_.max() + 1) : k_;
    if (is_equality()) {
        if (in_gap) return decide(node_->op == NEQ);
        node_->left = take_left(node_->left);
        return rewrite(node_->op, node_->left, number(k, type));
    }
    if (in_gap) {
        const int op = node_->op == ULT || node_->op == ULE ? GE : LT;
        node_->left = take_left(node_->left);
        return rewrite(op, node_->left, number(0, type));
    }
    TYPE* as_unsigned = tp->mk_unsigned(type);
    node_->left = take_left(node_->left);
    NODE* value = converted(node_->left, as_unsigned, loop_);
    return rewrite(node_->op, value, number(k, as_unsigned));
}

// SCONV(x) with a constant is compared in the type of x.
RELOP::OUTCOME RELOP::conversion() {
    NODE* left = node_->left;
    NODE* operand = left->left;
    if (!operand->type->is_integral() || !type_->is_integral() || is_truth_type(type_)) return NONE;
    TYPE* type = value_type(operand);
    const NUMBERS narrow = numbers_of(type);
    if (narrow.width > numbers_.width) return NONE;
    const INTERVAL limits{to_wide(int_type_min(type)), to_wide(int_type_max(type))};
    INTERVAL range = limits;
    const auto keeps = [this](const INTERVAL& x) { return numbers_.min() <= x.lo && x.hi <= numbers_.max(); };
    if (!keeps(range) && narrow.width == numbers_.width && is_relational())
        range = interval_of(operand, narrow, loop_);
    if (keeps(range)) {
        // The conversion keeps every number that the operand can have.
        const int op = comparison_with_sign(node_->op, narrow.is_unsigned);
        if (k_ >= limits.lo && k_ <= limits.hi) {
            node_->left = take_left(left);
            return rewrite(op, node_->left, number(k_, type));
        }
        const bool below = k_ < limits.lo;
        if (is_equality()) return decide(op == NEQ);
        return decide(compare(op, below ? 1 : 0, below ? 0 : 1));
    }
    if (narrow.width == numbers_.width) {
        if (is_relational() || is_truth_type(type)) return NONE;
        node_->left = take_left(left);
        return rewrite(node_->op, node_->left, number(k_, type));
    }
    return !narrow.is_unsigned && numbers_.is_unsigned ? sign_extension(operand) : NONE;
}

RELOP::OUTCOME RELOP::pointer_conversion() {
    NODE* operand = node_->left->left;
    if (!is_int_or_ptr(operand->type) || type_width(operand->type) != numbers_.width ||
        is_truth_type(value_type(operand)))
        return NONE;
    if (is_relational() && !numbers_of(operand->type).is_unsigned) return NONE;
    TYPE* type = value_type(operand);
    node_->left = take_left(node_->left);
    return rewrite(node_->op, node_->left, number(k_, type));
}

// (c ? k1 : k2) == k is decided in both arms, and so is c or its negation; with one constant arm the
// comparison becomes a logical operator that keeps the other arm behind its condition.
RELOP::OUTCOME RELOP::conditional() {
    NODE* left = node_->left;
    NODE* arms = left->right;
    if (arms->op != COLON || node_->type != tp->int_type(IK_INT)) return NONE;
    const auto outcome = [this](const NODE* arm) {
        if (arm->op != ICON) return -1;
        return compare(node_->op, numbers_.wrap(to_wide(arm->u.lval)), k_) ? 1 : 0;
    };
    const int first = outcome(arms->left), second = outcome(arms->right);
    if (first < 0 && second < 0) return NONE;
    if (first == second) return decide(first != 0);
    NODE* condition = left->left;
    if (first >= 0 && second >= 0) {
        condition = first == 1 ? make_boolean(condition, loop_) : simp_inverse(condition, loop_);
        left->left = nullptr;
        erase_tree(arms);
        erase_node(left);
        erase_node(node_->right);
        return become(condition);
    }
    // Exactly one arm is decided: 1 makes an "or", 0 an "and"; the condition stands for the arm that it
    // chooses.
    NODE* other = first < 0 ? arms->left : arms->right;
    const int truth = first < 0 ? second : first;
    const bool as_it_is = (first >= 0) == (truth == 1);
    if (!as_it_is) condition = simp_inverse(condition, loop_);
    erase_node(first < 0 ? arms->right : arms->left);
    erase_node(arms);
    erase_node(left);
    NODE* test = build(node_->op, other, node_->right, node_->type, loop_);
    return become(build(truth == 1 ? OROR : ANDAND, condition, test, node_->type, loop_));
}

// A saturating difference has the sign of the true one.
RELOP::OUTCOME RELOP::saturating_difference() {
    NODE* left = node_->left;
    if (k_ != 0 || numbers_.is_unsigned) return NONE;
    if (!is_ICALL_callee(left, "_ssub") && !is_ICALL_callee(left, "_ssub2")) return NONE;
    NODE* arguments = left->left;
    if (arguments->op != COMMA || !operand_fits(arguments->left) || !operand_fits(arguments->right) ||
        !same_representation(arguments->left->type, left->type) ||
        !same_representation(arguments->right->type, left->type))
        return NONE;
    NODE *a = arguments->left, *b = arguments->right;
    erase_node(arguments);
    erase_node(left);
    erase_node(node_->right);
    return rewrite(node_->op, a, b);
}

RELOP::OUTCOME RELOP::operator_against_constant() {
    if (!has_k_) return NONE;
    switch (node_->left->op) {
        case SCONV: return conversion();
        case PCONV:
        case ISP2CHAR: return pointer_conversion();
        case QUEST: return conditional();
        default: break;
    }
    if (!type_->is_integral() || is_truth_type(type_)) return NONE;
    switch (node_->left->op) {
        case PLUS: return addition();
        case MINUS: return difference();
        case UMINUS: return subtraction_from_constant();
        case NOTB: return complement();
        case MULT:
        case SLL: return product();
        case SRL: return right_shift();
        case DIV: return division();
        case ANDB: return mask();
        case ORB: return union_of_bits();
        case XORB: return flipped_bits();
        case ICALL: return saturating_difference();
        default: return NONE;
    }
}
