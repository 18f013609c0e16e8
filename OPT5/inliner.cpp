#include "inliner.h"

#include <algorithm>
#include <cmath>
#include <unordered_set>
#include <utility>
#include <vector>

#include "call_sites.h"
#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "in_function.h"
#include "inliner_report.h"
#include "inliner_selection.h"
#include "integrate.h"
#include "pragma.h"
#include "symbol.h"
#include "types.h"

std::unique_ptr<INLINER> inliner;

std::unique_ptr<INLINER> make_inliner(int number) {
    switch (number) {
        case 1: return std::make_unique<OLD_INLINER>();
        case 3: return std::make_unique<NEW_INLINER>();
        case 4: return std::make_unique<NEWER_INLINER>();
        case 5: return std::make_unique<INLINER_5>();
        default: return std::make_unique<REVISED_OLD_INLINER>();
    }
}

// --- What policies and reports share.

bool is_declared_inline(const FUNINFO* function) { return symbol_has_pragma(function->symbol, PRAG_INLINE); }

bool is_always_inlined(const FUNINFO* function) {
    return symbol_has_pragma(function->symbol, PRAG_FUNC_ALWAYS_INLINE);
}

bool INLINER::static_inlining_predicate(const CALLSITE& site) const {
    return is_declared_inline(site.callee);
}

double INLINER::site_benefit(const CALLSITE&) const { return 1; }

double site_cost(const CALLSITE& site) {
    constexpr double UNKNOWN_CALLEE_COST = 100000;
    if (site.callee == nullptr || site.callee->symbol == nullptr) return UNKNOWN_CALLEE_COST;
    const double folded =
        std::floor(site.callee->est_size / static_cast<double>(std::max(site.fold_ratio, 0.01f)));
    const int per_argument = site.callee->symbol->otype->func().proto ? 2 : 3;
    return std::max(0.0, folded - 2 - per_argument * site.nargs);
}

// --- Which sites come into question.

