// The variables over which proofs generate and evaluate trees.

#ifndef TESTS_SIMP_PALETTE_H
#define TESTS_SIMP_PALETTE_H

#include <cstdint>
#include <vector>

#include "tests/simp/tree_eval.h"

class SYMTAB;
class TYPE;

namespace prove {

// The integer types in which operators compute.
inline constexpr int INTEGER_KINDS[] = {1, 2, 4, 5, 6, 7, 8, 9, 10, 11};

// The variables that trees use. There is one palette per process, made in a function of its own, which
// becomes the current one; the nodes of all trees come from that function's pool.
struct PALETTE {
    struct VARIABLE {
        SYMTAB* symbol;
        std::uint64_t bit; // in sets of variables
    };
    // `with_intrinsics`: for a target that has them.
    explicit PALETTE(bool with_intrinsics = true);
    PALETTE(const PALETTE&) = delete;

    LAYOUT layout;
    std::vector<VARIABLE> scalars;   // locals and globals that are read and written as they are
    std::vector<VARIABLE> volatiles; // reading one counts as an effect
    std::vector<SYMTAB*> calls;      // opaque functions, by number of arguments; the results are int and long
    SYMTAB *array, *long_array, *target, *record, *other_record;
    SYMTAB *pointer, *other_pointer, *long_pointer, *record_pointer;
    TYPE *int_pointer_type, *long_pointer_type, *record_type;
    std::uint64_t pointer_bit; // of `pointer`, the one that is assigned to
    // Bits of the sets for what is not a scalar. A dereference touches all that the pointer may lead to.
    std::uint64_t int_target_bits, long_target_bits, record_bits, outside_bit, global_bits;

  private:
    SYMTAB* add(const char* name, TYPE* type, bool global);
    std::uint64_t next_bit_ = 1;
};

} // namespace prove

#endif
