// Constants from initialised data.

#include "global_consts.h"

#include <algorithm>
#include <vector>

#include "aliasing.h"
#include "bbutils.h"
#include "clusters.h"
#include "copy.h"
#include "copyprop.h"
#include "debug.h"
#include "def_use.h"
#include "dump.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "initialiser.h"
#include "node.h"
#include "opcodes.h"
#include "optypes.h"
#include "pool.h"
#include "pragma.h"
#include "simp.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

constexpr std::uint64_t UNIT_BITS = 16;

// --- The index of an initialiser.

void index_initialiser(SYMTAB* symbol) {
    std::vector<INIT_ENTRY> entries;
    std::uint64_t offset = 0;
    const EXPR_LIST* cell = symbol->init;
    do {
        const NODE* tree = cell->tree;
        if (tree->op == ENDINIT) break;
        if (tree->op == SKIP) {
            if (!tree->u.lval.is_negative()) offset += tree->u.lval.bits();
        } else if (tree->type == nullptr) {
            break;
        } else {
            entries.push_back({offset, tree});
            offset += initialiser_bits(tree);
        }
        cell = cell->next;
    } while (cell != symbol->init);
    symbol->auto_init_count = static_cast<std::uint32_t>(entries.size());
    auto* index = static_cast<INIT_ENTRY*>(record_pool().allocate((entries.size() + 1) * sizeof(INIT_ENTRY)));
    std::copy(entries.begin(), entries.end(), index);
    symbol->auto_inits = index;
}

// A piece of an object: what its initialiser says of the bits [offset, offset + width).
struct PIECE {
    const INIT_ENTRY* entry = nullptr; // null: left out, and so zero
    bool is_known = false;             // no boundary of another piece lies in it
};

PIECE find_piece(SYMTAB* symbol, std::uint64_t offset, std::uint64_t width) {
    if (symbol->auto_inits == nullptr) index_initialiser(symbol);
    const INIT_ENTRY* first = symbol->auto_inits;
    const INIT_ENTRY* last = first + symbol->auto_init_count;
    const INIT_ENTRY* next = std::upper_bound(
        first, last, offset, [](std::uint64_t at, const INIT_ENTRY& entry) { return at < entry.offset; });
    if (next != last && next->offset < offset + width) return {};
    if (next == first) return {nullptr, true};
    const INIT_ENTRY* entry = next - 1;
    const std::uint64_t end = entry->offset + initialiser_bits(entry->tree);
    if (end <= offset) return {nullptr, true};
    return {entry, offset + width <= end};
}

// --- Which objects keep their initial value.

bool is_initialised_constant(const SYMTAB* symbol) {
    return symbol->level == 0 && symbol->init != nullptr && !symbol->otype->is_func() &&
           (symbol->sclass == SC_EXTDEF || symbol->sclass == SC_STATIC) && is_immutable(symbol) &&
           !symbol_has_pragma(symbol, PRAG_NORVANE_WEAK);
}

// Whether an initialiser's tree is a value that may stand at any place: a number or an address.
bool is_fixed_value(const NODE* tree) {
    for (;;) {
        switch (tree->op) {
            case ICON:
            case FCON: return true;
            case SCON: return tree->type->is_ptr();
            case UAND: {
                const NODE* place = tree->left;
                while (place->op == STDOT) place = place->left;
                return place->op == NAME && !sym_is_FAR(place->symbol());
            }
            case PLUS:
            case MINUS:
                if (tree->right->op != ICON || !tree->type->is_ptr()) return false;
                break;
            case SCONV:
            case PCONV:
            case ACONV:
            case ISP2CHAR: break;
            default: return false;
        }
        tree = tree->left;
    }
}

bool values_agree(TYPE* a, TYPE* b) {
    if (a->size() != b->size()) return false;
    return (is_int_or_ptr(a) && is_int_or_ptr(b)) || (a->is_fltpt() && b->is_fltpt());
}

