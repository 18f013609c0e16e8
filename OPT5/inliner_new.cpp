// The policies that weigh gains against costs.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <tuple>

#include "bblk.h"
#include "call_sites.h"
#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "fold_estimate.h"
#include "in_function.h"
#include "inliner.h"
#include "inliner_limits.h"
#include "inliner_selection.h"
#include "pragma.h"
#include "profile_spreading.h"
#include "symbol.h"
#include "types.h"

namespace {

int switch_or(const char* name, int default_value) {
    const int value = pass_debug(name);
    return value != 0 ? value : default_value;
}

// The share of the caller's entries, if they are known and may be used.
bool has_usable_profile(const FUNINFO* function) {
    return pass_disable("inline_profiled") == 0 && function->entry_count != UNKNOWN_COUNT;
}

// --- Which candidates are wanted.

// Whether two pointer parameters may point to the same thing, as their types tell.
bool has_pointer_clash(const FUNINFO* callee) {
    const std::vector<fkPARAM>& parameters = callee->symbol->otype->func().params;
    for (std::size_t i = 0; i < parameters.size(); i++)
        for (std::size_t j = 0; j < i; j++)
            if (parameters[i].type->is_ptr() && parameters[j].type->is_ptr() &&
                tp->compatible_types(parameters[i].type, parameters[j].type, true))
                return true;
    return false;
}

// A function that control never leaves gains nothing: its call is made once.
bool never_leaves_a_loop(const FUNINFO* function) {
    return function->est_loops != 0 && function->bb_list->prev->predecessors == nullptr;
}

bool site_wanted(const CALLSITE& site) {
    constexpr int MOST_PRESSURE = 26;
    const FUNINFO* callee = site.callee;
    if (is_always_inlined(callee)) return true;
    if (symbol_has_pragma(site.caller->symbol, PRAG_FUNC_SYNONYM)) return false;
    const bool is_declared = is_declared_inline(callee);
    if (pass_debug("inline_restrict") != 0 && pointer_args_are_disjoint != 0 && !is_declared &&
        has_pointer_clash(callee)) {
        comment_on_inlining("Hey, punted %s for pointer clash!\n", callee->name.c_str());
        return false;
    }
    const int pressure = site.pressure + callee->pressure;
    if (!is_declared && pressure > MOST_PRESSURE) {
        comment_on_inlining("Inhibiting inlining of %s into %s for pressure (%d)\n", callee->name.c_str(),
                            site.caller->name.c_str(), pressure);
        return false;
    }
    return !never_leaves_a_loop(callee) && (is_declared || !TEST_FLAG(callee, FUN_is_SYSTEM));
}

void drop_unwanted(std::vector<CALLSITE*>& sites) {
    const auto is_dropped = [](CALLSITE* site) {
        if (site_wanted(*site)) return false;
        site->fate = SITE_FATE::NOT_WANTED;
        return true;
    };
    sites.erase(std::remove_if(sites.begin(), sites.end(), is_dropped), sites.end());
}

// --- The order in which sites are tried.

// Most benefit for the cost first. The places of two sites follow from their keys alone, whatever other sites
// there are, also where a benefit is negative or a cost zero.
struct SITE_KEY {
    double value;    // benefit for a unit of cost
    double tie;      // among sites that cost nothing the benefit, among those without benefit the cost
    unsigned symbol; // the caller's number: the higher one first
    int index;
    CALLSITE* site;

