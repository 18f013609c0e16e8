// The constant folder against 128-bit arithmetic and the host's IEEE single, on all pairs of boundary values.

#include <algorithm>
#include <bit>
#include <cmath>
#include <ctime>
#include <limits>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "OPT5/copy.h"
#include "OPT5/dump.h"
#include "OPT5/erase.h"
#include "OPT5/files.h"
#include "OPT5/fold.h"
#include "OPT5/fpsmath.h"
#include "OPT5/node.h"
#include "OPT5/opcodes.h"
#include "OPT5/types.h"
#include "tests/simp/palette.h"
#include "tests/simp/prove.h"

using namespace op;
using namespace prove;

namespace {

// A type by what arithmetic asks of it.
struct KIND {
    TYPE* type;
    unsigned bits;
    bool is_signed;

    WIDE least() const { return is_signed ? -(WIDE{1} << (bits - 1)) : 0; }
    WIDE greatest() const { return (WIDE{1} << (is_signed ? bits - 1 : bits)) - 1; }
    WIDE wrapped(WIDE value) const {
        const WIDE modulus = WIDE{1} << bits;
        WIDE low = value % modulus;
        if (low < 0) low += modulus;
        return low > greatest() ? low - modulus : low;
    }
};

class Fold : public testing::Test {
  protected:
    static void SetUpTestSuite() { static const PALETTE palette; }

    static std::vector<KIND> kinds() {
        std::vector<KIND> all;
        for (int k : INTEGER_KINDS) {
            TYPE* type = tp->int_type(static_cast<IKIND>(k));
            all.push_back({type, static_cast<unsigned>(type->size()), type->is_signed()});
        }
        return all;
    }
    static KIND kind(IKIND k) {
        TYPE* type = tp->int_type(k);
        return {type, static_cast<unsigned>(type->size()), type->is_signed()};
    }
    static std::vector<WIDE> edges(const KIND& kind) {
        std::set<WIDE> values;
        for (int small = -3; small <= 3; small++) values.insert(kind.wrapped(small));
        for (unsigned bit = 1; bit < kind.bits; bit += bit < 14 || bit > kind.bits - 3 ? 1 : 5)
            for (int off = -1; off <= 1; off++)
                for (int sign : {1, -1}) values.insert(kind.wrapped(sign * ((WIDE{1} << bit) + off)));
        for (WIDE v : {WIDE{0x5555555555555555}, WIDE{0x3333333333333333}, WIDE{10}, WIDE{12345}})
            for (int sign : {1, -1}) values.insert(kind.wrapped(sign * v));
        return {values.begin(), values.end()};
    }

    static NODE* icon(WIDE value, TYPE* type) {
        return mk_ICON(value < 0 ? INT65::from_signed(static_cast<std::int64_t>(value))
                                 : INT65::from_unsigned(static_cast<std::uint64_t>(value)),
                       type);
    }
    static WIDE number(const INT65& value) {
        const auto magnitude = static_cast<WIDE>(value.magnitude());
        return value.is_negative() ? -magnitude : magnitude;
    }
    static std::string text(WIDE value) {
        return value < 0 ? "-" + std::to_string(static_cast<std::uint64_t>(-value))
                         : std::to_string(static_cast<std::uint64_t>(value));
    }

    // Folds and compares: the constant, or the tree as it was where `expected` is empty.
    static void expect(NODE* tree, std::optional<WIDE> expected) {
        NODE* original = copy_tree(tree, false);
        const std::string before = typed_text(tree);
        TYPE* type = tree->type;
        tree = fold_constants(tree);
        if (!expected.has_value()) {
            EXPECT_TRUE(same_tree(tree, original)) << before << " gives " << typed_text(tree);
        } else if (tree->op != ICON) {
            ADD_FAILURE() << before << " stays";
        } else {
            if (number(tree->u.lval) != *expected)
                ADD_FAILURE() << before << " gives " << text(number(tree->u.lval)) << ", not "
                              << text(*expected);
            EXPECT_EQ(tree->type->size(), type->size()) << before;
        }
        erase_tree(original);
        erase_tree(tree);
    }
    static void binary(int op, const KIND& of, WIDE a, WIDE b, TYPE* result, std::optional<WIDE> expected) {
        expect(maketree(op, icon(a, of.type), icon(b, of.type), result, nullptr), expected);
    }
    static void unary(int op, const KIND& of, WIDE a, TYPE* result, std::optional<WIDE> expected) {
        expect(maketree(op, icon(a, of.type), nullptr, result, nullptr), expected);
    }

