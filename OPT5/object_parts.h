// Parts of named objects: members, elements with a constant index, members of these, bit-fields.

#ifndef OPT5_OBJECT_PARTS_H
#define OPT5_OBJECT_PARTS_H

#include <cstdint>

class NODE;
class SYMTAB;
class TYPE;

// The bits [offset, offset + size) of an object; some bits, at a place that is not known, where not
// `is_exact`.
struct PART {
    SYMTAB* object = nullptr; // null: the place is in no named object
    std::int64_t offset = 0, size = 0;
    bool is_exact = false;
    bool is_bit_field = false;

    std::int64_t end() const { return offset + size; }
};

// The part that the place is. Exact parts lie within their object. Linear in the depth of the place.
PART part_of_place(NODE* place);

// Whether both are exactly the same bits, read and written in the same way.
bool same_part(const PART& a, const PART& b);

// What a read of the bit-field gives behind a store of the constant: a new ICON of the field's type.
NODE* constant_in_bit_field(const NODE* constant, unsigned width, TYPE* type);

#endif
