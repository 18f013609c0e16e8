// The integer around a bit-field, its container, has the width of the field's declared type if it can, else
// another one. It covers nothing but bit-fields and padding: a store to a field may rewrite its neighbours of
// the same unit, but no member that an interrupt could be changing meanwhile.
//
//   read     (T)((container >> first) & mask), or two shifts for a field with sign
//   write    container = (container & ~(mask << first)) | ((value & mask) << first)
//
// What leads to the container is computed once. So is the value, where it has effects or is used further.

#include "expand_bitfields.h"

#include <cstdint>
#include <vector>

#include "accesses.h"
#include "bblk.h"
#include "bbutils.h"
#include "congruent.h"
#include "copy.h"
#include "debug.h"
#include "def_use.h"
#include "dump.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "seq_trees.h"
#include "simp.h"
#include "symbol.h"
#include "types.h"

using namespace op;

bool is_bit_field_place(const NODE* place) {
    return (place->op == STDOT || place->op == STREF) && place->right->op == FIELD &&
           place->right->mdata->bit_field;
}

bool op_suits_bit_field(int assignment_op) {
    switch (assignment_op) {
        case ASG:
        case PLUSASG:
        case MINUSASG:
        case MULTASG:
        case ANDBASG:
        case ORBASG:
        case XORBASG: return true;
        default: return false;
    }
}

namespace {

NODE* simplified(int op, NODE* left, NODE* right, TYPE* type) {
    return simp_node(maketree(op, left, right, type, nullptr), nullptr);
}

NODE* shifted(int op, NODE* value, int distance) {
    if (distance == 0) return value;
    NODE* count = mk_ICON(INT65::from_signed(distance), tp->int_type(IK_INT));
    return simplified(op, value, count, value->type);
}

std::uint64_t low_bits(unsigned width) {
    return width >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << width) - 1;
}

NODE* masked(NODE* value, std::uint64_t mask) {
    return simplified(ANDB, value, mk_ICON(INT65::from_unsigned(mask), value->type), value->type);
}

// The unsigned type of the signed one's width, and the other way round.
TYPE* integer_of_width(int width, bool is_signed) {
    if (width == 16) return tp->int_type(is_signed ? IK_INT : IK_UINT);
    if (width == 32) return tp->int_type(is_signed ? IK_LONG : IK_ULONG);
    return tp->int_type(is_signed ? IK_LLONG : IK_ULLONG);
}

} // namespace

NODE* cut_to_bit_field(NODE* value, const fkMDATA* member, TYPE* type) {
    const auto width = static_cast<int>(member->width);
    if (type->is_bool() || width >= type_width(type)) return value;
    if (type->is_unsigned()) return masked(value, low_bits(member->width));
    const int distance = type_width(type) - width;
    return shifted(SRL, shifted(SLL, value, distance), distance);
}

namespace {

struct CONTAINER {
    int width = 0;           // bits; 0: there is none
    std::int64_t offset = 0; // bits from the start of the structure
    int first = 0;           // the field's first bit in it
};

bool overlaps_other_member(TYPE* csu, std::int64_t begin, std::int64_t end) {
    for (unsigned number = 1; const fkMDATA* member = csu->member(number); number++) {
        const auto width =
            static_cast<std::int64_t>(member->bit_field ? member->width : member->type->size());
        if (member->offset >= end || member->offset + width <= begin) continue;
        if (!member->bit_field || member->type->is_volatile()) return true;
    }
    return false;
}

CONTAINER find_container(const fkMDATA* member, TYPE* csu) {
    const int declared = type_width(member->type->normalized());
    const auto begin = member->offset;
    const auto end = begin + static_cast<std::int64_t>(member->width);
    for (const int width : {declared, 16, 32, 64}) {
        if (width != 16 && width != 32 && width != 64) continue;
        const auto align = static_cast<std::int64_t>(integer_of_width(width, false)->align());
        if (static_cast<std::int64_t>(csu->align()) < align) continue;
        const std::int64_t start = begin / align * align;
        if (end > start + width || start + width > static_cast<std::int64_t>(csu->size())) continue;
        if (overlaps_other_member(csu, start, start + width)) continue;
        return {width, start, static_cast<int>(begin - start)};
    }
    return {};
}

bool is_plain(const NODE* place) {
    if (node_is_volatile_access(place) || node_is_volatile_access(place->right)) return false;
    for (const NODE* object = place->left; object != nullptr && place->op == STDOT;
         object = object->op == STDOT ? object->left : nullptr)
        if (node_is_volatile_access(object)) return false;
    const fkMDATA* member = place->right->mdata;
    return place->type->is_integral() && member->width != 0 && !member->type->is_volatile() &&
           type_width(place->type) == type_width(member->type->normalized());
}

class EXPANSION {
  public:
    // Rewrites one statement; true if anything has changed.
    bool run(NODE*& statement);

