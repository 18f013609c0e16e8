// The target's built-in functions: intrinsics that an ICALL or MCALL names.
//
// Every operand of an intrinsic is converted to the type that the descriptor gives it, and the result to the
// type of the call: so a call means the same whatever types its tree has. docs/intrinsics.md tells what each
// computes; target_bif.def is the table.

#ifndef OPT5_TARGET_BIF_H
#define OPT5_TARGET_BIF_H

#include <cstdint>

class NODE;
class TYPE;

// How an intrinsic folds on constants.
enum BIF_RULE : std::uint8_t {
    BIF_UNKNOWN, // not at all
    BIF_MINIMUM,
    BIF_MAXIMUM,
    BIF_SATURATING_SUM,
    BIF_SATURATING_DIFFERENCE,
    BIF_SATURATING_SHIFT,
    BIF_PRODUCT,
    BIF_PRODUCT_OF_HIGH,
    BIF_LOW_HALF,
    BIF_HIGH_HALF,
    BIF_CHOICE
};

constexpr int MAX_BIF_OPERANDS = 3;

// One intrinsic of the target.
struct BIF_DESCRIPTOR {
    const char* name;  // interned
    int operands;      // count of arguments
    bool has_effects;  // on memory: an MCALL
    TYPE* result_type; // null: that of the operand which gives the value
    bool is_function;  // a call of a function of that name stands for it
    BIF_RULE rule;
    TYPE* operand_type[MAX_BIF_OPERANDS]; // null: any
};

// The target's intrinsic of that name; null where the target has none. Constant time.
const BIF_DESCRIPTOR* find_target_BIF_descriptor(const char* name);

// The intrinsic that a call of a function of that name stands for (the name a programmer writes, with or
// without the prefix of externals); null where it stands for none.
const BIF_DESCRIPTOR* find_BIF_descriptor(const char* function_name);

// Fills the table; once per run, after the type package.
void init_BIF_descriptors();

// Turns the calls of built-in functions in the tree into ICALL or MCALL with operands and result of the
// descriptor's types, and gives those types to the intrinsic calls that it holds already. A function that the
// file defines is left alone, and so is a call whose arguments are not numbers, or not as many as the
// intrinsic takes. Consumes the tree, returns what replaces it; every node that stays keeps its type. Linear.
NODE* fix_BIF_types(NODE* tree);

// Whether the node is an intrinsic call of that name.
bool is_ICALL_callee(const NODE* node, const char* name);

// Folds an ICALL of an intrinsic without effects whose operands are constants, and the identities of minimum
// and maximum: MIN(x, x) is x, a bound that no value passes goes. Returns what replaces the node, of its
// type; the node itself where nothing folds. Operands are simplified already. Consumes the node.
NODE* fold_BIF(NODE* icall);

#endif
