// Which symbols can be reached through pointers, and what a pointer reaches.

#ifndef OPT5_ALIASING_H
#define OPT5_ALIASING_H

#include "spmap.h"

class NODE;
class SYMTAB;

// Finds the address-taken symbols of the current function: SF_ADDRESS_TAKEN of its parameters, locals and
// temporaries is right afterwards. Without `alias_vars` an address that is followed at once, `*&x`, does not
// count. Linear in the function.
void init_aliasing_info();

// Marks the locals of a vector or complex type of which a part is accessed alone: nobody can follow their
// value by the assignments to their name. With `reads_too` reading a part is enough, otherwise a part must be
// assigned; without `vectors` only complex symbols count.
void mark_aliased_vector_and_complex_symbols(bool reads_too, bool vectors);

// Whether something else than the symbol's name can lead to it: it is global or static, or its address is
// taken.
bool is_in_reach_of_pointers(const SYMTAB* symbol);

// The variable that the lvalue lies in, through members and `*&`; null when it is reached through a pointer.
SYMTAB* object_of_place(NODE* place);

// The object that a pointer's value lies in, and where. Follows sums from a named object; a pointer variable
// leads to what `spmap` binds it to, so a pass that gives pointers further definitions must clear that.
POINTEE place_of_pointer(NODE* pointer);

#endif
