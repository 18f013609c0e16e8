#include "valrange.h"

#include <numeric>
#include <unordered_map>

#include "node.h"
#include "value_facts.h"

namespace {

// Asked by symbol only, never walked: its order does not matter.
std::unordered_map<const SYMTAB*, std::uint64_t> asserted_factors;

} // namespace

INT65 calculate_minval_for_tree(NODE* tree, LOOP*) { return to_int65(value_facts(tree).min); }

INT65 calculate_maxval_for_tree(NODE* tree, LOOP*) { return to_int65(value_facts(tree).max); }

INT65 max_ICON_factor(NODE* tree, LOOP*) {
    if (shape_of(tree->type).width == 0) return INT65::from_unsigned(1);
    return INT65::from_unsigned(value_facts(tree).factor);
}

INT65 max_asserted_ICON_factor(NODE* name, LOOP*) {
    if (name->op == op::NAME && !asserted_factors.empty()) {
        const auto found = asserted_factors.find(name->symbol());
        if (found != asserted_factors.end()) return INT65::from_unsigned(found->second);
    }
    return INT65::from_unsigned(1);
}

void set_asserted_ICON_factor(const SYMTAB* symbol, const INT65& factor) {
    if (factor <= INT65::from_unsigned(1)) return;
    std::uint64_t& known = asserted_factors.try_emplace(symbol, 1).first->second;
    std::uint64_t both;
    const std::uint64_t fresh = factor.bits() / std::gcd(known, factor.bits());
    if (!__builtin_mul_overflow(known, fresh, &both)) known = both;
}

void clear_asserted_ICON_factors() { asserted_factors.clear(); }
