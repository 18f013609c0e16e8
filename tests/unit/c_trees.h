// Expression trees from C text, over the variables of the proofs' palette.
//
// Types follow C: operands are promoted and converted to their common type, comparisons take the form that
// their operands ask for. Literals may have the suffixes u, l, ll and f. A call of a name in capitals or with
// a leading underscore is an intrinsic of type int; another one calls a function of the palette.

#ifndef TESTS_UNIT_C_TREES_H
#define TESTS_UNIT_C_TREES_H

#include <string>

#include "tests/simp/palette.h"

class NODE;

// The tree of the expression. Text that is none ends the process with a message.
NODE* tree_of(const prove::PALETTE& palette, const std::string& text);

#endif