    // --- Floating.
    static NODE* fcon(float value) {
        NODE* node = new_node(FCON, tp->flt_type(FK_FLOAT));
        node->mk_fcon("0");
        ieee_cvt_ftos(std::bit_cast<std::uint32_t>(value), node->fval());
        return node;
    }
    static std::vector<float> singles() {
        std::vector<float> values;
        for (float v : {0.0f,
                        1.0f,
                        2.0f,
                        3.0f,
                        4.0f,
                        0.5f,
                        0.1f,
                        10.0f,
                        1.0f / 3,
                        1e38f,
                        3e38f,
                        1e-38f,
                        1e-45f,
                        65536.0f,
                        16777215.0f,
                        16777216.0f,
                        2147483648.0f,
                        std::numeric_limits<float>::max(),
                        std::numeric_limits<float>::min(),
                        std::numeric_limits<float>::epsilon(),
                        1.0f + std::numeric_limits<float>::epsilon(),
                        std::numeric_limits<float>::infinity()})
            for (float sign : {1.0f, -1.0f}) values.push_back(sign * v);
        values.push_back(std::numeric_limits<float>::quiet_NaN());
        return values;
    }
    // The folded value, or nothing where the operation stays.
    static std::optional<float> folded(NODE* tree) {
        tree = fold_constants(tree);
        std::optional<float> value;
        if (tree->op == FCON) value = std::bit_cast<float>(get_ieee_flt_fmt(tree->fval()));
        erase_tree(tree);
        return value;
    }
};

bool is_ordinary(float v) { return v == 0.0f || std::isnormal(v); }

} // namespace

TEST_F(Fold, EveryIntegerOperatorAtTheEdges) {
    TYPE* int_type = tp->int_type(IK_INT);
    for (const KIND& k : kinds()) {
        const std::vector<WIDE> values = edges(k);
        const bool s = k.is_signed;
        for (WIDE a : values) {
            unary(NOTB, k, a, k.type, k.wrapped(~a));
            unary(EXCLAIM, k, a, int_type, WIDE{a == 0});
            // The least number has no opposite.
            const bool least = s && a == k.least();
            unary(UMINUS, k, a, k.type, least ? std::nullopt : std::optional(k.wrapped(-a)));
            unary(op::ABS, k, a, k.type, least ? std::nullopt : std::optional(k.wrapped(a < 0 ? -a : a)));
            for (WIDE b : values) {
                binary(PLUS, k, a, b, k.type, k.wrapped(a + b));
                binary(MINUS, k, a, b, k.type, k.wrapped(a - b));
                binary(ANDB, k, a, b, k.type, k.wrapped(a & b));
                binary(ORB, k, a, b, k.type, k.wrapped(a | b));
                binary(XORB, k, a, b, k.type, k.wrapped(a ^ b));
                // The product's low 64 bits decide: unsigned, so that 2 to the 127 is not passed.
                const auto product = static_cast<std::uint64_t>(a) * static_cast<std::uint64_t>(b);
                binary(MULT, k, a, b, k.type, k.wrapped(static_cast<WIDE>(product)));
                binary(DIV, k, a, b, k.type, b == 0 ? std::nullopt : std::optional(k.wrapped(a / b)));
                binary(MOD, k, a, b, k.type, b == 0 ? std::nullopt : std::optional(k.wrapped(a % b)));
                binary(EQ, k, a, b, int_type, WIDE{a == b});
                binary(NEQ, k, a, b, int_type, WIDE{a != b});
                binary(s ? LT : ULT, k, a, b, int_type, WIDE{a < b});
                binary(s ? LE : ULE, k, a, b, int_type, WIDE{a <= b});
                binary(s ? GT : UGT, k, a, b, int_type, WIDE{a > b});
                binary(s ? GE : UGE, k, a, b, int_type, WIDE{a >= b});
                binary(ANDAND, k, a, b, int_type, WIDE{a != 0 && b != 0});
                binary(OROR, k, a, b, int_type, WIDE{a != 0 || b != 0});
            }
            if (HasFailure()) return; // a wrong operator fails on thousands of pairs
        }
    }
}

