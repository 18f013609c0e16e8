// Trees of whose value only some bits are looked at.

#include <string>

#include "OPT5/copy.h"
#include "OPT5/erase.h"
#include "OPT5/known_bits.h"
#include "OPT5/node.h"
#include "OPT5/optypes.h"
#include "OPT5/simp.h"
#include "small_trees.h"

using namespace op;

namespace {

class DEMANDED_BITS : public SMALL_TREES {
  protected:
    std::string pushed(NODE* tree, std::int64_t mask) {
        TYPE* type = tree->type;
        NODE* result = prop_mask_into_subtree(tree, INT65::from_signed(mask));
        EXPECT_EQ(result->type->size(), type->size());
        EXPECT_EQ(result->type->is_signed(), type->is_signed());
        return tree_to_text(result);
    }
    std::string text(NODE* tree) { return tree_to_text(tree); }
    NODE* with(int op, NODE* left, int constant) {
        return tree(op, left->type, left, icon(constant, op == SLL || op == SRL ? int_type : left->type));
    }
    NODE* converted(TYPE* type, NODE* operand) { return tree(SCONV, type, operand); }
    SYMTAB* unsigned_x() { return places[5].symbol; }
    SYMTAB* long_unsigned() { return places[7].symbol; }
};

} // namespace

TEST_F(DEMANDED_BITS, KeepTheirValueAndAllEffects) {
    unsigned changed = 0;
    for (int i = 0; i < 20000; i++) {
        TYPE* type = types[below(static_cast<unsigned>(types.size()))];
        NODE* before = simp_tree(random_tree(type, 1 + static_cast<int>(below(5))), nullptr);
        if (!before->type->is_integral()) continue;
        std::uint64_t mask = static_cast<std::uint64_t>(random_number(tp->int_type(IK_ULLONG)));
        if (below(2) != 0) mask = (std::uint64_t{2} << below(static_cast<unsigned>(type->size()))) - 1;
        mask &= type_mask(type).bits();
        NODE* after = prop_mask_into_subtree(copy_tree(before, false), INT65::from_unsigned(mask));
        const std::string once = text(after), what = text(before) + " became " + once;
        if (once != text(before)) changed++;
        for (int sample = 0; sample < 12; sample++) {
            const VALUES values = random_values();
            VALUES values_before = values, values_after = values;
            const auto expected = evaluate(before, values_before);
            if (!expected) continue;
            const auto value = evaluate(after, values_after);
            ASSERT_TRUE(value.has_value()) << what;
            ASSERT_EQ(static_cast<std::uint64_t>(*value) & mask, static_cast<std::uint64_t>(*expected) & mask)
                << what << " under " << std::hex << mask;
            ASSERT_TRUE(values_before == values_after) << what;
        }
        bool again = true;
        after = prop_mask_into_subtree(after, INT65::from_unsigned(mask), &again);
        ASSERT_FALSE(again) << what;
        ASSERT_EQ(text(after), once) << "of " << text(before) << " under " << std::hex << mask;
        erase_tree(before);
        erase_tree(after);
    }
    EXPECT_GT(changed, 2000u);
}

TEST_F(DEMANDED_BITS, OperatorsThatReachNoDemandedBitGo) {
    EXPECT_EQ(pushed(with(ANDB, name(x), 0xff), 0x0f), "x");
    EXPECT_EQ(pushed(with(ORB, name(x), 0xf0), 0x0f), "x");
    EXPECT_EQ(pushed(with(XORB, name(x), 0xf0), 0x0f), "x");
    EXPECT_EQ(pushed(with(PLUS, name(x), 0x100), 0xf0), "x");
    EXPECT_EQ(pushed(with(PLUS, name(x), 0x10), 0x100), text(with(PLUS, name(x), 0x10)));
    // A bit that the operand cannot have need not be in the mask.
    NODE* field = field_node(record, record->type->member(2));
    EXPECT_EQ(pushed(with(ANDB, tree(NOTB, int_type, name(x)), 0x0f), 0x0f),
              text(tree(NOTB, int_type, name(x))));
    EXPECT_EQ(pushed(with(ANDB, field, 7), 0xff), text(field_node(record, record->type->member(2))));
}

