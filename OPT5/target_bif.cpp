#include "target_bif.h"

#include <cstddef>
#include <cstring>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "bbutils.h"
#include "congruent.h"
#include "erase.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "optypes.h"
#include "pragma.h"
#include "psn.h"
#include "symbol.h"
#include "types.h"
#include "xint.h"

using namespace op;

namespace {

enum BIF_USE {
    OPERATOR, // no programmer calls it
    OPERATOR_WITH_EFFECTS,
    FUNCTION,             // a programmer calls it
    FUNCTION_WITH_EFFECTS // the same; its effects are not those of its operands alone
};

struct ROW {
    const char* name;
    BIF_USE use;
    BIF_RULE rule;
    const char* operands;
    char result;
};

constexpr ROW ROWS[] = {
#define BIF(name, use, rule, operands, result) {name, use, BIF_##rule, operands, result},
#include "target_bif.def"
#undef BIF
};

std::unordered_map<std::string_view, BIF_DESCRIPTOR>& descriptors() {
    static std::unordered_map<std::string_view, BIF_DESCRIPTOR> table;
    return table;
}

TYPE* type_of_letter(char letter) {
    switch (letter) {
        case 'i': return tp->int_type(IK_INT);
        case 'u': return tp->int_type(IK_UINT);
        case 'l': return tp->int_type(IK_LONG);
        case 'm': return tp->int_type(IK_ULONG);
        case 'q': return tp->int_type(IK_LLONG);
        case 'w': return tp->int_type(IK_ULLONG);
        case 'f': return tp->flt_type(FK_FLOAT);
        case 'd': return tp->flt_type(FK_DOUBLE);
        case 'e': return tp->flt_type(FK_LDOUBLE);
        case 'v': return tp->void_type();
        default: return nullptr;
    }
}

bool is_intrinsic_call(const NODE* node) {
    return node->op == ICALL || node->op == UICALL || node->op == MCALL || node->op == UMCALL;
}

} // namespace

void init_BIF_descriptors() {
    descriptors().clear();
    for (const ROW& row : ROWS) {
        BIF_DESCRIPTOR made{};
        made.name = intern_text(row.name);
        made.operands = static_cast<int>(std::strlen(row.operands));
        made.has_effects = row.use == FUNCTION_WITH_EFFECTS || row.use == OPERATOR_WITH_EFFECTS;
        made.result_type = type_of_letter(row.result);
        made.is_function = row.use == FUNCTION || row.use == FUNCTION_WITH_EFFECTS;
        made.rule = row.rule;
        for (int i = 0; i < made.operands; i++) made.operand_type[i] = type_of_letter(row.operands[i]);
        descriptors().emplace(made.name, made);
    }
}

const BIF_DESCRIPTOR* find_target_BIF_descriptor(const char* name) {
    const auto found = descriptors().find(name);
    return found != descriptors().end() ? &found->second : nullptr;
}

const BIF_DESCRIPTOR* find_BIF_descriptor(const char* function_name) {
    const BIF_DESCRIPTOR* found = find_target_BIF_descriptor(function_name);
    if (found == nullptr && name_has_prefix(function_name))
        found = find_target_BIF_descriptor(skip_name_prefix(function_name));
    return found != nullptr && found->is_function ? found : nullptr;
}

bool is_ICALL_callee(const NODE* node, const char* name) {
    return node != nullptr && is_intrinsic_call(node) &&
           (node->intrinsic() == name || std::strcmp(node->intrinsic(), name) == 0);
}

// --- Types.

