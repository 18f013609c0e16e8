// Proof by trial: a tree and what a transformation makes of it are run on many assignments of the variables.

#ifndef TESTS_SIMP_PROVE_H
#define TESTS_SIMP_PROVE_H

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "tests/simp/palette.h"
#include "tests/simp/tree_eval.h"
#include "tests/simp/tree_gen.h"

class NODE;

namespace prove {

// What must hold between the tree and the result. Side effects and the variables afterwards are the same in
// every case.
enum class RELATION : std::uint8_t {
    VALUE,   // the same value, in a type of the same size
    ZERO,    // zero exactly when the tree is
    TRUTH,   // 1 where the tree is not zero, else 0
    UNTRUTH, // 0 where the tree is not zero, else 1
    JUMP,    // to label 1 where the tree is not zero, else to label 2
    MASK,    // the same bits under the mask (the parameter)
    EFFECTS, // no value asked for; the result can be null
    CLAIM,   // the tree stays; what is claimed of its value holds
};

__extension__ using WIDE = __int128;

// What an analysis claims of an integral value, taken in the width of its type.
struct CLAIMED {
    std::uint64_t may_be_one = ~std::uint64_t{0};
    std::uint64_t ones = 0;
    bool has_range = false;
    WIDE least = 0, greatest = 0;
    std::uint64_t factor = 1; // divides the value; 0: the value is zero
};

// Something to be proved right.
struct SUBJECT {
    const char* name;
    RELATION relation;
    // Consumes the tree; returns what replaces it.
    NODE* (*apply)(NODE* tree, std::uint64_t parameter);
    // Doing it again changes nothing.
    bool idempotent = false;
    // What the subject may be applied to; null: every tree.
    bool (*accepts)(NODE* tree) = nullptr;
    // For RELATION::CLAIM, in place of `apply`.
    CLAIMED (*claim)(NODE* tree) = nullptr;
    // Brings the tree into the form that the subject asks for, and is taken to be right. Null: the tree as it
    // is.
    NODE* (*prepare)(NODE* tree, std::uint64_t parameter) = nullptr;
};

// How a test framework shows it: by name, since addresses differ from run to run.
inline void PrintTo(const SUBJECT& subject, std::ostream* stream) { *stream << subject.name; }

struct COUNTS {
    std::uint64_t trees = 0, changed = 0; // checked; of these, those that the subject rewrote
    std::uint64_t runs = 0, faulty = 0;   // assignments tried; of these, those with a faulty original
    std::uint64_t exhaustive = 0;         // trees tried on all values of their one variable
};

struct TRIAL {
    int rounds = 64;                // assignments
    unsigned exhaustive_every = 16; // one in so many of the trees that qualify; 0: none
};

class PROVER {
  public:
    explicit PROVER(const PALETTE& palette) : palette_(palette) {}

    // What is wrong with the subject's work on the tree, as lines for a reader; empty when nothing is. The
    // tree stays. Everything random follows from the seed.
    std::string check(const SUBJECT& subject, NODE* tree, std::uint64_t seed, const TRIAL& trial,
                      COUNTS& counts);

  private:
    struct USE; // the objects and constants of a tree
    std::string check_prepared(const SUBJECT& subject, NODE* tree, std::uint64_t seed, const TRIAL& trial,
                               COUNTS& counts);
    std::string check_shape(NODE* tree, const char* which) const;
    std::string check_runs(const SUBJECT& subject, NODE* tree, NODE* result, std::uint64_t seed,
                           const TRIAL& trial, COUNTS& counts);
    // True when the outcomes agree; otherwise `why` tells how they differ.
    bool agree(const SUBJECT& subject, const CLAIMED& claimed, std::string& why) const;
    void assign(const USE& use, RANDOM& random, int round);
    std::string show_assignment(const USE& use, const MEMORY& memory) const;
    std::string show_outcome(const OUTCOME& outcome, const REP& rep) const;

    const PALETTE& palette_;
    PROGRAM before_, after_;
    MEMORY start_, memory_before_, memory_after_;
    OUTCOME outcome_before_, outcome_after_;
    bool has_result_ = true;
    std::uint64_t parameter_ = 0;
};

// Whether the tree's result depends on the order in which operands are evaluated where none is laid down.
bool depends_on_order(NODE* tree, const LAYOUT& layout);
// Same operators, types and payloads throughout.
bool same_tree(NODE* a, NODE* b);
// The nodes of the tree.
int size_of(NODE* tree);
// The tree on one line with the types of operations, for reports.
std::string typed_text(NODE* tree);

} // namespace prove

#endif
