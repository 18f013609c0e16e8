#include "call_sites.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <deque>
#include <limits>
#include <vector>

#include "bblk.h"
#include "bbutils.h"
#include "branch_prediction.h"
#include "congruent.h"
#include "copy.h"
#include "dominator.h"
#include "erase.h"
#include "fileopt.h"
#include "files.h"
#include "if_client.h"
#include "inliner.h"
#include "natural_loops.h"
#include "node.h"
#include "opcodes.h"
#include "pool.h"
#include "register_pressure.h"
#include "symbol.h"
#include "types.h"

using namespace op;

namespace {

bool is_call(const NODE* node) { return node->op == CALL || node->op == UCALL; }

NODE* arguments_of(const NODE* call) { return call->op == CALL ? call->right : nullptr; }

// Calls `visit` with each call in the blocks of the current function, its block and the position of its
// statement, always in the same order.
template <class VISIT> void for_each_call(VISIT visit) {
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        const PSN* psn = bb->first_psn;
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next) {
            if (cell->psn != nullptr) psn = cell->psn;
            walk_tree(cell->first, [&](NODE* node) {
                if (is_call(node)) visit(node, bb, psn);
            });
        }
    }
}

std::int8_t saturate_to_8(int value) {
    return static_cast<std::int8_t>(std::min(value, int{std::numeric_limits<std::int8_t>::max()}));
}

int count_constant_arguments(NODE* arguments) {
    int count = 0;
    for (NODE* list = arguments; list != nullptr; list = list->op == COMMA ? list->left : nullptr)
        if (expr_is_constant(list->op == COMMA ? list->right : list)) count++;
    return count;
}

// A copy in which the conversions to the parameters' types are ordinary ones.
NODE* copy_arguments(NODE* arguments) {
    NODE* copy = copy_tree(arguments, false);
    walk_tree(copy, [](NODE* node) {
        if (node->op != ACONV) return;
        node->op = node->left->type->is_ptr() ? PCONV : SCONV;
    });
    return copy;
}

int count_symbols(const SYMTAB* list) {
    int count = 0;
    for (; list != nullptr; list = list->next) count++;
    return count;
}

// The body's places live as long as the body; reports come later.
const PSN* keep_position(const PSN* psn) {
    if (psn == nullptr) return nullptr;
    auto* copy = static_cast<PSN*>(record_pool().allocate_cell(sizeof(PSN)));
    *copy = *psn;
    return copy;
}

CALLSITE* make_site(NODE* call, const PSN* psn) {
    auto* site = static_cast<CALLSITE*>(record_pool().allocate_cell(sizeof(CALLSITE)));
    NODE* arguments = arguments_of(call);
    *site = CALLSITE{};
    site->caller = currfuninfo;
    site->callee = find_FUNINFO_for_call(call);
    site->index = static_cast<std::int32_t>(call->unique_call_index);
    site->psn = keep_position(psn);
    site->nargs = saturate_to_8(arg_list_count(arguments));
    site->nconstargs = saturate_to_8(count_constant_arguments(arguments));
    site->fold_ratio = 1.0f;
    site->args_match = site->callee != nullptr && arguments_match(call, currfuninfo, site->callee);
    site->fate = SITE_FATE::NOT_CHOSEN;
    return site;
}

} // namespace

int arg_list_count(const NODE* arguments) {
    if (arguments == nullptr) return 0;
    int count = 1;
    for (; arguments->op == COMMA; arguments = arguments->left) count++;
    return count;
}

namespace {

bool is_pointer_to_object(TYPE* type) { return type->is_ptr() && !type->type_pointed_to()->is_func(); }

bool is_literal_zero(const NODE* argument) {
    return argument->op == ICON && argument->u.lval == INT65::from_signed(0);
}

bool argument_fits(const NODE* argument, TYPE* parameter) {
    TYPE* type = argument->type;
    // An object that must not change may not become one that can.
    if (type->is_ptr() && parameter->is_ptr() && type->type_pointed_to()->is_const() &&
        !parameter->type_pointed_to()->is_const())
        return false;
    return tp->compatible_types(type, parameter, true) || (type->is_integral() && parameter->is_integral()) ||
           (is_pointer_to_object(type) && is_pointer_to_object(parameter)) ||
           (parameter->is_ptr() && is_literal_zero(argument));
}

} // namespace

bool arguments_fit_prototype(NODE* arguments, const FUNINFO* callee) {
    const FUNC_BODY& prototype = callee->symbol->otype->func();
    if (!prototype.proto && arguments == nullptr) return true;
    std::deque<const NODE*> list; // the last argument stands at the top of the tree
    for (const NODE* rest = arguments; rest != nullptr; rest = rest->op == COMMA ? rest->left : nullptr)
        list.push_front(rest->op == COMMA ? rest->right : rest);
    if (list.size() != prototype.params.size()) return false;
    for (std::size_t i = list.size(); i-- != 0;)
        if (!argument_fits(list[i], prototype.params[i].type)) return false;
    return true;
}

