// Bit-fields as shifts and masks of the unit that holds them.

#ifndef OPT5_EXPAND_BITFIELDS_H
#define OPT5_EXPAND_BITFIELDS_H

class NODE;
class TYPE;
struct fkMDATA;

// Replaces the reads and writes of bit-fields in the current function by loads and stores of an integer
// around them, with shifts and masks. Left as they are: volatile ones, those that no integer at an address
// that suits it covers without touching a member of another kind, compound assignments whose operator depends
// on the sign, and everything at level 0. Edges stay. Linear.
void expand_bitfields();

// Whether the place is a bit-field, by its member record.
bool is_bit_field_place(const NODE* place);

// Whether a compound assignment by this operator gives a bit-field the same value as an assignment of the
// operation in the field's declared type.
bool op_suits_bit_field(int assignment_op);

// The value, of the member's declared type, as it reads back from the bit-field. Consumes the value.
NODE* cut_to_bit_field(NODE* value, const fkMDATA* member, TYPE* type);

#endif
