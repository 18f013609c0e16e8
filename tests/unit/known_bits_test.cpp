// Known bits, limits and factors against every value that a tree takes.

#include "OPT5/known_bits.h"

#include <string>

#include "OPT5/erase.h"
#include "OPT5/node.h"
#include "OPT5/optypes.h"
#include "OPT5/valrange.h"
#include "OPT5/value_facts.h"
#include "small_trees.h"

using namespace op;

namespace {

class KNOWN_BITS : public SMALL_TREES {
  protected:
    // All that the queries say of a tree, asked once.
    struct ANSWERS {
        NUMBER min, max, factor;
        bool is_truth;
        std::vector<std::uint64_t> may, must; // by type of `types`
    };
    ANSWERS ask(NODE* tree) {
        ANSWERS a{to_wide(calculate_minval_for_tree(tree, nullptr)),
                  to_wide(calculate_maxval_for_tree(tree, nullptr)),
                  to_wide(max_ICON_factor(tree, nullptr)),
                  returns_1_or_0(tree),
                  {},
                  {}};
        for (TYPE* type : types) {
            a.may.push_back(find_known_zeros(tree, type).bits());
            a.must.push_back(find_known_ones(tree, type).bits());
        }
        return a;
    }
    // The first answer that the value contradicts; empty where all hold.
    std::string contradiction(const ANSWERS& a, NUMBER value) {
        if (value < a.min) return "minimum";
        if (value > a.max) return "maximum";
        if (a.factor == 0 ? value != 0 : value % a.factor != 0) return "factor";
        if (a.is_truth && value != 0 && value != 1) return "truth";
        for (std::size_t i = 0; i < types.size(); i++) {
            const auto bits = static_cast<std::uint64_t>(wrap(value, types[i]->size(), false));
            if ((bits & ~a.may[i]) != 0) return "zero bits in " + types[i]->printstr();
            if ((a.must[i] & ~bits) != 0) return "one bits in " + types[i]->printstr();
        }
        return "";
    }
    // Whether all answers hold for these values of the places.
    bool holds(NODE* tree, const ANSWERS& answers, VALUES values) {
        const auto value = evaluate(tree, values);
        if (!value) return true;
        const std::string wrong = contradiction(answers, *value);
        if (wrong.empty()) return true;
        ADD_FAILURE() << wrong << " of " << tree_to_text(tree) << " which is "
                      << static_cast<long long>(*value);
        return false;
    }

    std::uint64_t zeros(NODE* tree) { return find_known_zeros(tree, tree->type).bits(); }
    std::uint64_t ones(NODE* tree) { return find_known_ones(tree, tree->type).bits(); }
    std::int64_t min(NODE* tree) { return calculate_minval_for_tree(tree, nullptr).to_signed(); }
    std::int64_t max(NODE* tree) { return calculate_maxval_for_tree(tree, nullptr).to_signed(); }
    std::uint64_t factor(NODE* tree) { return max_ICON_factor(tree, nullptr).bits(); }
    NODE* masked(SYMTAB* symbol, int mask) {
        return tree(ANDB, symbol->type, name(symbol), icon(mask, symbol->type));
    }
    SYMTAB* var(const char* of_name) {
        for (const PLACE& place : places)
            if (place.member == nullptr && std::string(place.symbol->name) == of_name) return place.symbol;
        return nullptr;
    }
};

} // namespace

TEST_F(KNOWN_BITS, HoldForAllValuesOfTreesOver4BitVariables) {
    for (int i = 0; i < 6000; i++) {
        TYPE* type = below(2) != 0 ? schar4 : uchar4;
        NODE* tree = random_tree(type, 1 + static_cast<int>(below(3)));
        const ANSWERS answers = ask(tree);
        VALUES values = random_values();
        for (int pair = 0; pair < 256; pair++) {
            values[0] = (pair & 15) - 8;
            values[1] = (pair >> 4) - 8;
            values[2] = pair & 15;
            values[3] = pair >> 4;
            if (!holds(tree, answers, values)) return;
        }
        erase_tree(tree);
    }
}