TEST_F(Fold, ShiftsByCountsInsideTheTypeOnly) {
    for (const KIND& k : kinds()) {
        for (IKIND count_kind : {IK_INT, IK_UINT, IK_LONG}) {
            const KIND counts = kind(count_kind);
            for (WIDE a : edges(k)) {
                for (int n = -1; n <= static_cast<int>(k.bits) + 1; n++) {
                    const WIDE count = counts.wrapped(n);
                    const bool legal = n >= 0 && n < static_cast<int>(k.bits);
                    const auto shift = [&](int op) {
                        return maketree(op, icon(a, k.type), icon(count, counts.type), k.type, nullptr);
                    };
                    // A count of zero leaves the value; the identity is simplified, and that is folded.
                    const WIDE left =
                        legal ? k.wrapped(static_cast<WIDE>(static_cast<std::uint64_t>(a) << n)) : 0;
                    expect(shift(SLL), legal ? std::optional(left) : std::nullopt);
                    expect(shift(SRL), legal ? std::optional(k.wrapped(a >> n)) : std::nullopt);
                }
                if (HasFailure()) return;
            }
        }
    }
}

TEST_F(Fold, QuotientsOfAll16BitValues) {
    for (IKIND which : {IK_INT, IK_UINT}) {
        const KIND k = kind(which);
        for (WIDE b : {WIDE{1}, WIDE{2}, WIDE{3}, WIDE{7}, WIDE{256}, k.wrapped(-1), k.wrapped(-2),
                       k.wrapped(-10), k.least(), k.greatest()}) {
            if (b == 0) continue;
            for (WIDE a = k.least(); a <= k.greatest(); a++) {
                binary(DIV, k, a, b, k.type, k.wrapped(a / b));
                binary(MOD, k, a, b, k.type, k.wrapped(a % b));
            }
            if (HasFailure()) return;
        }
    }
}

TEST_F(Fold, PowersWithNonnegativeExponents) {
    const KIND k = kind(IK_LLONG);
    const auto power = [&](WIDE base, WIDE exponent, std::optional<WIDE> expected) {
        binary(EXPT, k, base, exponent, k.type, expected);
    };
    power(2, -1, std::nullopt);
    power(1, -1, 1);
    power(7, 0, 1);
    power(0, 0, 1);
    power(-5, 1, -5);
    power(3, 13, 1594323);
    power(-2, 61, -(WIDE{1} << 61));
    power(10, 18, WIDE{1000000000000000000});
}

TEST_F(Fold, FloatingArithmeticIsTheHostsOrStays) {
    TYPE* type = tp->flt_type(FK_FLOAT);
    const auto check = [](int op, float a, float b, std::optional<float> result, float host, bool must_stay) {
        const auto name = std::string(opname(op)) + " " + std::to_string(a) + " " + std::to_string(b);
        if (must_stay) {
            EXPECT_FALSE(result.has_value()) << name << " folds to " << *result;
        } else if (result.has_value()) {
            const bool same = std::isnan(host) ? std::isnan(*result)
                                               : std::bit_cast<std::uint32_t>(host) ==
                                                     std::bit_cast<std::uint32_t>(*result);
            EXPECT_TRUE(same) << name << " folds to " << *result << ", not " << host;
        } else {
            EXPECT_FALSE(is_ordinary(a) && is_ordinary(b) && is_ordinary(host)) << name << " stays";
        }
    };
    for (float a : singles()) {
        for (float b : singles()) {
            for (int op : {PLUS, MINUS, MULT, DIV}) {
                const bool numbers = !std::isnan(a) && !std::isnan(b);
                const bool finite = std::isfinite(a) && std::isfinite(b);
                float host = op == PLUS ? a + b : op == MINUS ? a - b : a * b;
                if (op == DIV) host = b != 0 ? a / b : std::isinf(a) ? a * std::copysign(1.0f, b) : NAN;
                // Invalid, division by zero, overflow; and underflow to nothing.
                const bool lost = (op == MULT || op == DIV) && finite && a != 0 && b != 0 && host == 0;
                const bool must_stay = numbers && (std::isnan(host) || (finite && std::isinf(host)) || lost);
                check(op, a, b, folded(maketree(op, fcon(a), fcon(b), type, nullptr)), host, must_stay);
            }
        }
        check(UMINUS, a, 0, folded(maketree(UMINUS, fcon(a), nullptr, type, nullptr)), -a, false);
        check(op::ABS, a, 0, folded(maketree(op::ABS, fcon(a), nullptr, type, nullptr)), std::fabs(a), false);
    }
}

