// The walk that finds bits, limits and factors of a tree's value.
//
// An operator's rule is a function of the facts of its operands, brought to the shape in which the operator
// computes. A rule finds bits, limits and factor independently of each other and leaves the rest to `settle`,
// which derives from each what it says about the others.
//
// Wrapping: limits are computed in WIDE, where nothing wraps. A result that stays inside the shape is exact,
// and only then does an odd factor survive; one that leaves it keeps its low bits, and so the power of two.
//
// A shift count outside the type and a division by zero are faults of the program; where a count or a divisor
// is variable, what it would be in such a run is of no interest. A constant count outside the type is left
// alone: the shift stays as written, and nothing is said of its value.

#include "value_facts.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <numeric>

#include "node.h"
#include "opcodes.h"
#include "types.h"
#include "valrange.h"

using namespace op;

namespace {

using BITS = std::uint64_t;

constexpr BITS ALL = ~BITS{0};

// Zero bits below the lowest one, 64 for zero.
unsigned trailing_zeros(BITS bits) { return static_cast<unsigned>(std::countr_zero(bits)); }

BITS lowest_bit(BITS bits) { return bits & (0 - bits); }

BITS low_mask(unsigned count) { return count >= 64 ? ALL : (BITS{1} << count) - 1; }

BITS magnitude(WIDE value) { return static_cast<BITS>(value < 0 ? -value : value); }

WIDE greatest_magnitude(const VALUE_FACTS& f) { return std::max(f.max, -f.min); }

bool is_power_of_2(WIDE value) { return value > 0 && (value & (value - 1)) == 0; }

VALUE_FACTS exactly(WIDE value, const INT_SHAPE& shape) {
    const BITS bits = static_cast<BITS>(value) & shape.mask();
    return {bits, bits, value, value, magnitude(value)};
}

// Limits to bits: what stands above the highest bit in which both differ is common to all between them.
void bits_from_limits(VALUE_FACTS& f, const INT_SHAPE& shape) {
    if ((f.min < 0) != (f.max < 0)) return;
    const BITS low = static_cast<BITS>(f.min) & shape.mask();
    const BITS free = smear_down((low ^ static_cast<BITS>(f.max)) & shape.mask());
    f.may &= low | free;
    f.must |= low & ~free;
}

void limits_from_bits(VALUE_FACTS& f, const INT_SHAPE& shape) {
    const BITS sign = shape.sign_bit();
    f.min = std::max(f.min, shape.number(f.must | (f.may & sign)));
    f.max = std::min(f.max, shape.number((f.must & sign) != 0 ? f.may : f.may & ~sign));
}

void join_factor(VALUE_FACTS& f) {
    const BITS of_bits = lowest_bit(f.may), of_factor = lowest_bit(f.factor);
    if (of_bits > of_factor && of_factor != 0) {
        BITS joined;
        if (!__builtin_mul_overflow(f.factor / of_factor, of_bits, &joined)) f.factor = joined;
    }
    if (f.factor <= 1) return;
    f.may &= ~(lowest_bit(f.factor) - 1);
    const auto step = static_cast<WIDE>(f.factor);
    const auto rest = [step](WIDE value) -> WIDE {
        if ((step & (step - 1)) == 0) return value & (step - 1);
        const WIDE r = value % step;
        return r < 0 ? r + step : r;
    };
    f.min += rest(-f.min);
    f.max -= rest(f.max);
}

// Lets bits, limits and factor sharpen each other. Contradictions, which only unreachable code has, give up
// what is known.
VALUE_FACTS settle(VALUE_FACTS f, const INT_SHAPE& shape) {
    if (f.may == shape.mask() && f.must == 0 && f.factor == 1 && f.min == shape.least() &&
        f.max == shape.greatest())
        return f;
    if (f.is_constant()) return exactly(f.min, shape);
    for (int round = 0; round < 2; round++) {
        if (f.factor == 0) f.min = std::max(f.min, WIDE{0}), f.max = std::min(f.max, WIDE{0});
        if (f.min > f.max) return full_facts(shape);
        bits_from_limits(f, shape);
        if ((f.must & ~f.may) != 0) return full_facts(shape);
        limits_from_bits(f, shape);
        if (f.min > f.max) return full_facts(shape);
        if (f.is_constant()) return exactly(f.min, shape);
        join_factor(f);
    }
    if (f.min > f.max || (f.must & ~f.may) != 0) return full_facts(shape);
    return f.is_constant() ? exactly(f.min, shape) : f;
}

// Sets the limits of a result that was computed without a bound. Whether the result is exact: it never leaves
// the shape.
bool set_limits(VALUE_FACTS& f, WIDE low, WIDE high, const INT_SHAPE& shape) {
    if (low >= shape.least() && high <= shape.greatest()) {
        f.min = low;
        f.max = high;
        return true;
    }
    if (high - low <= static_cast<WIDE>(shape.mask())) {
        const WIDE wrapped_low = shape.number(static_cast<BITS>(low));
        const WIDE wrapped_high = shape.number(static_cast<BITS>(high));
        if (wrapped_low <= wrapped_high) {
            f.min = wrapped_low;
            f.max = wrapped_high;
        }
    }
    return false;
}

// --- Rules. Operands and results are facts of values of the shape.

// a + b, or a - b as a + ~b + 1. The sums of the greatest and of the least bit patterns bound the carries: a
// carry into a bit is known where both sums say so.
VALUE_FACTS sum_facts(const VALUE_FACTS& a, const VALUE_FACTS& b, bool subtract, const INT_SHAPE& shape) {
    VALUE_FACTS f = full_facts(shape);
    const BITS b_may = subtract ? ~b.must : b.may, b_must = subtract ? ~b.may : b.must;
    const BITS carry_in = subtract ? 1 : 0;
    const BITS most = a.may + b_may + carry_in, least = a.must + b_must + carry_in;
    const BITS carry_known = ~(most ^ a.may ^ b_may) | (least ^ a.must ^ b_must);
    const BITS known = carry_known & ~(a.may ^ a.must) & ~(b_may ^ b_must) & shape.mask();
    f.may &= most | ~known;
    f.must = least & known;
    f.factor = std::gcd(a.factor, b.factor);
    const bool exact = subtract ? set_limits(f, a.min - b.max, a.max - b.min, shape)
                                : set_limits(f, a.min + b.min, a.max + b.max, shape);
    if (!exact) f.factor = lowest_bit(f.factor);
    return f;
}

VALUE_FACTS shift_left_facts(const VALUE_FACTS& a, unsigned count, const INT_SHAPE& shape) {
    VALUE_FACTS f = full_facts(shape);
    f.may = a.may << count & shape.mask();
    f.must = a.must << count & shape.mask();
    const WIDE scale = WIDE{1} << count;
    if (set_limits(f, a.min * scale, a.max * scale, shape) &&
        __builtin_mul_overflow(a.factor, BITS{1} << count, &f.factor))
        f.factor = a.factor;
    return f;
}

VALUE_FACTS product_facts(const VALUE_FACTS& a, const VALUE_FACTS& b, const INT_SHAPE& shape) {
    if (a.may == 0 || b.may == 0) return exactly(0, shape);
    if (b.is_constant() && is_power_of_2(b.min))
        return shift_left_facts(a, trailing_zeros(static_cast<BITS>(b.min)), shape);
    VALUE_FACTS f = full_facts(shape);
    // Known low bits give known low bits of the product, and the zeros below them move it further up.
    const unsigned a_zeros = trailing_zeros(a.may), b_zeros = trailing_zeros(b.may);
    const unsigned a_known = trailing_zeros(a.may ^ a.must), b_known = trailing_zeros(b.may ^ b.must);
    const BITS low = low_mask(std::min(a_known - a_zeros, b_known - b_zeros) + a_zeros + b_zeros);
    const BITS product = a.must * b.must;
    f.may &= (product & low) | ~low;
    f.must = product & low & shape.mask();
    const WIDE corners[][2] = {{a.min, b.min}, {a.min, b.max}, {a.max, b.min}, {a.max, b.max}};
    WIDE least = 0, greatest = 0;
    for (const auto& corner : corners) {
        WIDE value;
        if (__builtin_mul_overflow(corner[0], corner[1], &value)) return f;
        const bool first = &corner == &corners[0];
        least = first ? value : std::min(least, value);
        greatest = first ? value : std::max(greatest, value);
    }
    if (set_limits(f, least, greatest, shape) && __builtin_mul_overflow(a.factor, b.factor, &f.factor))
        f.factor = std::max(a.factor, b.factor);
    return f;
}

VALUE_FACTS shift_right_facts(const VALUE_FACTS& a, unsigned count, const INT_SHAPE& shape) {
    VALUE_FACTS f = full_facts(shape);
    const auto shifted = [&](BITS bits) {
        return static_cast<BITS>(shape.number(bits) >> count) & shape.mask();
    };
    f.may = shifted(a.may);
    f.must = shifted(a.must);
    f.min = a.min >> count;
    f.max = a.max >> count;
    if ((a.factor & low_mask(count)) == 0) f.factor = a.factor >> count;
    return f;
}

VALUE_FACTS quotient_facts(const VALUE_FACTS& a, const VALUE_FACTS& b, const INT_SHAPE& shape) {
    VALUE_FACTS f = full_facts(shape);
    if (b.factor == 0) return f;
    if (b.is_constant()) {
        if (a.min >= 0 && is_power_of_2(b.min))
            return shift_right_facts(a, trailing_zeros(static_cast<BITS>(b.min)), shape);
        const WIDE from_min = a.min / b.min, from_max = a.max / b.min;
        // Only the least number divided by -1 wraps, to itself, which is as good a multiple.
        set_limits(f, std::min(from_min, from_max), std::max(from_min, from_max), shape);
        const BITS divisor = magnitude(b.min);
        if (a.factor % divisor == 0) f.factor = a.factor / divisor;
        return f;
    }
    if (a.min >= 0 && b.min >= 0) {
        f.min = a.min / std::max(b.max, WIDE{1});
        f.max = a.max / std::max(b.min, WIDE{1});
    } else if (b.min >= 0) {
        set_limits(f, std::min(a.min, WIDE{0}), std::max(a.max, WIDE{0}), shape);
    } else {
        const WIDE most = greatest_magnitude(a);
        set_limits(f, -most, most, shape);
    }
    return f;
}

// The rest is the dividend less a multiple of the divisor: what divides both divides it, and below the
// divisor's power of two it has the dividend's bits.
VALUE_FACTS rest_facts(const VALUE_FACTS& a, const VALUE_FACTS& b, const INT_SHAPE& shape) {
    VALUE_FACTS f = full_facts(shape);
    if (b.factor == 0) return f;
    WIDE least_divisor = 1;
    if (b.min > 0) least_divisor = b.min;
    if (b.max < 0) least_divisor = -b.max;
    if (a.max < least_divisor && a.min > -least_divisor) return a;
    const BITS low = lowest_bit(b.factor) - 1;
    f.may &= a.may | ~low;
    f.must = a.must & low;
    const WIDE most = greatest_magnitude(b) - 1;
    f.min = a.min >= 0 ? WIDE{0} : std::max(a.min, -most);
    f.max = a.max <= 0 ? WIDE{0} : std::min(a.max, most);
    f.factor = std::gcd(a.factor, b.factor);
    return f;
}

VALUE_FACTS and_facts(const VALUE_FACTS& a, const VALUE_FACTS& b, const INT_SHAPE& shape) {
    VALUE_FACTS f = full_facts(shape);
    f.may = a.may & b.may;
    f.must = a.must & b.must;
    // Clearing bits brings a nonnegative number towards zero and a negative one further down; the result is
    // negative only where both are.
    if (a.min >= 0) f.max = std::min(f.max, a.max);
    if (b.min >= 0) f.max = std::min(f.max, b.max);
    f.max = std::min(f.max, std::max(a.max, b.max));
    return f;
}

VALUE_FACTS or_facts(const VALUE_FACTS& a, const VALUE_FACTS& b, const INT_SHAPE& shape) {
    VALUE_FACTS f = full_facts(shape);
    f.may = a.may | b.may;
    f.must = a.must | b.must;
    f.min = std::min(a.min, b.min);
    if (a.min >= 0 && b.min >= 0) {
        f.min = std::max(a.min, b.min);
        f.max = std::min(f.max, a.max + b.max);
    }
    return f;
}

VALUE_FACTS xor_facts(const VALUE_FACTS& a, const VALUE_FACTS& b, const INT_SHAPE& shape) {
    VALUE_FACTS f = full_facts(shape);
    const BITS unknown = (a.may ^ a.must) | (b.may ^ b.must);
    f.must = (a.must ^ b.must) & ~unknown;
    f.may = f.must | unknown;
    if (a.min >= 0 && b.min >= 0) f.max = std::min(f.max, a.max + b.max);
    return f;
}

VALUE_FACTS not_facts(const VALUE_FACTS& a, const INT_SHAPE& shape) {
    const WIDE top = shape.is_signed ? WIDE{-1} : shape.greatest();
    return {~a.must & shape.mask(), ~a.may & shape.mask(), top - a.max, top - a.min, 1};
}

VALUE_FACTS abs_facts(const VALUE_FACTS& a, const INT_SHAPE& shape) {
    if (shape.is_signed && a.min >= 0) return a;
    VALUE_FACTS f = full_facts(shape);
    f.may &= 0 - lowest_bit(a.may); // the least number of all stays what it is
    if (!shape.is_signed || a.min == shape.least()) return f;
    f.min = a.max < 0 ? -a.max : WIDE{0};
    f.max = greatest_magnitude(a);
    f.factor = a.factor;
    return f;
}

// One of the two.
VALUE_FACTS either_facts(const VALUE_FACTS& a, const VALUE_FACTS& b) {
    return {a.may | b.may, a.must & b.must, std::min(a.min, b.min), std::max(a.max, b.max),
            std::gcd(a.factor, b.factor)};
}

// Counts that a shift of the width can have, given what is known of the count. With `any_count` a count
// outside the width is no fault (the operation is done in a wider type) and leaves nothing known.
struct COUNT_RANGE {
    unsigned least, greatest;
    bool is_known;
};
COUNT_RANGE count_range(const VALUE_FACTS& count, const INT_SHAPE& shape, bool any_count) {
    const WIDE top = static_cast<WIDE>(shape.width) - 1;
    const WIDE least = std::max(count.min, WIDE{0}), greatest = std::min(count.max, top);
    const bool clipped = least != count.min || greatest != count.max;
    if (least > greatest || (any_count && clipped)) return {0, 0, false};
    return {static_cast<unsigned>(least), static_cast<unsigned>(greatest), true};
}

VALUE_FACTS shift_facts(int op, const VALUE_FACTS& a, const COUNT_RANGE& count, const INT_SHAPE& shape) {
    if (!count.is_known) return full_facts(shape);
    if (count.least == count.greatest)
        return op == SLL ? shift_left_facts(a, count.least, shape) : shift_right_facts(a, count.least, shape);
    VALUE_FACTS f = full_facts(shape);
    if (op == SRL) {
        f.min = a.min >> (a.min >= 0 ? count.greatest : count.least);
        f.max = a.max >> (a.max >= 0 ? count.least : count.greatest);
        return f;
    }
    if (a.may == 0) return a;
    const unsigned zeros = trailing_zeros(a.may) + count.least;
    f.may &= ~low_mask(zeros);
    const WIDE low = a.min * (WIDE{1} << (a.min >= 0 ? count.least : count.greatest));
    const WIDE high = a.max * (WIDE{1} << (a.max >= 0 ? count.greatest : count.least));
    if (low >= shape.least() && high <= shape.greatest()) {
        f.min = low;
        f.max = high;
        f.factor = a.factor;
    }
    return f;
}

VALUE_FACTS binary_facts(int op, const VALUE_FACTS& a, const VALUE_FACTS& b, const INT_SHAPE& shape) {
    switch (op) {
        case PLUS: return sum_facts(a, b, false, shape);
        case MINUS: return sum_facts(a, b, true, shape);
        case MULT: return b.is_constant() ? product_facts(a, b, shape) : product_facts(b, a, shape);
        case DIV: return quotient_facts(a, b, shape);
        case MOD: return rest_facts(a, b, shape);
        case ANDB: return and_facts(a, b, shape);
        case ORB: return or_facts(a, b, shape);
        case XORB: return xor_facts(a, b, shape);
        default: return full_facts(shape);
    }
}

// --- Intrinsics that choose between or bound their operands.

enum INTRINSIC_KIND {
    OTHER_INTRINSIC,
    LEAST_OF,
    GREATEST_OF,
    SATURATED_SUM,
    SATURATED_DIFFERENCE,
    MAGNITUDE
};

struct INTRINSIC_CLASS {
    INTRINSIC_KIND kind;
    bool is_unsigned;
};

// By the name without underscores in front, in any case, and without the letters that give the width.
INTRINSIC_CLASS classify_intrinsic(const char* name) {
    if (name == nullptr) return {OTHER_INTRINSIC, false};
    while (*name == '_') name++;
    const auto next_is = [&name](const char* lower) {
        const char* at = name;
        for (; *lower != 0; lower++, at++)
            if (std::tolower(static_cast<unsigned char>(*at)) != *lower) return false;
        name = at;
        return true;
    };
    static_cast<void>(next_is("ll") || next_is("l"));
    INTRINSIC_KIND kind = OTHER_INTRINSIC;
    if (next_is("min")) {
        kind = LEAST_OF;
    } else if (next_is("max")) {
        kind = GREATEST_OF;
    } else if (next_is("sadd")) {
        kind = SATURATED_SUM;
    } else if (next_is("ssub")) {
        kind = SATURATED_DIFFERENCE;
    } else if (next_is("abs")) {
        kind = MAGNITUDE;
    }
    const bool is_unsigned = (kind == LEAST_OF || kind == GREATEST_OF) && next_is("u");
    return {*name == 0 ? kind : OTHER_INTRINSIC, is_unsigned};
}

VALUE_FACTS chosen_facts(INTRINSIC_KIND kind, const VALUE_FACTS& a, const VALUE_FACTS& b) {
    VALUE_FACTS f = either_facts(a, b);
    if (kind == LEAST_OF)
        f.max = std::min(a.max, b.max);
    else
        f.min = std::max(a.min, b.min);
    return f;
}

VALUE_FACTS saturated_facts(WIDE low, WIDE high, const INT_SHAPE& shape) {
    VALUE_FACTS f = full_facts(shape);
    f.min = std::clamp(low, shape.least(), shape.greatest());
    f.max = std::clamp(high, shape.least(), shape.greatest());
    return f;
}

// --- The walk.

class WALK {
  public:
    // In the shape of the tree's type.
    VALUE_FACTS facts_of(const NODE* tree) {
        const INT_SHAPE shape = shape_of(tree->type);
        if (depth_ >= FACTS_DEPTH || budget_ == 0) return full_facts(shape);
        depth_++;
        budget_--;
        const VALUE_FACTS f = settle(rule(tree, shape), shape);
        depth_--;
        return f;
    }

