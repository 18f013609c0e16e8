// Values of parts of objects: members, elements at a constant place, bit-fields, and whole objects in memory.

#ifndef OPT5_SUBRANGE_H
#define OPT5_SUBRANGE_H

// Finds the address-taken symbols of the current function anew, as init_aliasing_info does, and drops what is
// known of the pointees of its pointers.
void reset_alias_info();

// Local common subexpressions for parts: along paths through blocks of which each has the one before as its
// only predecessor, a read of a part whose value is known takes the constant or variable that was stored
// there, or the value of the store or read that came first, by a temporary. A store of what the part already
// holds goes. Nothing in a function whose flow is not known. Needs right edges, which it keeps right;
// branches that are settled by it are taken out. Near linear.
void lcse_subrange_assignments();

// Takes away assignments to parts whose value nothing can read: overwritten on every way before that, in
// objects that end with the function also where they just are not read again. The effects of the right side
// stay. Nothing in a function whose flow is not known. Needs right edges; leaves blocks and edges alone. Near
// linear: in functions too large for it, only what is overwritten in the same block is found.
void elim_dead_subrange_assigns();

#endif
