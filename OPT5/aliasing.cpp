#include "aliasing.h"

#include "bblk.h"
#include "bbutils.h"
#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

constexpr int UNIT_BITS = 16;

template <class VISIT> void for_each_tree(VISIT visit) {
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next) visit(cell->first);
    for (const EHT_ENTRY& entry : currfuninfo->eht)
        if (entry.tree != nullptr) visit(static_cast<NODE*>(entry.tree));
}

void mark_address(NODE* place) {
    while (place->op == STDOT) place = place->left;
    if (place->op == NAME) place->symbol()->flags |= SF_ADDRESS_TAKEN;
}

bool is_part(const NODE* node) {
    switch (node->op) {
        case REAL:
        case IMAG:
        case VFIELD:
        case SIMDHI:
        case SIMDLO: return node->left->op == NAME;
        default: return false;
    }
}

bool has_vector_or_complex_symbol() {
    for (SYMTAB* list : {currfuninfo->params, currfuninfo->locals, currfuninfo->temps})
        for (SYMTAB* symbol = list; symbol != nullptr; symbol = symbol->next)
            if (symbol->type->is_complex() || symbol->type->is_vector()) return true;
    return false;
}

} // namespace

void init_aliasing_info() {
    for (SYMTAB* list : {currfuninfo->params, currfuninfo->locals, currfuninfo->temps})
        for (SYMTAB* symbol = list; symbol != nullptr; symbol = symbol->next)
            symbol->flags &= static_cast<std::uint8_t>(~SF_ADDRESS_TAKEN);
    for_each_tree([](NODE* tree) {
        const NODE* followed = nullptr; // the UAND of a `*&x` that the walk comes to next
        walk_tree(tree, [&followed](NODE* node) {
            if (node->op == UMULT && node->left->op == UAND && alias_vars == 0) followed = node->left;
            if (node->op == UAND && node != followed) mark_address(node->left);
        });
    });
    mark_aliased_vector_and_complex_symbols(false, true);
}

void mark_aliased_vector_and_complex_symbols(bool reads_too, bool vectors) {
    const auto mark = [vectors](NODE* part) {
        SYMTAB* symbol = part->left->symbol();
        if (!is_automatic(symbol)) return;
        if (symbol->type->is_complex() || (vectors && symbol->type->is_vector()))
            symbol->flags |= SF_ADDRESS_TAKEN;
    };
    if (!has_vector_or_complex_symbol()) return;
    for_each_tree([&](NODE* tree) {
        walk_tree(tree, [&](NODE* node) {
            if (reads_too && is_part(node)) mark(node);
            if (opcode_is_ASG(node->op) && is_part(node->left)) mark(node->left);
        });
    });
}

bool is_in_reach_of_pointers(const SYMTAB* symbol) {
    return !is_automatic(symbol) || (symbol->flags & SF_ADDRESS_TAKEN) != 0;
}

SYMTAB* object_of_place(NODE* place) {
    for (;;) {
        if (place->op == STDOT) {
            place = place->left;
        } else if ((place->op == UMULT || place->op == STREF) && place->left->op == UAND) {
            place = place->left->left;
        } else {
            return place->op == NAME ? place->symbol() : nullptr;
        }
    }
}

namespace {

// A member's distance from the start of its structure.
void add_member(POINTEE& at, const NODE* access) {
    const NODE* field = access->right;
    if (field->op == FIELD && field->mdata->offset % UNIT_BITS == 0) {
        at.offset += field->mdata->offset / UNIT_BITS;
    } else {
        at.is_precise = false;
    }
}

// A distance, in units, of a size that no object has is none that can be reckoned with.
constexpr std::int64_t MAX_DISTANCE = std::int64_t{1} << 40;

void add_distance(POINTEE& at, const NODE* distance, bool is_sum) {
    const auto units = distance->op == ICON && !distance->u.lval.is_negative()
                           ? static_cast<std::int64_t>(distance->u.lval.bits())
                           : MAX_DISTANCE;
    if (units < 0 || units >= MAX_DISTANCE) {
        at.is_precise = false;
    } else {
        at.offset += is_sum ? units : -units;
    }
}

} // namespace

POINTEE place_of_pointer(NODE* pointer) {
    POINTEE at;
    at.is_precise = true;
    const auto found = [&at](SYMTAB* object) {
        at.object = object;
        if (!at.is_precise || at.offset >= MAX_DISTANCE || at.offset <= -MAX_DISTANCE) {
            at.is_precise = false;
            at.offset = 0;
        }
        return at;
    };
    for (;;) {
        if (pointer->type == nullptr || !pointer->type->is_ptr()) return {};
        switch (pointer->op) {
            case UAND: {
                NODE* place = pointer->left;
                for (; place->op == STDOT; place = place->left) add_member(at, place);
                if (place->op == NAME) return found(place->symbol());
                if (place->op == STREF) {
                    add_member(at, place);
                } else if (place->op != UMULT) {
                    return {};
                }
                pointer = place->left;
                break;
            }
            case PLUS:
            case MINUS:
                add_distance(at, pointer->right, pointer->op == PLUS);
                pointer = pointer->left;
                break;
            case PCONV:
            case ISP2CHAR: pointer = pointer->left; break;
            case NAME: {
                const POINTEE target = currfuninfo->spmap.pointee(pointer->symbol());
                if (target.object == nullptr) return {};
                at.offset += target.offset;
                at.is_precise = at.is_precise && target.is_precise;
                return found(target.object);
            }
            default: return {};
        }
    }
}
