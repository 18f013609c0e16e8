// The target's built-in functions: intrinsics that an ICALL or MCALL names.

#ifndef OPT5_TARGET_BIF_H
#define OPT5_TARGET_BIF_H

class NODE;
class TYPE;

// One intrinsic of the target.
struct BIF_DESCRIPTOR {
    const char* name;  // interned
    int operands;      // count of arguments
    bool has_effects;  // on memory: an MCALL
    TYPE* result_type; // null: that of the first operand
};

// The target's intrinsic of that name; null where the target has none. Constant time.
const BIF_DESCRIPTOR* find_target_BIF_descriptor(const char* name);

// The intrinsic that a call of a function of that name stands for (the name a programmer writes, with or
// without the prefix of externals); null where it stands for none.
const BIF_DESCRIPTOR* find_BIF_descriptor(const char* function_name);

// Fills the table; once per run, after the type package.
void init_BIF_descriptors();

// Turns the calls of built-in functions in the tree into ICALL or MCALL with operands and result of the
// descriptor's types. Consumes the tree, returns what replaces it.
NODE* fix_BIF_types(NODE* tree);

// Whether the node is an intrinsic call of that name.
bool is_ICALL_callee(const NODE* node, const char* name);

#endif