  private:
    // In another shape; trees of other kinds are unknown there.
    VALUE_FACTS facts_as(const NODE* tree, const INT_SHAPE& shape) {
        const INT_SHAPE own = tree != nullptr ? shape_of(tree->type) : INT_SHAPE{};
        if (own.width == 0) return anything(shape);
        return convert_facts(facts_of(tree), own, shape);
    }

    // The result of a conversion of an unknown value, of a call, of a read.
    static VALUE_FACTS anything(const INT_SHAPE& shape) {
        VALUE_FACTS f = full_facts(shape);
        if (shape.is_truth) f.max = 1;
        return f;
    }

    VALUE_FACTS rule(const NODE* tree, const INT_SHAPE& shape);
    VALUE_FACTS place(const NODE* tree, const INT_SHAPE& shape);
    VALUE_FACTS assignment(const NODE* tree, const INT_SHAPE& shape);
    VALUE_FACTS compound_assignment(const NODE* tree, const INT_SHAPE& target);
    VALUE_FACTS intrinsic(const NODE* tree, const INT_SHAPE& shape);

    int depth_ = 0;
    int budget_ = FACTS_BUDGET;
};

VALUE_FACTS WALK::rule(const NODE* tree, const INT_SHAPE& shape) {
    const NODE *left = tree->left, *right = tree->right;
    switch (tree->op) {
        case ICON: return exactly(shape.number(tree->u.lval.bits()), shape);
        case NAME: {
            VALUE_FACTS f = place(tree, shape);
            f.factor = max_asserted_ICON_factor(const_cast<NODE*>(tree), nullptr).bits();
            return f;
        }
        case UMULT:
        case STDOT:
        case STREF: return place(tree, shape);
        case PLUS:
        case MINUS:
        case MULT:
        case DIV:
        case MOD:
        case ANDB:
        case ORB:
        case XORB: {
            const VALUE_FACTS a = facts_as(left, shape);
            return binary_facts(tree->op, a, facts_as(right, shape), shape);
        }
        case SLL:
        case SRL: {
            const INT_SHAPE count = shape_of(right->type);
            if (count.width == 0) return full_facts(shape);
            const VALUE_FACTS a = facts_as(left, shape);
            return shift_facts(tree->op, a, count_range(facts_of(right), shape, false), shape);
        }
        case UMINUS: return sum_facts(exactly(0, shape), facts_as(left, shape), true, shape);
        case NOTB: return not_facts(facts_as(left, shape), shape);
        case ABS: return abs_facts(facts_as(left, shape), shape);
        case SCONV:
        case PCONV:
        case ISP2CHAR:
        case ACONV:
        case IDENTITY: return facts_as(left, shape);
        case COMMAOP: return facts_as(right, shape);
        case QUEST: {
            if (right == nullptr || right->op != COLON) return full_facts(shape);
            const VALUE_FACTS first = facts_as(right->left, shape);
            return either_facts(first, facts_as(right->right, shape));
        }
        case ICALL: return intrinsic(tree, shape);
        case PLUSPLUS:
        case MINMIN: return facts_as(left, shape);
        default: break;
    }
    if (tree->op == ASG || op_of_opASG[tree->op] != ILLOP) return assignment(tree, shape);
    VALUE_FACTS f = anything(shape);
    if (boolean_result[tree->op] != 0) f.min = 0, f.max = 1;
    return f;
}

// What any object of its type, or any bit-field, can hold.
VALUE_FACTS WALK::place(const NODE* tree, const INT_SHAPE& shape) {
    const INT_SHAPE field = shape_of_place(tree);
    VALUE_FACTS f = full_facts(field);
    if (shape.is_truth) f.max = std::min(f.max, WIDE{1});
    return convert_facts(settle(f, field), field, shape);
}

// The value is what the left side holds afterwards.
VALUE_FACTS WALK::assignment(const NODE* tree, const INT_SHAPE& shape) {
    const INT_SHAPE target = shape_of_place(tree->left);
    if (target.width == 0) return full_facts(shape);
    const VALUE_FACTS f =
        tree->op == ASG ? facts_as(tree->right, target) : settle(compound_assignment(tree, target), target);
    return convert_facts(f, target, shape);
}

// The operation is done in some type at least as wide as the target. Its low bits depend on the low bits of
// the operands alone, so it may as well be done in the target's shape; except where the whole value or the
// sign counts.
VALUE_FACTS WALK::compound_assignment(const NODE* tree, const INT_SHAPE& target) {
    const INT_SHAPE by = shape_of(tree->right->type);
    if (target.is_truth || by.width == 0 || !tree->left->type->is_integral()) return anything(target);
    const int op = op_of_opASG[tree->op];
    const VALUE_FACTS a = convert_facts(facts_of(tree->left), shape_of(tree->left->type), target);
    const VALUE_FACTS b = facts_of(tree->right);
    const WIDE positive = INT_SHAPE{target.width, true, false}.greatest();
    // Numbers that are nonnegative in every type that could be meant.
    const bool a_is_plain = a.min >= 0 && a.max <= positive;
    switch (op) {
        case SLL: return shift_facts(SLL, a, count_range(b, target, true), target);
        case SRL:
            if (!a_is_plain) return full_facts(target);
            return shift_facts(SRL, a, count_range(b, target, true), target);
        case DIV:
        case MOD:
            if (!a_is_plain || b.min < 0 || b.max > positive) return full_facts(target);
            return binary_facts(op, a, convert_facts(b, by, target), target);
        default: return binary_facts(op, a, convert_facts(b, by, target), target);
    }
}

// Operands are taken in the result's width, with the sign that the intrinsic gives them.
VALUE_FACTS WALK::intrinsic(const NODE* tree, const INT_SHAPE& shape) {
    const INTRINSIC_CLASS known = classify_intrinsic(tree->intrinsic());
    if (known.kind == OTHER_INTRINSIC || tree->left == nullptr) return full_facts(shape);
    const INT_SHAPE in{shape.width, !known.is_unsigned, false};
    if (known.kind == MAGNITUDE) {
        const VALUE_FACTS a = facts_as(tree->left, in);
        const WIDE low = a.min >= 0 ? a.min : a.max < 0 ? -a.max : WIDE{0};
        return convert_facts(settle(saturated_facts(low, greatest_magnitude(a), in), in), in, shape);
    }
    if (tree->left->op != COMMA) return full_facts(shape);
    const VALUE_FACTS a = facts_as(tree->left->left, in), b = facts_as(tree->left->right, in);
    VALUE_FACTS f;
    if (known.kind == SATURATED_SUM)
        f = saturated_facts(a.min + b.min, a.max + b.max, in);
    else if (known.kind == SATURATED_DIFFERENCE)
        f = saturated_facts(a.min - b.max, a.max - b.min, in);
    else
        f = chosen_facts(known.kind, a, b);
    return convert_facts(settle(f, in), in, shape);
}

} // namespace

