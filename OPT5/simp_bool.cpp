// Logical operators: truth values, negation, `&&` and `||`.
//
// The canonical form: operands of `&&` and `||` are in control form (simp_for_control); negations of both
// operands stand outside, ((a == 0) && (b == 0) is (a || b) == 0), while the negation of comparisons is in
// them (!(a < b) is a >= b). Two tests of one value are one test where one can do (x >= 0 && x != 0 is x > 0,
// x & 4 && x & 8 is (x & 12) == 12). What can do without the branch is bit arithmetic: a || b is (a | b) != 0
// for integers.
//
// The last needs the right operand to be evaluated where the source does not: it must not have effects, and
// must not fault. An access to memory, a division and a shift by a variable are safe where they stand within
// a named object, or where the left operand makes the same access anyway.

#include <algorithm>
#include <utility>
#include <vector>

#include "bbutils.h"
#include "congruent.h"
#include "erase.h"
#include "files.h"
#include "known_bits.h"
#include "node.h"
#include "opcodes.h"
#include "optypes.h"
#include "simp.h"
#include "simp_cond.h"
#include "simp_rules.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

TYPE* int_type() { return tp->int_type(IK_INT); }

NODE* set_truth(NODE* icon, bool value) {
    icon->u.lval = INT65::from_signed(value ? 1 : 0);
    icon->type = icon->otype = int_type();
    return icon;
}

// The zero that the tree is compared with.
NODE* zero_for(const NODE* tree) {
    TYPE* type = value_type(tree);
    if (!type->is_fltpt()) return mk_number(0, type);
    NODE* zero = maketree(FCON, nullptr, nullptr, type, nullptr);
    zero->mk_fcon("0");
    return zero;
}

bool can_be_tested(const NODE* tree) { return is_int_or_ptr(tree->type) || tree->type->is_fltpt(); }

bool is_comparison(int op) { return boolean_inv[op] != ILLOP; }

// How deep logical operators are inverted operand by operand.
constexpr int MAX_INVERSION_DEPTH = 4;

bool is_invertible(const NODE* tree, int depth) {
    if (tree->op == ICON || tree->op == EXCLAIM || is_comparison(tree->op)) return true;
    if ((tree->op != ANDAND && tree->op != OROR) || depth == 0) return false;
    return is_invertible(tree->left, depth - 1) && is_invertible(tree->right, depth - 1);
}

// The negation; `finish` makes of each node that is built or changed what it becomes.
template <class FINISH> NODE* inverse(NODE* tree, FINISH finish, int depth) {
    if (tree->op == ICON) return set_truth(tree, tree->u.lval.is_zero());
    if (tree->op == EXCLAIM)
        return finish(maketree(NEQ, tree->left, zero_for(tree->left), tree->type, tree->ls));
    if (tree->op == EQ && is_zero_ICON(tree->right) && returns_1_or_0(tree->left)) {
        NODE* value = take_left(tree);
        NODE* result = coerce_to_type(value, int_type());
        return result == value ? value : finish(result);
    }
    if (is_comparison(tree->op)) {
        tree->op = boolean_inv[tree->op];
        return finish(tree);
    }
    if (is_invertible(tree, depth)) {
        tree->op = tree->op == ANDAND ? OROR : ANDAND;
        tree->left = inverse(tree->left, finish, depth - 1);
        tree->right = inverse(tree->right, finish, depth - 1);
        return finish(tree);
    }
    return finish(maketree(tree->type->is_fltpt() ? FEQ : EQ, tree, zero_for(tree), int_type(), nullptr));
}

} // namespace

NODE* make_boolean(NODE* tree, ::LOOP* loop) {
    if (tree->op == SCONV && tree->left->op == ICON && tree->type->is_integral()) tree = take_left(tree);
    if (tree->op == ICON) return set_truth(tree, !tree->u.lval.is_zero());
    if (tree->op == MIXVALUE && tree->u.lval < INT65::from_signed(2)) return tree;
    if (!can_be_tested(tree)) return tree;
    if (boolean_result[tree->op] != 0 || returns_1_or_0(tree)) return converted(tree, int_type(), loop);
    return build(tree->type->is_fltpt() ? FNEQN : NEQ, tree, zero_for(tree), int_type(), loop);
}

bool tree_is_trivially_invertible(const NODE* tree) { return is_invertible(tree, MAX_INVERSION_DEPTH); }

NODE* invert_boolean_tree(NODE* tree) {
    return inverse(
        tree, [](NODE* node) { return node; }, MAX_INVERSION_DEPTH);
}