TEST_F(KNOWN_BITS, HoldForSampledValuesOfTreesOverAllTypes) {
    for (int i = 0; i < 20000; i++) {
        TYPE* type = types[below(static_cast<unsigned>(types.size()))];
        NODE* tree = random_tree(type, 1 + static_cast<int>(below(6)));
        const ANSWERS answers = ask(tree);
        for (int sample = 0; sample < 24; sample++)
            if (!holds(tree, answers, random_values())) return;
        erase_tree(tree);
    }
}

// Single operators on operands of which everything is known that four bits leave to know: nothing sharper
// can be said of bitwise results, sums, or limits that do not wrap.
TEST_F(KNOWN_BITS, AreExactForSingleOperatorsOnMaskedOperands) {
    for (int op : {PLUS, ANDB, ORB, XORB, MULT}) {
        for (int a = 0; a < 16; a++) {
            for (int b = 0; b < 16; b++) {
                TYPE* type = int_type;
                NODE* node = tree(op, type, masked(x, a), masked(y, b));
                std::uint64_t may = 0;
                std::int64_t most = 0;
                for (int p = a;; p = (p - 1) & a) {
                    for (int q = b;; q = (q - 1) & b) {
                        const int v = op == PLUS   ? p + q
                                      : op == ANDB ? p & q
                                      : op == ORB  ? p | q
                                      : op == XORB ? p ^ q
                                                   : p * q;
                        may |= static_cast<std::uint64_t>(v);
                        most = std::max<std::int64_t>(most, v);
                        if (q == 0) break;
                    }
                    if (p == 0) break;
                }
                const std::string text = tree_to_text(node);
                EXPECT_EQ(max(node), most) << text;
                EXPECT_EQ(min(node), 0) << text;
                EXPECT_EQ(zeros(node) & ~may & ~std::uint64_t{op == MULT ? 0xffu : 0u}, 0u) << text;
                erase_tree(node);
            }
        }
    }
}

TEST_F(KNOWN_BITS, SignedBitFieldsExtendTheirSignAndUnsignedOnesDoNot) {
    const auto field = [this](unsigned number) { return field_node(record, record->type->member(number)); };
    EXPECT_EQ(zeros(field(1)), 0xffffu); // int s3:3
    EXPECT_EQ(min(field(1)), -4);
    EXPECT_EQ(max(field(1)), 3);
    EXPECT_EQ(zeros(field(2)), 7u); // unsigned u3:3
    EXPECT_EQ(max(field(2)), 7);
    EXPECT_EQ(min(field(3)), -1); // int s1:1
    EXPECT_FALSE(returns_1_or_0(field(3)));
    EXPECT_TRUE(returns_1_or_0(field(4)));
    EXPECT_TRUE(returns_1_or_0(field(5)));
    // The value of an assignment is what the field holds afterwards.
    EXPECT_EQ(max(tree(ASG, int_type, field(1), icon(13))), -3);
}

TEST_F(KNOWN_BITS, ConversionsCarryTheSignOfTheNarrowerType) {
    TYPE* long_type = tp->int_type(IK_LONG);
    NODE* signed_x = tree(SCONV, long_type, name(x));
    EXPECT_EQ(zeros(signed_x), 0xffffffffu);
    EXPECT_EQ(min(signed_x), -32768);
    EXPECT_EQ(zeros(tree(SCONV, long_type, name(var("u")))), 0xffffu);
    EXPECT_EQ(find_known_zeros(name(var("u")), long_type).bits(), 0xffffu);
    EXPECT_EQ(find_known_ones(icon(-1), long_type).bits(), 0xffffffffu);
    EXPECT_EQ(find_known_zeros(icon(-1, tp->int_type(IK_UINT)), long_type).bits(), 0xffffu);
    EXPECT_TRUE(returns_1_or_0(tree(SCONV, tp->int_type(IK_BOOL), name(x))));
    // A truth value keeps its one bit where only the width of another is asked for.
    EXPECT_EQ(find_known_zeros(icon(6), tp->int_type(IK_BOOL)).bits(), 6u);
}

