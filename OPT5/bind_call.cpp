#include "bind_call.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "bbutils.h"
#include "debug.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "fold.h"
#include "node.h"
#include "opcodes.h"
#include "option_obj.h"
#include "optypes.h"
#include "psn.h"
#include "simp.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

constexpr int OUTERMOST_LOCALS = 2;
constexpr std::size_t FIXED_ENTRIES = 2; // of every exception table

constexpr int RECURSION_LIMIT_OPTION = 29;
constexpr unsigned DEFAULT_RECURSION_LIMIT = 10;
constexpr unsigned MAX_DEPTH = NF_INLINE_DEPTH >> 16;

} // namespace

// --- Arguments.

std::vector<NODE*> arguments_of(const NODE* call) {
    std::vector<NODE*> arguments;
    for (NODE* list = call->op == CALL ? call->right : nullptr; list != nullptr;) {
        arguments.push_back(list->op == COMMA ? list->right : list);
        list = list->op == COMMA ? list->left : nullptr;
    }
    std::reverse(arguments.begin(), arguments.end());
    return arguments;
}

std::vector<NODE*> take_arguments(NODE* call) {
    std::vector<NODE*> arguments = arguments_of(call);
    for (NODE *list = call->op == CALL ? call->right : nullptr, *rest; list != nullptr; list = rest) {
        if (list->op != COMMA) break;
        rest = list->left;
        list->left = list->right = nullptr;
        erase_node(list);
    }
    erase_tree(call->left);
    call->left = call->right = nullptr;
    for (NODE*& argument : arguments) {
        if (argument->op != STARG && argument->op != ACONV) continue;
        NODE* passed = argument;
        argument = passed->op == ACONV ? coerce_to_type(passed->left, passed->type) : passed->left;
        passed->left = nullptr;
        erase_node(passed);
    }
    return arguments;
}

PROLOG take_prolog_apart(NODE* prolog) {
    PROLOG assignments;
    for (NODE *tree = prolog, *rest; tree != nullptr; tree = rest) {
        const bool is_chain = tree->op == PCOMMA;
        rest = is_chain ? tree->left : nullptr;
        NODE* assignment = is_chain ? tree->right : tree;
        if (is_chain) {
            tree->left = tree->right = nullptr;
            erase_node(tree);
        }
        assignment->flags &= ~NF_RECEIVES_PARAMETER;
        assignments.emplace(assignment->left->symbol(), assignment);
    }
    return assignments;
}

NODE* assignment_to_parameter(const PROLOG& prolog, SYMTAB* parameter, NODE* value) {
    const auto received = prolog.find(parameter);
    if (received == prolog.end())
        return simp_tree(mk_ASG(mk_NAME(parameter, parameter->scope), coerce_to_type(value, parameter->type)),
                         nullptr);
    NODE** place = &received->second->right;
    while ((*place)->left != nullptr) place = &(*place)->left;
    NODE* arriving = *place;
    *place = arriving->type->is_scalar() ? coerce_to_type(value, arriving->type) : value;
    erase_node(arriving);
    return simp_tree(received->second, nullptr);
}

// --- Symbols.

namespace {

// A temporary's name is "$O$", a letter and a number.
void give_fresh_name(SYMTAB* symbol) {
    if (!is_internal_symbol(symbol) || !is_optimizer_temp(symbol->name, symbol->name[3], symbol->name[3]))
        return;
    const std::string name = std::string(symbol->name, 4) + std::to_string(currfuninfo->next_temp++);
    symbol->name = intern_text(name);
}

} // namespace

void make_local_of_caller(SYMTAB* symbol) {
    symbol->level = OUTERMOST_LOCALS;
    if (is_automatic(symbol)) {
        symbol->sclass = symbol->class_as_read = SC_AUTO;
        symbol->flags |= SF_REGISTER_CANDIDATE;
    }
    give_fresh_name(symbol);
}

// --- Exceptions.

unsigned append_exception_table(std::vector<EHT_ENTRY>&& copied, unsigned region) {
    if (copied.size() <= FIXED_ENTRIES) return 0;
    std::vector<EHT_ENTRY>& table = currfuninfo->eht;
    if (table.empty()) table.assign(copied.begin(), copied.begin() + FIXED_ENTRIES);
    const auto offset = static_cast<unsigned>(table.size() - FIXED_ENTRIES);
    for (std::size_t i = FIXED_ENTRIES; i < copied.size(); i++) {
        EHT_ENTRY entry = std::move(copied[i]);
        OPTASSERT(entry.kind != EHK_CATCH);
        entry.first += offset;
        if (entry.kind == EHK_TERMINATE) {
            entry.third = 1;
        } else {
            entry.third = entry.third > 1 ? entry.third + offset : std::max(region, 1u);
        }
        table.push_back(std::move(entry));
    }
    return offset;
}

void adjust_copied_calls(NODE* tree, const NODE* call, unsigned offset) {
    const unsigned depth = std::min(call->inline_depth() + 1, MAX_DEPTH);
    const unsigned region = call->u2.i_eht_id;
    walk_tree(tree, [&](NODE* node) {
        if (node->op != CALL && node->op != UCALL) return;
        node->set_inline_depth(depth);
        node->u2.i_eht_id = node->u2.i_eht_id > 1 ? node->u2.i_eht_id + offset : region;
    });
}

// --- Values.

NODE* returned_value(NODE* value, const NODE* call, SYMTAB* target) {
    if (target == nullptr) return peel_for_effect(value);
    value = coerce_to_type(coerce_to_type(value, call->type), target->type);
    return simp_tree(mk_ASG(mk_NAME(target, target->scope), value), nullptr);
}

unsigned inline_recursion_limit() {
    if (cmdline_options == nullptr || !cmdline_options->is_present(RECURSION_LIMIT_OPTION))
        return DEFAULT_RECURSION_LIMIT;
    const long limit = cmdline_options->getnumarg(RECURSION_LIMIT_OPTION, 0);
    return static_cast<unsigned>(std::clamp(limit, 0L, static_cast<long>(MAX_DEPTH)));
}
