#include "simp.h"

#include <cstdio>
#include <string>

#include "bblk.h"
#include "bbutils.h"
#include "congruent.h"
#include "copy.h"
#include "debug.h"
#include "dump.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "fold.h"
#include "known_bits.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "optypes.h"
#include "simp_rules.h"
#include "types.h"

using namespace op;

namespace {

// --- What is known of side effects.
//
// Each simplification that is called from outside has two stamps of its own: nodes without and with side
// effects bear one or the other. A stamp of another simplification says nothing, so what passes do to a
// tree in between cannot make an answer wrong.
std::uint32_t pure_stamp, impure_stamp;
int depth; // nested calls of the simplifier

class ENTRY {
  public:
    ENTRY() {
        if (depth++ != 0) return;
        pure_stamp = fresh_stamp();
        impure_stamp = fresh_stamp();
    }
    ~ENTRY() { depth--; }
};

bool own_effects(const NODE* node) {
    return (side_effects[node->op] != SE_NONE && node->op != COMMAOP && node->op != PCOMMA) ||
           node_is_volatile_access(node);
}

void stamp(NODE* node) {
    if (own_effects(node)) {
        node->stamp = impure_stamp;
        return;
    }
    bool known = true;
    for (const NODE* operand : {node->left, node->right}) {
        if (operand == nullptr) continue;
        if (operand->stamp == impure_stamp) {
            node->stamp = impure_stamp;
            return;
        }
        known = known && operand->stamp == pure_stamp;
    }
    node->stamp = known ? pure_stamp : 0;
}

} // namespace

bool has_effects(NODE* tree) {
    if (depth == 0) return tree_has_side_effects(tree);
    if (tree->stamp == impure_stamp) return true;
    if (tree->stamp == pure_stamp) return false;
    NODE_STACK pending;
    pending.push(tree);
    while (!pending.empty())
        for (NODE* node = pending.pop(); node != nullptr; node = node->left) {
            if (node->stamp == pure_stamp) break;
            if (node->stamp == impure_stamp || own_effects(node)) return true;
            if (node->right != nullptr) pending.push(node->right);
        }
    tree->stamp = pure_stamp;
    return false;
}

bool may_swap(NODE* a, NODE* b) {
    const auto is_fixed = [](const NODE* node) {
        return node->op == ICON || node->op == FCON || node->op == SCON ||
               (node->op == UAND && node->left->op == NAME);
    };
    return is_fixed(a) || is_fixed(b) || (!has_effects(a) && !has_effects(b));
}

bool is_icon(const NODE* node) { return node->op == ICON; }

bool is_icon(const NODE* node, std::int64_t value) {
    return node->op == ICON && node->u.lval == INT65::from_signed(value);
}

NODE* icon(const INT65& value, TYPE* type) { return mk_ICON(value, type); }

NODE* known_value(NODE* tree, const INT65& value, TYPE* type, ::LOOP* loop) {
    NODE* constant = icon(value, type);
    NODE* effects = peel_for_effect(tree);
    return effects == nullptr ? constant : simp_node(mk_COMMAOP(effects, constant), loop);
}

NODE* converted(NODE* tree, TYPE* type, ::LOOP* loop) {
    if (tree->type == type) return tree;
    NODE* result = coerce_to_type(tree, type);
    return result == tree ? tree : simp_node(result, loop);
}

NODE* take_left(NODE* node) {
    NODE* left = node->left;
    if (node->right != nullptr) erase_tree(node->right);
    erase_node(node);
    return left;
}

NODE* take_right(NODE* node) {
    NODE* right = node->right;
    erase_tree(node->left);
    erase_node(node);
    return right;
}

NODE* build(int op, NODE* left, NODE* right, TYPE* type, ::LOOP* loop) {
    return simp_node(maketree(op, left, right, type, nullptr), loop);
}

