// Initial values of constants.

#ifndef OPT5_GLOBAL_CONSTS_H
#define OPT5_GLOBAL_CONSTS_H

#include <cstdint>

class NODE;
class SYMTAB;
class TYPE;

// One scalar of an initialiser, or one text of characters.
struct INIT_ENTRY {
    std::uint64_t offset; // bits from the start of the object
    const NODE* tree;
};

// The value that a scalar of `type`, `offset` bits into the symbol, has for the whole run, as a new tree of
// that type; null where it is not known. Known are constants (const, not volatile, defined here) from their
// initialisers, zeros that these leave out included, and, at offset 0, locals from the function's `snmap`.
NODE* lookup_autoinit(SYMTAB* symbol, unsigned offset, TYPE* type);

// The same for what the lvalue reads.
NODE* lookup_autoinit(NODE* lvalue);

// The same for an element of a constant array of scalars; null for an index outside the array.
NODE* lookup_array_autoinit(SYMTAB* symbol, unsigned index);

#endif
