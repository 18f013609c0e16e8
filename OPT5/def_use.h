// Definitions and uses of a function's symbols, and the symbols that keep one value throughout.

#ifndef OPT5_DEF_USE_H
#define OPT5_DEF_USE_H

#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"

class SYMTAB;

// Fills `def_count`, `sole_def`, `use_count` and SF_ADDRESS_TAKEN of the current function's parameters,
// locals and temporaries. The count is -1 for a symbol that cannot be followed by its name: its address is
// taken, it is a static, or an exception table names it. Globals always have -1. Linear in the function.
void count_defs_and_uses();

// Counts, and finds the symbols that are assigned once: their values go to the function's `snmap` where they
// are the same at every use, their pointees to `spmap`. A parameter that only the argument prolog assigns
// becomes immutable (`is_immutable_parameter`); locals without any reference leave their list. Linear in the
// function, apart from the copies of values, which are small.
void find_single_assignments();

// Whether the symbol is a parameter that has the value with which it arrived wherever it is read.
bool is_immutable_parameter(const SYMTAB* symbol);

// Whether the value of the tree is the same wherever in the function it is evaluated: a constant, the address
// of a named object or a place in it, conversions of these, or an immutable parameter by itself.
bool has_one_value(const NODE* tree);

// The NAME that `*&x` stands for where both types have the same values; null for other trees.
NODE* name_behind_address(const NODE* indirection);

// The part of a place that is read as a value, the pointer that leads to it; null for a named variable, its
// members, and a variable behind `*&`.
inline NODE** pointer_of_place(NODE* place) {
    while (place->op == op::STDOT) place = place->left;
    if (place->op == op::NAME || place->left == nullptr || name_behind_address(place) != nullptr)
        return nullptr;
    return &place->left;
}

// Calls `visit` with the place of every operand that the node reads as a value, left before right. The place
// that an assignment writes or an address operator names is not read, nor is the name of the function that
// returns.
template <class VISIT> void for_each_value_operand(NODE* node, VISIT visit) {
    switch (node->op) {
        case op::UAND:
        case op::ARGREF:
            if (NODE** pointer = pointer_of_place(node->left); pointer != nullptr) visit(*pointer);
            return;
        case op::RETURN: visit(node->right); return;
        case op::URETURN:
        case op::BRANCH: return;
        case op::IF:
        case op::SWITCH: visit(node->left); return;
        default: break;
    }
    if (opcode_is_ASG(node->op)) {
        if (NODE** pointer = pointer_of_place(node->left); pointer != nullptr) visit(*pointer);
    } else if (node->left != nullptr) {
        visit(node->left);
    }
    if (node->right != nullptr) visit(node->right);
}

#endif
