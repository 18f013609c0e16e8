#include "tests/simp/subjects.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "OPT5/bbutils.h"
#include "OPT5/congruent.h"
#include "OPT5/copy.h"
#include "OPT5/erase.h"
#include "OPT5/files.h"
#include "OPT5/fold.h"
#include "OPT5/known_bits.h"
#include "OPT5/node.h"
#include "OPT5/opcodes.h"
#include "OPT5/optypes.h"
#include "OPT5/simp.h"
#include "OPT5/types.h"
#include "OPT5/valrange.h"

using namespace op;

namespace prove {

namespace {

bool is_scalar(NODE* tree) { return rep_of(tree->type).is_scalar(); }
bool is_integral(NODE* tree) { return tree->type->is_integral(); }
bool is_conversion(NODE* tree) { return tree->op == SCONV || tree->op == PCONV; }

NODE* fold(NODE* tree, std::uint64_t) { return fold_constants(tree); }
NODE* peel(NODE* tree, std::uint64_t) { return peel_for_effect(tree); }
NODE* simplify(NODE* tree, std::uint64_t) { return simp_tree(tree, nullptr); }

NODE* simplified_truth(NODE* tree, std::uint64_t) { return make_boolean(simp_tree(tree, nullptr), nullptr); }

NODE* control(NODE* tree, std::uint64_t) { return simp_for_control(tree, nullptr); }
NODE* truth(NODE* tree, std::uint64_t) { return make_boolean(tree, nullptr); }
NODE* negation(NODE* tree, std::uint64_t) { return invert_boolean_tree(tree); }
NODE* branch(NODE* tree, std::uint64_t) {
    NODE* arms[2];
    for (int i = 0; i < 2; i++) arms[i] = mk_LABELREF(INT65::from_signed(i + 1), NO_PROFILE);
    return simp_node(mk_IF(tree, arms[0], arms[1]), nullptr);
}

// Only the bits under the mask count.
NODE* masked(NODE* tree, std::uint64_t mask) {
    return prop_mask_into_subtree(tree, INT65::from_unsigned(mask));
}

// A conversion made anew.
NODE* coerce(NODE* tree, std::uint64_t) {
    NODE* inner = tree->left;
    TYPE* type = tree->type;
    erase_node(tree);
    return coerce_to_type(inner, type);
}

// Every assignment below in the other form.
template <NODE* (*REWRITE)(NODE*)> NODE* assignments(NODE* tree, std::uint64_t) {
    NODE* root = maketree(IDENTITY, tree, nullptr, tree->type, nullptr);
    walk_tree(root, [](NODE* n) {
        for (NODE** operand : {&n->left, &n->right})
            if (*operand != nullptr && side_effects[(*operand)->op] == SE_ASSIGNS)
                *operand = REWRITE(*operand);
    });
    tree = root->left;
    erase_node(root);
    return tree;
}

// --- Claims on the tree as it is, and on its simplified form, whose value is the same.

std::uint64_t bits_of(const INT65& value, NODE* tree) {
    return extend(value.bits(), static_cast<unsigned>(tree->type->size()), false);
}

WIDE number_of(const INT65& value) {
    const WIDE magnitude = static_cast<WIDE>(value.magnitude());
    return value.is_negative() ? -magnitude : magnitude;
}

CLAIMED bits(NODE* tree) {
    CLAIMED claimed;
    claimed.may_be_one = bits_of(find_known_zeros(tree, tree->type), tree);
    claimed.ones = bits_of(find_known_ones(tree, tree->type), tree);
    if (returns_1_or_0(tree)) claimed.may_be_one &= 1;
    return claimed;
}

CLAIMED range(NODE* tree) {
    CLAIMED claimed;
    claimed.has_range = true;
    claimed.least = number_of(calculate_minval_for_tree(tree, nullptr));
    claimed.greatest = number_of(calculate_maxval_for_tree(tree, nullptr));
    return claimed;
}

CLAIMED factor(NODE* tree) {
    CLAIMED claimed;
    claimed.factor = max_ICON_factor(tree, nullptr).magnitude();
    return claimed;
}

SUBJECT claim(const char* name, CLAIMED (*function)(NODE*), bool of_simplified) {
    return {name, RELATION::CLAIM, nullptr, false, is_integral, function, of_simplified ? simplify : nullptr};
}

} // namespace

const std::vector<SUBJECT>& all_subjects() {
    static const std::vector<SUBJECT> subjects = {
        {"simp_tree", RELATION::VALUE, simplify, true},
        {"fold_constants", RELATION::VALUE, fold},
        {"peel_for_effect", RELATION::EFFECTS, peel},
        {"coerce_to_type", RELATION::VALUE, coerce, false, is_conversion},
        {"ASG_to_opASG", RELATION::VALUE, assignments<ASG_to_opASG>},
        {"opASG_to_ASG", RELATION::VALUE, assignments<opASG_to_ASG>},
        {"simp_for_control", RELATION::ZERO, control, false, is_scalar, nullptr, simplify},
        {"make_boolean", RELATION::TRUTH, truth, false, is_scalar, nullptr, simplify},
        {"invert_boolean_tree", RELATION::UNTRUTH, negation, false, is_scalar, nullptr, simplified_truth},
        {"simp_IF", RELATION::JUMP, branch, false, is_scalar, nullptr, simplify},
        {"prop_mask", RELATION::MASK, masked, false, is_integral, nullptr, simplify},
        claim("known_bits", bits, false),
        claim("range", range, false),
        claim("factor", factor, false),
        claim("known_bits_simp", bits, true),
        claim("range_simp", range, true),
        claim("factor_simp", factor, true),
    };
    return subjects;
}

std::vector<SUBJECT> subjects_named(const std::string& names) {
    std::vector<SUBJECT> found;
    for (std::size_t at = 0; at <= names.size();) {
        const std::size_t end = std::min(names.find(',', at), names.size());
        const std::string name = names.substr(at, end - at);
        const std::size_t before = found.size();
        for (const SUBJECT& s : all_subjects())
            if (name == s.name) found.push_back(s);
        if (found.size() == before) {
            std::fprintf(stderr, "simp_check: there is no subject '%s'; there are", name.c_str());
            for (const SUBJECT& s : all_subjects()) std::fprintf(stderr, " %s", s.name);
            std::fputs("\n", stderr);
            std::exit(2);
        }
        at = end + 1;
    }
    return found;
}

} // namespace prove
