// Nodes, their operators and constants; copying and erasing; pools.

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "OPT5/bbutils.h"
#include "OPT5/congruent.h"
#include "OPT5/copy.h"
#include "OPT5/erase.h"
#include "OPT5/fpsmath.h"
#include "OPT5/pool.h"
#include "ir_fixture.h"

using namespace op;
using ::testing::ExitedWithCode;

namespace {

class TREE : public IR_TEST {};
using TREE_DEATH = TREE;

// Every operator, without the gaps.
template <class F> void for_each_operator(F f) {
    for (int i = 0; i < OPCODE_TABLE_SIZE; i++)
        if (opname(i) != nullptr) f(i);
}

} // namespace

TEST_F(TREE, InverseComparisonHoldsExactlyWhenTheComparisonDoesNot) {
    for_each_operator([](int i) {
        const int inverse = boolean_inv[i];
        if (inverse == ILLOP) return;
        EXPECT_EQ(boolean_inv[inverse], i) << opname(i);
        EXPECT_NE(boolean_result[i], 0) << opname(i);
        // Of the outcomes equal, less, greater and unordered each belongs to one of the two.
        if (i >= FEQ) {
            EXPECT_EQ(float_op_to_micro_ops[i] ^ float_op_to_micro_ops[inverse], 15) << opname(i);
        }
    });
    EXPECT_EQ(boolean_inv[FLT], FGEN); // not FGE: !(a < b) is true of a NaN
    for (int i : {ANDAND, OROR, EXCLAIM}) EXPECT_EQ(boolean_inv[i], ILLOP);
}

TEST_F(TREE, SwappedComparisonExchangesLessAndGreater) {
    for_each_operator([](int i) {
        const int swapped = commute_inv[i];
        if (swapped == ILLOP) return;
        EXPECT_EQ(commute_inv[swapped], i) << opname(i);
        const int set = float_op_to_micro_ops[i];
        EXPECT_EQ(float_op_to_micro_ops[swapped], (set & 9) | (set & 2) << 1 | (set & 4) >> 1) << opname(i);
    });
}

TEST_F(TREE, GapsOfTheTablesHaveNoName) {
    EXPECT_EQ(opname(28), nullptr);
    EXPECT_EQ(opname(-1), nullptr);
    EXPECT_EQ(opname(OPCODE_TABLE_SIZE), nullptr);
    EXPECT_EQ(number_of_operands[28], ANY_OPERANDS);
}

TEST_F(TREE_DEATH, TablesThatDifferFromTheFileLayerEndTheRun) {
    EXPECT_EXIT(
        {
            if_node_info[PLUS].operands = 1;
            init_opcode_tables();
        },
        ExitedWithCode(1), "if_node_info\\[\\] mismatch");
}

TEST_F(TREE, ConstantOf64BitsIsWrittenAsLongForm) {
    TYPE* ll = tp->int_type(IK_LLONG);
    TYPE* ull = tp->int_type(IK_ULLONG);
    const auto form = [](TYPE* type, const INT65& value) {
        NODE* node = mk_ICON(value, type);
        return node->node_op() == LCON ? std::string("LCON ") + node->lcon_value() : std::string("ICON");
    };
    EXPECT_EQ(form(ll, INT65::from_signed(INT32_MIN)), "ICON");
    EXPECT_EQ(form(ll, INT65::from_signed(INT32_MIN - 1LL)), "LCON -2147483649");
    EXPECT_EQ(form(ll, INT65::from_signed(INT64_MIN)), "LCON -9223372036854775808");
    EXPECT_EQ(form(ull, INT65::from_unsigned(UINT32_MAX)), "ICON");
    EXPECT_EQ(form(ull, INT65::from_unsigned(UINT64_MAX)), "LCON 18446744073709551615");
    // Reading it gives the same node again.
    NODE* node = new_node(LCON, ull);
    node->mk_lcon("18446744073709551615");
    EXPECT_EQ(node->op, ICON);
    EXPECT_TRUE(trees_are_congruent(node, mk_ICON(INT65::from_unsigned(UINT64_MAX), ull)));
}

