#include "optypes.h"

#include <unordered_set>
#include <vector>

#include "files.h"
#include "fpsmath.h"
#include "node.h"
#include "opcodes.h"
#include "opt_expr.h"
#include "pool.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

// The type without qualifiers; an enumeration becomes its underlying type.
TYPE* plain(TYPE* type) {
    type = type->true_type();
    return type->is_enum() ? type->underlying_type()->true_type() : type;
}

INT65 ones(int count) {
    return count >= 64 ? INT65::from_unsigned(~std::uint64_t{0})
                       : INT65::from_unsigned((std::uint64_t{1} << count) - 1);
}

} // namespace

int type_width(TYPE* type) { return static_cast<int>(type->size()); }

INT65 type_mask(TYPE* type) { return ones(is_int_or_ptr(type) ? type_width(type) : 64); }

INT65 int_type_min(TYPE* type) {
    return type->is_signed() ? -int_type_max(type) - INT65::from_signed(1) : INT65::from_signed(0);
}

INT65 int_type_max(TYPE* type) {
    type = plain(type);
    if (type->is_bool() || type->is_marked_bool()) return INT65::from_signed(1);
    return ones(type_width(type) - (type->is_signed() ? 1 : 0));
}

bool value_fits_in_type(const INT65& value, TYPE* type) {
    return int_type_min(type) <= value && value <= int_type_max(type);
}

bool has_volatile_part(TYPE* type) {
    if (type->is_scalar()) return type->is_volatile();
    std::vector<TYPE*> pending{type};
    std::unordered_set<const TYPE*> seen;
    while (!pending.empty()) {
        TYPE* part = pending.back();
        pending.pop_back();
        if (part->is_volatile()) return true;
        if (part->is_array()) {
            pending.push_back(part->elem_type());
        } else if (part->is_csu() && seen.insert(part->true_type()).second) {
            const CSU_BODY& body = part->true_type()->csu();
            for (const fkMDATA* member : body.members) pending.push_back(member->type);
            for (const fkBCLASS& base : body.bases) pending.push_back(base.type);
        }
    }
    return false;
}

int power_of_2(const INT65& value) {
    const std::uint64_t bits = value.bits();
    if (value.is_negative() || bits == 0 || (bits & (bits - 1)) != 0) return -1;
    return __builtin_ctzll(bits);
}

bool is_int_or_ptr(TYPE* type) { return type->is_integral() || type->is_ptr() || type->is_ref(); }

bool same_representation(TYPE* a, TYPE* b) {
    if (a == b) return true;
    a = plain(a);
    b = plain(b);
    if (a == b) return true;
    if (a->size() != b->size()) return false;
    if (is_int_or_ptr(a) && is_int_or_ptr(b))
        return a->is_signed() == b->is_signed() && int_type_max(a) == int_type_max(b);
    return a->is_fltpt() && b->is_fltpt();
}

TYPE* promoted_type(TYPE* type) {
    type = plain(type);
    return type->is_integer() ? tp->c_integral_promotions(type) : type;
}

TYPE* combined_type(TYPE* a, TYPE* b) {
    a = plain(a);
    b = plain(b);
    if (a->is_ptr()) return a;
    if (b->is_ptr()) return b;
    return a->is_arithmetic() && b->is_arithmetic() ? tp->c_usual_arith_conv(a, b) : a;
}

TYPE* operator_type_for_operand_types(int op, TYPE* left, TYPE* right) {
    switch (op) {
        case SLL:
        case SRL: return promoted_type(left);
        default: return right != nullptr ? combined_type(left, right) : promoted_type(left);
    }
}

namespace {

void set_float(NODE* constant, const simul_fval& value) {
    auto* number = static_cast<simul_fval*>(current_pool().allocate(sizeof(simul_fval)));
    *number = value;
    constant->op = FCON;
    constant->u.rval = number;
    constant->text = nullptr;
}

void set_type(NODE* node, TYPE* type) { node->type = node->otype = type; }

} // namespace

bool convert_constant(NODE* constant, TYPE* type) {
    const TYPE* to = plain(type);
    const bool to_truth = to->is_bool() || to->is_marked_bool();
    if (constant->op == ICON) {
        if (!is_int_or_ptr(constant->type)) return false;
        const INT65 value = truncate_to_type(constant->u.lval, constant->type);
        if (is_int_or_ptr(type)) {
            constant->u.lval =
                to_truth ? INT65::from_signed(value.is_zero() ? 0 : 1) : truncate_to_type(value, type);
        } else if (type->is_fltpt()) {
            simul_fval number;
            f_int65tof(value, &number);
            truncate_fval_to_target(&number, type);
            set_float(constant, number);
        } else {
            return false;
        }
    } else if (constant->op == FCON) {
        const simul_fval* value = constant->fval();
        if (to_truth) {
            constant->u.lval = INT65::from_signed(f_ne(value, &pos_zero) != 0 ? 1 : 0);
            constant->op = ICON;
        } else if (type->is_integral()) {
            // What lies outside the type depends on the machine, so it is left to it.
            const INT65 number = f_ftoint65(value);
            if (value->exp > 64 || !value_fits_in_type(number, type)) return false;
            constant->u.lval = number;
            constant->op = ICON;
        } else if (type->is_fltpt()) {
            constant->text = nullptr;
        } else {
            return false;
        }
        if (constant->op == ICON) constant->text = nullptr;
    } else {
        return false;
    }
    set_type(constant, type->true_type());
    return true;
}

NODE* coerce_to_type(NODE* tree, TYPE* type) {
    if (tree->type == type || plain(tree->type) == plain(type)) return tree;
    if ((tree->op == ICON || tree->op == FCON) && convert_constant(tree, type)) return tree;
    const bool from_pointer = tree->type->is_ptr(), to_pointer = type->is_ptr();
    TYPE* target = type->true_type();
    if (to_pointer && !from_pointer && (!tree->type->is_integral() || tree->type->size() != type->size())) {
        TYPE* address = tp->int_type(IK_UINT);
        for (int kind = IK_UINT; address->size() != type->size() && kind <= IK_ULLONG; kind++)
            if (tp->basic(kind)->is_unsigned()) address = tp->basic(kind);
        tree = maketree(SCONV, tree, nullptr, address, tree->ls);
    }
    return maketree(to_pointer ? PCONV : SCONV, tree, nullptr, target, tree->ls);
}

NODE* fix_type_info(NODE* node) {
    TYPE* declared = nullptr;
    if (node->op == NAME) declared = node->symbol()->type;
    if (declared != nullptr && declared != node->type && declared->is_scalar() && node->type->is_scalar() &&
        declared->is_ptr() == node->type->is_ptr() && declared->qual_kind() == node->type->qual_kind() &&
        same_representation(declared, node->type))
        node->type = declared;
    return node;
}

NODE* fix_pack_types(NODE* node) {
    if (node->otype != nullptr && node->otype->is_vector() && !node->type->is_vector())
        node->type = node->otype;
    return node;
}

INT65 sign_extend_by_type(const INT65& value, TYPE* type) {
    const int shift = 64 - (type_width(type) < 64 ? type_width(type) : 64);
    return INT65::from_signed(static_cast<std::int64_t>(value.bits() << shift) >> shift);
}

INT65 sign_extend_by_type_size(const INT65& value, TYPE* type) {
    return type->is_enum() ? truncate_to_type(value, type) : sign_extend_by_type(value, type);
}
