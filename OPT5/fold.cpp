#include "fold.h"

#include "bbutils.h"
#include "congruent.h"
#include "copy.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "fpsmath.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "pool.h"
#include "simp.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

// The constant moves to the right where the operator has a form with swapped operands.
bool commute(NODE* node) {
    if (commute_inv[node->op] == ILLOP) return false;
    node->op = commute_inv[node->op];
    std::swap(node->left, node->right);
    return true;
}

// The operand's value in the type in which the operation computes.
INT65 operand_value(const NODE* operand, TYPE* type) {
    return truncate_to_type(truncate_to_type(operand->u.lval, operand->type), type);
}

INT65 truth(bool value) { return INT65::from_signed(value ? 1 : 0); }

// Square and multiply, wrapped to 64 bits. False for a negative exponent of a base other than one.
bool power(const INT65& base, const INT65& exponent, INT65* result) {
    if (exponent.is_negative()) {
        *result = base;
        return base == INT65::from_signed(1);
    }
    *result = INT65::from_signed(1);
    INT65 square = base;
    for (std::uint64_t bits = exponent.bits(); bits != 0; bits >>= 1) {
        if ((bits & 1) != 0) *result = *result * square;
        square = square * square;
    }
    return true;
}

// Computes `l op r`, operands in `type`. False where the operation has to stay.
bool compute(int op, TYPE* type, const INT65& l, const INT65& r, INT65* result) {
    switch (op) {
        case PLUS: *result = l + r; return true;
        case MINUS: *result = l - r; return true;
        case MULT: *result = l * r; return true;
        case ANDB: *result = l & r; return true;
        case ORB: *result = l | r; return true;
        case XORB: *result = l ^ r; return true;
        case NOTB: *result = ~l; return true;
        case ABS:
            if (!l.is_negative()) {
                *result = l;
                return true;
            }
            [[fallthrough]];
        case UMINUS:
            if (type->is_signed() && l == int_type_min(type)) return false;
            *result = -l;
            return true;
        case DIV:
            if (r.is_zero()) return false;
            *result = l / r;
            return true;
        case MOD:
            if (r.is_zero()) return false;
            *result = l % r;
            return true;
        case SLL:
        case SRL:
            // A count outside the type is the program's fault, to be found where it runs.
            if (r.is_negative() || r >= INT65::from_signed(type_width(type))) return false;
            *result = op == SLL           ? l << static_cast<int>(r.low)
                      : type->is_signed() ? l >> static_cast<int>(r.low)
                                          : (l & type_mask(type)) >> static_cast<int>(r.low);
            return true;
        case EXCLAIM: *result = truth(l.is_zero()); return true;
        case ANDAND: *result = truth(!l.is_zero() && !r.is_zero()); return true;
        case OROR: *result = truth(!l.is_zero() || !r.is_zero()); return true;
        case EQ: *result = truth(l == r); return true;
        case NEQ: *result = truth(l != r); return true;
        case LT: *result = truth(l < r); return true;
        case LE: *result = truth(l <= r); return true;
        case GT: *result = truth(l > r); return true;
        case GE: *result = truth(l >= r); return true;
        case ULT: *result = truth(l.bits() < r.bits()); return true;
        case ULE: *result = truth(l.bits() <= r.bits()); return true;
        case UGT: *result = truth(l.bits() > r.bits()); return true;
        case UGE: *result = truth(l.bits() >= r.bits()); return true;
        case EXPT: return power(l, r, result);
        default: return false;
    }
}

// One node whose left operand is an ICON.
NODE* integer_step(NODE* node) {
    if (node->left == nullptr || !is_int_or_ptr(node->type)) return node;
    NODE* left = node->left;
    NODE* right = node->right;
    if (right != nullptr && right->op != ICON) {
        commute(node);
        return node;
    }
    if (!node->type->is_integral() || !is_int_or_ptr(left->type)) return node;
    // Comparisons and logical operators compute in their operands' type, the others in their own.
    TYPE* type = boolean_result[node->op] != 0 ? left->type : node->type;
    const INT65 l = operand_value(left, type);
    INT65 r{};
    if (right != nullptr) {
        const bool own_type =
            node->op == SLL || node->op == SRL || node->op == EXPT || node->op == ANDAND || node->op == OROR;
        r = operand_value(right, own_type ? right->type : type);
    }
    INT65 result;
    if (!compute(node->op, type, l, r, &result)) return node;
    left->u.lval = node->op == EXPT ? result : truncate_to_type(result, node->type);
    left->type = left->otype = node->type;
    if (right != nullptr) erase_node(right);
    erase_node(node);
    return left;
}

// Two constants that one operator gives a chance to meet: (x op k1) op k2.
bool constants_meet(const NODE* node) {
    const NODE *left = node->left, *right = node->right;
    return right != nullptr && right->op == ICON && left != nullptr && left->op == node->op &&
           number_of_operands[node->op] == 2 && left->right != nullptr && left->right->op == ICON;
}

bool is_nan(const NODE* constant) {
    const simul_fval* value = constant->fval();
    return value->exp == 32767 && value->mant[0] != 0;
}

