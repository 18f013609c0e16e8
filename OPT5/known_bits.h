// Known-bits analysis: which bits of a value are proved zero or one, and which are asked for.

#ifndef OPT5_KNOWN_BITS_H
#define OPT5_KNOWN_BITS_H

#include "xint.h"

struct LOOP;
class NODE;
class TYPE;

// The bits that may be one in the tree's value, taken in the width of `type`: a zero bit of the result is
// proved zero. The mask is a nonnegative number within type_mask(type). A signed value narrower than `type`
// is sign-extended first, an unsigned one zero-extended. At most 8 nested levels are looked at; below, and
// for trees that are not integral, the answer is the full mask.
INT65 find_known_zeros(NODE* tree, TYPE* type);

// The bits proved one, in the same form; no bits where nothing is known.
INT65 find_known_ones(NODE* tree, TYPE* type);

// The same for any value between two nonnegative limits.
INT65 find_known_zeros_in_range(const INT65& lo, const INT65& hi);
INT65 find_known_ones_in_range(const INT65& lo, const INT65& hi);

// The bits that may be one in an ANDB or ANDBASG, by the bits and the ranges of both operands.
INT65 find_known_zeros_in_ANDB(NODE* tree, LOOP* loop);

// The tree rewritten under the promise that only the bits of `mask` of its value are looked at: bits of
// constants and operations that reach none of them go. Consumes the tree; every rewritten node has been
// through simp_node. Bits outside the mask may differ afterwards: who looks at the tree through a wider mask
// must have narrowed that one first. Doing it again changes nothing. `changed`, where not null, receives
// whether anything was rewritten; the root can be the same node nevertheless. Bounded time.
NODE* prop_mask_into_subtree(NODE* tree, const INT65& mask, bool* changed = nullptr);

// Whether the tree's value is always 0 or 1.
bool returns_1_or_0(const NODE* tree);

#endif