  private:
    void visit(NODE*& place, bool is_root);
    bool expand_write(NODE*& place, bool is_root);
    bool expand_read(NODE*& place);
    NODE* keep(NODE* value, char kind, NODE*& ahead) const;

    const PRIVATE_SYMBOLS private_symbols_;
    std::vector<NODE**> pending_;
    bool changed_ = false;
};

CONTAINER container_of(const NODE* place) {
    if (!is_bit_field_place(place) || !is_plain(place)) return {};
    return find_container(place->right->mdata, place->right->csu()->true_type());
}

// The container as a place. Consumes the access of the field.
NODE* load_of(NODE* place, const CONTAINER& container, bool is_signed) {
    TYPE* type = integer_of_width(container.width, is_signed);
    TYPE* pointer = tp->mk_ptr(type);
    NODE* address = place->left;
    if (place->op == STDOT) address = maketree(UAND, address, nullptr, tp->mk_ptr(address->type), nullptr);
    erase_tree(place->right);
    erase_node(place);
    address = simp_node(coerce_to_type(simp_node(address, nullptr), pointer), nullptr);
    if (container.offset != 0) {
        NODE* distance = mk_ICON(INT65::from_signed(container.offset / 16), tp->int_type(IK_INT));
        address = simplified(PLUS, address, distance, pointer);
    }
    return maketree(UMULT, address, nullptr, type, nullptr);
}

bool EXPANSION::expand_read(NODE*& place) {
    const CONTAINER container = container_of(place);
    if (container.width == 0) return false;
    const fkMDATA* member = place->right->mdata;
    TYPE* type = place->type->true_type();
    const auto width = static_cast<int>(member->width);
    const bool has_sign = type->is_signed() && !type->is_bool();
    NODE* value = load_of(place, container, has_sign);
    if (has_sign) {
        value = shifted(SLL, value, container.width - container.first - width);
        value = shifted(SRL, value, container.width - width);
    } else {
        value = shifted(SRL, value, container.first);
        if (container.first + width < container.width) value = masked(value, low_bits(member->width));
    }
    place = simp_node(coerce_to_type(value, type), nullptr);
    return true;
}

// The value as a NAME of a temporary, which `ahead` assigns it to behind what it did before.
NODE* EXPANSION::keep(NODE* value, char kind, NODE*& ahead) const {
    SYMTAB* temporary = sym_temp(kind, -1, value->type, nullptr);
    NODE* name = mk_NAME(temporary);
    name->type = value->type->true_type();
    NODE* assignment = mk_ASG(name, value);
    ahead = ahead == nullptr ? assignment : mk_COMMAOP(ahead, assignment);
    return copy_tree(name, false);
}

// Whether reading the pointer twice is as good as once: a symbol that only its name leads to.
bool is_cheap_address(const NODE* pointer, const PRIVATE_SYMBOLS& symbols) {
    return pointer->op == NAME && symbols.number_of(pointer->symbol()) >= 0;
}

bool EXPANSION::expand_write(NODE*& place, bool is_root) {
    NODE* assignment = place;
    const CONTAINER container = container_of(assignment->left);
    if (container.width == 0) return false;
    const bool steps = assignment->op == PLUSPLUS || assignment->op == MINMIN;
    if (!(steps && is_root) && !op_suits_bit_field(assignment->op)) return false;
    const fkMDATA* member = assignment->left->right->mdata;
    TYPE* type = assignment->left->type->true_type();
    if (steps) assignment->op = assignment->op == PLUSPLUS ? PLUSASG : MINUSASG;

    NODE* ahead = nullptr;
    NODE** pointer = pointer_of_place(assignment->left);
    // The right side is evaluated before what leads to the field.
    if (assignment->right->op != ICON &&
        (tree_has_side_effects(assignment->right) || (pointer != nullptr && tree_has_side_effects(*pointer))))
        assignment->right = keep(assignment->right, 'F', ahead);
    if (pointer != nullptr && !is_cheap_address(*pointer, private_symbols_))
        *pointer = keep(*pointer, 'F', ahead);
    if (assignment->op != ASG) assignment = opASG_to_ASG(assignment);
    OPTASSERT(assignment->op == ASG);

    NODE* value = coerce_to_type(assignment->right, type);
    NODE* result = nullptr;
    if (!is_root) {
        value = keep(cut_to_bit_field(value, member, type), 'F', ahead);
        result = copy_tree(value, false);
    }
    NODE* field = assignment->left;
    TYPE* unsigned_type = integer_of_width(container.width, false);
    NODE* before = load_of(copy_tree(field, false), container, false);
    NODE* target = load_of(field, container, false);
    const std::uint64_t mask = low_bits(member->width);
    const std::uint64_t others =
        low_bits(static_cast<unsigned>(container.width)) & ~(mask << container.first);
    value = simp_node(coerce_to_type(value, unsigned_type), nullptr);
    // What a shift to the top pushes out needs no mask.
    if (container.first + static_cast<int>(member->width) < container.width) value = masked(value, mask);
    value = shifted(SLL, value, container.first);
    if (others != 0) {
        before =
            simplified(ANDB, before, mk_ICON(INT65::from_unsigned(others), unsigned_type), unsigned_type);
        value = simplified(ORB, before, value, unsigned_type);
    } else {
        erase_tree(before);
    }
    erase_node(assignment);
    NODE* store = mk_ASG(target, value);
    if (ahead != nullptr) store = mk_COMMAOP(ahead, store);
    place = result != nullptr ? mk_COMMAOP(store, result) : store;
    return true;
}

void EXPANSION::visit(NODE*& place, bool is_root) {
    if (opcode_is_ASG(place->op)) {
        if (expand_write(place, is_root)) changed_ = true;
    } else if (expand_read(place)) {
        changed_ = true;
    }
    for_each_value_operand(place, [this](NODE*& operand) { pending_.push_back(&operand); });
}

bool EXPANSION::run(NODE*& statement) {
    changed_ = false;
    NODE* const root = statement;
    pending_.push_back(&statement);
    while (!pending_.empty()) {
        NODE** place = pending_.back();
        pending_.pop_back();
        visit(*place, *place == root);
    }
    return changed_;
}

} // namespace

void expand_bitfields() {
    if (opt_level() == 0 || memory_is_big_endian != 0 || currfuninfo->fields_seen == 0) return;
    dprintf("\n\n\t\t\t---------- ENTERING 'expand_bitfields' ----------\n");
    EXPANSION expansion;
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        bool changed = false;
        for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
            if (tree_is_arg_prolog(cell->first) || !expansion.run(cell->first)) continue;
            if (print_debug != 0) dprintf("\t%s\n", tree_to_text(cell->first).c_str());
            cell->first = simp_tree(cell->first, bb->loop);
            changed = true;
        }
        if (changed) bb->statements = promote_toplevel_COMMAOPs_in_list(bb->statements);
    }
}