NODE* simp_inverse(NODE* tree, ::LOOP* loop) {
    if (!can_be_tested(tree)) return build(EXCLAIM, tree, nullptr, int_type(), loop);
    return inverse(
        tree, [loop](NODE* node) { return simp_node(node, loop); }, MAX_INVERSION_DEPTH);
}

NODE* simp_EXCLAIM(NODE* node, ::LOOP* loop) {
    if (!can_be_tested(node->left)) return node;
    TYPE* type = node->type;
    return converted(simp_inverse(simp_for_control(take_left(node), loop), loop), type, loop);
}

// --- What may be evaluated without need.

namespace {

bool is_access(const NODE* node) { return node->op == UMULT || node->op == STREF || node->op == STDOT; }

// A division by a variable, or a shift by one: it faults for some operands.
bool is_partial(const NODE* node) {
    switch (node->op) {
        case DIV:
        case MOD:
            return node->type->is_integral() && (node->right->op != ICON || node->right->u.lval.is_zero());
        case SLL:
        case SRL:
            return node->right->op != ICON || node->right->u.lval.is_negative() ||
                   node->right->u.lval >= INT65::from_signed(type_width(node->type));
        default: return false;
    }
}

void add_member(const NODE* place, STRICT_ACCESS& access, bool is_whole) {
    const fkMDATA* member = place->right->mdata;
    access.offset += member->offset / 16;
    if (is_whole && member->bit_field)
        access.size = (member->offset % 16 + static_cast<long long>(member->width) + 15) / 16;
}

} // namespace

bool expand_and_raise_expr(NODE* tree, STRICT_ACCESS& access) {
    if (!is_access(tree) && tree->op != NAME) return false;
    access = {tree, true, 0, static_cast<long long>(tree->type->storage_size())};
    NODE* place = tree;
    for (;;) {
        NODE* pointer = nullptr;
        switch (place->op) {
            case NAME: access.base = place; return true;
            case STDOT:
                add_member(place, access, place == tree);
                place = place->left;
                continue;
            case STREF:
                add_member(place, access, place == tree);
                pointer = place->left;
                break;
            case UMULT: pointer = place->left; break;
            default: return false;
        }
        for (;;) {
            const bool adds = pointer->op == PLUS || pointer->op == MINUS;
            if (adds && pointer->right->op == ICON) {
                const INT65 step = sign_extend_by_type(pointer->right->u.lval, pointer->right->type);
                access.offset += pointer->op == PLUS ? step.to_signed() : -step.to_signed();
            } else if (pointer->op != PCONV || !pointer->left->type->is_ptr()) {
                break;
            }
            pointer = pointer->left;
        }
        if (pointer->op != UAND) {
            access.base = pointer;
            access.base_is_place = false;
            return true;
        }
        place = pointer->left;
    }
}

bool lvalue_is_inherently_strict(NODE* lvalue) {
    STRICT_ACCESS access;
    if (!expand_and_raise_expr(lvalue, access) || !access.base_is_place) return false;
    const SYMTAB* symbol = access.base->symbol();
    if (symbol->type->is_func()) return false;
    return access.offset >= 0 && access.offset + access.size <= static_cast<long long>(symbol->size / 16);
}

bool strict_expr_allows_strict_expr(NODE* strict, NODE* other) {
    if (is_access(strict) && is_access(other)) {
        STRICT_ACCESS have, want;
        return expand_and_raise_expr(strict, have) && expand_and_raise_expr(other, want) &&
               have.base_is_place == want.base_is_place && have.offset <= want.offset &&
               want.offset + want.size <= have.offset + have.size &&
               trees_are_congruent(have.base, want.base);
    }
    const bool divides = strict->op == DIV || strict->op == MOD,
               shifts = strict->op == SLL || strict->op == SRL;
    if (divides && (other->op == DIV || other->op == MOD) && strict->type->is_integral() &&
        other->type->is_integral())
        return trees_are_congruent(strict->right, other->right);
    if (shifts && (other->op == SLL || other->op == SRL))
        return type_width(other->type) >= type_width(strict->type) &&
               trees_are_congruent(strict->right, other->right);
    return false;
}

bool rln_SX_allows_rhs_SX(NODE* lhs, NODE* other) {
    constexpr int LIMIT = 256;
    NODE_STACK pending;
    pending.push(lhs);
    for (int seen = 0; !pending.empty() && seen < LIMIT; seen++) {
        NODE* node = pending.pop();
        if ((is_access(node) || is_partial(node)) && strict_expr_allows_strict_expr(node, other)) return true;
        if (node->left != nullptr) pending.push(node->left);
        // The right operand of these is not always evaluated.
        const bool is_conditional = node->op == ANDAND || node->op == OROR || node->op == QUEST;
        if (node->right != nullptr && !is_conditional) pending.push(node->right);
    }
    return false;
}

