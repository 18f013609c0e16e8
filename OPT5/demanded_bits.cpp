// Rewriting a tree of whose value only some bits are looked at.
//
// The walk carries the mask of demanded bits from the root down and rewrites on the way back up:
//
//   turn                    into             where
//   x & k                   x                every demanded bit that x may have is in k
//   x | k, x ^ k            x                k has no demanded bit
//   x + k, x - k            x                k has no bit at or below the highest demanded one
//   x & k, x * k, x << k    0                no demanded bit can be one
//   x | k                   k                k has all demanded bits
//   (T)(S)x                 (T)x             S has all demanded bits
//   k                       k & demanded     the number comes closer to zero, and does not become negative
//
// The last rule leaves a negative constant such as -1 alone unless the reduced one is simpler: x + -1 does
// not become x + 255 under a mask of 8 bits. Since a constant only ever comes closer to zero, and every other
// rule takes an operator away, the rewriting ends. A reduced constant stays reduced under the same mask.
//
// What an operator demands of its operands: bitwise operators the same bits (less those that a constant
// decides), sums and products all bits up to the highest demanded one, shifts by a constant the bits moved
// back, conversions those that the operand has, and its sign where copies of it are demanded.
//
// Values that are stored, compared, divided or passed on are left alone: there all bits count.

#include "known_bits.h"

#include <bit>

#include "bbutils.h"
#include "erase.h"
#include "fold.h"
#include "node.h"
#include "opcodes.h"
#include "optypes.h"
#include "simp.h"
#include "types.h"
#include "value_facts.h"

using namespace op;

namespace {

using BITS = std::uint64_t;

constexpr int MAX_DEPTH = 64;       // nested operators, also bounds the recursion
constexpr int MAX_NODES = 256;      // one walk
constexpr int MAX_WALKS = 8;        // of one call; the last one as a rule changes nothing
constexpr int MAX_NESTED_CALLS = 4; // simp_node on a rewritten node may ask for a mask to be pushed again

int nested_calls = 0;

class NESTING {
  public:
    NESTING() { nested_calls++; }
    ~NESTING() { nested_calls--; }
    NESTING(const NESTING&) = delete;
    NESTING& operator=(const NESTING&) = delete;
};

// The shape of the tree's value where its bits are plain ones: integral, and no conversion to a truth value.
INT_SHAPE plain_shape(const NODE* tree) {
    if (tree == nullptr || tree->type == nullptr || !tree->type->is_integral()) return {};
    return shape_of(tree->type);
}

BITS value_bits(const NODE* constant) { return constant->u.lval.bits() & shape_of(constant->type).mask(); }

class PUSH {
  public:
    NODE* push(NODE* tree, BITS demanded);
    bool changed() const { return changes_ != 0; }

  private:
    NODE* push_operator(NODE* tree, BITS demanded, const INT_SHAPE& shape);
    NODE* push_ANDB(NODE* tree, BITS demanded, const INT_SHAPE& shape);
    NODE* push_bitwise(NODE* tree, BITS demanded, const INT_SHAPE& shape);
    NODE* push_arithmetic(NODE* tree, BITS demanded, const INT_SHAPE& shape);
    NODE* push_shift(NODE* tree, BITS demanded, const INT_SHAPE& shape);
    NODE* push_SCONV(NODE* tree, BITS demanded, const INT_SHAPE& shape);
    // The operand, if it has the width in which the operator computes.
    void push_into(NODE*& operand, BITS demanded, const INT_SHAPE& shape);
    void reduce(NODE* constant, BITS demanded, const INT_SHAPE& shape);
    NODE* keep_left(NODE* tree);
    NODE* constant_for(NODE* tree, BITS value);