TEST_F(TREE, IntegerConstantWrapsToItsType) {
    const auto wrapped = [](long long value, IKIND kind) {
        return int2text(truncate_to_type(INT65::from_signed(value), tp->int_type(kind)));
    };
    EXPECT_EQ(wrapped(32768, IK_INT), "-32768");
    EXPECT_EQ(wrapped(-1, IK_UINT), "65535");
    EXPECT_EQ(wrapped(65536 + 5, IK_UINT), "5");
    EXPECT_EQ(wrapped(-1, IK_ULLONG), "18446744073709551615");
    EXPECT_EQ(int2text(text2int("-18446744073709551616")), "-18446744073709551616"); // 65 bits hold it
    EXPECT_EQ(int2text(text2int("-9223372036854775808")), "-9223372036854775808");
}

TEST_F(TREE, EverySingleSurvivesTheSimulatedForm) {
    // All exponents and signs with the fractions where bits are lost if anything is.
    for (std::uint32_t top = 0; top < 512; top++) {
        for (std::uint32_t fraction : {0u, 1u, 2u, 0x400000u, 0x555555u, 0x7ffffeu, 0x7fffffu}) {
            const std::uint32_t image = top << 23 | fraction;
            if ((top & 255) == 255 && fraction != 0) continue; // NaN
            simul_fval value;
            ieee_cvt_ftos(image, &value);
            ASSERT_EQ(get_ieee_flt_fmt(&value), image);
            ASSERT_EQ(value.exp % 16 == 0 || std::abs(value.exp) == 32767, true);
            simul_fval again;
            ASSERT_EQ(f_atof(f_print_hex(&value).c_str(), &again), 0);
            ASSERT_EQ(get_ieee_flt_fmt(&again), image);
        }
    }
    simul_fval one;
    ieee_cvt_ftos(std::bit_cast<std::uint32_t>(1.0f), &one);
    EXPECT_EQ(one.mant[0], 1);
    EXPECT_EQ(one.exp, 16);
}

TEST_F(TREE, SimulatedValueRoundsToNearestEven) {
    // 1 + `low` * 2^-48, with the words of 1 in front.
    const auto rounded = [](std::uint16_t word1, std::uint16_t word2, std::uint16_t word5) {
        const simul_fval value{{1, word1, word2, 0, 0, word5}, 16, 0};
        return get_ieee_flt_fmt(&value) - 0x3f800000u;
    };
    EXPECT_EQ(rounded(0, 0x100, 0), 0u); // half of the last bit: to even
    EXPECT_EQ(rounded(0, 0x100, 1), 1u); // a bit far below decides
    EXPECT_EQ(rounded(0, 0x300, 0), 2u); // odd and half: up
    const simul_fval largest{{0xffff, 0xffff, 0xffff, 0, 0, 0}, 128, 0};
    EXPECT_EQ(get_ieee_flt_fmt(&largest), 0x7f800000u); // carries into infinity
    simul_fval tiny{{0x0400, 0, 0, 0, 0, 0}, -144, 0};  // half of the smallest
    EXPECT_EQ(get_ieee_flt_fmt(&tiny), 0u);
    tiny.mant[5] = 1;
    EXPECT_EQ(get_ieee_flt_fmt(&tiny), 1u);
}

TEST_F(TREE, FloatingConstantIsWrittenAsTheNearestSingle) {
    NODE* node = new_node(FCON, tp->flt_type(FK_DOUBLE));
    node->mk_fcon("0.1");
    EXPECT_STREQ(node->fcon_value(), "0x1.99999ap-4");
    node->mk_fcon("-0.0");
    EXPECT_STREQ(node->fcon_value(), "-0x0p+0");
    node->mk_fcon("-Inf");
    EXPECT_STREQ(node->fcon_value(), "-Inf");
    simul_fval value;
    EXPECT_EQ(f_atof("1.5x", &value), -1);
}