bool rhs_may_need_guard_in_lhs(NODE* rhs, NODE* lhs) {
    constexpr int LIMIT = 16;
    int asked = 0;
    NODE_STACK pending;
    pending.push(rhs);
    while (!pending.empty()) {
        NODE* node = pending.pop();
        if (side_effects[node->op] != SE_NONE || node_is_volatile_access(node)) return true;
        const bool accesses = is_access(node) && !lvalue_is_inherently_strict(node);
        if (accesses || is_partial(node)) {
            if (lhs == nullptr || ++asked > LIMIT || !rln_SX_allows_rhs_SX(lhs, node)) return true;
        }
        // Of a place, only the address is computed.
        NODE* next = node;
        if (node->op == UAND) next = node->left;
        while (next->op == STDOT) next = next->left;
        if (next != node || is_access(next)) {
            if (next->op == UMULT || next->op == STREF) {
                pending.push(next->left);
            } else if (next->op != NAME) {
                pending.push(next);
            }
            continue;
        }
        if (node->left != nullptr) pending.push(node->left);
        if (node->right != nullptr) pending.push(node->right);
    }
    return false;
}

// --- Bit arithmetic for short circuits.

int andor_andor_height(NODE* tree, int limit, NODE* leaf) {
    std::vector<std::pair<NODE*, int>> pending{{tree, 1}};
    int height = 0;
    while (!pending.empty()) {
        const auto [node, level] = pending.back();
        pending.pop_back();
        height = std::max(height, level);
        if (height > limit) return limit + 1;
        if (node == leaf) continue;
        if (node->left != nullptr) pending.emplace_back(node->left, level + 1);
        if (node->right != nullptr) pending.emplace_back(node->right, level + 1);
    }
    return height;
}

namespace {

// The place of the only bit that may be set, -1 where there may be others or none.
int only_bit(NODE* tree) {
    return tree->type->is_integral() ? power_of_2(find_known_zeros(tree, value_type(tree))) : -1;
}

} // namespace

bool find_or_make_safe_for_ANDB(NODE*& tree, bool make) {
    if (only_bit(tree) < 0) return false;
    // A truth value takes part in arithmetic as an int.
    if (make) tree = converted(tree, promoted_type(value_type(tree)), nullptr);
    return true;
}

NODE* simp_ANDOR_ANDOR(NODE* node, ::LOOP* loop) {
    constexpr int MAX_HEIGHT = 9;
    NODE *left = node->left, *right = node->right;
    if (!left->type->is_integral() || !right->type->is_integral()) return node;
    if (boolean_result[left->op] != 0 || boolean_result[right->op] != 0) return node;
    if (andor_andor_height(node, MAX_HEIGHT, nullptr) > MAX_HEIGHT) return node;
    if (has_effects(left) || has_effects(right) || rhs_may_need_guard_in_lhs(right, left)) return node;
    const bool is_and = node->op == ANDAND;
    if (is_and) {
        if (!find_or_make_safe_for_ANDB(left, false) || !find_or_make_safe_for_ANDB(right, false))
            return node;
        find_or_make_safe_for_ANDB(left, true);
        find_or_make_safe_for_ANDB(right, true);
    }
    TYPE* type = node->type;
    TYPE* common = combined_type(left->type, right->type);
    // A bit that is the sign is many bits in a wider type. That does no harm: its lowest one is at the place
    // of the sign, and the other operand has no other bit to meet it with.
    const int bit = is_and ? only_bit(left) : 0, other_bit = is_and ? only_bit(right) : 0;
    left = converted(left, common, loop);
    right = converted(right, common, loop);
    if (bit < other_bit) left = build(SLL, left, mk_number(other_bit - bit, int_type()), common, loop);
    if (other_bit < bit) right = build(SLL, right, mk_number(bit - other_bit, int_type()), common, loop);
    erase_node(node);
    NODE* bits = build(is_and ? ANDB : ORB, left, right, common, loop);
    return converted(make_boolean(bits, loop), type, loop);
}

// --- Two tests of one value.

