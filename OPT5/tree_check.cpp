#include "tree_check.h"

#include "bbutils.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "types.h"

using namespace op;

const char* name_of(const NODE* node) {
    const char* name = opname(node->op);
    return name != nullptr ? name : "an unknown operator";
}

namespace {

bool is_place(const NODE* node) {
    switch (node->op) {
        case NAME:
        case UMULT:
        case STDOT:
        case STREF:
        case STFIELD:
        case VFIELD:
        case SCON:
        case REAL:
        case IMAG:
        case SIMDHI:
        case SIMDLO:
        case VREG:
        case DDNODE: return true;
        default: return false;
    }
}

bool is_address(const NODE* node) { return node->type->is_ptr() || node->type->is_ref(); }

// The type that counts: without typedefs, qualifiers and enums.
TYPE* plain(const NODE* node) {
    TYPE* type = node->type->true_type();
    return type->is_enum() ? type->underlying_type()->true_type() : type;
}

bool is_number(const TYPE* type) { return type->is_integer() || type->is_fltpt(); }

bool same_representation(const TYPE* a, const TYPE* b) {
    if (a->is_ptr() != b->is_ptr() && (a->is_integer() || b->is_integer()) && a->size() == b->size())
        return true;
    return a->true_kind() == b->true_kind() && a->size() == b->size();
}

bool gives_integer(const NODE* node) { return node->type->is_integral() || node->type->is_vector(); }

std::string named(const NODE* node) { return name_of(node); }

std::string place_fault(const NODE* node) {
    if (is_place(node->left)) return {};
    return named(node) + " of " + named(node->left) + ", which is no place in memory";
}

std::string member_fault(const NODE* node) {
    const NODE* field = node->right;
    if (field->op != FIELD) return named(node) + " without a member";
    TYPE* csu = field->csu();
    if (csu == nullptr || field->mdata == nullptr || !csu->is_csu() ||
        csu->member(field->mdata->number) != field->mdata)
        return "a FIELD whose member is not of its aggregate";
    if (node->op == STDOT && !node->left->type->is_csu())
        return "STDOT of " + named(node->left) + ", which is no aggregate";
    if (node->op == STREF && !is_address(node->left))
        return "STREF of " + named(node->left) + ", which is no pointer";
    return {};
}

std::string arithmetic_fault(const NODE* node) {
    const TYPE* result = plain(node);
    const TYPE* left = plain(node->left);
    const TYPE* right = node->right != nullptr ? plain(node->right) : left;
    if (!is_number(result) || !is_number(left) || !is_number(right)) return {}; // pointers, vectors
    if (same_representation(left, right) && same_representation(left, result)) return {};
    return "the types of " + named(node) + " do not fit: " + left->printstr() + ", " + right->printstr() +
           ", result " + result->printstr();
}

std::string shift_fault(const NODE* node) {
    const TYPE* result = plain(node);
    const TYPE* left = plain(node->left);
    if (!is_number(result) || !is_number(left) || same_representation(left, result)) return {};
    return named(node) + " of " + left->printstr() + " gives " + result->printstr();
}

std::string comparison_fault(const NODE* node) {
    const TYPE* left = plain(node->left);
    const TYPE* right = plain(node->right);
    if (left->is_scalar() && right->is_scalar() && !same_representation(left, right))
        return named(node) + " compares " + left->printstr() + " with " + right->printstr();
    if (left->is_fltpt() && node->op < FEQ) return named(node) + " compares floating operands";
    return gives_integer(node) ? std::string() : named(node) + " gives no integer";
}

std::string assignment_fault(const NODE* node) {
    if (std::string fault = place_fault(node); !fault.empty()) return fault;
    const TYPE* left = plain(node->left);
    const TYPE* right = plain(node->right);
    if (node->op != ASG || !is_number(left) || !is_number(right) || is_bit_field(node->left)) return {};
    if (left->is_fltpt() == right->is_fltpt() && left->size() == right->size()) return {};
    return "ASG of " + right->printstr() + " to " + left->printstr();
}

} // namespace

std::string node_fault(const NODE* node) {
    switch (node->op) {
        case STDOT:
        case STREF: return member_fault(node);
        case UAND: return place_fault(node);
        case UMULT:
            return is_address(node->left) ? std::string()
                                          : "UMULT of " + named(node->left) + ", which is no pointer";
        case PLUS:
        case MINUS:
        case MULT:
        case DIV:
        case MOD:
        case ANDB:
        case ORB:
        case XORB:
        case UMINUS:
        case NOTB: return arithmetic_fault(node);
        case SLL:
        case SRL: return shift_fault(node);
        case ANDAND:
        case OROR:
        case EXCLAIM: return gives_integer(node) ? std::string() : named(node) + " gives no integer";
        case IF:
        case CBRANCH:
            if (node->left->type->is_scalar() || node->left->type->is_vector()) return {};
            return named(node) + " has a condition of type " + node->left->type->printstr();
        default: break;
    }
    if (boolean_inv[node->op] != ILLOP) return comparison_fault(node);
    return opcode_is_ASG(node->op) ? assignment_fault(node) : std::string();
}
