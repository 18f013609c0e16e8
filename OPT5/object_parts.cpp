#include "object_parts.h"

#include <unordered_set>
#include <vector>

#include "accesses.h"
#include "debug.h"
#include "node.h"
#include "opcodes.h"
#include "optypes.h"
#include "symbol.h"
#include "types.h"
#include "xint.h"

using namespace op;

namespace {

constexpr std::int64_t UNIT_BITS = 16;
constexpr std::int64_t MAX_UNITS = std::int64_t{1} << 32; // further than any object reaches

// The value of a constant distance in units; false for one that no object has room for.
bool units_of(const NODE* distance, std::int64_t& units) {
    if (distance->op != ICON) return false;
    const INT65& value = distance->u.lval;
    if (value < INT65::from_signed(-MAX_UNITS) || value > INT65::from_signed(MAX_UNITS)) return false;
    units = static_cast<std::int64_t>(value.bits());
    return true;
}

// The address that `address` is reckoned from, with the distance added to the part; null at the start.
NODE* step_towards_base(NODE* address, PART& part) {
    switch (address->op) {
        case PLUS:
        case MINUS: {
            const bool is_left = address->left->type->is_ptr();
            if (!is_left && (address->op == MINUS || !address->right->type->is_ptr())) return nullptr;
            std::int64_t units = 0;
            if (!units_of(is_left ? address->right : address->left, units)) part.is_exact = false;
            part.offset += (address->op == PLUS ? units : -units) * UNIT_BITS;
            return is_left ? address->left : address->right;
        }
        case PCONV: return address->left->type->is_ptr() ? address->left : nullptr;
        default: return nullptr;
    }
}

void add_member(const NODE* access, PART& part) {
    const NODE* field = access->right;
    if (field->op == FIELD) {
        part.offset += field->mdata->offset;
    } else {
        part.is_exact = false;
    }
}

} // namespace

PART part_of_place(NODE* place) {
    PART part;
    part.is_exact = true;
    part.size = static_cast<std::int64_t>(place->type->size());
    if ((place->op == STDOT || place->op == STREF) && place->right->op == FIELD &&
        place->right->mdata->bit_field) {
        part.is_bit_field = true;
        part.size = place->right->mdata->width;
        // Bits are counted from the other end of the word there, so that ranges tell nothing.
        if (memory_is_big_endian != 0) part.is_exact = false;
    }
    while (place->op != NAME) {
        if (place->op == STDOT) {
            add_member(place, part);
            place = place->left;
            continue;
        }
        if (place->op != UMULT && place->op != STREF) return {};
        if (place->op == STREF) add_member(place, part);
        NODE* address = place->left;
        while (NODE* base = step_towards_base(address, part)) address = base;
        if (address->op != UAND) return {};
        place = address->left;
    }
    part.object = place->symbol();
    if (part.size <= 0 || part.offset < 0 || part.end() > static_cast<std::int64_t>(part.object->size))
        part.is_exact = false;
    return part;
}

bool same_part(const PART& a, const PART& b) {
    return a.object == b.object && a.is_exact && b.is_exact && a.offset == b.offset && a.size == b.size &&
           a.is_bit_field == b.is_bit_field;
}

NODE* constant_in_bit_field(const NODE* constant, unsigned width, TYPE* type) {
    const std::uint64_t all = width >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << width) - 1;
    std::uint64_t bits = constant->u.lval.bits() & all;
    const bool is_negative = type->is_signed() && !type->is_bool() && (bits >> (width - 1) & 1) != 0;
    if (is_negative) bits |= ~all;
    const auto value = static_cast<std::int64_t>(bits);
    return mk_ICON(is_negative ? INT65::from_signed(value) : INT65::from_unsigned(bits), type);
}