namespace {

NODE* keep_one(NODE* node, bool of_left, ::LOOP* loop) {
    TYPE* type = node->type;
    NODE* kept = of_left ? take_left(node) : take_right(node);
    return converted(make_boolean(kept, loop), type, loop);
}

NODE* keep_number(NODE* node, bool value) {
    NODE* result = mk_number(value ? 1 : 0, node->type);
    erase_tree(node);
    return result;
}

bool are_opposite(NODE* a, NODE* b) {
    if (is_comparison(a->op) && boolean_inv[a->op] == b->op && trees_are_congruent(a->left, b->left) &&
        trees_are_congruent(a->right, b->right))
        return true;
    const auto tests_for_zero = [](NODE* test, NODE* value) {
        return test->op == EQ && is_zero_ICON(test->right) && bools_are_congruent(test->left, value);
    };
    return tests_for_zero(a, b) || tests_for_zero(b, a);
}

// A set of numbers: an interval, or all others.
struct NUMBER_SET {
    INTERVAL interval;
    bool outside;

    friend bool operator==(const NUMBER_SET& a, const NUMBER_SET& b) {
        return a.outside == b.outside && a.interval.lo == b.interval.lo && a.interval.hi == b.interval.hi;
    }
};

// What both sets hold; false where that is no interval, nor the outside of one.
bool intersect(const NUMBER_SET& a, const NUMBER_SET& b, NUMBER_SET& both) {
    const auto [alo, ahi] = a.interval;
    const auto [blo, bhi] = b.interval;
    if (!a.outside && !b.outside) {
        both = {{std::max(alo, blo), std::min(ahi, bhi)}, false};
        return true;
    }
    if (a.outside && b.outside) {
        if (ahi + 1 < blo || bhi + 1 < alo) return false;
        both = {{std::min(alo, blo), std::max(ahi, bhi)}, true};
        return true;
    }
    if (a.outside) return intersect(b, a, both);
    both = a;
    if (bhi < alo || ahi < blo) return true;
    if (blo <= alo) {
        both.interval.lo = bhi + 1;
    } else if (ahi <= bhi) {
        both.interval.hi = blo - 1;
    } else {
        return false;
    }
    return true;
}

// `value` lies in the set, as one comparison: its operator and constant. False where it takes two.
bool single_comparison(const NUMBER_SET& set, const NUMBERS& numbers, int& op, WIDE& k) {
    const auto [lo, hi] = set.interval;
    const bool to_start = lo == numbers.min(), to_end = hi == numbers.max();
    if (lo == hi) {
        op = set.outside ? NEQ : EQ;
        k = lo;
    } else if (to_start && !to_end) {
        op = set.outside ? GT : LE;
        k = hi;
    } else if (to_end && !to_start) {
        op = set.outside ? LT : GE;
        k = lo;
    } else {
        return false;
    }
    op = comparison_with_sign(op, numbers.is_unsigned);
    return true;
}

// x >= 0 && x != 0 is x > 0. Null where the two tests stay two.
NODE* merge_value_tests(NODE* node, ::LOOP* loop) {
    VALUE_TEST a, b;
    if (!read_value_test(node->left, a) || !read_value_test(node->right, b)) return nullptr;
    if (a.numbers.width != b.numbers.width || a.numbers.is_unsigned != b.numbers.is_unsigned ||
        a.interval.lo > a.interval.hi || b.interval.lo > b.interval.hi ||
        !trees_are_congruent(a.value, b.value))
        return nullptr;
    // What either test holds for is all but what neither complement does.
    const bool is_or = node->op == OROR;
    const NUMBER_SET first{a.interval, a.outside != is_or}, second{b.interval, b.outside != is_or};
    NUMBER_SET both;
    if (!intersect(first, second, both)) return nullptr;
    if (both == first || both == second) return keep_one(node, both == first, loop);
    const auto [lo, hi] = both.interval;
    const bool is_all = lo <= a.numbers.min() && hi >= a.numbers.max();
    if (lo > hi || is_all) return keep_number(node, (is_all != both.outside) != is_or);
    both.outside = both.outside != is_or;
    int op;
    WIDE k;
    if (!single_comparison(both, a.numbers, op, k)) return nullptr;
    TYPE *type = node->type, *operand_type = value_type(a.value);
    NODE* value = a.value;
    NODE* test = node->left;
    if (test != value) {
        test->left = nullptr;
        erase_node(test->right);
        erase_node(test);
    }
    erase_tree(node->right);
    erase_node(node);
    return build(op, value, mk_number(k, operand_type), type, loop);
}

// (x & mask) == value, or for an `||` its opposite.
struct BIT_TEST {
    NODE* masked;
    WIDE mask, value;
};

bool read_bit_test(NODE* tree, bool opposite, BIT_TEST& test) {
    const bool is_equality = tree->op == EQ || tree->op == NEQ;
    NODE* masked = is_equality ? tree->left : tree;
    if (masked->op != ANDB || masked->right->op != ICON || !masked->type->is_integral()) return false;
    if (is_equality && tree->right->op != ICON) return false;
    const WIDE all = (WIDE{1} << type_width(masked->type)) - 1;
    test = {masked, to_wide(masked->right->u.lval) & all, 0};
    if (is_equality) test.value = to_wide(tree->right->u.lval) & all;
    // Whether the tree holds for an x that differs from the value.
    const bool differs = !is_equality || tree->op == NEQ;
    if (differs == opposite) return true;
    if ((test.mask & (test.mask - 1)) != 0) return false;
    test.value = test.mask & ~test.value; // of one bit, the other value is the opposite
    return true;
}

// x & 4 && x & 8 is (x & 12) == 12; x & 4 || x & 8 is (x & 12) != 0. Null where the tests stay two.
NODE* merge_bit_tests(NODE* node, ::LOOP* loop) {
    const bool is_or = node->op == OROR;
    BIT_TEST a, b;
    if (!read_bit_test(node->left, is_or, a) || !read_bit_test(node->right, is_or, b)) return nullptr;
    if (!same_representation(a.masked->type, b.masked->type) ||
        !trees_are_congruent(a.masked->left, b.masked->left))
        return nullptr;
    if (((a.value ^ b.value) & a.mask & b.mask) != 0) return keep_number(node, is_or);
    TYPE *type = node->type, *bits_type = value_type(a.masked);
    NODE* test = node->left;
    if (test != a.masked) erase_node(test->right);
    if (test != a.masked) erase_node(test);
    erase_tree(node->right);
    erase_node(node);
    a.masked->right->u.lval = to_int65(numbers_of(bits_type).wrap(a.mask | b.mask));
    NODE* bits = simp_node(a.masked, loop);
    return build(is_or ? NEQ : EQ, bits, mk_number(a.value | b.value, bits_type), type, loop);
}

// (a == 0) && (b == 0) is (a || b) == 0, and the other way round. Null for other tests.
NODE* raise_negations(NODE* node, ::LOOP* loop) {
    const auto tests_for_zero = [](const NODE* test) {
        return test->op == EQ && is_zero_ICON(test->right) && is_int_or_ptr(test->left->type);
    };
    if (!tests_for_zero(node->left) || !tests_for_zero(node->right)) return nullptr;
    TYPE* type = node->type;
    node->op = node->op == ANDAND ? OROR : ANDAND;
    node->left = take_left(node->left);
    node->right = take_left(node->right);
    NODE* either = simp_node(node, loop);
    return build(EQ, either, mk_number(0, value_type(either)), type, loop);
}

NODE* simp_logical(NODE* node, ::LOOP* loop) {
    const bool is_and = node->op == ANDAND;
    TYPE* type = node->type;
    node->left = simp_for_control(node->left, loop);
    node->right = simp_for_control(node->right, loop);
    NODE *left = node->left, *right = node->right;
    if (left->op == COMMAOP) return simp_node(node, loop);
    if (!can_be_tested(left) || !can_be_tested(right)) return node;
    if (left->op == ICON) {
        const bool decides = left->u.lval.is_zero() == is_and;
        return decides ? keep_number(node, !is_and) : keep_one(node, false, loop);
    }
    if (right->op == ICON) {
        if (right->u.lval.is_zero() != is_and) return keep_one(node, true, loop);
        return known_value(take_left(node), INT65::from_signed(is_and ? 0 : 1), type, loop);
    }
    if (bools_are_congruent(left, right)) return keep_one(node, true, loop);
    // (a && b) && b
    if (left->op == node->op && bools_are_congruent(left->right, right)) return keep_one(node, true, loop);
    if (are_opposite(left, right)) return keep_number(node, !is_and);
    if (NODE* merged = merge_value_tests(node, loop); merged != nullptr) return merged;
    if (NODE* merged = merge_bit_tests(node, loop); merged != nullptr) return merged;
    if (NODE* raised = raise_negations(node, loop); raised != nullptr) return raised;
    return simp_ANDOR_ANDOR(node, loop);
}

} // namespace

NODE* simp_ANDAND(NODE* node, ::LOOP* loop) { return simp_logical(node, loop); }

NODE* simp_OROR(NODE* node, ::LOOP* loop) { return simp_logical(node, loop); }
