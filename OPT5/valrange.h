// What is known of the range and the factors of an integral value.

#ifndef OPT5_VALRANGE_H
#define OPT5_VALRANGE_H

#include "xint.h"

struct LOOP;
class NODE;
class SYMTAB;
class TYPE;

// The least and the greatest number that the tree can give, as a number of its type; the limits of the type
// where nothing better is known. Integral and pointer trees only. `loop`, where not null, is the loop in
// which the tree stands. Depth-limited, so constant time.
INT65 calculate_minval_for_tree(NODE* tree, LOOP* loop);
INT65 calculate_maxval_for_tree(NODE* tree, LOOP* loop);

// The greatest known number that divides the tree's value without a rest, at least 1; 0 for a tree that is
// always zero. The value is the wrapped one: 3 divides x * 3 only where the product is known not to wrap,
// while the power of two in it always does.
INT65 max_ICON_factor(NODE* tree, LOOP* loop);

// The same for a NAME, by what assertions promise of its symbol: 1 where nothing is.
INT65 max_asserted_ICON_factor(NODE* name, LOOP* loop);

// Promises of the program: from here on the symbol's value is a multiple of the factor, which is positive.
// Several promises of one symbol add up to their least common multiple, as far as it is a target value.
void set_asserted_ICON_factor(const SYMTAB* symbol, const INT65& factor);

// Forgets all promises: their symbols may be about to go, or their scope ends.
void clear_asserted_ICON_factors();

#endif
