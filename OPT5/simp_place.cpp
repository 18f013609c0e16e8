// Places in memory, and addresses.

#include "erase.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "simp.h"
#include "simp_rules.h"
#include "types.h"

using namespace op;

namespace {

// Whether an access to a place of one type is the same access as one of the other.
bool same_access(TYPE* a, TYPE* b) {
    if (a->is_volatile() != b->is_volatile()) return false;
    if (a->true_type() == b->true_type()) return true;
    return a->is_scalar() && b->is_scalar() && a->is_ptr() == b->is_ptr() && same_representation(a, b);
}

// The unit at a constant distance from the start of a constant text; false where the address is another.
bool character_of_text(const NODE* address, std::int32_t* character) {
    std::uint64_t index = 0;
    if (address->op == PLUS && address->right->op == ICON) {
        if (address->right->u.lval.is_negative()) return false;
        index = address->right->u.lval.bits();
        address = address->left;
    }
    if (address->op != SCON || !address->type->is_ptr() || index >= address->text_length) return false;
    *character = static_cast<unsigned char>(address->text[index]);
    return true;
}

} // namespace

NODE* simp_UMULT(NODE* node, ::LOOP*) {
    NODE* address = node->left;
    if (address->op == UAND && same_access(address->left->type, node->type)) {
        NODE* place = take_left(address);
        erase_node(node);
        return place;
    }
    std::int32_t character;
    if (node->type->is_integral() && node->type->size() == 16 && !node->type->is_volatile() &&
        character_of_text(address, &character)) {
        TYPE* type = node->type->true_type();
        erase_tree(node);
        return icon(INT65::from_signed(character), type);
    }
    return node;
}

NODE* simp_UAND(NODE* node, ::LOOP* loop) {
    NODE* place = node->left;
    if (node->op != UAND || place->op != UMULT) return node;
    TYPE* type = node->type;
    NODE* address = take_left(place);
    erase_node(node);
    return converted(address, type, loop);
}

NODE* simp_STDOT(NODE* node, ::LOOP* loop) {
    // (*p).member
    NODE* object = node->left;
    if (object->op != UMULT || object->type->is_volatile() || !object->left->type->is_ptr()) return node;
    node->op = STREF;
    node->left = take_left(object);
    return simp_node(node, loop);
}

NODE* simp_STREF(NODE* node, ::LOOP* loop) {
    // (&x)->member
    NODE* address = node->left;
    if (address->op != UAND || node->right->op != FIELD) return node;
    TYPE* object = address->left->type;
    TYPE* pointed = address->type->is_ptr() ? address->type->type_pointed_to() : nullptr;
    if (object->true_type() != node->right->csu()->true_type() || pointed == nullptr ||
        pointed->is_volatile() != object->is_volatile())
        return node;
    node->op = STDOT;
    node->left = take_left(address);
    return simp_node(node, loop);
}
