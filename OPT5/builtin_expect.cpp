#include "builtin_expect.h"

#include <algorithm>
#include <cstring>
#include <unordered_map>
#include <utility>

#include "bbutils.h"
#include "erase.h"
#include "node.h"
#include "opcodes.h"
#include "optypes.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

constexpr char BUILTIN_EXPECT[] = "__builtin_expect";

// How often a program is right about what it expects.
constexpr double LIKELY = 0.99;

NODE*& arguments_of(NODE* expect) { return expect->op == ICALL ? expect->left : expect->right; }

// The constant under its conversions, null where the operand is none.
const NODE* constant_of(const NODE* operand) {
    while ((operand->op == SCONV || operand->op == ACONV) && operand->left != nullptr)
        operand = operand->left;
    return operand->op == ICON ? operand : nullptr;
}

// The numbers that the bits of both operands stand for in a comparison.
bool compare(int op, INT65 a, INT65 b, TYPE* type) {
    const bool is_unsigned = op == ULT || op == ULE || op == UGT || op == UGE;
    a = is_unsigned ? a & type_mask(type) : truncate_to_type(a, type);
    b = is_unsigned ? b & type_mask(type) : truncate_to_type(b, type);
    return comparison_holds(op, a, b);
}

class EXPECTATIONS {
  public:
    NODE* rewrite(NODE* node);
    EXPECTATION of(const NODE* node) const {
        const auto found = known_.find(node);
        return found != known_.end() ? found->second : EXPECTATION{};
    }

  private:
    NODE* take(NODE* expect);
    EXPECTATION of_comparison(const NODE* node) const;
    EXPECTATION of_both(const NODE* node) const;
    EXPECTATION of_operation(NODE* node) const;

    std::unordered_map<const NODE*, EXPECTATION> known_;
};

// The first operand takes the node's place.
NODE* EXPECTATIONS::take(NODE* expect) {
    NODE*& arguments = arguments_of(expect);
    NODE* value = arguments->left;
    const NODE* expected = constant_of(arguments->right);
    if (value->op == ACONV) value->op = SCONV;
    arguments->left = nullptr;
    value = coerce_to_type(value, expect->type);
    // The place of an erased node may have been used again: nothing old is to be known of it.
    known_[value] = expected != nullptr
                        ? EXPECTATION{LIKELY, truncate_to_type(expected->u.lval, expect->type)}
                        : EXPECTATION{};
    erase_tree(expect);
    return value;
}

EXPECTATION EXPECTATIONS::of_comparison(const NODE* node) const {
    EXPECTATION left = of(node->left), right = of(node->right);
    if (node->left->op == ICON) left = {1, node->left->u.lval};
    if (node->right->op == ICON) right = {1, node->right->u.lval};
    if (!left.is_known() || !right.is_known() || !node->left->type->is_integral()) return {};
    const bool holds = compare(node->op, left.value, right.value, node->left->type);
    return {left.probability * right.probability, INT65::from_signed(holds ? 1 : 0)};
}

// a && b is what the unlikely one says, or both together; a || b likewise.
EXPECTATION EXPECTATIONS::of_both(const NODE* node) const {
    const EXPECTATION a = of(node->left), b = of(node->right);
    const auto chance = [&](const EXPECTATION& of) {
        return node->op == ANDAND ? of.chance_of_true() : 1 - of.chance_of_true();
    };
    double both = UNKNOWN_FREQ;
    if (a.is_known() && b.is_known()) {
        both = chance(a) * chance(b);
    } else if (a.is_known() && chance(a) < 0.5) {
        both = chance(a);
    } else if (b.is_known() && chance(b) < 0.5) {
        both = chance(b);
    }
    if (both < 0) return {};
    return {both, INT65::from_signed(node->op == ANDAND ? 1 : 0)};
}

EXPECTATION EXPECTATIONS::of_operation(NODE* node) const {
    switch (node->op) {
        case SCONV:
        case PCONV: {
            EXPECTATION operand = of(node->left);
            if (!is_int_or_ptr(node->type)) return {};
            operand.value = node->type->is_bool() ? INT65::from_signed(operand.value.is_zero() ? 0 : 1)
                                                  : truncate_to_type(operand.value, node->type);
            return operand;
        }
        case EXCLAIM: {
            EXPECTATION operand = of(node->left);
            operand.value = INT65::from_signed(operand.value.is_zero() ? 1 : 0);
            return operand;
        }
        case COMMAOP: return of(node->right);
        case EQ:
        case NEQ:
        case LT:
        case LE:
        case GT:
        case GE:
        case ULT:
        case ULE:
        case UGT:
        case UGE: return of_comparison(node);
        case ANDAND:
        case OROR: return of_both(node);
        case QUEST:
            if (const EXPECTATION condition = of(node->left); condition.is_known()) {
                node->freq = condition.chance_of_true();
                node->right->freq = 1 - node->freq;
            }
            return {};
        default: return {};
    }
}

NODE* EXPECTATIONS::rewrite(NODE* node) {
    if (is_builtin_expect(node)) return take(node);
    if (const EXPECTATION known = of_operation(node); known.is_known()) known_[node] = known;
    return node;
}

} // namespace

bool is_builtin_expect(const NODE* node) {
    const NODE* arguments = nullptr;
    if (node->op == ICALL) {
        if (std::strcmp(node->intrinsic(), BUILTIN_EXPECT) != 0) return false;
        arguments = node->left;
    } else if (node->op == CALL) {
        const NODE* callee = node->left->op == UAND ? node->left->left : node->left;
        if (callee->op != NAME || callee->symbol()->sclass != SC_EXTERN ||
            std::strcmp(callee->symbol()->name, BUILTIN_EXPECT) != 0)
            return false;
        arguments = node->right;
    } else {
        return false;
    }
    if (arguments == nullptr || arguments->op != COMMA) return false;
    const NODE* value = arguments->left;
    return value->op != COMMA && value->type->is_integral() && node->type->is_integral();
}

EXPECTATION take_expectations(NODE*& tree) {
    EXPECTATIONS expectations;
    tree = rewrite_tree(tree, [&](NODE* node) { return expectations.rewrite(node); });
    return expectations.of(tree);
}

void convert_CBRANCH_with_builtin_expect(NODE* transfer, const EXPECTATION& condition) {
    if (!condition.is_known()) return;
    NODE* arms = transfer->right;
    arms->left->freq = condition.chance_of_true();
    arms->right->freq = 1 - arms->left->freq;
}

void convert_SWITCH_with_builtin_expect(NODE* transfer, const EXPECTATION& selector) {
    if (!selector.is_known()) return;
    const INT65 mask = type_mask(transfer->left->type);
    NODE* target = nullptr;
    for (NODE* list = transfer->right; list != nullptr; list = list->op == COMMA ? list->left : nullptr) {
        NODE* element = list->op == COMMA ? list->right : list;
        if (element->op == DEFAULT) {
            target = element->left;
        } else if ((element->left->u.lval & mask) == (selector.value & mask)) {
            target = element->right;
            break;
        }
    }
    if (target != nullptr) target->freq = selector.probability;
}
