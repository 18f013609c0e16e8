// What a program expects of its conditions.
//
// `__builtin_expect(value, expected)` has the value of its first operand, and says that this is `expected`
// most of the time. A file has it as an intrinsic, or as a call of an external function of that name. It does
// not outlive reading: what it says becomes a probability on the labels of a transfer or on the arms of a
// conditional (NODE::freq).

#ifndef OPT5_BUILTIN_EXPECT_H
#define OPT5_BUILTIN_EXPECT_H

#include "bblk.h"
#include "xint.h"

class NODE;

// What a value is most of the time.
struct EXPECTATION {
    double probability = UNKNOWN_FREQ; // that it is `value`
    INT65 value{};

    bool is_known() const { return probability >= 0; }
    // That it is not zero; only of a known one.
    double chance_of_true() const { return value.is_zero() ? 1 - probability : probability; }
};

// Whether the node is an intrinsic or a call by which a program says what it expects.
bool is_builtin_expect(const NODE* node);

// Takes every such node out of the tree, which must be one, not null; conditionals get the probabilities of
// their arms. Returns what is expected of the value of the whole. Linear.
EXPECTATION take_expectations(NODE*& tree);

// Puts what is expected of the condition of an IF on its two labels.
void convert_CBRANCH_with_builtin_expect(NODE* transfer, const EXPECTATION& condition);

// Puts what is expected of the selector of a SWITCH on the label where the value leads.
void convert_SWITCH_with_builtin_expect(NODE* transfer, const EXPECTATION& selector);

#endif
