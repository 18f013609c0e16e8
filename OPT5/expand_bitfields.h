// Bit-fields as parts of the integers that hold them.

#ifndef OPT5_EXPAND_BITFIELDS_H
#define OPT5_EXPAND_BITFIELDS_H

// Turns reads and writes of bit-fields of the current function into loads and stores of their containers with
// shifts and masks. The container of a field is the smallest integer of 16, 32 or 64 bits, at a multiple of
// its size in the structure, that holds the field and no bit of a member that is no bit-field; fields that
// share a larger one use that. A field without a container stays as it is, and so does a volatile one, whose
// accesses count.
//
// A container is a member like any other, though not of the structure itself: its FIELD names a structure of
// the optimizer's own that has one member at that place. So a local structure is still accessed by its name.
//
// Edges stay as they are. Linear in the function and in the members of the structures that it uses.
void expand_bitfields();

#endif