    bool operator<(const SITE_KEY& other) const {
        return std::tie(other.value, other.tie, other.symbol, index) <
               std::tie(value, tie, symbol, other.index);
    }
};

SITE_KEY key_of(CALLSITE* site) {
    const IN_FUNCTION caller(site->caller);
    const double benefit = inliner->site_benefit(*site);
    const double cost = site_cost(*site);
    SITE_KEY key{0, 0, site->caller->symbol->index, site->index, site};
    if (benefit == 0) {
        key.tie = -cost;
    } else if (cost == 0) {
        key.value = benefit > 0 ? HUGE_VAL : -HUGE_VAL;
        key.tie = benefit;
    } else {
        key.value = benefit / cost;
    }
    return key;
}

void put_in_site_order(std::vector<CALLSITE*>& sites) {
    std::vector<SITE_KEY> keys;
    keys.reserve(sites.size());
    for (CALLSITE* site : sites) keys.push_back(key_of(site));
    std::stable_sort(keys.begin(), keys.end());
    std::transform(keys.begin(), keys.end(), sites.begin(), [](const SITE_KEY& key) { return key.site; });
}

void set_limits(INLINING& inlining) {
    inliner->static_limit = static_limit_of(inlining);
    inliner->auto_limit = auto_limit_of(inlining);
    comment_on_inlining("[Initial:  limit %lld]\n", static_cast<long long>(inliner->auto_limit));
}

void set_up_by_benefit(INLINING& inlining) {
    set_limits(inlining);
    drop_unwanted(inlining.sites);
    if (pass_disable("inline_folding") == 0)
        for (CALLSITE* site : inlining.sites) estimate_folding(*site);
    put_in_site_order(inlining.sites);
}

// --- The passes.

constexpr char SINGLE_SITE[] = "suppressible-single-site ";

bool is_leaf(const CALLSITE& site) { return site.callee->est_calls == 0; }

bool is_last_use(const CALLSITE& site) {
    return site.callee->remaining_sites == 1 && !TEST_FLAG(site.callee, FUN_cannot_suppress);
}

// Until a wave accepts nothing: callers that have become leaves follow their callees.
void run_waves(INLINING& inlining, bool (*test)(const CALLSITE&), const char* prefix,
               const SELECTION_LIMITS& limits) {
    if (pass_disable("inline_waves") != 0) return;
    int accepted = 0, number = 0;
    do {
        comment_on_inlining("[Wave %d]\n", ++number);
        accepted = inlining.selection.select(inlining.sites, test, prefix, limits);
    } while (accepted != 0);
    comment_on_inlining("[End of waves]\n");
}

// How much the program may be, for what it is now.
double size_factor() {
    if (inlining_keeps_size()) return 1.0;
    switch (size_speed_goal()) {
        case 0: return 0.8;
        case 4: return 1.25;
        case 5: return 2.0;
        default: return 1.0;
    }
}

SELECTION_LIMITS limits_for_auto(INLINING& inlining) {
    SITE_SELECTION& selection = inlining.selection;
    constexpr int SMALL_LIMIT = 1000000;
    SELECTION_LIMITS limits{0, 0, INLINE_LOOPS_LIMIT, INLINE_BLOCKS_LIMIT};
    limits.time = std::max(inliner->auto_limit, std::int64_t{switch_or("inline_small_limit", SMALL_LIMIT)});
    limits.size = static_cast<std::int64_t>(static_cast<double>(selection.size_sum()) * size_factor());
    if (auto_inline_is_given() && auto_inline() > 0) limits.time = limits.size = 0;
    comment_on_inlining(
        "[After static-inline:  time %lld limit %lld (ratio %lld)]\n",
        static_cast<long long>(selection.time_sum()), static_cast<long long>(limits.time),
        static_cast<long long>(limits.time / std::max(selection.time_sum(), std::int64_t{1})));
    return limits;
}

bool is_nobodys_wish(const CALLSITE& site) {
    return !is_declared_inline(site.callee) && !is_always_inlined(site.callee);
}

void run_auto_passes(INLINING& inlining) {
    const SELECTION_LIMITS limits = limits_for_auto(inlining);
    run_waves(inlining, is_leaf, "", limits);
    inlining.selection.select(inlining.sites, is_last_use, SINGLE_SITE, {inliner->static_limit, 0, 0, 0});
    if (auto_inline_is_given() && auto_inline() > 0) {
        inlining.selection.select(inlining.sites, is_nobodys_wish, "", {});
    } else {
        inlining.selection.select(inlining.sites, nullptr, "", limits);
    }
}

bool is_tiny_leaf(const CALLSITE& site) {
    constexpr int TINY_LEAF = 20;
    return is_leaf(site) && site.callee->size >= 1 && site.callee->size <= TINY_LEAF;
}

// The gain weighed by how often the site runs.
double weighed_benefit(const CALLSITE& site) {
    const FUNINFO* caller = site.caller;
    const bool is_profiled = has_usable_profile(caller) && site.frequency != 0;
    const double weight = is_profiled ? caller->entry_count * site.frequency
                                      : std::pow(8.0, std::min(int{site.loop_level}, 100));
    double gain = switch_or("inline_benefit_call", 2);
    if (site.fold_ratio > 1.01f) gain += switch_or("inline_benefit_fold", 2);
    const int pressure = site.pressure + (site.callee != nullptr ? site.callee->pressure : 0);
    if (pressure > switch_or("inline_pressure_limit", 15)) gain -= switch_or("inline_benefit_pressure", 4);
    return gain * weight;
}

void collect_with_flow(bool predict) {
    collect_call_sites();
    analyze_call_sites(predict);
}

} // namespace

