#include "known_bits.h"

#include "node.h"
#include "optypes.h"
#include "types.h"
#include "value_facts.h"

namespace {

bool is_integral_tree(const NODE* tree) { return tree->type != nullptr && tree->type->is_integral(); }

// The facts of the tree's value as a value of `type`. False where the analysis says nothing: trees and
// types that are not integral.
bool integral_facts(const NODE* tree, TYPE* type, VALUE_FACTS& facts) {
    const INT_SHAPE own = shape_of(tree->type), wanted = shape_of(type);
    if (!is_integral_tree(tree) || own.width == 0 || !type->is_integral() || wanted.width == 0) return false;
    // Only the width is taken over: a truth value's bits are those of the tree, too.
    facts = convert_facts(value_facts(tree), own, {wanted.width, wanted.is_signed, false});
    return true;
}

// The bits in which values between the limits can differ, and all below: they agree above.
INT65 free_bits(const INT65& lo, const INT65& hi) {
    return INT65::from_unsigned(smear_down((lo ^ hi).bits()));
}

} // namespace

INT65 find_known_zeros(NODE* tree, TYPE* type) {
    VALUE_FACTS facts;
    return integral_facts(tree, type, facts) ? INT65::from_unsigned(facts.may) : type_mask(type);
}

INT65 find_known_ones(NODE* tree, TYPE* type) {
    VALUE_FACTS facts;
    return INT65::from_unsigned(integral_facts(tree, type, facts) ? facts.must : 0);
}

INT65 find_known_zeros_in_range(const INT65& lo, const INT65& hi) { return lo | free_bits(lo, hi); }

INT65 find_known_ones_in_range(const INT65& lo, const INT65& hi) { return lo & ~free_bits(lo, hi); }

INT65 find_known_zeros_in_ANDB(NODE* tree, LOOP*) { return find_known_zeros(tree, tree->type); }

bool returns_1_or_0(const NODE* tree) {
    if (!is_integral_tree(tree) || shape_of(tree->type).width == 0) return false;
    const VALUE_FACTS facts = value_facts(tree);
    return facts.min >= 0 && facts.max <= 1;
}