// The comparison without its "or unordered".
int ordered_form(int op) {
    switch (op) {
        case FEQN: return FEQ;
        case FNEQN: return FNEQ;
        case FLEN: return FLE;
        case FLTN: return FLT;
        case FGEN: return FGE;
        case FGTN: return FGT;
        default: return op;
    }
}

// False where the comparison raises a flag.
bool compare(int op, const NODE* left, const NODE* right, bool* result) {
    const bool unordered = is_nan(left) || is_nan(right);
    if (op == FORD || op == FUNO) {
        *result = unordered == (op == FUNO);
        return true;
    }
    const int plain = ordered_form(op);
    if (plain != op && unordered) {
        *result = true;
        return true;
    }
    if (unordered) return false;
    const simul_fval *l = left->fval(), *r = right->fval();
    fp_error = 0;
    switch (plain) {
        case FEQ: *result = f_eq(l, r) != 0; break;
        case FNEQ: *result = f_ne(l, r) != 0; break;
        case FLE: *result = f_le(l, r) != 0; break;
        case FLT: *result = f_lt(l, r) != 0; break;
        case FGE: *result = f_ge(l, r) != 0; break;
        default: *result = f_gt(l, r) != 0; break;
    }
    return fp_error == 0;
}

bool is_floating_operator(int op) {
    switch (op) {
        case PLUS:
        case MINUS:
        case UMINUS:
        case MULT:
        case DIV:
        case ABS:
        case SQRT:
        case SQR:
        case RECIP: return true;
        default: return op >= FEQ && op <= FUNO;
    }
}

// False where a flag was raised, or where the reciprocal loses precision.
bool compute(int op, TYPE* type, const simul_fval* l, const simul_fval* r, simul_fval* result) {
    fp_error = 0;
    switch (op) {
        case PLUS: f_add(l, r, result); break;
        case MINUS: f_sub(l, r, result); break;
        case UMINUS: f_neg(l, result); break;
        case MULT: f_mul(l, r, result); break;
        case ABS: f_abs(l, result); break;
        case DIV: f_div(l, r, result); break;
        case SQRT: f_sqrt(l, result); break;
        case SQR: f_mul(l, l, result); break;
        case RECIP: {
            simul_fval back;
            f_div(&one, l, result);
            truncate_fval_to_target(result, type);
            f_div(&one, result, &back);
            truncate_fval_to_target(&back, type);
            if (fp_error != 0 || f_ne(&back, l) != 0) return false;
            break;
        }
        default: return false;
    }
    if (fp_error != 0) return false;
    truncate_fval_to_target(result, type);
    return fp_error == 0;
}

NODE* floating_step(NODE* node) {
    if (node->left == nullptr || !is_floating_operator(node->op)) return node;
    if (node->type->is_fltpt()) {
        for (NODE** place : {&node->left, &node->right}) {
            NODE* operand = *place;
            if (operand == nullptr || operand->type->true_type() == node->type->true_type()) continue;
            if (operand->op == FCON || operand->op == ICON) convert_constant(operand, node->type);
        }
    }
    NODE* left = node->left;
    NODE* right = node->right;
    if (right != nullptr && right->op != FCON && left->op == FCON) {
        commute(node);
        left = node->left;
        right = node->right;
    }
    if (node->op == MULT && left->op == RECIP && left->left->op == FCON && right != nullptr &&
        left->type->size() == node->type->size()) {
        node->op = DIV;
        node->right = left->left;
        node->left = right;
        erase_node(left);
        left = node->left;
        right = node->right;
    }
    if (left->op != FCON || (right != nullptr && right->op != FCON)) return node;
    if (right != nullptr && left->type->size() != right->type->size()) return node;
    if (node->type->is_fltpt()) {
        simul_fval result;
        if (!compute(node->op, node->type, left->fval(), right != nullptr ? right->fval() : &pos_zero,
                     &result))
            return node;
        *left->fval() = result;
        left->text = nullptr;
        left->type = left->otype = node->type;
    } else {
        bool result;
        if (right == nullptr || !compare(node->op, left, right, &result)) return node;
        left->op = ICON;
        left->u.lval = truth(result);
        left->text = nullptr;
        left->type = left->otype = tp->int_type(IK_INT);
    }
    if (right != nullptr) erase_node(right);
    erase_node(node);
    return left;
}

} // namespace

bool is_identity(const NODE* node) {
    const NODE* right = node->right;
    if (right == nullptr || right->op != ICON) return false;
    switch (node->op) {
        case PLUS:
        case MINUS:
        case ORB:
        case XORB:
        case SRL: return right->u.lval.is_zero();
        case MULT:
        case DIV: return right->u.lval == INT65::from_signed(1);
        default: return false;
    }
}

NODE* drop_identity(NODE* node, ::LOOP* loop) {
    erase_node(node->right);
    node->right = nullptr;
    node->op = node->type->is_ptr() ? PCONV : SCONV;
    return simp_node(node, loop);
}