namespace {

// --- Commas and assignments come out of operands.

// Operators whose operands may be taken apart: all operands are always evaluated, and are values.
bool evaluates_operands(int op) {
    switch (op) {
        case COMMA:
        case PCOMMA:
        case COMMAOP:
        case COLON:
        case CASE:
        case DEFAULT:
        case INITLOOP:
        case CALL:
        case UCALL:
        case ICALL:
        case MCALL:
        case STARG:
        case MEMCPY:
        case NASSERT:
        case ASSERT:
        case DDNODE:
        case IDENTITY: return false;
        default: return side_effects[op] == SE_NONE || side_effects[op] == SE_ASSIGNS;
    }
}

// `(place = constant)` whose value is the constant.
bool is_constant_assignment(const NODE* node) {
    return node->op == ASG && node->right->op == ICON && is_int_or_ptr(node->type) &&
           !is_bit_field(node->left) && !node->type->is_bool();
}

// The node with `operand`, which is its left or right one, taken out of the comma that it stands in.
NODE* hoist_comma(NODE* node, NODE** place, ::LOOP* loop) {
    NODE* comma = *place;
    *place = comma->right;
    comma->right = simp_node(node, loop);
    comma->type = comma->otype = comma->right->type;
    return simp_node(comma, loop);
}

NODE* hoist_assignment(NODE* node, NODE** place, ::LOOP* loop) {
    NODE* assignment = *place;
    *place = coerce_to_type(copy_node(assignment->right, false), assignment->type);
    return simp_node(mk_COMMAOP(assignment, simp_node(node, loop)), loop);
}

// The node with effects out of its operands; null where there is nothing to take out.
NODE* hoist_effects(NODE* node, ::LOOP* loop) {
    NODE* left = node->left;
    NODE* right = node->right;
    if (left == nullptr || !evaluates_operands(node->op)) return nullptr;
    const bool conditional = node->op == ANDAND || node->op == OROR || node->op == QUEST;
    // An assignment evaluates its right side first, and its left side is a place.
    const bool assigns = side_effects[node->op] == SE_ASSIGNS;
    if (left->op == COMMAOP && !(assigns && right != nullptr && has_effects(right)))
        return hoist_comma(node, &node->left, loop);
    if (right != nullptr && right->op == COMMAOP && !conditional && (assigns || !has_effects(left)))
        return hoist_comma(node, &node->right, loop);
    if (assigns) return nullptr;
    if (is_constant_assignment(left) && node->op != STDOT) return hoist_assignment(node, &node->left, loop);
    if (right != nullptr && !conditional && is_constant_assignment(right) && !has_effects(left))
        return hoist_assignment(node, &node->right, loop);
    return nullptr;
}

// --- Scopes.

// A node without a scope has that of an operand.
void take_scope(NODE* node) {
    if (node->ls != nullptr || node->left == nullptr) return;
    NODE* left = node->left;
    NODE* right = node->right;
    switch (node->op) {
        case SWITCH:
        case COMMAOP:
            if (right != nullptr) node->ls = right->ls;
            break;
        case COMMA: {
            node->ls = left->ls != nullptr || right == nullptr ? left->ls : right->ls;
            if (left->ls == nullptr) left->ls = node->ls;
            if (right != nullptr && right->ls == nullptr) right->ls = node->ls;
            break;
        }
        case RETURN: node->ls = left->ls; break;
        default:
            if (side_effects[node->op] == SE_ASSIGNS) node->ls = left->ls;
    }
}

[[noreturn]] void bad_opcode(const NODE* node) {
    const char* format = "\n\n   !!! Bad opcode in simplifier (%d) %s !!!\n";
    std::fprintf(stderr, format, node->op, opname(node->op));
    if (print_debug) dprintf(format, node->op, opname(node->op));
    abort_optimizer();
}

bool is_vector_operator(int op) {
    switch (op) {
        case VPACK:
        case VPACKM:
        case VPACK1P:
        case VFIELD:
        case VRCONV:
        case VSCONV: return true;
        default: return false;
    }
}

NODE* dispatch(NODE* node, ::LOOP* loop) {
    switch (node->op) {
        case NAME: return fix_type_info(node);
        case PLUS: return simp_PLUS(node, loop);
        case MINUS: return simp_MINUS(node, loop);
        case PLUSASG:
        case MINUSASG:
        case MULTASG:
        case ANDBASG:
        case ORBASG:
        case XORBASG:
        case DIVASG:
        case MODASG:
        case SLLASG:
        case SRLASG: return simp_opASG(node, loop);
        case UMINUS:
        case ABS:
        case NOTB:
        case SQRT:
        case SQR: return simp_unary(node, loop);
        case MULT: return simp_MULT(node, loop);
        case UMULT: return simp_UMULT(fix_type_info(node), loop);
        case ANDB: return simp_ANDB(node, loop);
        case UAND:
        case ARGREF: return simp_UAND(node, loop);
        case ORB: return simp_ORB(node, loop);
        case XORB: return simp_XORB(node, loop);
        case QUEST: return simp_QUEST(node, loop);
        case ANDAND: return simp_ANDAND(node, loop);
        case OROR: return simp_OROR(node, loop);
        case SWITCH: return simp_SWITCH(node, loop);
        case ASG: return simp_ASG(node, loop);
        case COMMAOP: return simp_COMMAOP(node, loop);
        case DIV: return simp_DIV(node, 0, loop);
        case MOD: return simp_MOD(node, loop);
        case SLL:
        case SRL: return simp_shift(node, loop);
        case STDOT: return simp_STDOT(fix_type_info(node), loop);
        case STREF: return simp_STREF(fix_type_info(node), loop);
        case CALL:
        case UCALL:
        case ICALL:
        case UICALL:
        case MCALL:
        case UMCALL: return fix_pack_types(simp_call(node, loop));
        case EXCLAIM: return simp_EXCLAIM(node, loop);
        case STASG: return simp_STASG(node, loop);
        case SCONV: return simp_SCONV(node, loop);
        case PCONV: return simp_PCONV(node, loop);
        case ACONV: return simp_ACONV(node, loop);
        case PMCONV: return simp_PMCONV(node, loop);
        case PVCONV: return simp_PVCONV(node, loop);
        case CBRANCH:
        case BRANCH: return simp_CBRANCH(node, loop);
        case NASSERT:
        case ASSERT: return simp_ASSERT(node, loop);
        case MEMCPY: return simp_MEMCPY(node, loop);
        case COMPLEX:
        case REAL:
        case IMAG: return simp_complexop(node, loop);
        case EXPT: return simp_EXPT(node, loop);
        case IF: return simp_IF(node, loop);
        case CSE_DUPE:
        case CSE_ORIG:
        case ILLOP: bad_opcode(node);
        default: break;
    }
    if (boolean_inv[node->op] != ILLOP) return simp_relop(node, loop);
    return node;
}

NODE* simplify(NODE* node, ::LOOP* loop) {
    if (node->type != nullptr) node->type = node->type->normalized();
    NODE* left = node->left;
    if (left == nullptr) {
        NODE* result = dispatch(node, loop);
        stamp(result);
        return result;
    }
    if (node->op != UMULT) node->scratch3 = 0;
    node->stamp = 0;
    if (NODE* hoisted = hoist_effects(node, loop); hoisted != nullptr) return hoisted;
    take_scope(node);
    NODE* result;
    if (is_vector_operator(node->op) || (node->type != nullptr && node->type->is_vector())) {
        result = simp_vector_node(node, loop);
    } else {
        const bool reciprocal = left->op == RECIP && node->op == MULT && node->right->op == FCON;
        if (is_identity(node) && is_int_or_ptr(node->type)) return drop_identity(node, loop);
        if (left->op == ICON || left->op == FCON || reciprocal) {
            const int op = node->op;
            result = fold_node(node);
            if (result != node || node->op != op) {
                if (result->stamp == 0) stamp(result);
                return result == node ? simplify(node, loop) : result;
            }
        }
        result = dispatch(node, loop);
    }
    if (result == node || result->stamp == 0) stamp(result);
    return result;
}

const register_option debug_simp("debug:simp");

// The same, and shows in the debug file what became of the tree.
NODE* simplify_aloud(NODE* node, ::LOOP* loop) {
    const std::string before = tree_to_text(node);
    NODE* result = simplify(node, loop);
    const std::string after = tree_to_text(result);
    if (before != after) dprintf("  simp: %s\n     -> %s\n", before.c_str(), after.c_str());
    return result;
}

} // namespace

NODE* simp_node(NODE* node, ::LOOP* loop) {
    const ENTRY entry;
    if (print_debug != 0 && static_cast<bool>(debug_simp)) return simplify_aloud(node, loop);
    return simplify(node, loop);
}

NODE* simp_tree(NODE* tree, ::LOOP* loop) {
    const ENTRY entry;
    return rewrite_tree(tree, [loop](NODE* node) { return simp_node(node, loop); });
}

void simp_all_trees() {
    dprintf("\n\n\t\t\t---------- ENTERING 'simp_all_trees' ----------\n");
    for (BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
        for (LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            cell->first = simp_tree(expunge_IDENTITY_ops_from_tree(cell->first), nullptr);
}