TEST_F(KNOWN_BITS, OddFactorsSurviveOnlyWhereNothingWraps) {
    const auto times = [this](NODE* operand, int k) {
        return tree(MULT, operand->type, operand, icon(k, operand->type));
    };
    EXPECT_EQ(factor(times(name(x), 12)), 4u); // 21846 * 3 wraps to 2
    EXPECT_EQ(factor(times(masked(x, 255), 12)), 12u);
    EXPECT_EQ(factor(tree(PLUS, int_type, times(masked(x, 255), 12), icon(18))), 6u);
    EXPECT_EQ(factor(tree(SRL, int_type, times(masked(x, 255), 12), icon(2))), 3u);
    EXPECT_EQ(factor(tree(MULT, int_type, name(x), icon(0))), 0u);
    EXPECT_EQ(factor(name(x)), 1u);
    EXPECT_EQ(factor(tree(SCONV, uchar4, times(masked(x, 255), 12))), 4u);
}

TEST_F(KNOWN_BITS, PromisedFactorsClearLowBitsUntilTheyAreForgotten) {
    set_asserted_ICON_factor(x, INT65::from_signed(12));
    EXPECT_EQ(max_asserted_ICON_factor(name(x), nullptr), INT65::from_signed(12));
    EXPECT_EQ(zeros(name(x)), 0xfffcu);
    EXPECT_EQ(max(name(x)), 32760);
    EXPECT_EQ(min(name(x)), -32760);
    set_asserted_ICON_factor(x, INT65::from_signed(10));
    EXPECT_EQ(factor(name(x)), 60u);
    EXPECT_EQ(factor(name(y)), 1u);
    clear_asserted_ICON_factors();
    EXPECT_EQ(zeros(name(x)), 0xffffu);
}

TEST_F(KNOWN_BITS, EightNestedOperatorsAreLookedAtAndNoMore) {
    const auto nested = [this](int levels) {
        NODE* node = icon(15, tp->int_type(IK_UINT));
        for (int i = 1; i < levels; i++) node = tree(NOTB, node->type, node);
        return node;
    };
    EXPECT_EQ(zeros(nested(7)), 15u);
    EXPECT_EQ(ones(nested(8)), 0xfff0u);
    EXPECT_EQ(zeros(nested(9)), 0xffffu);
    // Wide and deep: every level has two operands, and still the answer is there at once.
    NODE* node = name(x);
    for (int i = 0; i < 100000; i++) node = tree(PLUS, int_type, node, name(y));
    for (int i = 0; i < 1000; i++) EXPECT_EQ(zeros(node), 0xffffu);
}

TEST_F(KNOWN_BITS, AnswersForTreesThatAreNotIntegralAreTheFullMask) {
    NODE* pointer = address(x);
    EXPECT_EQ(find_known_zeros(pointer, int_type), type_mask(int_type));
    EXPECT_TRUE(find_known_ones(pointer, int_type).is_zero());
    EXPECT_EQ(find_known_zeros(name(f), tp->int_type(IK_LONG)), type_mask(tp->int_type(IK_LONG)));
    EXPECT_EQ(find_known_zeros(icon(1), float_type), type_mask(float_type));
    EXPECT_EQ(min(pointer), 0);
    EXPECT_EQ(max(pointer), 0xffff);
    EXPECT_FALSE(returns_1_or_0(name(f)));
    EXPECT_EQ(zeros(tree(SCONV, int_type, name(f))), 0xffffu);
    EXPECT_EQ(zeros(compare(FLT, name(f), name(f))), 1u);
}

TEST_F(KNOWN_BITS, OfARangeAreTheBitsThatAllItsNumbersShare) {
    for (int lo = 0; lo < 64; lo++) {
        for (int hi = lo; hi < 64; hi++) {
            std::uint64_t any = 0, all = ~std::uint64_t{0};
            for (int v = lo; v <= hi; v++) any |= static_cast<unsigned>(v), all &= static_cast<unsigned>(v);
            const INT65 from = INT65::from_signed(lo), to = INT65::from_signed(hi);
            EXPECT_EQ(find_known_zeros_in_range(from, to).bits(), any) << lo << " to " << hi;
            EXPECT_EQ(find_known_ones_in_range(from, to).bits(), all) << lo << " to " << hi;
        }
    }
    const INT65 most = INT65::from_unsigned(~std::uint64_t{0});
    EXPECT_EQ(find_known_zeros_in_range(INT65{}, most), most);
}