    int depth_ = 0;
    int budget_ = MAX_NODES;
    int changes_ = 0;
};

bool is_constant(const NODE* tree) { return tree->op == ICON; }

// Reduces the constant to its demanded bits where that brings it closer to zero.
void PUSH::reduce(NODE* constant, BITS demanded, const INT_SHAPE& shape) {
    const BITS bits = value_bits(constant);
    const WIDE now = shape.number(bits), reduced = shape.number(bits & demanded);
    if (reduced < 0 || reduced >= (now < 0 ? -now : now)) return;
    constant->u.lval = to_int65(reduced);
    changes_++;
}

// The left operand in place of the operator, whose right operand goes.
NODE* PUSH::keep_left(NODE* tree) {
    NODE* left = tree->left;
    TYPE* type = tree->type;
    erase_tree(tree->right);
    erase_node(tree);
    changes_++;
    NODE* result = coerce_to_type(left, type);
    return result == left ? left : simp_node(result, nullptr);
}

// The constant in place of the tree, behind its side effects.
NODE* PUSH::constant_for(NODE* tree, BITS value) {
    NODE* constant = mk_ICON(INT65::from_unsigned(value), tree->type);
    changes_++;
    if (!tree_has_side_effects(tree)) {
        constant->ls = tree->ls;
        erase_tree(tree);
        return constant;
    }
    // Without their values the effects may have a simpler form: an arm of a condition has become empty.
    NODE* effects = peel_for_effect(tree);
    if (effects == nullptr) return constant;
    return simp_node(mk_COMMAOP(simp_tree(effects, nullptr), constant), nullptr);
}

void PUSH::push_into(NODE*& operand, BITS demanded, const INT_SHAPE& shape) {
    if (plain_shape(operand).width == shape.width) operand = push(operand, demanded);
}

NODE* PUSH::push(NODE* tree, BITS demanded) {
    const INT_SHAPE shape = plain_shape(tree);
    if (shape.width == 0 || depth_ >= MAX_DEPTH || budget_ == 0) return tree;
    budget_--;
    demanded &= shape.mask();
    if (is_constant(tree)) {
        reduce(tree, demanded, shape);
        return tree;
    }
    if (demanded == 0 && tree->op != COMMAOP) return constant_for(tree, 0);
    const int before = changes_;
    depth_++;
    NODE* result = push_operator(tree, demanded, shape);
    depth_--;
    // Whatever else than the node itself came back has been simplified already.
    return result == tree && changes_ != before ? simp_node(result, nullptr) : result;
}

NODE* PUSH::push_operator(NODE* tree, BITS demanded, const INT_SHAPE& shape) {
    switch (tree->op) {
        case ANDB: return push_ANDB(tree, demanded, shape);
        case ORB:
        case XORB: return push_bitwise(tree, demanded, shape);
        case NOTB: push_into(tree->left, demanded, shape); return tree;
        case PLUS:
        case MINUS:
        case MULT:
        case UMINUS: return push_arithmetic(tree, smear_down(demanded), shape);
        case SLL:
        case SRL: return push_shift(tree, demanded, shape);
        case SCONV: return push_SCONV(tree, demanded, shape);
        case COMMAOP: push_into(tree->right, demanded, shape); return tree;
        case QUEST:
            if (tree->right == nullptr || tree->right->op != COLON) return tree;
            push_into(tree->right->left, demanded, shape);
            push_into(tree->right->right, demanded, shape);
            return tree;
        default: return tree;
    }
}

NODE* PUSH::push_ANDB(NODE* tree, BITS demanded, const INT_SHAPE& shape) {
    if (!is_constant(tree->right)) {
        push_into(tree->left, demanded, shape);
        push_into(tree->right, demanded, shape);
        return tree;
    }
    const BITS k = value_bits(tree->right);
    if ((demanded & k) == 0) return constant_for(tree, 0);
    push_into(tree->left, demanded & k, shape);
    if (plain_shape(tree->left).width == shape.width &&
        (demanded & ~k & find_known_zeros(tree->left, tree->type).bits()) == 0)
        return keep_left(tree);
    reduce(tree->right, demanded, shape);
    return tree;
}

NODE* PUSH::push_bitwise(NODE* tree, BITS demanded, const INT_SHAPE& shape) {
    if (!is_constant(tree->right)) {
        push_into(tree->left, demanded, shape);
        push_into(tree->right, demanded, shape);
        return tree;
    }
    const BITS k = value_bits(tree->right) & demanded;
    if (tree->op == ORB && k == demanded) {
        reduce(tree->right, demanded, shape);
        return constant_for(tree, value_bits(tree->right));
    }
    push_into(tree->left, tree->op == ORB ? demanded & ~k : demanded, shape);
    if (k == 0) return keep_left(tree);
    reduce(tree->right, demanded, shape);
    return tree;
}

// `demanded` has no gaps: the bits from the highest demanded one down.
NODE* PUSH::push_arithmetic(NODE* tree, BITS demanded, const INT_SHAPE& shape) {
    if (tree->op == UMINUS || !is_constant(tree->right)) {
        push_into(tree->left, demanded, shape);
        if (tree->op != UMINUS) push_into(tree->right, demanded, shape);
        return tree;
    }
    const BITS k = value_bits(tree->right) & demanded;
    if (tree->op == MULT) {
        if (k == 0) return constant_for(tree, 0);
        push_into(tree->left, demanded >> std::countr_zero(k), shape);
    } else {
        push_into(tree->left, demanded, shape);
        if (k == 0) return keep_left(tree);
    }
    reduce(tree->right, demanded, shape);
    return tree;
}

NODE* PUSH::push_shift(NODE* tree, BITS demanded, const INT_SHAPE& shape) {
    const bool left = tree->op == SLL;
    BITS of_operand;
    if (is_constant(tree->right)) {
        const INT65 count = tree->right->u.lval;
        if (count.is_negative() || count >= INT65::from_unsigned(shape.width)) return tree;
        const int k = static_cast<int>(count.low);
        of_operand = left ? demanded >> k : demanded << k & shape.mask();
        // The sign fills the top bits; an unsigned value leaves zeros there.
        if (!left && (demanded & ~(shape.mask() >> k)) != 0) of_operand |= shape.sign_bit();
        if (of_operand == 0) return constant_for(tree, 0);
    } else {
        // Bits move up from anywhere below, or down from anywhere above.
        const BITS below_lowest = (demanded & (0 - demanded)) - 1;
        of_operand = left ? smear_down(demanded) : shape.mask() & ~below_lowest;
    }
    push_into(tree->left, of_operand, shape);
    return tree;
}

NODE* PUSH::push_SCONV(NODE* tree, BITS demanded, const INT_SHAPE& shape) {
    const INT_SHAPE from = plain_shape(tree->left);
    if (shape.is_truth || from.width == 0) return tree;
    BITS of_operand = demanded & from.mask();
    if ((demanded & ~from.mask()) != 0) of_operand |= from.sign_bit();
    tree->left = push(tree->left, of_operand);
    // (T)(S)x: S holds all demanded bits, whether it cuts x or extends it.
    NODE* inner = tree->left;
    const INT_SHAPE by = plain_shape(inner);
    if (inner->op == SCONV && !by.is_truth && by.width != 0 && (demanded & ~by.mask()) == 0 &&
        plain_shape(inner->left).width != 0) {
        tree->left = inner->left;
        erase_node(inner);
        changes_++;
    }
    return tree;
}

} // namespace

NODE* prop_mask_into_subtree(NODE* tree, const INT65& mask, bool* changed) {
    if (changed != nullptr) *changed = false;
    if (nested_calls >= MAX_NESTED_CALLS) return tree;
    const NESTING nesting;
    // A node that simp_node has rewritten may offer more: again until nothing changes.
    for (int walk = 0; walk < MAX_WALKS; walk++) {
        PUSH push;
        tree = push.push(tree, mask.bits());
        if (!push.changed()) break;
        if (changed != nullptr) *changed = true;
    }
    return tree;
}
