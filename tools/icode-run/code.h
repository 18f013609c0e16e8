// The runner's code: what bodies are lowered to before anything runs.
//
// A register machine: each function has its own registers. Register 0 holds zero; then come the addresses of
// locals in memory, the address-free scalars, and temporaries. An instruction counts towards one class of
// operators, or none.

#ifndef TOOLS_ICODE_RUN_CODE_H
#define TOOLS_ICODE_RUN_CODE_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/icode-run/values.h"
#include "tools/model/program.h"

enum class COUNT : std::uint8_t {
    NONE,
    ARITHMETIC,
    COMPARE,
    CONVERT,
    LOAD,
    STORE,
    ADDRESS,
    MOVE,
    BRANCH,
    CALL,
    CLASSES
};

enum class CODE : std::uint8_t {
    MOVE,  // dst = a
    CONST, // dst = imm
    ADD,
    SUB,
    MUL,
    DIV,
    MOD,
    AND,
    OR,
    XOR,
    SHL,
    SHR,  // dst = a op b; with imm: b is the constant
    ADDI, // dst = a + imm
    NEG,
    NOT,
    ABS,
    SQRT,
    RECIP,
    CONV, // dst = a converted from kind2 to kind
    EQ,
    NE,
    LT,
    LE,
    GT,
    GE,      // dst = a op b (integers by kind, floats ordered)
    FCMP,    // dst = outcome of the float comparison is in the set `imm` (1 equal, 2 less, 4 greater, 8
             // unordered)
    ISZERO,  // dst = a is zero
    NONZERO, // dst = a is not zero
    LOAD,    // dst = [a + imm]
    STORE,   // [a + imm] = b
    LOADF,   // bit-field: dst = field `imm` of function at [a]
    STOREF,  // bit-field: [a].field imm = b; dst = the field's new value
    JUMP,    // to imm
    JZERO,   // to imm if a is zero
    JNONZERO,
    SWITCH, // by table imm of the function, on a
    CALL,   // dst = call site imm, function address in a (or direct)
    RET,    // value in a
    RETVOID,
    RETSTRUCT, // address in a, imm units
    COPY,      // [a] = [b], imm units
    INTRINSIC, // dst = intrinsic of call site imm
    NASSERT,   // fault if a is zero
    CHECK,     // fault if register a was never set
    DEFINE,    // register a is set
    FELLOFF    // end of a body without a return
};

struct instruction {
    CODE code;
    KIND kind = KIND::I16;
    KIND kind2 = KIND::I16;
    COUNT count = COUNT::NONE;
    bool has_imm = false; // operand b is imm
    bool is_volatile = false;
    std::uint32_t dst = 0;
    std::uint32_t a = 0;
    std::uint32_t b = 0;
    std::int64_t imm = 0;
};

struct bit_field {
    std::uint32_t first; // unit offset of the first unit touched
    std::uint32_t units; // units touched
    unsigned shift;      // of the field in them
    unsigned width;
    KIND kind;
};

struct call_argument {
    std::uint32_t reg;
    KIND kind;
    std::uint32_t units; // of a structure, whose address is in reg; 0 for a scalar
    std::uint32_t align; // units
};

struct call_site {
    std::int32_t direct = -1;  // index of the callee among the functions, -1 when unknown
    std::int32_t builtin = -1; // index of a library function, -1 when none
    std::string name;          // of the callee or intrinsic where it is known
    std::vector<call_argument> args;
    KIND result = KIND::I16;
    std::uint32_t result_units = 0; // of a structure result
    std::uint32_t result_local = 0; // memory local that takes it
    bool has_result = false;
};

struct switch_table {
    std::vector<std::pair<std::int64_t, std::uint32_t>> cases; // sorted by value
    std::int64_t otherwise = -1;                               // -1: fall through
};

struct parameter {
    bool in_register = false;
    std::uint32_t place = 0; // register, or memory local
    KIND kind = KIND::I16;
    std::uint32_t units = 0; // of a structure
};

struct memory_local {
    std::string name; // "function:variable"
    std::uint32_t units;
    std::uint32_t align;
    std::uint32_t address_register; // holds the address while the function runs
};

struct lowered_function {
    std::string name;
    bool has_body = false;
    std::vector<instruction> code;
    std::vector<std::uint32_t> lines; // of each instruction
    std::vector<memory_local> locals; // parameters in memory first
    std::vector<parameter> params;
    bool is_vararg = false;
    std::uint32_t registers = 0;
    std::vector<bit_field> fields;
    std::vector<switch_table> switches;
    std::vector<call_site> calls;
    bool returns_struct = false;
};

// Thrown for a file that cannot be run: an operator without a meaning, a type of no known size.
struct lowering_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The program, lowered. Addresses of globals are fixed before bodies are lowered.
class lowered_program {
  public:
    std::vector<lowered_function> functions;
    std::unordered_map<const model::symbol*, std::int32_t> function_of; // index among the functions
    std::unordered_map<const model::symbol*, std::uint32_t> address_of; // of globals and functions
    std::unordered_map<std::uint32_t, std::int32_t> function_at;        // by address
};

class memory;

// Lays out the globals in `space`, stores their initialisers, lowers all bodies. With `check`, reads of
// registers are checked.
void lower_program(const model::program& source, memory& space, bool check, lowered_program& out);

// The representation of a scalar type; throws lowering_error for one without.
KIND kind_of(TYPE* type);

// The index of a library function, or -1.
int find_builtin(const std::string& name);

#endif