NODE* number(const INT65& value, TYPE* type) {
    return coerce_to_type(mk_ICON(value, tp->int_type(IK_LLONG)), type);
}

NODE* value_of_piece(const PIECE& piece, std::uint64_t offset, TYPE* type) {
    if (piece.entry == nullptr) return number(INT65::from_signed(0), type);
    const NODE* tree = piece.entry->tree;
    if (tree->op == SCON && !tree->type->is_ptr()) {
        const std::uint64_t distance = offset - piece.entry->offset;
        if (distance % UNIT_BITS != 0 || type->size() != UNIT_BITS || !type->is_integral()) return nullptr;
        const std::uint64_t index = distance / UNIT_BITS;
        const unsigned char c = index < tree->text_length ? static_cast<unsigned char>(tree->text[index]) : 0;
        return number(INT65::from_unsigned(c), type);
    }
    if (piece.entry->offset != offset || !values_agree(tree->type, type) || !is_fixed_value(tree))
        return nullptr;
    NODE* copy = copy_tree(const_cast<NODE*>(tree), false);
    if (cluster_refs_are_expanded()) copy = expand_cluster_refs(copy);
    copy = simp_tree(copy, nullptr);
    NODE* value = coerce_to_type(copy, type);
    return value == copy ? value : simp_node(value, nullptr);
}

// The value of a bit-field; null unless one constant holds all its bits.
NODE* lookup_bit_field(SYMTAB* symbol, std::uint64_t offset, unsigned width, TYPE* type) {
    if (!is_initialised_constant(symbol) || memory_is_big_endian != 0 || width == 0 || width > 32)
        return nullptr;
    const PIECE piece = find_piece(symbol, offset, width);
    if (!piece.is_known) return nullptr;
    std::uint64_t bits = 0;
    if (piece.entry != nullptr) {
        const NODE* tree = piece.entry->tree;
        if (tree->op != ICON || tree->type->size() > 32) return nullptr;
        bits = tree->u.lval.bits() >> (offset - piece.entry->offset);
    }
    bits &= (std::uint64_t{1} << width) - 1;
    const bool negative = type->is_signed() && !type->is_bool() && (bits >> (width - 1)) != 0;
    const auto value = static_cast<std::int64_t>(bits) - (negative ? std::int64_t{1} << width : 0);
    return number(INT65::from_signed(value), type);
}

} // namespace

NODE* lookup_autoinit(SYMTAB* symbol, unsigned offset, TYPE* type) {
    if (!type->is_scalar() || type->is_volatile() || (type->qual_kind() & QUAL_RESTRICT) != 0) return nullptr;
    const TYPE* plain = type->true_type();
    if (is_automatic(symbol)) {
        if (offset != 0 || !symbol->otype->is_const() || symbol->otype->is_volatile() ||
            (symbol->otype->qual_kind() & QUAL_RESTRICT) != 0 || symbol->type->true_type() != plain)
            return nullptr;
        NODE* value = currfuninfo->snmap.value(symbol, true);
        return value != nullptr ? coerce_to_type(value, type) : nullptr;
    }
    if (!is_initialised_constant(symbol) || offset + type->size() > symbol->size) return nullptr;
    const PIECE piece = find_piece(symbol, offset, type->size());
    return piece.is_known ? value_of_piece(piece, offset, type) : nullptr;
}

NODE* lookup_array_autoinit(SYMTAB* symbol, unsigned index) {
    if (!symbol->otype->is_array()) return nullptr;
    TYPE* element = symbol->otype->elem_type();
    if (index >= symbol->otype->array().count) return nullptr;
    return lookup_autoinit(symbol, static_cast<unsigned>(index * element->size()), element->normalized());
}