namespace {

constexpr std::uint16_t TOO_MANY_CALLERS = 0xffff; // to be counted

bool may_be_dropped(const SYMTAB* symbol) {
    return symbol->retention == I_SYMTAB::EXTERNAL || symbol->retention == I_SYMTAB::NEVER;
}

bool is_external(const SYMTAB* symbol) { return symbol->sclass == SC_EXTDEF || symbol->sclass == SC_EXTERN; }

// Whether something else than a call that this file makes refers to the function.
bool must_keep_body(FUNINFO* function) {
    const IN_FUNCTION current(function);
    const SYMTAB* symbol = function->symbol;
    if (TEST_FLAG(function, FUN_is_anonymous | FUN_is_referenced | FUN_is_interrupt | FUN_is_main))
        return true;
    if (!may_be_dropped(symbol) &&
        (TEST_FLAG(function, FUN_is_cg_root) || (is_external(symbol) && no_outside_callers == 0)))
        return true;
    return opt_level() < 3 && !is_declared_inline(function);
}

void mark_back_edges() {
    for (const FUNINFO* caller : fileinfo.ordered)
        for (const CALL_EDGE* edge = caller->callees; edge != nullptr; edge = edge->next)
            if (edge->callee->cg_number <= caller->cg_number) edge->callee->flags |= FUN_follows_call;
}

// Calls may have come and gone since the bodies were read, and an indirect call may have become a direct one,
// of which the graph knows nothing.
void count_callers(const std::vector<FUNINFO*>& functions) {
    for (FUNINFO* function : functions) function->nCallers = 0;
    for (FUNINFO* caller : functions)
        for (const CALLSITE* site : caller->callsites) {
            FUNINFO* callee = site->callee;
            if (callee == nullptr) continue;
            if (callee->nCallers != TOO_MANY_CALLERS) callee->nCallers++;
            if (callee->nCallers == TOO_MANY_CALLERS) callee->flags |= FUN_cannot_suppress;
            if (callee->cg_number <= caller->cg_number) callee->flags |= FUN_follows_call;
            // The caller stays what it is, and so does what it is another name for.
            if (symbol_has_pragma(caller->symbol, PRAG_FUNC_SYNONYM)) callee->flags |= FUN_cannot_suppress;
        }
}

// What speaks against the callee, whoever calls it; INLINED for nothing.
SITE_FATE callee_is_inlinable(const FUNINFO* callee) {
    if (callee->symbol == nullptr || !function_is_defined(callee)) return SITE_FATE::NOT_DEFINED;
    if (TEST_FLAG(callee, FUN_never_returns)) return SITE_FATE::NEVER_RETURNS;
    if (callee->symbol->otype->func().vararg) return SITE_FATE::VARARGS;
    if (TEST_FLAG(callee, FUN_cannot_inline)) return SITE_FATE::CANNOT_INLINE;
    if (TEST_FLAG(callee, FUN_follows_call) && !is_declared_inline(callee) && !is_always_inlined(callee))
        return SITE_FATE::RECURSIVE;
    if (callee->size == 0 || callee->bb_list == nullptr) return SITE_FATE::NO_BODY;
    return SITE_FATE::INLINED;
}

// Whether the site may be tried at all, as far as the options go. The caller is the current function.
SITE_FATE wish_for(const CALLSITE& site) {
    const FUNINFO* callee = site.callee;
    if (is_always_inlined(callee)) return SITE_FATE::INLINED;
    if (symbol_has_pragma(site.caller->symbol, PRAG_FUNC_SYNONYM)) return SITE_FATE::SYNONYM;
    if (inlining_is_forbidden()) return SITE_FATE::FORBIDDEN;
    if (is_declared_inline(callee)) return SITE_FATE::INLINED;
    if (opt_level() < 2) return SITE_FATE::LEVEL;
    if (callee->size == 0) return SITE_FATE::NO_BODY;
    const bool is_only_use = callee->nCallers == 1 && !TEST_FLAG(callee, FUN_is_cg_root);
    if (callee->size >= auto_inline() && !(is_only_use && auto_inline() > 0)) return SITE_FATE::TOO_LARGE;
    return SITE_FATE::INLINED;
}

SITE_FATE first_decision(const CALLSITE& site) {
    if (site.callee == nullptr) return SITE_FATE::UNKNOWN_CALLEE;
    SITE_FATE fate = callee_is_inlinable(site.callee);
    if (fate == SITE_FATE::INLINED) fate = wish_for(site);
    if (fate != SITE_FATE::INLINED) return fate;
    if (!site.args_match) return SITE_FATE::ARGUMENTS;
    if (TEST_FLAG(site.callee, FUN_follows_call) && site.caller->cg_number >= site.callee->cg_number)
        return SITE_FATE::RECURSIVE;
    return SITE_FATE::NOT_CHOSEN;
}

// Takes back what an earlier decision has left. Returns the functions that it has suppressed.
std::vector<FUNINFO*> forget_decisions(const std::vector<FUNINFO*>& functions) {
    std::vector<FUNINFO*> suppressed;
    for (FUNINFO* function : functions) {
        if (TEST_FLAG(function, FUN_is_suppressed)) suppressed.push_back(function);
        function->flags &= ~(FUN_is_inlined | FUN_is_suppressed);
        if (function->integrable_cfg == nullptr) continue;
        function->integrable_cfg.reset();
        fileinfo.definition_count--;
    }
    return suppressed;
}

// A function that has left the list of those to process, and is now needed, comes back to it.
void restore_needed(const std::vector<FUNINFO*>& suppressed) {
    if (suppressed.empty()) return;
    const std::unordered_set<const SYMTAB*> listed(::functions.begin(), ::functions.end());
    for (FUNINFO* function : suppressed) {
        if (TEST_FLAG(function, FUN_is_suppressed) || listed.count(function->symbol) != 0) continue;
        function->flags |= FUN_is_suppressed;
        unsuppress_inline_function(function);
    }
}

void collect_candidates(const std::vector<FUNINFO*>& functions, std::vector<CALLSITE*>& candidates) {
    for (FUNINFO* function : functions) {
        if (function->bb_list == nullptr) continue;
        const IN_FUNCTION current(function);
        inliner->collect_pass_1_info();
    }
    count_callers(functions);
    for (FUNINFO* function : functions) {
        const IN_FUNCTION current(function);
        function->remaining_sites = function->nCallers;
        function->est_calls = static_cast<std::uint32_t>(function->callsites.size());
        for (CALLSITE* site : function->callsites) {
            site->fate = first_decision(*site);
            if (site->fate == SITE_FATE::NOT_CHOSEN) candidates.push_back(site);
        }
    }
}

} // namespace

void auto_inline_call_sites() {
    set_up_and_build_call_graph();
    if (fileinfo.ordered.empty()) return;
    mark_back_edges();
    std::vector<FUNINFO*> functions;
    for (FUNINFO* function : fileinfo.ordered)
        if (function != fileinfo.root && function->bb_list != nullptr) functions.push_back(function);
    const std::vector<FUNINFO*> suppressed = forget_decisions(functions);
    for (FUNINFO* function : functions)
        if (must_keep_body(function)) function->flags |= FUN_cannot_suppress;

    std::vector<CALLSITE*> candidates;
    collect_candidates(functions, candidates);
    SITE_SELECTION selection(functions);
    INLINING inlining{functions, std::move(candidates), selection};
    inliner->static_limit = inliner->auto_limit = 0;
    inliner->further_setup(inlining);
    selection.select(inlining.sites, [](const CALLSITE& site) { return is_always_inlined(site.callee); },
                     "always-inline ", {});
    selection.select(inlining.sites,
                     [](const CALLSITE& site) { return inliner->static_inlining_predicate(site); },
                     "static-inline ", {inliner->static_limit, 0, INLINE_LOOPS_LIMIT, INLINE_BLOCKS_LIMIT});
    inliner->auto_inlining_passes(inlining);
    restore_needed(suppressed);
    report_call_sites(functions);
    for (FUNINFO* function : functions) drop_copied_arguments(function);
}