TEST_F(Fold, ReciprocalFoldsWhereItIsExact) {
    TYPE* type = tp->flt_type(FK_FLOAT);
    const auto recip = [&](float a) { return folded(maketree(RECIP, fcon(a), nullptr, type, nullptr)); };
    EXPECT_EQ(recip(4.0f), 0.25f);
    EXPECT_EQ(recip(-0.5f), -2.0f);
    EXPECT_FALSE(recip(0.0f).has_value());
    for (int i = 1; i < 2000; i++) {
        const auto a = static_cast<float>(i);
        const std::optional<float> result = recip(a);
        if (result.has_value()) {
            EXPECT_EQ(*result, 1.0f / a) << a;
        } else {
            EXPECT_NE(i & (i - 1), 0) << a;
        }
    }
}

TEST_F(Fold, FloatingComparisonsAreDecidedUnlessInvalid) {
    TYPE* int_type = tp->int_type(IK_INT);
    for (float a : singles()) {
        for (float b : singles()) {
            const bool unordered = std::isnan(a) || std::isnan(b);
            const unsigned outcome = unordered ? 8 : a == b ? 1 : a < b ? 2 : 4;
            for (int op = FEQ; op <= FUNO; op++) {
                const bool by_order_only = float_op_to_micro_ops[op] < 8 && op != FORD;
                NODE* tree = fold_constants(maketree(op, fcon(a), fcon(b), int_type, nullptr));
                if (unordered && by_order_only) {
                    EXPECT_EQ(tree->op, op) << opname(op) << " " << a << " " << b;
                } else if (tree->op != ICON) {
                    ADD_FAILURE() << opname(op) << " " << a << " " << b << " stays";
                } else {
                    // The forms that look for a NaN are true of one, whatever else they ask.
                    const bool expected = (float_op_to_micro_ops[op] & outcome) != 0;
                    EXPECT_EQ(!tree->u.lval.is_zero(), expected) << opname(op) << " " << a << " " << b;
                    EXPECT_EQ(tree->type, int_type);
                }
                erase_tree(tree);
            }
        }
    }
}

TEST_F(Fold, DeepConstantTreesInLinearTime) {
    TYPE* type = tp->int_type(IK_INT);
    const auto fold_sum = [&](int depth, bool to_the_left) {
        NODE* tree = icon(1, type);
        for (int i = 0; i < depth; i++) {
            NODE* next = icon(i & 3, type);
            tree = to_the_left ? maketree(PLUS, tree, next, type, nullptr)
                               : maketree(XORB, next, tree, type, nullptr);
        }
        const std::clock_t start = std::clock(); // of the processor: others use the machine, too
        tree = fold_constants(tree);
        EXPECT_EQ(tree->op, ICON);
        erase_tree(tree);
        return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    };
    for (bool to_the_left : {true, false}) {
        double small = 1, large = 1;
        for (int i = 0; i < 3; i++) {
            small = std::min(small, fold_sum(50000, to_the_left));
            large = std::min(large, fold_sum(200000, to_the_left));
        }
        EXPECT_LT(large, 12 * small + 0.02);
    }
}
