// Random small trees with their value: what tests of analyses and of rewriting compare with.
//
// The trees use a few variables of many widths and signs, bit-fields, and all operators that give an integral
// value. The evaluator computes with numbers of the host, wider than any of the target.

#ifndef TESTS_UNIT_SMALL_TREES_H
#define TESTS_UNIT_SMALL_TREES_H

#include <optional>
#include <random>
#include <vector>

#include "ir_fixture.h"

__extension__ using NUMBER = __int128;

class SMALL_TREES : public IR_TEST {
  protected:
    // A variable or a bit-field.
    struct PLACE {
        SYMTAB* symbol;
        fkMDATA* member; // null: the whole symbol
        TYPE* type;
        unsigned width;
        bool is_signed;
        bool is_target; // assigned to, and only that
        bool is_used;   // by an assignment of the tree in work
    };
    using VALUES = std::vector<NUMBER>; // of the places

    void SetUp() override;
    void TearDown() override;

    TYPE* sized_int(IKIND kind, unsigned bits) {
        return tp->mk_int(kind, false, false, TYPE_LAYOUT{bits, 16, nullptr});
    }
    NODE* place_node(const PLACE& place);
    NODE* field_node(SYMTAB* symbol, fkMDATA* member);
    NODE* number(NUMBER value, TYPE* type) {
        return mk_ICON(INT65::from_signed(static_cast<std::int64_t>(value)), type);
    }
    NODE* intrinsic(const char* name, TYPE* type, NODE* a, NODE* b);

    // A tree of at most `depth` nested operators with a value of the type. It assigns to a place at most
    // once, and does not read it elsewhere: its value does not depend on the order of evaluation.
    NODE* random_tree(TYPE* type, int depth);
    NODE* random_leaf(TYPE* type);
    NUMBER random_number(TYPE* type);
    VALUES random_values();
    unsigned below(unsigned count) { return static_cast<unsigned>(random_() % count); }

    // The value, as a number of the tree's type; none where the program faults. Stores into `values`.
    std::optional<NUMBER> evaluate(NODE* tree, VALUES& values);
    static NUMBER wrap(NUMBER value, unsigned width, bool is_signed);
    static NUMBER convert(NUMBER value, TYPE* type);

    TYPE *schar4, *uchar4; // of 4 bits: small enough to try all values
    SYMTAB *s4 = nullptr, *t4 = nullptr, *u4 = nullptr, *v4 = nullptr, *record = nullptr;
    std::vector<TYPE*> types;
    std::vector<PLACE> places;
    std::mt19937 random_{12345};

  private:
    static std::optional<NUMBER> compute(int op, NUMBER a, NUMBER b, TYPE* type, unsigned width,
                                         bool is_signed);
    PLACE& place_of(const NODE* lvalue);
    std::optional<NUMBER> store(NODE* tree, VALUES& values);
    std::optional<NUMBER> call(NODE* tree, VALUES& values);
    NODE* grow(TYPE* type, int depth);
    NODE* random_assignment(TYPE* type, int depth);
    NODE* random_place(TYPE* type, bool is_target); // null: all are used
};

#endif
