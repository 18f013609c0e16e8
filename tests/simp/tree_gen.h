// A deterministic generator of well-typed expression trees: one seed, one tree.
//
// The trees are what programs and earlier rewrites give to the simplifier: every scalar type, constants at
// the ends of ranges, conversions, bit-fields, nested side effects, and the shapes that its rules look for.
// As in C, a variable that is written in an expression is not used elsewhere in it unless a sequence point
// stands between, so the order in which operands are evaluated cannot matter; two calls, or two accesses of
// volatile objects, count as writes of one thing.

#ifndef TESTS_SIMP_TREE_GEN_H
#define TESTS_SIMP_TREE_GEN_H

#include <cstddef>
#include <cstdint>

#include "OPT5/opcodes.h"
#include "tests/simp/palette.h"

class NODE;
class SYMTAB;
class TYPE;
struct fkMDATA;

namespace prove {

// A random stream: the same numbers for the same seed on every machine.
class RANDOM {
  public:
    explicit RANDOM(std::uint64_t seed) : state_(seed * 0x9e3779b97f4a7c15u + 0x1234567) {}
    std::uint64_t next() {
        std::uint64_t x = state_ += 0x9e3779b97f4a7c15u;
        x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9u;
        x = (x ^ (x >> 27)) * 0x94d049bb133111ebu;
        return x ^ (x >> 31);
    }
    // 0 to limit - 1.
    unsigned below(unsigned limit) { return static_cast<unsigned>((next() >> 32) * limit >> 32); }
    bool percent(unsigned chance) { return below(100) < chance; }
    template <class T, std::size_t N> const T& one_of(const T (&list)[N]) {
        return list[below(static_cast<unsigned>(N))];
    }

  private:
    std::uint64_t state_;
};

// A number that is likely to sit at the edge of something, as bits of that width.
std::uint64_t edgy_number(RANDOM& random, unsigned bits);

// Comparisons of integers, and the form of one for the operands' sign.
inline constexpr int RELATIONS[] = {op::EQ, op::NEQ, op::LT, op::LE, op::GT, op::GE};
inline constexpr int UNSIGNED_RELATIONS[] = {op::EQ, op::NEQ, op::ULT, op::ULE, op::UGT, op::UGE};
int relation_of(int op, bool is_signed);

class GENERATOR {
  public:
    GENERATOR(const PALETTE& palette, std::uint64_t seed);
    // The tree of the seed; call it once.
    NODE* tree();

  private:
    struct SETS {
        std::uint64_t reads = 0, writes = 0;
        std::uint64_t tail = 0; // writes that no sequence point separates from the value
    };

    // Operands. `operand` is unsequenced to its siblings, `before` stands ahead of a sequence point, `after`
    // behind one. `pure` has no effects, and copies of it may be used as they please.
    NODE* operand(TYPE* type, int depth);
    NODE* before(TYPE* type, int depth);
    NODE* after(TYPE* type, int depth) { return generate(type, depth); }
    NODE* pure(TYPE* type, int depth);
    NODE* generate(TYPE* type, int depth);
    NODE* produce(TYPE* type, int depth);
    NODE* condition(int depth); // of any scalar type

    NODE* integer(TYPE* type, int depth);
    NODE* floating(TYPE* type, int depth);
    NODE* pointer(TYPE* type, int depth);
    NODE* leaf(TYPE* type);
    NODE* any_leaf(TYPE* type); // reads of arrays, bit-fields, volatile objects
    NODE* comparison(int depth);
    NODE* float_comparison(int depth);
    NODE* logical(int depth);
    NODE* choice(TYPE* type, int depth);
    NODE* shift(TYPE* type, int depth);
    NODE* quotient(TYPE* type, int depth);
    NODE* intrinsic(TYPE* type, int depth);
    NODE* conversion(TYPE* type, int depth);
    NODE* effect(TYPE* type, int depth);
    NODE* assignment(TYPE* type, int depth);
    NODE* compound(TYPE* type, int depth);
    NODE* call(TYPE* type, int depth);
    // Shapes that rules look for.
    NODE* sum_shape(TYPE* type, int depth);
    NODE* mask_shape(TYPE* type, int depth);
    NODE* shift_shape(TYPE* type, int depth);
    NODE* quotient_shape(TYPE* type, int depth);
    NODE* comparison_shape(int depth);
    NODE* truth_shape(TYPE* type, int depth);
    NODE* choice_shape(TYPE* type, int depth);
    NODE* difference_shape(TYPE* type, int depth);
    NODE* two_sided_shape(int depth);
    NODE* guarded_shape(TYPE* type);
    NODE* pointer_shape(int depth);
    NODE* stored_shape(TYPE* type, int depth);

    // Places. The variable of that type that may be read (or written) here, or null.
    SYMTAB* variable(TYPE* type, bool write);
    NODE* member_of_record(const fkMDATA* member, bool write);
    NODE* element(bool write, TYPE* type);
    NODE* place_to_write(TYPE* type); // of exactly that representation; null when none may be written
    bool may_read(std::uint64_t bits) const { return (bits & no_reads_) == 0; }
    bool may_write(std::uint64_t bits) const { return (bits & (no_writes_ | current_.tail)) == 0; }

    // Nodes.
    NODE* node(int op, NODE* left, NODE* right, TYPE* type);
    NODE* constant(TYPE* type);
    NODE* number(std::int64_t value, TYPE* type);
    NODE* to(TYPE* type, NODE* tree); // converted where the types differ
    NODE* copy(NODE* tree);
    TYPE* integer_type();
    TYPE* other_type(TYPE* type);
    int width(TYPE* type) const;
    int comparison_operator(TYPE* type);
    bool effects_here() const { return effects_ && pure_ == 0; }
    unsigned below(unsigned limit) { return random_.below(limit); }
    bool percent(unsigned chance) { return random_.percent(chance); }

    const PALETTE& palette_;
    RANDOM random_;
    bool effects_ = false;
    int pure_ = 0;
    SYMTAB* only_ = nullptr; // the one variable of the tree
    std::uint64_t no_reads_ = 0, no_writes_ = 0;
    SETS current_; // of the node in work
    SETS last_;    // of the operand made last
};

} // namespace prove

#endif
