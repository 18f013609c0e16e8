// The code that bodies are lowered to: a register machine.
//
// Every function has its own registers, numbered from 0: first the arriving arguments, then the locals that
// need no memory, then temporaries. Operands a, b and c of an instruction are register numbers unless the
// table below says otherwise; `a` is the destination of everything that has one, so that the lowering can let
// an operator write straight into a local. Branch targets are instruction numbers in c.

#ifndef ICODE_RUN_CODE_H
#define ICODE_RUN_CODE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/icode-run/scalar.h"

namespace model {
struct function;
}

namespace run {

using address = std::uint32_t; // counts 16-bit units

// Classes of executed operators.
enum op_class : std::uint8_t {
    ARITHMETIC_OP,
    COMPARE_OP,
    CONVERT_OP,
    LOAD_OP,
    STORE_OP,
    ADDRESS_OP,
    MOVE_OP,
    BRANCH_OP,
    CALL_OP,
    CLASSES
};
extern const char* const class_names[CLASSES];
using class_counts = std::array<std::uint64_t, CLASSES>;

// Families of instructions. In a family the second operand c is a register (_RR) or a 32-bit signed constant
// (_RI). The arithmetic that can leave its width exists once per width; other widths use W64 and NORM.
#define RUN_WIDTHS(X, NAME)                                                                                  \
    X(NAME, S16, std::int16_t)                                                                               \
    X(NAME, U16, std::uint16_t)                                                                              \
    X(NAME, S32, std::int32_t)                                                                               \
    X(NAME, U32, std::uint32_t)                                                                              \
    X(NAME, W64, std::uint64_t)
#define RUN_WRAPPING(X) RUN_WIDTHS(X, ADD) RUN_WIDTHS(X, SUB) RUN_WIDTHS(X, MUL) RUN_WIDTHS(X, SHL)
#define RUN_COMPARISONS(X)                                                                                   \
    X(EQ, ==, std::uint64_t)                                                                                 \
    X(NE, !=, std::uint64_t)                                                                                 \
    X(LTS, <, std::int64_t)                                                                                  \
    X(LES, <=, std::int64_t)                                                                                 \
    X(GTS, >, std::int64_t)                                                                                  \
    X(GES, >=, std::int64_t)                                                                                 \
    X(LTU, <, std::uint64_t)                                                                                 \
    X(LEU, <=, std::uint64_t)                                                                                \
    X(GTU, >, std::uint64_t)                                                                                 \
    X(GEU, >=, std::uint64_t)

enum comparison : std::uint8_t {
#define X(name, op, type) IS_##name,
    RUN_COMPARISONS(X)
#undef X
};

enum opcode : std::uint16_t {
    SEGMENT,   // a run of code without entry or exit begins: counts `a` operators; c its number
    MOVE_REG,  // a = b
    CONSTANT,  // a = the 64 bits of b (low) and c
    NORM,      // a = b extended from x (see `width_word`)
    FRAME,     // a = address of frame offset c
    FRAME_SUM, // a = address of frame offset c, plus b
#define X(name, width, type) name##_##width##_RR, name##_##width##_RI,
    RUN_WRAPPING(X)
#undef X
        AND_RR,
    AND_RI,
    OR_RR,
    OR_RI,
    XOR_RR,
    XOR_RI,
    SHIFT_CHECK, // a fault unless b, a count as signed value, is from 0 to x - 1
    SHRS_RR,     // arithmetic shift right
    SHRS_RI,
    SHRU_RR, // logical shift right
    SHRU_RI,
    DIVS, // a = b / c, of x
    DIVU,
    MODS,
    MODU,
    NEG, // a = -b, of x
    NOT, // a = ~b, of x
    ABS_INT,
    SCALE_DOWN, // a = b / constant c, signed, of x
#define X(name, op, type) SET_##name##_RR, SET_##name##_RI,
    RUN_COMPARISONS(X)
#undef X
#define X(name, op, type) BR_##name##_RR, BR_##name##_RI, // compares a with b (register or constant)
        RUN_COMPARISONS(X)
#undef X
            JUMP,
    JUMP_ZERO, // on a
    JUMP_NONZERO,
    SWITCH_JUMP, // on a by table c
    FADD,
    FSUB,
    FMUL,
    FDIV,
    FNEG,
    FABS,
    FSQRT,
    FRECIP,
    FCOMPARE,   // a = is the outcome of b against c in the set x
    FJUMP,      // jumps to c when the outcome of a against b is in the set x
    INT_TO_FLT, // a = b, of x
    FLT_TO_INT, // a = b, to x
    INT_TO_BOOL,
    FLT_TO_BOOL,
    // Loads and stores: by absolute address c, by frame offset c, or by pointer b plus c. Only the last form
    // can miss an object; the others are emitted for places inside a named object.
    LD_S16_A,
    LD_S16_F,
    LD_S16_P,
    LD_U16_A,
    LD_U16_F,
    LD_U16_P,
    LD_S32_A,
    LD_S32_F,
    LD_S32_P,
    LD_U32_A,
    LD_U32_F,
    LD_U32_P,
    LD_W64_A,
    LD_W64_F,
    LD_W64_P,
    LD_ANY_P, // of x, any other width
    ST_16_A,  // the value is a
    ST_16_F,
    ST_16_P,
    ST_32_A,
    ST_32_F,
    ST_32_P,
    ST_64_A,
    ST_64_F,
    ST_64_P,
    ST_ANY_P, // of x
    LD_FIELD, // a = bit-field c at pointer b
    ST_FIELD, // bit-field c at pointer b = a
    COPY,     // c units from pointer b to pointer a
    COPY_REG, // c (a register) units from pointer b to pointer a; counts a load and a store a unit
    ARG,      // argument number a of the next call is b
    ARG_CONST,
    CALL_DIRECT,  // function of call site c; a receives the result
    CALL_POINTER, // function at address b
    CALL_LIBRARY,
    CALL_INTRINSIC,
    RET, // without a value
    RET_VALUE,
    RET_COPY,    // a is the address of a structure of c units
    ASSERT_TRUE, // a fault when a is zero
    FAULT,       // with message c
    TRACE,       // a volatile access of a at pointer b plus c; x a trace word
    TRACE_MEM,   // the same, of what stands in memory there
    CHECK_INIT,  // a fault when register b (named c) has not been stored to
    MARK_INIT,   // register b has a value now
    SCOPE_BEGIN, // scope c of the function begins: its objects live, without a value
    SCOPE_END,
    CLEANUP_END, // a clean-up has been evaluated: the search for a handler goes on
    OPCODES
};

struct insn {
    std::uint16_t op;
    std::uint16_t x = 0;
    std::uint32_t a = 0;
    std::uint32_t b = 0;
    std::uint32_t c = 0;
};

// The x of width-dependent instructions.
constexpr std::uint16_t width_word(unsigned bits, bool is_signed) {
    return static_cast<std::uint16_t>(bits | (is_signed ? 0x100u : 0u));
}
inline std::uint64_t extend_word(std::uint64_t value, std::uint16_t x) {
    return extend(value, x & 0xff, (x & 0x100) != 0);
}
// The x of TRACE: width, direction, and whether the value is an address.
constexpr std::uint16_t trace_word(unsigned bits, bool write, bool is_address) {
    return static_cast<std::uint16_t>(bits | (write ? 0x80u : 0u) | (is_address ? 0x100u : 0u));
}

struct bit_field {
    std::uint32_t unit = 0;     // added to the pointer
    std::uint8_t first_bit = 0; // in that unit, from the least significant
    std::uint8_t bits = 0;
    bool is_signed = false;
};

struct argument_info {
    scalar rep;
    std::uint32_t units = 0; // in memory
    std::uint32_t align = 1; // units
};

struct library_function;
struct intrinsic;

struct call_site {
    std::uint32_t callee = 0; // index of a function, of CALL_DIRECT
    const library_function* library = nullptr;
    const run::intrinsic* builtin = nullptr;
    std::vector<argument_info> args;
    scalar result;
    std::uint32_t result_offset = 0; // of a structure result: where the frame has room for it
    std::uint32_t result_units = 0;
    std::uint32_t region =
        0; // where an exception that leaves the callee goes on: entry of the caller's table
};

// One entry of a function's exception table, by its number. Entries 0 and 1 have none of this: the exception
// leaves the function.
struct exception_region {
    struct catch_clause {
        std::string type;
        std::uint64_t value; // what the EH switch yields
        bool everything;
    };
    unsigned kind = 0;
    std::uint32_t link = 0;
    std::uint32_t cleanup_pc = 0; // of a clean-up
    std::vector<catch_clause> clauses;
};

// Where a caught exception resumes a function.
struct resume_point {
    static constexpr std::uint32_t NONE = 0xffffffffu;
    std::uint32_t pc = NONE;
    std::uint32_t reg = 0; // receives the value of the catch
    scalar rep;
};

struct switch_table {
    // Targets by value - first; the default otherwise. Empty when the values lie too far apart.
    std::int64_t first = 0;
    std::vector<std::uint32_t> dense;
    // Else, sorted by value.
    std::vector<std::pair<std::int64_t, std::uint32_t>> sorted;
    std::uint32_t otherwise = 0;
};

// A local in memory.
struct frame_object {
    std::uint32_t offset; // units
    std::uint32_t units;
    std::string name;
};

// What begins and ends with a block; used when checking.
struct scope_code {
    std::vector<std::uint32_t> objects; // indexes of frame objects
    std::vector<std::uint32_t> registers;
};

struct line_mark {
    std::uint32_t pc; // from here on
    const char* file; // null when unknown
    unsigned line;
};

struct function_code {
    std::string name;
    std::vector<insn> code;
    std::vector<line_mark> lines; // ascending
    std::uint32_t registers = 0;
    std::vector<scalar> params;
    std::uint32_t frame_units = 0;
    std::uint32_t frame_align = 1;          // units
    std::vector<std::uint8_t> frame_shadow; // initial state of the frame's units
    std::vector<frame_object> objects;      // ascending offsets
    bool variadic = false;                  // the frame object last in memory is the last named parameter
    std::vector<bit_field> fields;
    std::vector<call_site> sites;
    std::vector<switch_table> switches;
    std::vector<std::string> texts;
    std::vector<scope_code> scopes;
    std::vector<exception_region> regions;
    resume_point eh_switch;
};

} // namespace run

#endif