namespace {

// The places of the arguments in the list that stands at `list`, left to right.
void argument_places(NODE*& list, std::vector<NODE**>& places) {
    places.clear();
    if (list == nullptr) return;
    std::vector<NODE**> pending{&list};
    while (!pending.empty()) {
        NODE** place = pending.back();
        pending.pop_back();
        if ((*place)->op == COMMA) {
            pending.push_back(&(*place)->right);
            pending.push_back(&(*place)->left);
        } else {
            places.push_back(place);
        }
    }
}

bool is_number(TYPE* type) { return type->is_integral() || type->is_fltpt(); }

// Whether the arguments are such that the intrinsic can take them.
bool arguments_fit(const BIF_DESCRIPTOR& descriptor, const std::vector<NODE**>& places) {
    if (places.size() != static_cast<std::size_t>(descriptor.operands)) return false;
    for (int i = 0; i < descriptor.operands; i++)
        if (descriptor.operand_type[i] != nullptr && !is_number((*places[i])->type)) return false;
    return true;
}

// The function call's intrinsic; null where it has to stay the call of a function.
const BIF_DESCRIPTOR* descriptor_of_call(NODE* call) {
    const SYMTAB* callee = get_callee_for_call(call);
    if (callee == nullptr || callee->sclass != SC_EXTERN) return nullptr;
    const BIF_DESCRIPTOR* descriptor = find_BIF_descriptor(callee->name);
    if (descriptor == nullptr || symbol_has_pragma(callee, PRAG_FUNC_IS_NONCONFORMING)) return nullptr;
    if (descriptor->result_type->is_void()) return descriptor;
    return is_number(call->type) ? descriptor : nullptr;
}

// turn  CALL(UAND(NAME _ssub), COMMA(a, b))  into  ICALL "_ssub" (COMMA(a, b))
NODE* intrinsic_for_call(NODE* call, const BIF_DESCRIPTOR& descriptor) {
    NODE* made = descriptor.has_effects ? mk_MCALL(descriptor.name, call->right, call->type)
                                        : mk_ICALL(descriptor.name, call->right, call->type);
    call->right = nullptr;
    erase_tree(call);
    return made;
}

void give_operand_types(const BIF_DESCRIPTOR& descriptor, const std::vector<NODE**>& places) {
    for (int i = 0; i < descriptor.operands; i++) {
        if (descriptor.operand_type[i] == nullptr) continue;
        NODE*& operand = *places[i];
        // An argument's conversion is a plain one here.
        if (operand->op == ACONV && operand->left != nullptr && is_number(operand->left->type))
            operand->op = SCONV;
        operand = coerce_to_type(operand, descriptor.operand_type[i]);
    }
}

// Gives the call at `place` the descriptor's result type, and what stands there the type it had.
void give_result_type(NODE*& place, const BIF_DESCRIPTOR& descriptor) {
    TYPE* wanted = place->type;
    if (descriptor.result_type == nullptr || descriptor.result_type->is_void() || !is_number(wanted)) return;
    place->type = place->otype = descriptor.result_type;
    place = coerce_to_type(place, wanted);
}

} // namespace

NODE* fix_BIF_types(NODE* tree) {
    // Most trees hold no call: they cost no memory.
    if (!any_node(tree, [](const NODE* node) {
            return node->op == CALL || node->op == UCALL || is_intrinsic_call(node);
        }))
        return tree;
    std::vector<NODE**> arguments;
    std::vector<NODE**> pending{&tree};
    while (!pending.empty()) {
        NODE** place = pending.back();
        pending.pop_back();
        if (*place == nullptr) continue;
        NODE* node = *place;
        const bool is_call = node->op == CALL || node->op == UCALL;
        const BIF_DESCRIPTOR* descriptor = is_call ? descriptor_of_call(node)
                                           : is_intrinsic_call(node)
                                               ? find_target_BIF_descriptor(node->intrinsic())
                                               : nullptr;
        if (descriptor != nullptr) {
            argument_places(is_call ? node->right : node->left, arguments);
            if (arguments_fit(*descriptor, arguments)) {
                give_operand_types(*descriptor, arguments);
                if (is_call) *place = node = intrinsic_for_call(node, *descriptor);
                give_result_type(*place, *descriptor);
            }
        }
        pending.push_back(&node->right);
        pending.push_back(&node->left);
    }
    return tree;
}

// --- Constants.

