// The trees of an initialiser, a circular list in ascending order of address.

#ifndef OPT5_INITIALISER_H
#define OPT5_INITIALISER_H

#include <cstdint>

class NODE;
struct EXPR_LIST;

// Puts the tree at the end of the list, null for none yet, which then begins with it. The cell comes from the
// current pool.
void append_to_initialiser(EXPR_LIST*& list, NODE* tree);

// Bits that the tree gives a value, or leaves out if it is a SKIP. Texts may be longer than their type.
std::uint64_t initialiser_bits(const NODE* tree);

#endif
