// Small conditional assignments as expressions.
//
//   if (c) x = a; else x = b;          x = c ? a : b
//   if (c) x = a;                      x = c ? a : x
//   if (x & 2^a) y |= 2^b;             y |= (x & 2^a) << (b - a), or >> (a - b); likewise for ^=
//
// Where only one arm assigns, the expression stores in any case, so the place must be one that nobody else
// can be looking at: a local variable or a part of one. In all forms the values must be safe to compute
// without the condition: what follows may evaluate both.

#include <cstdlib>

#include "bblk.h"
#include "bbutils.h"
#include "congruent.h"
#include "copy.h"
#include "erase.h"
#include "fold.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "simp.h"
#include "simpcfg_rules.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

// An IF with arms that hold one statement each; in a triangle one of them is null.
struct SHAPE {
    NODE* if_true = nullptr;
    NODE* if_false = nullptr;
    NODE* jump = nullptr; // the BRANCH of an arm
    LIST* cell = nullptr; // the cell of an arm's statement
};

// The only statement ahead of the arm's BRANCH to `join` (null: to any block); null for another block.
NODE* statement_of_arm(const BBLK* fork, const BBLK* arm, const BBLK* join, SHAPE& shape) {
    if (reference_count(arm) != 1 || arm->is_kept || arm->loop != fork->loop || arm == fork) return nullptr;
    LIST* cell = arm->statements;
    if (cell->next == nullptr || cell->next->first->op != BRANCH) return nullptr;
    NODE* jump = cell->next->first;
    if (join != nullptr && target_of(jump) != join) return nullptr;
    shape.jump = jump;
    shape.cell = cell;
    return cell->first;
}

bool read_shape(const BBLK* bb, const NODE* transfer, SHAPE& shape) {
    const BBLK* if_true = transfer->right->left->label->bb;
    const BBLK* if_false = transfer->right->right->label->bb;
    if (if_true == if_false) return false;
    shape.if_true = statement_of_arm(bb, if_true, if_false, shape);
    if (shape.if_true != nullptr) return true;
    shape.if_false = statement_of_arm(bb, if_false, if_true, shape);
    if (shape.if_false != nullptr) return true;
    shape.if_true = statement_of_arm(bb, if_true, nullptr, shape);
    if (shape.if_true == nullptr) return false;
    shape.if_false = statement_of_arm(bb, if_false, target_of(shape.jump), shape);
    return shape.if_false != nullptr;
}

// Whether a store of the value that the place has already can't be seen: a local variable, or a part of one
// at a fixed place.
bool may_be_stored_unasked(NODE* place) {
    NODE* name = place;
    while (name->op == STDOT) name = name->left;
    if (name->op != NAME || !lvalue_is_inherently_strict(place)) return false;
    const SYMTAB* symbol = name->symbol();
    return symbol->level > 0 && symbol->sclass != SC_STATIC && !tree_has_side_effects(place);
}

bool assigns_scalar(const NODE* statement) {
    return statement->op == ASG && statement->left->type->is_scalar() && statement->right->type->is_scalar();
}

// Values that one conditional can yield.
bool types_fit(const NODE* a, const NODE* b) { return same_representation(a->type, b->type); }

// A condition with effects orders them ahead of the arms: it stays a statement.
bool condition_fits(NODE* condition) {
    return !any_node(condition, [](const NODE* node) { return side_effects[node->op] != SE_NONE; });
}

// --- The bit-flip form.

// k for a constant with only bit k set in its type's width, else -1.
int bit_of(const NODE* constant) {
    if (constant->op != ICON || !constant->type->is_integral()) return -1;
    return power_of_2(constant->u.lval & type_mask(constant->type));
}

struct BIT_FLIP {
    int tested, flipped;
};

bool is_sign(int bit, TYPE* type) { return !type->is_unsigned() && bit == type_width(type) - 1; }

bool read_bit_flip(const NODE* transfer, const SHAPE& shape, BIT_FLIP& flip) {
    const NODE* statement = shape.if_true;
    const NODE* test = transfer->left;
    if (statement == nullptr || shape.if_false != nullptr) return false;
    if (statement->op != ORBASG && statement->op != XORBASG) return false;
    if (test->op != ANDB || !test->type->is_integral() || tree_has_side_effects(test->left)) return false;
    flip = {bit_of(test->right), bit_of(statement->right)};
    // A sign bit would drag others along, or be what the shift must not reach.
    return flip.tested >= 0 && flip.flipped >= 0 && !is_sign(flip.tested, test->type) &&
           !is_sign(flip.flipped, statement->right->type) && may_be_stored_unasked(statement->left);
}

