// The policies that go by the size of functions.

#include <algorithm>
#include <cstdint>

#include "call_sites.h"
#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "inliner.h"
#include "inliner_limits.h"
#include "inliner_selection.h"
#include "symbol.h"

namespace {

constexpr std::int64_t LARGEST_TOTAL = std::int64_t{1} << 40; // where sums and products stop growing

std::int64_t bounded(std::int64_t value) { return std::min(value, LARGEST_TOTAL); }

// Both factors are bounded by LARGEST_TOTAL.
std::int64_t bounded_product(std::int64_t a, std::int64_t b) {
    return a != 0 && b > LARGEST_TOTAL / a ? LARGEST_TOTAL : a * b;
}

bool callee_is_leaf_of_total(const FUNINFO* function) {
    return TEST_FLAG(function, FUN_follows_call | FUN_cannot_inline) || function->size == 0;
}

} // namespace

void OLD_INLINER::collect_pass_1_info() { collect_call_sites(); }

// A callee that stands ahead of its caller follows a call, and counts for nothing, so one walk from the end
// of the order finds what the walk over all ways through the graph would.
void OLD_INLINER::further_setup(INLINING& inlining) {
    static_limit = 0;
    for (const CALLSITE* site : inlining.sites)
        if (site->callee == nullptr) optassert("callee_a != NULL && callee_b != NULL", __FILE__, __LINE__);
    std::stable_sort(inlining.sites.begin(), inlining.sites.end(), [](const CALLSITE* a, const CALLSITE* b) {
        return a->callee->cg_number > b->callee->cg_number;
    });
    totals_.assign(fileinfo.ordered.size(), 0);
    for (std::size_t i = fileinfo.ordered.size(); i-- != 0;) {
        const FUNINFO* function = fileinfo.ordered[i];
        if (callee_is_leaf_of_total(function)) continue;
        std::int64_t total = function->size;
        for (const CALL_EDGE* edge = function->callees; edge != nullptr; edge = edge->next) {
            if (edge->ncalls == 0) optassert("edge->ncalls != 0", __FILE__, __LINE__);
            if (edge->callee != function)
                total = bounded(total + total_inlined_size(edge->callee, edge->ncalls));
        }
        totals_[i] = total;
    }
}

// Nothing for a function that has no place in the order: it has no body here.
std::int64_t OLD_INLINER::total_inlined_size(const FUNINFO* function, std::int64_t times) const {
    if (function->cg_number < 0) return 0;
    return bounded_product(totals_[static_cast<std::size_t>(function->cg_number)], times);
}

bool OLD_INLINER::static_inlining_predicate(const CALLSITE& site) const {
    const FUNINFO* callee = site.callee;
    if (!is_declared_inline(callee)) return false;
    if (callee_is_leaf_of_total(callee)) return true;
    const std::int64_t limit = size_speed_goal() >= 2 ? 2000 : 500;
    std::int64_t total = callee->size;
    for (const CALL_EDGE* edge = callee->callees; edge != nullptr && total < limit; edge = edge->next)
        total = bounded(total + total_inlined_size(edge->callee, edge->ncalls));
    return bounded_product(total, callee->nCallers) < limit;
}

namespace {

constexpr std::int64_t TINY = 21;           // below: always worth it
constexpr std::int64_t SMALL_ONLY_USE = 99; // at most: worth it where it is the only use

// The size of the callee with what has been found worth inlining in it; more than `enough` is not told apart.
std::int64_t size_with_inlined_callees(const FUNINFO* callee, std::int64_t enough) {
    std::int64_t size = callee->size;
    for (const CALL_EDGE* edge = callee->callees; edge != nullptr && size <= enough; edge = edge->next)
        if (TEST_FLAG(edge->callee, FUN_is_inlined)) size += edge->callee->size;
    return size;
}

bool is_single_use(const FUNINFO* callee) {
    return inline_single != 0 && callee->remaining_sites == 1 && !TEST_FLAG(callee, FUN_cannot_suppress);
}

// The caller is the current function.
bool is_worth_inlining(const CALLSITE& site) {
    const FUNINFO* callee = site.callee;
    const std::int64_t limit = auto_inline();
    if (limit == 0 || callee->size == 0) return is_single_use(callee);
    if (is_always_inlined(callee)) return true;
    const std::int64_t size = size_with_inlined_callees(callee, std::max(limit, SMALL_ONLY_USE));
    if (size < TINY && (callee->callees == nullptr || callee->callees->next == nullptr)) return true;
    const bool is_internal = callee->symbol->sclass == SC_STATIC || no_outside_callers != 0;
    constexpr std::uint32_t body_stays = FUN_is_cg_root | FUN_follows_call | FUN_is_anonymous;
    if (size <= SMALL_ONLY_USE && (opt_level() > 2 || is_declared_inline(callee)) && is_internal &&
        callee->nCallers == 1 && !TEST_FLAG(callee, body_stays | FUN_cannot_suppress))
        return true;
    const int copies = TEST_FLAG(callee, body_stays) ? callee->nCallers : callee->nCallers - 1;
    return size * copies <= limit || is_single_use(callee);
}

} // namespace

void OLD_INLINER::auto_inlining_passes(INLINING& inlining) {
    inlining.selection.select(inlining.sites, is_worth_inlining, "", {});
}

bool REVISED_OLD_INLINER::static_inlining_predicate(const CALLSITE& site) const {
    return INLINER::static_inlining_predicate(site);
}

void REVISED_OLD_INLINER::further_setup(INLINING& inlining) {
    OLD_INLINER::further_setup(inlining);
    static_limit = static_limit_of(inlining);
}
