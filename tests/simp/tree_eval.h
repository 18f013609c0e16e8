// An evaluator of expression trees for proofs: what a tree computes, stores and does, in arithmetic of its
// own.
//
// Nothing here is shared with the optimizer's folder, so a tree before and after a rewrite can be compared on
// real values. Variables live in a small memory of 16-bit units; each tree is translated once to a linear
// program (trees can be deeper than the machine's stack) and then run as often as wanted.

#ifndef TESTS_SIMP_TREE_EVAL_H
#define TESTS_SIMP_TREE_EVAL_H

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

class NODE;
class SYMTAB;
class TYPE;

namespace prove {

// How a value of a type is held: 64 bits, an integer or pointer extended from its width by its sign, a
// floating value as the image of an IEEE single.
struct REP {
    enum KIND : std::uint8_t { NONE, INTEGER, BOOLEAN, POINTER, FLOATING, AGGREGATE };
    KIND kind = NONE;
    std::uint8_t bits = 0;
    bool is_signed = false;

    bool is_float() const { return kind == FLOATING; }
    bool is_scalar() const { return kind != NONE && kind != AGGREGATE; }
    bool operator==(const REP&) const = default;
};
REP rep_of(TYPE* type);

// Extends the low bits of the image.
std::uint64_t extend(std::uint64_t image, unsigned bits, bool is_signed);
// A value of one representation as a value of the other: conversions to a truth value compare with zero,
// those of a floating value to an integer truncate towards zero, saturate at 64 bits, and then wrap.
std::uint64_t convert(std::uint64_t image, const REP& from, const REP& to);
float single_of(std::uint64_t image);
std::uint64_t image_of(float value);
// Readable: decimal, with the bits of a floating value behind it.
std::string show(std::uint64_t image, const REP& rep);

// Where the variables are. An access belongs to exactly one object; the units 0 to 15 are nobody's.
class LAYOUT {
  public:
    struct OBJECT {
        const SYMTAB* symbol;
        unsigned address; // units
        unsigned units;
        bool is_global; // a called function can read and change it
        bool is_function;
    };
    LAYOUT();
    void add(const SYMTAB* symbol);
    const OBJECT* find(const SYMTAB* symbol) const; // null for a symbol that was never added
    const std::vector<OBJECT>& objects() const { return objects_; }
    unsigned units() const { return static_cast<unsigned>(owner_.size()); }
    // Whether the units belong to one object, and all of them do.
    bool contains(std::uint64_t address, unsigned count) const {
        return address < owner_.size() && count <= owner_.size() - address && owner_[address] >= 0 &&
               owner_[address] == owner_[address + count - 1];
    }

  private:
    std::vector<OBJECT> objects_;
    std::vector<std::int16_t> owner_;
    std::unordered_map<const SYMTAB*, std::size_t> index_;
};

// The values of all variables before or after a run.
struct MEMORY {
    std::vector<std::uint16_t> units;
    std::uint64_t outside = 0; // decides what volatile objects and opaque functions give

    // The low unit of a wide value comes first. `bit` and `width` pick a bit-field from there on.
    std::uint64_t bits(unsigned address, unsigned bit, unsigned width) const;
    void set_bits(unsigned address, unsigned bit, unsigned width, std::uint64_t value);
};

// What somebody outside can see while the tree runs.
struct EVENT {
    enum KIND : std::uint8_t { READ, WRITE, CALL, ARGUMENT, GLOBALS };
    KIND kind;
    std::uint8_t bits;
    std::uint32_t where; // address, or the number of the function
    std::uint64_t value;
    bool operator==(const EVENT&) const = default;
};
std::string show(const EVENT& event, const LAYOUT& layout);

struct OUTCOME {
    const char* fault = nullptr; // why the program is faulty; null: it is not
    std::uint64_t value = 0;
    std::vector<EVENT> events;
};

class PROGRAM {
  public:
    // Translates the tree; the answer tells what has no meaning, and is empty when everything has. Statements
    // that jump give the number of the label as value (-1: on to the next statement).
    std::string translate(NODE* tree, const LAYOUT& layout);
    // Runs it on the memory. A pointer computed into the units below 16 is a fault only when `strict`.
    void run(MEMORY& memory, OUTCOME& outcome, bool strict) const;
    // Of the whole tree's value.
    const REP& result() const { return result_; }

  private:
    friend class TRANSLATOR;
    enum CODE : std::uint8_t;
    struct PLACE {
        REP rep;
        bool is_field = false;
        bool is_volatile = false;
        std::uint8_t bit = 0; // of a bit-field, from its unit on
        std::uint8_t width = 0;
    };
    struct INSTRUCTION {
        CODE code;
        std::uint8_t kind = 0; // operator number, intrinsic
        REP rep;               // of the result, or that in which the operator computes
        REP from;              // of the operand
        std::uint32_t place = 0;
        std::uint64_t value = 0; // constant, address, jump target
    };
    struct CALLEE {
        std::uint32_t address;
        std::vector<REP> arguments;
    };
    struct RUNNING;
    std::uint64_t intrinsic(const INSTRUCTION& i, const std::uint64_t* arguments) const;
    std::vector<INSTRUCTION> code_;
    std::vector<PLACE> places_;
    std::vector<CALLEE> callees_;
    const LAYOUT* layout_ = nullptr;
    REP result_;
};

} // namespace prove

#endif