TEST_F(TREE, PointerToPlainCharIsMarkedOnlyWhileCharsAliasAll) {
    TYPE* pointer = tp->mk_ptr(tp->int_type(IK_CHAR));
    EXPECT_EQ(new_node(PCONV, pointer)->op, ISP2CHAR);
    EXPECT_EQ(new_node(PCONV, pointer)->node_op(), PCONV); // as a file names it
    EXPECT_EQ(new_node(PCONV, tp->mk_ptr(int_type))->op, PCONV);
    chars_alias_other_types = 0;
    EXPECT_EQ(new_node(PCONV, pointer)->op, PCONV);
    chars_alias_other_types = 1;
}

TEST_F(TREE, DeepTreesAreCopiedComparedAndErased) {
    constexpr int DEPTH = 1000000;
    begin(function("deep"));
    NODE* leftwards = name(x);
    NODE* rightwards = name(x);
    for (int i = 0; i < DEPTH; i++) leftwards = tree(UMINUS, int_type, leftwards);
    for (int i = 0; i < DEPTH / 4; i++) rightwards = tree(PLUS, int_type, icon(i), rightwards);
    for (NODE* deep : {leftwards, rightwards}) {
        erase_tree(copy_tree(deep, false));
        const std::size_t bytes = currfuninfo->pool.bytes();
        NODE* copy = copy_tree(deep, false);
        EXPECT_EQ(currfuninfo->pool.bytes(), bytes); // the first copy's cells serve again
        EXPECT_TRUE(trees_are_congruent(deep, copy));
        EXPECT_EQ(tree_to_text(deep), tree_to_text(copy));
        NODE* leaf = copy;
        while (leaf->left != nullptr) leaf = leaf->right != nullptr ? leaf->right : leaf->left;
        leaf->u.rval = y;
        EXPECT_FALSE(trees_are_congruent(deep, copy));
        erase_tree(copy);
    }
    EXPECT_EQ(count_nodes_in_tree(leftwards), DEPTH + 1);
    EXPECT_EQ(count_nodes_in_tree(rightwards), DEPTH / 2 + 1);
    EXPECT_EQ(erase_tree(leftwards), nullptr);
    EXPECT_EQ(erase_tree(nullptr), nullptr);
}

TEST_F(TREE_DEATH, ErasingANodeTwiceEndsTheRun) {
    NODE* node = icon(1);
    EXPECT_EXIT(
        {
            erase_node(node);
            erase_node(node);
        },
        ExitedWithCode(1), "ERROR IN 'erase_node'");
}

TEST_F(TREE, DuplicateOfACommonExpressionDoesNotOwnItsOperands) {
    NODE* shared = tree(PLUS, int_type, icon(1), icon(2));
    NODE* duplicate = maketree(CSE_DUPE, shared->left, shared->right, int_type, nullptr);
    erase_tree(duplicate);
    EXPECT_EQ(shared->left->op, ICON);
    EXPECT_EQ(count_nodes_in_tree(shared), 3);
}

TEST_F(TREE, CopyOwnsItsFloatingValue) {
    NODE* node = new_node(FCON, float_type);
    node->mk_fcon("2");
    NODE* copy = copy_node(node, false);
    copy->fval()->sign = 1;
    EXPECT_STREQ(node->fcon_value(), "0x1p+1");
}