namespace {

// The operands of a call that has as many as its descriptor says; false where it has not.
bool operands_of(NODE* icall, const BIF_DESCRIPTOR& descriptor, NODE** (&operand)[MAX_BIF_OPERANDS]) {
    int count = descriptor.operands;
    NODE** place = &icall->left;
    for (; count > 1; place = &(*place)->left) {
        if (*place == nullptr || (*place)->op != COMMA) return false;
        operand[--count] = &(*place)->right;
    }
    if (count != 1 || *place == nullptr || (*place)->op == COMMA) return false;
    operand[0] = place;
    return true;
}

// The value as an object of the result's type holds it, or its nearest end.
INT65 saturated(const INT65& value, TYPE* type) {
    if (value < int_type_min(type)) return int_type_min(type);
    return value > int_type_max(type) ? int_type_max(type) : value;
}

// The function itself, on operands of the descriptor's types. Nothing here needs more than 64 bits and a
// sign.
INT65 computed(const BIF_DESCRIPTOR& descriptor, const INT65& a, const INT65& b) {
    switch (descriptor.rule) {
        case BIF_MINIMUM: return a < b ? a : b;
        case BIF_MAXIMUM: return a > b ? a : b;
        case BIF_SATURATING_SUM: return saturated(a + b, descriptor.result_type);
        case BIF_SATURATING_DIFFERENCE: return saturated(a - b, descriptor.result_type);
        case BIF_SATURATING_SHIFT:
            return saturated(a << static_cast<int>(b.low & 31), descriptor.result_type);
        case BIF_PRODUCT: return a * b;
        case BIF_PRODUCT_OF_HIGH: return (a >> 16) * b;
        case BIF_LOW_HALF: return a;
        case BIF_HIGH_HALF: return a >> 32;
        default: OPTASSERT(!"a rule for constants"); return a;
    }
}

// What remains of the call is the operand, converted to the types of the descriptor and of the call.
NODE* keep_operand(NODE* icall, const BIF_DESCRIPTOR& descriptor, NODE*& operand) {
    NODE* kept = operand;
    operand = nullptr;
    TYPE* type = icall->type;
    erase_tree(icall);
    if (descriptor.result_type != nullptr) kept = coerce_to_type(kept, descriptor.result_type);
    return coerce_to_type(kept, type);
}

// The value, wrapped to the result type of the descriptor, as the call's type has it.
NODE* become_constant(NODE* icall, const BIF_DESCRIPTOR& descriptor, const INT65& value) {
    NODE* constant = coerce_to_type(mk_ICON(value, descriptor.result_type), icall->type);
    erase_tree(icall);
    return constant;
}

// The strict conditional: the arm that a constant condition takes stays if the other has no effects.
NODE* fold_choice(NODE* icall, const BIF_DESCRIPTOR& descriptor, NODE** (&operand)[MAX_BIF_OPERANDS]) {
    const NODE* condition = *operand[0];
    if (condition->op != ICON) return icall;
    const int taken = condition->u.lval.is_zero() ? 2 : 1;
    return tree_has_side_effects(*operand[3 - taken]) ? icall
                                                      : keep_operand(icall, descriptor, *operand[taken]);
}

// turn  MIN(x, x)            into  x
// turn  MIN(x, INT_MAX)      into  x
// turn  MIN(x, INT_MIN)      into  INT_MIN   unless x has effects
// and the same of a maximum, of each type with its own limits.
NODE* fold_extreme(NODE* icall, const BIF_DESCRIPTOR& descriptor, NODE** (&operand)[MAX_BIF_OPERANDS]) {
    NODE*& a = *operand[0];
    NODE*& b = *operand[1];
    TYPE* type = descriptor.result_type;
    if (trees_are_congruent(a, b, 1)) return keep_operand(icall, descriptor, a);
    if (!type->is_integral()) return icall;
    INT65 passes_all = int_type_max(type), passes_none = int_type_min(type);
    if (descriptor.rule == BIF_MAXIMUM) std::swap(passes_all, passes_none);
    for (int i = 0; i < 2; i++) {
        const NODE* bound = *operand[i];
        if (bound->op != ICON) continue;
        const INT65 value = truncate_to_type(bound->u.lval, type);
        NODE*& other = *operand[1 - i];
        if (value == passes_all) return keep_operand(icall, descriptor, other);
        if (value == passes_none && !tree_has_side_effects(other))
            return become_constant(icall, descriptor, value);
    }
    return icall;
}

} // namespace

NODE* fold_BIF(NODE* icall) {
    if (icall->op != ICALL) return icall;
    const BIF_DESCRIPTOR* descriptor = find_target_BIF_descriptor(icall->intrinsic());
    if (descriptor == nullptr || descriptor->rule == BIF_UNKNOWN) return icall;
    NODE** operand[MAX_BIF_OPERANDS];
    if (!operands_of(icall, *descriptor, operand)) return icall;
    if (descriptor->rule == BIF_CHOICE) return fold_choice(icall, *descriptor, operand);

    bool all_constant = descriptor->result_type->is_integral();
    for (int i = 0; i < descriptor->operands && all_constant; i++) all_constant = (*operand[i])->op == ICON;
    if (all_constant) {
        INT65 value[MAX_BIF_OPERANDS] = {};
        for (int i = 0; i < descriptor->operands; i++)
            value[i] = truncate_to_type((*operand[i])->u.lval, descriptor->operand_type[i]);
        return become_constant(icall, *descriptor, computed(*descriptor, value[0], value[1]));
    }
    if (descriptor->rule == BIF_MINIMUM || descriptor->rule == BIF_MAXIMUM)
        return fold_extreme(icall, *descriptor, operand);
    return icall;
}
