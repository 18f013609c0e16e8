// What is known of an integral value, all at once: its bits, its limits and its factors.
//
// Each of the three sharpens the others (a value of at most 9 has no bit above the fourth; one with two zero
// bits at the bottom is a multiple of four), so one bounded walk of a tree finds all of them, and the
// queries of known_bits.h and valrange.h read off what they are asked for.

#ifndef OPT5_VALUE_FACTS_H
#define OPT5_VALUE_FACTS_H

#include <cstdint>

#include "xint.h"

class NODE;
class TYPE;

// Holds every sum and almost every product of two target values; operations that can exceed it check.
__extension__ using WIDE = __int128;

// How an integral value is represented.
struct INT_SHAPE {
    unsigned width; // bits, 1 to 64; 0: not an integral value
    bool is_signed;
    bool is_truth; // conversion to it gives 0 or 1

    std::uint64_t mask() const { return width >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << width) - 1; }
    std::uint64_t sign_bit() const { return is_signed ? std::uint64_t{1} << (width - 1) : 0; }
    WIDE least() const { return -static_cast<WIDE>(sign_bit()); }
    WIDE greatest() const { return static_cast<WIDE>(mask() ^ sign_bit()); }
    // The low `width` bits as a number of this shape.
    WIDE number(std::uint64_t bits) const {
        bits &= mask();
        return static_cast<WIDE>(bits) - ((bits & sign_bit()) != 0 ? static_cast<WIDE>(mask()) + 1 : 0);
    }
};

// The shape of objects of an integral or pointer type; width 0 for null and for all other types.
INT_SHAPE shape_of(TYPE* type);

// The shape of what STDOT and STREF read: that of the bit-field, or of the node's type.
INT_SHAPE shape_of_place(const NODE* place);

struct VALUE_FACTS {
    std::uint64_t may;    // bits that may be one; the others are zero
    std::uint64_t must;   // bits that are one; a subset of `may`
    WIDE min;             // limits, as numbers of the shape
    WIDE max;             //
    std::uint64_t factor; // divides the value; 0: the value is zero

    bool is_constant() const { return min == max; }
};

// Nothing known but the shape, whose width is not 0.
VALUE_FACTS full_facts(const INT_SHAPE& shape);

// What is known of the tree's value, in the shape of its type, which must be integral or a pointer. Looks at
// no more than FACTS_DEPTH nested operators and FACTS_BUDGET nodes.
constexpr int FACTS_DEPTH = 8;
constexpr int FACTS_BUDGET = 64;
VALUE_FACTS value_facts(const NODE* tree);

// The facts of a value of one shape that is converted to another; neither has width 0.
VALUE_FACTS convert_facts(const VALUE_FACTS& facts, const INT_SHAPE& from, const INT_SHAPE& to);

// All ones from the highest one bit down: 0b00101100 gives 0b00111111.
std::uint64_t smear_down(std::uint64_t bits);

// Between INT65, in which trees hold constants, and WIDE. A WIDE must be a target value.
WIDE to_wide(const INT65& value);
INT65 to_int65(WIDE value);

#endif