TEST_F(DEMANDED_BITS, ValuesWithoutDemandedBitsBecomeConstantsBehindTheirEffects) {
    EXPECT_EQ(pushed(with(ANDB, name(x), 0xf0), 0x0f), "0");
    EXPECT_EQ(pushed(with(ORB, name(x), 0xff), 0x0f), "15");
    EXPECT_EQ(pushed(with(SRL, name(unsigned_x()), 12), 0xf0), "0");
    EXPECT_EQ(pushed(with(ANDB, asg(y, name(x)), 0xf0), 0x0f), text(mk_COMMAOP(asg(y, name(x)), icon(0))));
}

TEST_F(DEMANDED_BITS, ConstantsOnlyComeCloserToZero) {
    NODE* sum = tree(PLUS, int_type, name(x), name(y));
    EXPECT_EQ(pushed(with(ANDB, copy_tree(sum, false), 0x1f0), 0x13f),
              text(with(ANDB, copy_tree(sum, false), 0x130)));
    EXPECT_EQ(pushed(with(PLUS, name(x), -1), 0xff), text(with(PLUS, name(x), -1)));
    EXPECT_EQ(pushed(with(PLUS, name(x), -256), 0x1ff), text(with(PLUS, name(x), -256)));
    EXPECT_EQ(pushed(with(PLUS, name(x), -255), 0xff), text(with(PLUS, name(x), 1)));
    EXPECT_EQ(pushed(with(XORB, name(x), -4), 0x8007), text(with(XORB, name(x), -4)));
    EXPECT_EQ(pushed(with(MULT, name(x), 0x103), 0xff), text(with(MULT, name(x), 3)));
}

TEST_F(DEMANDED_BITS, ConversionsThatHoldAllDemandedBitsGo) {
    TYPE* long_type = tp->int_type(IK_LONG);
    SYMTAB* wide = long_unsigned();
    EXPECT_EQ(pushed(converted(long_type, converted(int_type, name(wide))), 0xff),
              text(converted(long_type, name(wide))));
    const auto kept = [&] { return converted(long_type, converted(int_type, name(wide))); };
    EXPECT_EQ(pushed(kept(), 0x100ff), text(kept()));
    // A conversion to a truth value looks at every bit.
    TYPE* truth = tp->int_type(IK_BOOL);
    EXPECT_EQ(pushed(converted(int_type, converted(truth, name(x))), 1),
              text(converted(int_type, converted(truth, name(x)))));
}

TEST_F(DEMANDED_BITS, SignCopiesDemandTheSign) {
    // Of x >> 8 the bits from the eighth on are copies of the sign, which the last bit of each mask asks for.
    TYPE* long_type = tp->int_type(IK_LONG);
    const auto flipped = [this] { return with(XORB, name(x), -32768); };
    EXPECT_EQ(pushed(with(SRL, with(ORB, name(x), 0x4000), 8), 0x180), text(with(SRL, name(x), 8)));
    EXPECT_EQ(pushed(with(SRL, flipped(), 8), 0x100), text(with(SRL, flipped(), 8)));
    EXPECT_EQ(pushed(converted(long_type, with(ORB, name(x), 0x4000)), 0x10001),
              text(converted(long_type, name(x))));
    EXPECT_EQ(pushed(converted(long_type, flipped()), 0x10000), text(converted(long_type, flipped())));
}

TEST_F(DEMANDED_BITS, DeepTreesAreRewrittenAtTheTopOnly) {
    NODE* node = with(ANDB, name(x), 0xff);
    for (int i = 0; i < 100000; i++) node = tree(i % 2 != 0 ? PLUS : XORB, int_type, node, name(y));
    node = prop_mask_into_subtree(node, INT65::from_signed(0x0f));
    EXPECT_TRUE(tree_to_text(node).find("& 255") != std::string::npos);
}