NODE* fold_node(NODE* node) {
    if (node->left == nullptr) return node;
    if (node->type->is_fltpt() || node->left->op == FCON || (node->op >= FEQ && node->op <= FUNO))
        return floating_step(node);
    if (node->left->op == ICON) {
        node = integer_step(node);
        if (node->left == nullptr) return node;
    }
    if (is_identity(node)) return drop_identity(node, nullptr);
    return constants_meet(node) ? simp_node(node, nullptr) : node;
}

NODE* fold_constants(NODE* tree) {
    if (tree->left == nullptr) return tree;
    return rewrite_tree(tree, [](NODE* node) { return fold_node(node); });
}

namespace {

// The address of a place needs the place's base only; null where the base has a fixed address.
NODE* base_of_place(NODE* place) {
    while (place->op == STDOT) {
        NODE* inner = place->left;
        erase_tree(place->right);
        erase_node(place);
        place = inner;
    }
    if (place->op == NAME) {
        erase_node(place);
        return nullptr;
    }
    if (place->op != UMULT && place->op != STREF) return place;
    NODE* pointer = place->left;
    if (place->right != nullptr) erase_tree(place->right);
    erase_node(place);
    return pointer;
}

bool call_is_free(NODE* node) {
    if (node->op != CALL && node->op != UCALL) return false;
    if (!fileinfo.is_built) return false; // until then a record promises more than its body keeps
    const FUNINFO* callee = find_FUNINFO_for_call(node);
    return callee != nullptr && TEST_FLAG(callee, FUN_is_pure_fun) && !TEST_FLAG(callee, FUN_never_returns);
}

// Collects the effects of a tree in the order in which they happen.
class PEELER {
  public:
    NODE* run(NODE* tree) {
        pending_.push(tree);
        while (!pending_.empty())
            if (NODE* node = pending_.pop(); node != nullptr) peel(node);
        return effects_;
    }

  private:
    void keep(NODE* effect) {
        effects_ =
            effects_ == nullptr ? effect : maketree(COMMAOP, effects_, effect, tp->void_type(), nullptr);
    }

    // Operands stay to be peeled, left first.
    void drop(NODE* node) {
        if (node->right != nullptr) pending_.push(node->right);
        if (node->left != nullptr) pending_.push(node->left);
        erase_node(node);
    }
    void drop_right(NODE* node) {
        erase_tree(node->right);
        node->right = nullptr;
        drop(node);
    }

    void peel(NODE* node) {
        switch (node->op) {
            case PLUSPLUS:
            case MINMIN:
                node->op = node->op == PLUSPLUS ? PLUSASG : MINUSASG;
                node = simp_node(node, nullptr);
                if (opcode_is_ASG(node->op)) {
                    keep(node);
                } else {
                    pending_.push(node); // a step by nothing
                }
                return;
            case ASG:
                if (!tree_is_arg_prolog(node) && trees_are_congruent(node->left, node->right)) {
                    drop(node);
                } else {
                    keep(node);
                }
                return;
            case CALL:
                if (!call_is_free(node)) return keep(node);
                erase_tree(node->left);
                node->left = node->right;
                node->right = nullptr;
                return drop(node);
            case UCALL:
                if (!call_is_free(node)) return keep(node);
                erase_tree(node);
                return;
            case COMMAOP:
            case COMMA: return drop(node);
            case ANDAND:
            case OROR:
                if (tree_has_side_effects(node->right)) return keep(node);
                return drop_right(node);
            case QUEST: return peel_conditional(node);
            case UMULT:
            case NAME:
            case STDOT:
            case STREF:
                if (node_is_volatile_access(node)) return keep(node);
                if (node->op == STDOT || node->op == STREF) {
                    if (node_is_volatile_access(node->right)) return keep(node);
                    return drop_right(node);
                }
                return drop(node);
            case UAND: {
                NODE* base = base_of_place(node->left);
                erase_node(node);
                if (base != nullptr) pending_.push(base);
                return;
            }
            case SSA_MU:
            case UICALL: return node->op == UICALL ? drop(node) : keep(node);
            default:
                if (side_effects[node->op] != SE_NONE) return keep(node);
                return drop(node);
        }
    }

    void peel_conditional(NODE* node) {
        NODE* arms = node->right;
        const bool left = tree_has_side_effects(arms->left), right = tree_has_side_effects(arms->right);
        if (!left && !right) return drop_right(node);
        NODE*& idle = left ? arms->right : arms->left;
        if (left == right || !node->type->is_scalar() || idle->op == ICON || idle->op == FCON)
            return keep(node);
        // What the idle arm gives does not matter: zero is what rules look for.
        TYPE* type = idle->type;
        erase_tree(idle);
        idle = coerce_to_type(mk_ICON(INT65::from_signed(0), tp->int_type(IK_INT)), type);
        pending_.push(simp_node(node, nullptr));
    }

    NODE_STACK pending_;
    NODE* effects_ = nullptr;
};

} // namespace

NODE* peel_for_effect(NODE* tree) { return tree == nullptr ? nullptr : PEELER().run(tree); }