INT_SHAPE shape_of(TYPE* type) {
    if (type == nullptr || !(type->is_integral() || type->is_ptr() || type->is_ref())) return {};
    const std::uint64_t width = type->size();
    if (width == 0 || width > 64) return {};
    return {static_cast<unsigned>(width), type->is_integral() && type->is_signed(),
            type->is_bool() || type->is_marked_bool()};
}

INT_SHAPE shape_of_place(const NODE* place) {
    INT_SHAPE shape = shape_of(place->type);
    if ((place->op != STDOT && place->op != STREF) || shape.width == 0) return shape;
    const NODE* field = place->right;
    if (field == nullptr || field->op != FIELD || field->mdata == nullptr) return shape;
    const fkMDATA* member = field->mdata;
    if (!member->bit_field || member->width == 0 || member->width > shape.width) return shape;
    shape.width = member->width;
    if (member->type != nullptr && member->type->is_integral()) shape.is_signed = member->type->is_signed();
    return shape;
}

VALUE_FACTS full_facts(const INT_SHAPE& shape) {
    return {shape.mask(), 0, shape.least(), shape.greatest(), 1};
}

VALUE_FACTS value_facts(const NODE* tree) { return WALK().facts_of(tree); }

VALUE_FACTS convert_facts(const VALUE_FACTS& facts, const INT_SHAPE& from, const INT_SHAPE& to) {
    if (from.width == to.width && from.is_signed == to.is_signed && from.is_truth == to.is_truth)
        return facts;
    if (to.is_truth && (facts.min < 0 || facts.max > 1)) {
        if (facts.must != 0 || facts.min > 0 || facts.max < 0) return exactly(1, to);
        VALUE_FACTS truth = full_facts(to);
        truth.max = 1;
        return settle(truth, to);
    }
    VALUE_FACTS f = full_facts(to);
    const BITS extension = from.is_signed ? ~from.mask() : 0;
    const BITS sign = from.sign_bit();
    f.may = (facts.may | ((facts.may & sign) != 0 ? extension : 0)) & to.mask();
    f.must = (facts.must | ((facts.must & sign) != 0 ? extension : 0)) & to.mask();
    const bool exact = set_limits(f, facts.min, facts.max, to);
    f.factor = exact ? facts.factor : lowest_bit(facts.factor);
    return settle(f, to);
}

std::uint64_t smear_down(std::uint64_t bits) {
    return bits == 0 ? 0 : ALL >> static_cast<unsigned>(std::countl_zero(bits));
}

WIDE to_wide(const INT65& value) {
    return static_cast<WIDE>(value.bits()) - (value.is_negative() ? static_cast<WIDE>(ALL) + 1 : 0);
}

INT65 to_int65(WIDE value) {
    return value < 0 ? INT65::from_signed(static_cast<std::int64_t>(value))
                     : INT65::from_unsigned(static_cast<BITS>(value));
}
