// The instructions of PROGRAM: what translation writes and execution reads.

#ifndef TESTS_SIMP_TREE_PROGRAM_H
#define TESTS_SIMP_TREE_PROGRAM_H

#include <cstdint>

#include "tests/simp/tree_eval.h"

namespace prove {

enum PROGRAM::CODE : std::uint8_t {
    CONSTANT,
    LOAD_FIXED, // from a constant address
    LOAD,       // address -> value
    STORE,      // value, address -> new value
    COMPOUND,   // operand, address -> new value; the operator in `kind`, computed in `rep`
    STEP,       // operand, address -> old value
    COPY,       // address, address -> 0: a structure of `value` units
    OFFSET,     // address -> address plus `value`
    ARITHMETIC, // a, b -> value
    SHIFT,
    COMPARE,
    COMPARE_FLOAT,
    UNARY,
    CONVERT,
    SCALE,   // PMCONV by `value` units
    UNSCALE, // PVCONV
    TRUTH,   // value -> 1 or 0
    NOT_TRUTH,
    DROP,
    JUMP,
    JUMP_IF_ZERO, // takes the value
    MARK,         // where a jump leads to
    CALL_INTRINSIC,
    CALL_OPAQUE,
    PROMISE,
};

enum INTRINSIC : std::uint8_t {
    LEAST,
    GREATEST,
    SUM,
    DIFFERENCE,
    SHIFTED,
    PRODUCT,
    PRODUCT_OF_HIGH,
    LOW,
    HIGH,
    CHOICE
};

// docs/intrinsics.md tells what they compute. Types by letter: i int, l long, q long long, their unsigned
// forms u, m and w, f a single; * whatever the tree has.
struct INTRINSIC_ROW {
    const char* name;
    INTRINSIC which;
    const char* operands;
    char result;
};
inline constexpr INTRINSIC_ROW INTRINSICS[] = {
    {"MIN", LEAST, "ii", 'i'},
    {"LMIN", LEAST, "ll", 'l'},
    {"LLMIN", LEAST, "qq", 'q'},
    {"MINU", LEAST, "uu", 'u'},
    {"LMINU", LEAST, "mm", 'm'},
    {"LLMINU", LEAST, "ww", 'w'},
    {"MAX", GREATEST, "ii", 'i'},
    {"LMAX", GREATEST, "ll", 'l'},
    {"LLMAX", GREATEST, "qq", 'q'},
    {"MAXU", GREATEST, "uu", 'u'},
    {"LMAXU", GREATEST, "mm", 'm'},
    {"LLMAXU", GREATEST, "ww", 'w'},
    {"FMIN", LEAST, "ff", 'f'},
    {"DMIN", LEAST, "ff", 'f'},
    {"LDMIN", LEAST, "ff", 'f'},
    {"FMAX", GREATEST, "ff", 'f'},
    {"DMAX", GREATEST, "ff", 'f'},
    {"LDMAX", GREATEST, "ff", 'f'},
    {"_sadd", SUM, "ii", 'i'},
    {"_sadd2", SUM, "ll", 'l'},
    {"_ssub", DIFFERENCE, "ii", 'i'},
    {"_ssub2", DIFFERENCE, "ll", 'l'},
    {"_sshl", SHIFTED, "iu", 'i'},
    {"_sshl2", SHIFTED, "lu", 'l'},
    {"_mpy", PRODUCT, "ii", 'l'},
    {"_mpyu", PRODUCT, "uu", 'm'},
    {"_mpysu", PRODUCT, "iu", 'l'},
    {"_mpyus", PRODUCT, "ui", 'l'},
    {"_mpyli", PRODUCT, "il", 'q'},
    {"_mpyhi", PRODUCT_OF_HIGH, "ll", 'q'},
    {"_lo", LOW, "q", 'm'},
    {"_hi", HIGH, "q", 'm'},
    {"quest$colon", CHOICE, "***", '*'},
};

} // namespace prove

#endif