TEST_F(TREE, VolatileAccessIsASideEffect) {
    TYPE* vint = tp->mk_qual(int_type, QUAL_VOLATILE);
    SYMTAB* plain = symbol("plain", int_type, SC_EXTDEF);
    SYMTAB* port = symbol("port", vint, SC_EXTDEF);
    SYMTAB* pointer = symbol("pointer", tp->mk_ptr(vint), SC_EXTDEF);
    EXPECT_FALSE(tree_has_side_effects(name(plain)));
    EXPECT_TRUE(tree_has_side_effects(name(port)));
    EXPECT_FALSE(tree_has_side_effects(name(pointer)));
    // The type of the access may have lost the qualifier; the pointer has not.
    EXPECT_TRUE(tree_has_side_effects(tree(UMULT, int_type, name(pointer))));
    EXPECT_TRUE(tree_has_side_effects(tree(PLUS, int_type, icon(1), asg(plain, icon(1)))));
    EXPECT_FALSE(tree_has_side_effects(tree(DIV, int_type, icon(1), name(plain))));
}

TEST_F(TREE, ArgumentPrologIsToldFromAnAssignment) {
    SYMTAB* fn = function("fn");
    opt_client.cl_begin_func(fn, at(1));
    SYMTAB* p = symbol("p", int_type, SC_REGPARM, 1);
    SYMTAB* q = symbol("q", float_type, SC_REGPARM, 1);
    opt_client.cl_end_args(at(1));
    SYMTAB* v = local("v", int_type);
    const auto becomes_prolog = [](NODE* first) {
        mark_arg_prolog(first);
        return tree_is_arg_prolog(first);
    };
    NODE* both = tree(PCOMMA, void_type, asg(p, name(p)), asg(q, tree(SCONV, float_type, name(q))));
    EXPECT_TRUE(becomes_prolog(asg(p, name(p))));
    EXPECT_TRUE(becomes_prolog(both));
    EXPECT_TRUE(tree_is_arg_prolog(both->right));
    EXPECT_FALSE(becomes_prolog(asg(v, name(v))));
    EXPECT_FALSE(becomes_prolog(asg(p, name(v))));
    EXPECT_FALSE(becomes_prolog(tree(PCOMMA, void_type, asg(v, icon(1)), asg(q, name(q)))));
    // The program's own assignment of a parameter to itself.
    EXPECT_FALSE(tree_is_arg_prolog(asg(p, name(p))));
}

TEST_F(TREE, InfixTextKeepsTheTreesMeaning) {
    begin(function("fn"));
    const auto sum = [&] { return tree(PLUS, int_type, name(x), name(y)); };
    EXPECT_EQ(tree_to_text(tree(MULT, int_type, sum(), icon(3))), "(x + y) * 3");
    EXPECT_EQ(tree_to_text(tree(MINUS, int_type, icon(3), sum())), "3 - (x + y)");
    EXPECT_EQ(tree_to_text(tree(MINUS, int_type, sum(), icon(3))), "x + y - 3");
    EXPECT_EQ(tree_to_text(asg(x, asg(y, icon(0)))), "x = y = 0");
    EXPECT_EQ(tree_to_text(tree(UMINUS, int_type, sum())), "-(x + y)");
    EXPECT_EQ(tree_to_text(tree(DFG_S2V, int_type, name(x))), "DFG_S2V(x)");
}

TEST(POOL, GivesBackEverythingAndKeepsPoolsApart) {
    POOL a, b;
    void* cell = a.allocate_cell(64);
    std::memset(cell, 0xff, 64);
    POOL::recycle(cell, 64);
    EXPECT_NE(b.allocate_cell(64), cell); // it belongs to `a`
    auto* again = static_cast<unsigned char*>(a.allocate_cell(64));
    EXPECT_EQ(again, cell);
    for (int i = 0; i < 64; i++) ASSERT_EQ(again[i], 0);
    auto* big = static_cast<unsigned char*>(a.allocate(100000)); // more than a chunk
    EXPECT_EQ(big[99999], 0);
    EXPECT_GE(a.bytes(), 100000u);
    a.release_all();
    EXPECT_EQ(a.bytes(), 0u);
    EXPECT_STREQ(a.copy_text("text"), "text");
}
