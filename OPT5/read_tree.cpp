// Trees as they arrive from a file: checked for shape, and brought into the form used in memory.

#include <cstdint>
#include <string>

#include "bad_input.h"
#include "bblk.h"
#include "bbutils.h"
#include "builtin_expect.h"
#include "erase.h"
#include "files.h"
#include "node.h"
#include "opcodes.h"
#include "read.h"
#include "symbol.h"
#include "tree_check.h"
#include "types.h"

using namespace op;

namespace {

[[noreturn]] void bad_shape(const NODE* node, const char* why) {
    bad_input(opt_client.here(), "%s %s", name_of(node), why);
}

void check_sense(const NODE* node) {
    if (const std::string fault = node_fault(node); !fault.empty())
        bad_input(opt_client.here(), "%s", fault.c_str());
}

// EPVAL(x) becomes x with the count.
void unwrap_profile(NODE*& place) {
    while (place != nullptr && place->op == EPVAL) {
        NODE* wrapper = place;
        NODE* inner = wrapper->left;
        if (inner == nullptr) bad_input(opt_client.here(), "EPVAL without an operand");
        inner->edge_profile = wrapper->edge_profile;
        wrapper->left = nullptr;
        erase_node(wrapper);
        place = inner;
    }
}

void bind_label(NODE*& place, const NODE* parent) {
    unwrap_profile(place);
    if (place == nullptr || place->op != LABEL) bad_shape(parent, "without a label");
    if (place->type == nullptr) place->type = tp->void_type();
    place->label = opt_client.label_of_file(place->u.lval.low);
}

// One node inside an expression. `unwrap_profile` has been applied to it.
void clean_node(NODE* node) {
    if (node->type == nullptr) node->type = tp->void_type();
    unwrap_profile(node->left);
    unwrap_profile(node->right);
    switch (node->op) {
        case NAME: {
            SYMTAB* symbol = get_sym_def_for_decl(node->symbol());
            node->u.rval = symbol;
            node->otype = symbol->otype;
            node->ls = symbol->scope;
            break;
        }
        case CASE:
        case DEFAULT: bad_shape(node, "outside a SWITCH");
        case LABEL: bad_shape(node, "outside a transfer");
        case BRANCH:
        case CBRANCH:
        case SWITCH:
        case RETURN:
        case URETURN:
        case NOP:
        case SKIP:
        case ENDINIT: bad_shape(node, "inside an expression");
        case QUEST:
            if (node->right->op != COLON) bad_shape(node, "without its two arms");
            break;
        case STDOT:
        case STREF:
        case STFIELD:
            if (node->right->op != FIELD) bad_shape(node, "without a member");
            break;
        default: break;
    }
    // Two parents that give a meaning to an operator which has none of its own.
    for (NODE* operand : {node->left, node->right}) {
        if (operand == nullptr) continue;
        if (operand->type == nullptr) operand->type = tp->void_type();
        if (operand->op == COLON && (node->op != QUEST || operand != node->right))
            bad_shape(operand, "outside a QUEST");
        if (operand->op == FIELD && (node->op != STDOT && node->op != STREF && node->op != STFIELD))
            bad_shape(operand, "without its aggregate");
    }
    check_sense(node);
}

// Returns what the program expects of the value.
EXPECTATION clean_expression(NODE*& place) {
    unwrap_profile(place);
    if (place == nullptr) return {};
    if (place->op == COLON || place->op == FIELD) bad_shape(place, "alone");
    bool calls = false;
    walk_tree(place, [&calls](NODE* node) {
        clean_node(node);
        calls = calls || node->op == ICALL || node->op == CALL;
    });
    return calls && any_node(place, is_builtin_expect) ? take_expectations(place) : EXPECTATION{};
}

void clean_case_list(NODE* statement) {
    std::uint32_t cases = 0;
    NODE* last = nullptr;
    for (NODE** place = &statement->right;;) {
        unwrap_profile(*place);
        NODE* list = *place;
        if (list == nullptr) bad_shape(statement, "with an incomplete case list");
        if (list->type == nullptr) list->type = tp->void_type();
        const bool chained = list->op == COMMA;
        NODE** element_place = chained ? &list->right : place;
        unwrap_profile(*element_place);
        NODE* element = *element_place;
        if (element == nullptr) bad_shape(statement, "with an incomplete case list");
        if (element->type == nullptr) element->type = tp->void_type();
        if (element->op == CASE) {
            if (element->left == nullptr || element->left->op != ICON)
                bad_shape(element, "without a constant");
            if (element->left->type == nullptr) element->left->type = tp->int_type(IK_INT);
            bind_label(element->right, element);
            cases++;
        } else if (element->op == DEFAULT) {
            if (last != nullptr) bad_shape(element, "that is not the last of its SWITCH");
            bind_label(element->left, element);
        } else {
            bad_shape(statement, "with something else than CASE and DEFAULT in its list");
        }
        last = element;
        if (!chained) break;
        place = &list->left;
    }
    statement->u.lval = INT65::from_unsigned(cases);
}

void clean_returning_name(NODE* statement) {
    clean_expression(statement->left);
    const NODE* name = statement->left;
    if (name == nullptr || name->op != NAME || !name->symbol()->otype->is_func())
        bad_shape(statement, "that names no function");
}

} // namespace

NODE* expr_cleanup(NODE* tree, LBL*& behind) {
    behind = nullptr;
    unwrap_profile(tree);
    if (tree->type == nullptr) tree->type = tp->void_type();
    switch (tree->op) {
        case BRANCH: bind_label(tree->left, tree); return tree;
        case CBRANCH: {
            const EXPECTATION expectation = clean_expression(tree->left);
            check_sense(tree);
            bind_label(tree->right, tree);
            behind = opt_client.fresh_label();
            NODE* fall_through = mk_LABELREF(INT65::from_signed(behind->number), NO_PROFILE);
            fall_through->label = behind;
            tree->right = maketree(COLON, fall_through, tree->right, tp->void_type(), nullptr);
            tree->op = IF;
            convert_CBRANCH_with_builtin_expect(tree, expectation);
            return tree;
        }
        case SWITCH: {
            const EXPECTATION expectation = clean_expression(tree->left);
            clean_case_list(tree);
            convert_SWITCH_with_builtin_expect(tree, expectation);
            return tree;
        }
        case URETURN: clean_returning_name(tree); return tree;
        case RETURN:
            clean_returning_name(tree);
            clean_expression(tree->right);
            return tree;
        case NOP: return erase_tree(tree);
        default: break;
    }
    clean_expression(tree);
    return tree_has_side_effects(tree) ? tree : erase_tree(tree);
}

NODE* name_cleanup(NODE* tree) {
    unwrap_profile(tree);
    walk_tree(tree, [](NODE* node) {
        if (node->op == NAME) {
            SYMTAB* symbol = get_sym_def_for_decl(node->symbol());
            node->u.rval = symbol;
            node->otype = symbol->otype;
        } else if (node->op == LABEL && currfunc != nullptr) {
            node->label = opt_client.label_of_file(node->u.lval.low);
        }
        if (node->type == nullptr) node->type = tp->void_type();
    });
    return tree;
}