NODE* lookup_autoinit(NODE* lvalue) {
    if (node_is_volatile_access(lvalue)) return nullptr;
    if (lvalue->op == NAME) return lookup_autoinit(lvalue->symbol(), 0, lvalue->type);
    // Members of the object that the place starts from.
    std::uint64_t bits = 0;
    const fkMDATA* field = nullptr;
    NODE* place = lvalue;
    NODE* pointer = nullptr; // that leads to the object
    for (; pointer == nullptr && (place->op == STDOT || place->op == STREF); place = place->left) {
        if (place->right->op != FIELD || place->right->mdata->offset < 0 || place->type->is_volatile())
            return nullptr;
        if (place == lvalue && place->right->mdata->bit_field) field = place->right->mdata;
        bits += static_cast<std::uint64_t>(place->right->mdata->offset);
        if (place->op == STREF) pointer = place->left;
    }
    SYMTAB* symbol = nullptr;
    if (pointer == nullptr && place->op == NAME) {
        symbol = place->symbol();
    } else {
        if (pointer == nullptr && place->op != UMULT) return nullptr;
        const POINTEE at = place_of_pointer(pointer != nullptr ? pointer : place->left);
        if (at.object == nullptr || !at.is_precise || at.offset < 0) return nullptr;
        symbol = at.object;
        bits += static_cast<std::uint64_t>(at.offset) * UNIT_BITS;
    }
    if (is_automatic(symbol) || bits >= symbol->size) return nullptr;
    if (field != nullptr) return lookup_bit_field(symbol, bits, field->width, lvalue->type);
    return lookup_autoinit(symbol, static_cast<unsigned>(bits), lvalue->type);
}

namespace {

NODE* replaced(NODE* lvalue, NODE* value) {
    replacement_count++;
    if (print_debug != 0)
        dprintf("\n\t(%ld) propagate_global_constants() is replacing %s with %s\n", replacement_count,
                tree_to_text(lvalue).c_str(), tree_to_text(value).c_str());
    erase_tree(lvalue);
    return value;
}

// Operators that an address is made of: with a constant below them they may become one.
bool is_part_of_address(int op) {
    switch (op) {
        case PLUS:
        case MINUS:
        case MULT:
        case SLL:
        case PMCONV:
        case SCONV:
        case PCONV:
        case ISP2CHAR:
        case UMULT: return true;
        default: return false;
    }
}

NODE* replace_read(NODE* node, LIST* stmt) {
    switch (node->op) {
        case STDOT:
        case STREF: return prop_constant_for_CSU_member(node, stmt);
        case NAME:
        case UMULT: {
            NODE* value = lookup_autoinit(node);
            return value != nullptr ? replaced(node, value) : node;
        }
        default: return node;
    }
}

} // namespace

NODE* prop_constant_for_CSU_member(NODE* member, LIST*) {
    if (member->op != STDOT && member->op != STREF) return member;
    NODE* value = lookup_autoinit(member);
    return value != nullptr ? replaced(member, value) : member;
}

NODE* propagate_global_constants(NODE* tree, LIST* stmt, bool is_lvalue) {
    struct ITEM {
        NODE** place;
        std::size_t parent;
        bool changed; // something below was replaced
    };
    std::vector<ITEM> items; // an operator ahead of its operands
    NODE* root = tree;
    const auto add_operands = [&items](NODE* node, std::size_t parent) {
        for_each_value_operand(node, [&](NODE*& operand) { items.push_back({&operand, parent, false}); });
    };
    items.push_back({&root, 0, false});
    if (is_lvalue) {
        if (NODE** pointer = pointer_of_place(tree); pointer != nullptr) items.push_back({pointer, 0, false});
    } else {
        add_operands(tree, 0);
    }
    for (std::size_t i = 1; i < items.size(); i++) add_operands(*items[i].place, i);
    // Backwards each operator comes behind its operands.
    for (std::size_t i = items.size(); i-- > 0;) {
        if (i == 0 && is_lvalue) break;
        NODE*& place = *items[i].place;
        NODE* const before = place;
        if (items[i].changed && is_part_of_address(place->op)) place = simp_node(place, nullptr);
        place = replace_read(place, stmt);
        if (place != before || items[i].changed) items[items[i].parent].changed = true;
    }
    return root;
}