bool arguments_match(NODE* call, const FUNINFO* caller, const FUNINFO* callee) {
    if (callee->symbol == nullptr || !callee->symbol->otype->is_func()) return false;
    // Nobody asks for the value of a function that does nothing else: the call is about to go.
    if (TEST_FLAG(callee, FUN_is_pure_fun) && !TEST_FLAG(callee, FUN_value_needed)) return false;
    const std::uint32_t region = call->u2.i_eht_id;
    if (region != 0 && (region >= caller->eht.size() || caller->eht[region].kind == EHK_TERMINATE))
        return false;
    return arguments_fit_prototype(arguments_of(call), callee);
}

void drop_copied_arguments(FUNINFO* function) {
    for (CALLSITE* site : function->callsites)
        if (site->args != nullptr) site->args = erase_tree(site->args);
}

void drop_call_sites(FUNINFO* function) {
    for (CALLSITE* site : function->callsites) {
        if (site->psn != nullptr) POOL::recycle(const_cast<PSN*>(site->psn), sizeof(PSN));
        POOL::recycle(site, sizeof(CALLSITE));
    }
    function->callsites.clear();
}

void collect_call_sites() {
    FUNINFO* function = currfuninfo;
    drop_call_sites(function);
    std::uint32_t count = 0;
    for_each_call([&](NODE* call, const BBLK*, const PSN* psn) {
        call->call_owner = function;
        call->unique_call_index = ++count;
        function->callsites.push_back(make_site(call, psn));
    });
    // The calls of clean-ups stay calls: numbers behind those of the sites.
    for (EHT_ENTRY& entry : function->eht)
        walk_tree(static_cast<NODE*>(entry.tree), [&](NODE* node) {
            if (!is_call(node)) return;
            node->call_owner = function;
            node->unique_call_index = ++count;
        });
    function->unique_call_index = count;
    function->inlined_sites.assign(count + 1, false);
    function->est_loops = 0;
    function->est_syms = static_cast<std::uint32_t>(count_symbols(function->locals));
    function->est_bbs = static_cast<std::uint32_t>(function->bb_count);
    function->est_size = static_cast<std::uint32_t>(function->size);
    function->pressure = 0;
    function->density = 0;
}

namespace {

// By loop: 1 for an innermost one, one more for each loop that goes around it.
std::vector<int> heights_of(const NATURAL_LOOPS& loops) {
    std::vector<int> heights(loops.loops().size(), 1);
    for (std::size_t i = heights.size(); i-- != 0;)
        if (const int parent = loops.loops()[i].parent; parent != NO_LOOP) {
            int& height = heights[static_cast<std::size_t>(parent)];
            height = std::max(height, heights[i] + 1);
        }
    return heights;
}

// The blocks that every way through the function passes, by id.
std::vector<bool> blocks_always_passed() {
    std::vector<bool> passed(currfuninfo->blocks.size(), false);
    Dominator& dominators = compute_dominators(false);
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr && !passed[bb->uon()];
         bb = dominators.immediate_post_dominator(bb))
        passed[bb->uon()] = true;
    return passed;
}

std::uint32_t saturate_to_32(double value) {
    constexpr double most = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::min(value, most));
}

std::uint32_t density_of(const std::vector<double>& frequency) {
    double density = 0;
    for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next) {
        double nodes = 0;
        for (const LIST* cell = bb->statements; cell != nullptr; cell = cell->next)
            nodes += count_nodes_in_tree(cell->first);
        density += std::floor(nodes * frequency[bb->uon()] + 0.5);
    }
    return saturate_to_32(density);
}

std::vector<double> frequencies_of(const NATURAL_LOOPS& loops, bool predict) {
    std::vector<double> frequency(currfuninfo->blocks.size(), 0.0);
    if (predict) {
        const BRANCH_PREDICTION prediction(loops);
        for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
            frequency[bb->uon()] = prediction.frequency(bb);
    } else {
        for (const BBLK* bb = currfuninfo->bb_list; bb != nullptr; bb = bb->next)
            frequency[bb->uon()] = std::pow(8.0, std::min(loops.depth(bb), 100));
    }
    return frequency;
}

} // namespace

void analyze_call_sites(bool predict) {
    FUNINFO* function = currfuninfo;
    const REGISTER_PRESSURE pressure;
    const NATURAL_LOOPS loops;
    const std::vector<int> heights = heights_of(loops);
    const std::vector<double> frequency = frequencies_of(loops, predict || function->profile_state != 0);
    const std::vector<bool> passed = blocks_always_passed();
    function->est_loops = static_cast<std::uint32_t>(loops.loops().size());
    function->pressure = register_pressure_for_loop(pressure, loops);
    function->density = density_of(frequency);
    std::size_t next = 0;
    for_each_call([&](NODE* call, const BBLK* bb, const PSN*) {
        CALLSITE* site = function->callsites[next++];
        const int loop = loops.innermost(bb);
        const int height = loop == NO_LOOP ? 0 : heights[static_cast<std::size_t>(loop)];
        site->loop_height = static_cast<std::int16_t>(std::min(height, 32767));
        site->loop_level = static_cast<std::uint16_t>(std::min(loops.depth(bb), 65535));
        site->pressure = pressure.of(bb);
        site->frequency = frequency[bb->uon()];
        site->postdominates = passed[bb->uon()];
        if (NODE* arguments = arguments_of(call)) site->args = copy_arguments(arguments);
    });
}
