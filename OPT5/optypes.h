// What the rules of the simplifier ask of types: widths, limits, and the types of operations.
//
// All types given and returned are normalised ones (TYPE::normalized) unless told otherwise. "Integral" means
// of integer or enumeration kind; an enumeration counts as its underlying type.

#ifndef OPT5_OPTYPES_H
#define OPT5_OPTYPES_H

#include "opcodes.h"
#include "xint.h"

class NODE;
class TYPE;

// Bits of an object of the type.
int type_width(TYPE* type);

// Ones in all bits of an object of an integral or pointer type, as a nonnegative number; 64 ones for wider
// and for other types.
INT65 type_mask(TYPE* type);

// The limits of an integral or pointer type.
INT65 int_type_min(TYPE* type);
INT65 int_type_max(TYPE* type);

// Whether the comparison by the operator, from EQ to UGT, holds between two numbers. Telling numbers with and
// without sign apart is the caller's.
template <class NUMBER> bool comparison_holds(int op, const NUMBER& a, const NUMBER& b) {
    switch (op) {
        case op::EQ: return a == b;
        case op::NEQ: return a != b;
        case op::LT:
        case op::ULT: return a < b;
        case op::LE:
        case op::ULE: return a <= b;
        case op::GT:
        case op::UGT: return a > b;
        default: return a >= b;
    }
}

// Whether the number is one that an object of the integral or pointer type can hold.
bool value_fits_in_type(const INT65& value, TYPE* type);

// Whether an object of the type has a volatile part, so that a copy of it accesses something volatile. Linear
// in the types that it is made of.
bool has_volatile_part(TYPE* type);

// k where the value is 2 to the k, -1 where it is no power of two or not positive.
int power_of_2(const INT65& value);

// Integral or pointer: what the integer rules may be applied to.
bool is_int_or_ptr(TYPE* type);

// Whether objects of both types have the same bits for the same value: equal widths, both integral or
// pointers of equal signedness, or both floating of one size, or the same type.
bool same_representation(TYPE* a, TYPE* b);

// The type after the integral promotions of C; other types stay.
TYPE* promoted_type(TYPE* type);

// The common type of an operation by the usual arithmetic conversions of C; the pointer where one is a
// pointer.
TYPE* combined_type(TYPE* a, TYPE* b);

// The type in which `op` computes on operands of these types: that of the promoted left one for shifts,
// combined_type for other binary operators.
TYPE* operator_type_for_operand_types(int op, TYPE* left, TYPE* right);

// Converts an ICON or FCON in place. False, and no change, where the value has no place in the type: a number
// with a fraction truncates, one out of an integral type's range stays. To a truth value everything that is
// not zero becomes 1.
bool convert_constant(NODE* constant, TYPE* type);

// The tree's value converted to the type: itself where nothing has to change, an ICON or FCON converted in
// place, else under an SCONV or PCONV (a value between a pointer and an integer of another width goes through
// the integer of the pointer's width). Consumes the tree. The result is not simplified.
NODE* coerce_to_type(NODE* tree, TYPE* type);

// Replaces the type of a NAME, UMULT, STDOT or STREF by what its symbol, pointer or member says, where a
// rewrite has left another one of the same representation. Returns the node.
NODE* fix_type_info(NODE* node);

// The same for the result of an intrinsic whose descriptor names a vector type. Returns the node.
NODE* fix_pack_types(NODE* node);

// The low bits of the type's width read as a signed number; unsigned integer, pointer and enumeration types
// are first mapped to the signed type of the same size.
INT65 sign_extend_by_type(const INT65& value, TYPE* type);

// The same, with the unsigned integer types and pointers mapped to the signed type of the same rank.
INT65 sign_extend_by_type_size(const INT65& value, TYPE* type);

#endif