// --- NEW_INLINER

void NEW_INLINER::collect_pass_1_info() { collect_with_flow(false); }
void NEW_INLINER::further_setup(INLINING& inlining) { set_up_by_benefit(inlining); }
void NEW_INLINER::auto_inlining_passes(INLINING& inlining) { run_auto_passes(inlining); }

double NEW_INLINER::site_benefit(const CALLSITE& site) const {
    double benefit = site.loop_height == 1 ? 10 : site.loop_height == 2 ? 5 : 0;
    if (!site.postdominates) benefit -= 1;
    if (pass_disable("inline_folding") == 0) {
        benefit += std::trunc(5 * static_cast<double>(site.fold_ratio));
    } else if (site.nargs != 0) {
        benefit += 5 * site.nconstargs / site.nargs;
    }
    if (site.callee != nullptr) {
        if (site.callee->symbol != nullptr && is_declared_inline(site.callee)) benefit += 1;
        if (site.callee->remaining_sites == 1) benefit += size_speed_goal() < 2 ? 10 : 1;
    }
    if (has_usable_profile(site.caller)) benefit += std::trunc(site.caller->entry_count * site.frequency);
    return benefit;
}

// --- INLINER_5

void INLINER_5::collect_pass_1_info() { collect_with_flow(false); }
void INLINER_5::further_setup(INLINING& inlining) { set_up_by_benefit(inlining); }
void INLINER_5::auto_inlining_passes(INLINING& inlining) { run_auto_passes(inlining); }
double INLINER_5::site_benefit(const CALLSITE& site) const { return weighed_benefit(site); }

// --- NEWER_INLINER

void NEWER_INLINER::collect_pass_1_info() { collect_with_flow(true); }
double NEWER_INLINER::site_benefit(const CALLSITE& site) const { return weighed_benefit(site); }

void NEWER_INLINER::further_setup(INLINING& inlining) {
    constexpr double HOTTEST = 3e38;
    set_limits(inlining);
    spread_profile_counts(inlining.functions);
    const auto size_sum = static_cast<double>(inlining.selection.size_sum());
    for (CALLSITE* site : inlining.sites) {
        const double share = size_sum > 0 ? site_cost(*site) / size_sum : 0;
        const double entries = std::max(site->callee->entry_count, 1u);
        const double heat = site->frequency * site->caller->entry_count / entries;
        site->temperature = static_cast<float>(share == 0 ? HOTTEST : std::min(heat / share, HOTTEST));
    }
    std::stable_sort(inlining.sites.begin(), inlining.sites.end(),
                     [](const CALLSITE* a, const CALLSITE* b) { return a->temperature > b->temperature; });
}

void NEWER_INLINER::auto_inlining_passes(INLINING& inlining) {
    const SELECTION_LIMITS limits{static_limit, 0, 0, 0};
    inlining.selection.select(inlining.sites, is_last_use, SINGLE_SITE, limits);
    if (auto_inline() > 0 && pass_disable("inline_tiny_leaves") == 0)
        run_waves(inlining, is_tiny_leaf, "tiny leaf ", {0, 0, INLINE_LOOPS_LIMIT, INLINE_BLOCKS_LIMIT});
    run_auto_passes(inlining);
    forget_spread_counts(inlining.functions);
}