// The tested bit, which `test` isolates, moved to the place of the flipped one, in the type.
NODE* moved_bit(NODE* test, const BIT_FLIP& flip, TYPE* type, ::LOOP* loop) {
    const int distance = flip.flipped - flip.tested;
    const bool widens = type_width(type) > type_width(test->type);
    if (widens) test = simp_node(coerce_to_type(test, type), loop);
    if (distance != 0) {
        NODE* count = mk_ICON(INT65::from_signed(std::abs(distance)), promoted_type(type));
        test = simp_node(maketree(distance > 0 ? SLL : SRL, test, count, test->type, nullptr), loop);
    }
    return simp_node(coerce_to_type(test, type), loop);
}

// --- Both.

bool values_fit(NODE* condition, const SHAPE& shape) {
    NODE *a = shape.if_true, *b = shape.if_false;
    for (NODE* statement : {a, b}) {
        if (statement == nullptr) continue;
        if (!assigns_scalar(statement) || tree_has_DDNODE_subtrees(statement)) return false;
        if (rhs_may_need_guard_in_lhs(statement->right, condition)) return false;
    }
    if (a == nullptr || b == nullptr) {
        const NODE* only = a != nullptr ? a : b;
        return may_be_stored_unasked(only->left) && types_fit(only->left, only->right);
    }
    return types_fit(a->right, b->right) && trees_are_congruent(a->left, b->left, 1);
}

double probability(const NODE* arms) {
    if (arms->left->freq >= 0) return arms->left->freq;
    return arms->right->freq >= 0 ? 1.0 - arms->right->freq : UNKNOWN_FREQ;
}

NODE* as_conditional(NODE* condition, const NODE* arms, const SHAPE& shape, ::LOOP* loop) {
    NODE* assignment = shape.if_true != nullptr ? shape.if_true : shape.if_false;
    NODE* place = copy_tree(assignment->left, false);
    const auto value = [place](const NODE* statement) {
        return copy_tree(statement != nullptr ? statement->right : place, false);
    };
    NODE* a = value(shape.if_true);
    NODE* b = value(shape.if_false);
    TYPE* type = assignment->right->type;
    NODE* colon = maketree(COLON, a, b, type, nullptr);
    NODE* quest = maketree(QUEST, condition, colon, type, nullptr);
    // The probability of the first arm, and of the second.
    quest->freq = probability(arms);
    if (quest->freq >= 0) colon->freq = 1.0 - quest->freq;
    NODE* result = maketree(ASG, place, simp_node(quest, loop), assignment->type, assignment->ls);
    return simp_node(result, loop);
}

NODE* as_bit_flip(NODE* test, const BIT_FLIP& flip, const SHAPE& shape, ::LOOP* loop) {
    NODE* statement = copy_tree(shape.if_true, false);
    TYPE* type = statement->right->type;
    erase_tree(statement->right);
    statement->right = moved_bit(test, flip, type, loop);
    return simp_node(statement, loop);
}

} // namespace

bool if_is_convertible(const BBLK* bb, const LIST* last) {
    const NODE* transfer = last->first;
    SHAPE shape;
    BIT_FLIP flip;
    if (!read_shape(bb, transfer, shape) || !condition_fits(transfer->left)) return false;
    return read_bit_flip(transfer, shape, flip) || values_fit(transfer->left, shape);
}

LIST* convert_if(BBLK* bb, LIST* last) {
    NODE* transfer = last->first;
    SHAPE shape;
    BIT_FLIP flip;
    if (!read_shape(bb, transfer, shape) || !condition_fits(transfer->left)) return nullptr;
    const bool flips = read_bit_flip(transfer, shape, flip);
    if (!flips && !values_fit(transfer->left, shape)) return nullptr;
    NODE* condition = transfer->left;
    NODE* statement = flips ? as_bit_flip(condition, flip, shape, bb->loop)
                            : as_conditional(condition, transfer->right, shape, bb->loop);
    NODE* jump = copy_tree(shape.jump, false);
    jump->left->freq = UNKNOWN_FREQ;
    last->psn = shape.cell->psn;
    erase_tree(transfer->right);
    erase_node(transfer);
    return replace_transfer(last, statement, jump);
}
