#include "inliner_selection.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <limits>
#include <string>

#include "debug.h"
#include "fileopt.h"
#include "files.h"
#include "in_function.h"
#include "inliner.h"
#include "integrate.h"

void comment_on_inlining(const char* format, ...) {
    if (pass_debug("inline_commentary") == 0) return;
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(print_debug != 0 && fdebug != nullptr ? fdebug : stdout, format, arguments);
    va_end(arguments);
}

std::int64_t SITE_SELECTION::time_of(std::uint32_t size) {
    const std::int64_t bounded = std::min(size, LARGEST_SIZE);
    return bounded * bounded;
}

SITE_SELECTION::SITE_SELECTION(const std::vector<FUNINFO*>& functions) {
    int last = 0;
    for (const FUNINFO* function : functions) last = std::max(last, function->cg_number);
    accepted_of_.resize(static_cast<std::size_t>(last) + 1);
    by_position_.resize(accepted_of_.size());
    for (FUNINFO* function : functions) {
        by_position_[static_cast<std::size_t>(function->cg_number)] = function;
        time_ += time_of(function->est_size);
        size_ += function->est_size;
    }
}

void SITE_SELECTION::save(FUNINFO* f) {
    saved_.push_back({f,
                      {f->est_size, f->est_bbs, f->est_syms, f->est_loops, f->est_calls, f->pressure,
                       f->remaining_sites}});
}

void SITE_SELECTION::set_size(FUNINFO* function, std::uint32_t size) {
    time_ += time_of(size) - time_of(function->est_size);
    size_ += std::int64_t{size} - function->est_size;
    function->est_size = size;
}

void SITE_SELECTION::undo() {
    for (; !saved_.empty(); saved_.pop_back()) {
        FUNINFO* f = saved_.back().function;
        const ESTIMATES& before = saved_.back().estimates;
        set_size(f, before.size);
        f->est_bbs = before.blocks;
        f->est_syms = before.symbols;
        f->est_loops = before.loops;
        f->est_calls = before.calls;
        f->pressure = before.pressure;
        f->remaining_sites = before.remaining_sites;
    }
}

namespace {

// Estimates do not run over; neither do numbers of copies, which may grow exponentially.
constexpr std::int64_t MOST_COPIES = 1 << 24;

std::uint32_t plus(std::uint32_t estimate, std::int64_t growth, std::int64_t copies) {
    constexpr std::int64_t most = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::clamp(estimate + growth * copies, std::int64_t{0}, most));
}

} // namespace

void SITE_SELECTION::change(FUNINFO* f, const GROWTH& growth, std::int64_t copies, std::int32_t pressure) {
    save(f);
    set_size(f, plus(f->est_size, growth.size, copies));
    f->est_bbs = plus(f->est_bbs, growth.blocks, copies);
    f->est_syms = plus(f->est_syms, growth.symbols, copies);
    f->est_loops = plus(f->est_loops, growth.loops, copies);
    f->est_calls = plus(f->est_calls, growth.calls, copies);
    f->pressure = std::max(f->pressure, pressure);
    if (f->est_size > std::max(LARGEST_CALLER, 2 * static_cast<std::uint32_t>(f->size))) explodes_ = true;
}

// Whoever has accepted a call of a function takes over its growth, once for each copy. Callers stand ahead of
// what they accept, so by going backwards each is changed once, however many ways lead to it.
void SITE_SELECTION::cascade(FUNINFO* from, const GROWTH& growth) {
    arrivals_.clear();
    const auto arrive_at_callers = [&](const FUNINFO* f, std::int64_t copies, int depth) {
        for (const CALLSITE* site : accepted_of_[static_cast<std::size_t>(f->cg_number)]) {
            ARRIVAL& arrival = arrivals_[site->caller->cg_number];
            arrival.copies = std::min(arrival.copies + copies, MOST_COPIES);
            arrival.depth = std::max(arrival.depth, depth);
            arrival.pressure = std::max(arrival.pressure, site->pressure + f->pressure);
        }
    };
    arrive_at_callers(from, 1, 1);
    while (!arrivals_.empty()) {
        const auto [position, arrival] = *arrivals_.begin();
        arrivals_.erase(arrivals_.begin());
        FUNINFO* function = by_position_[static_cast<std::size_t>(position)];
        comment_on_inlining("[cascaded inline (depth %d) into %s]\n", arrival.depth, function->name.c_str());
        change(function, growth, arrival.copies, arrival.pressure);
        arrive_at_callers(function, arrival.copies, arrival.depth + 1);
    }
}

void SITE_SELECTION::try_site(CALLSITE& site) {
    FUNINFO* caller = site.caller;
    FUNINFO* callee = site.callee;
    saved_.clear();
    explodes_ = false;
    const GROWTH growth{static_cast<std::int64_t>(site_cost(site)), callee->est_bbs, callee->est_syms,
                        callee->est_loops, std::int64_t{callee->est_calls} - 1};
    change(caller, growth, 1, site.pressure + callee->pressure);
    save(callee);
    if (callee->remaining_sites != 0) callee->remaining_sites--;
    if (callee->remaining_sites == 0 && !TEST_FLAG(callee, FUN_cannot_suppress)) {
        set_size(callee, 0);
        callee->est_bbs = callee->est_syms = callee->est_loops = 0;
    }
    cascade(caller, growth);
}

bool SITE_SELECTION::breaks_a_limit(const FUNINFO* caller, const SELECTION_LIMITS& limits) const {
    return (limits.time > 0 && limits.time < time_) || (limits.size > 0 && limits.size < size_) ||
           (limits.loops != 0 && caller->est_loops > limits.loops) ||
           (limits.blocks != 0 && caller->est_bbs > limits.blocks);
}

namespace {

// For the formats of the reports, which take numbers of this size.
int printable(double value) {
    constexpr double most = std::numeric_limits<int>::max();
    return static_cast<int>(std::clamp(value, -most, most));
}

} // namespace

void SITE_SELECTION::report_candidate(const CALLSITE& site, const char* prefix) const {
    const FUNINFO* callee = site.callee;
    comment_on_inlining("[%scandidate:  %s (size %d sites %d);  loop %d nargs %d nconstargs %d postdom %s "
                        "ncalls %d;  benefit %d cost %d temp %.2f]\n",
                        prefix, site.description().c_str(), callee != nullptr ? callee->size : 0,
                        callee != nullptr ? callee->remaining_sites : 0, site.loop_height, site.nargs,
                        site.nconstargs, site.postdominates ? "yes" : "no",
                        callee != nullptr ? printable(callee->est_calls) : 0,
                        callee != nullptr ? printable(inliner->site_benefit(site)) : 0,
                        printable(site_cost(site)), static_cast<double>(site.temperature));
}

void SITE_SELECTION::report_rejection(const FUNINFO* caller, const SELECTION_LIMITS& limits) const {
    comment_on_inlining("  [can't do this one:  too big (%lld vs %lld, %d vs %d, %d vs %d, %d vs %d).]\n",
                        static_cast<long long>(time_), static_cast<long long>(limits.time),
                        printable(static_cast<double>(size_)), printable(static_cast<double>(limits.size)),
                        printable(caller->est_loops), printable(limits.loops), printable(caller->est_bbs),
                        printable(limits.blocks));
}

void SITE_SELECTION::report_acceptance(const CALLSITE& site, const SELECTION_LIMITS& limits) const {
    const FUNINFO* caller = site.caller;
    const FUNINFO* callee = site.callee;
    comment_on_inlining("  [accepting:  %lld vs %lld, %d vs %d, %d vs %d, pressure %d.]\n",
                        static_cast<long long>(time_), static_cast<long long>(limits.time),
                        printable(caller->est_loops), printable(limits.loops), printable(caller->est_bbs),
                        printable(limits.blocks), caller->pressure);
    comment_on_inlining("    [in %s:  est syms %d, est bbs %d]\n", caller->name.c_str(),
                        printable(caller->est_syms), printable(caller->est_bbs));
    comment_on_inlining("[accepted:  %s (size %d sites %d);  benefit %d cost %d]\n",
                        site.description().c_str(), callee->size, callee->remaining_sites,
                        printable(inliner->site_benefit(site)), printable(site_cost(site)));
}

namespace {

// For both the information file and, behind a tab, the debug file.
void announce(const char* format, const FUNINFO* function) {
    std::string text(256 + function->name.size(), '\0');
    text.resize(
        static_cast<std::size_t>(std::snprintf(text.data(), text.size(), format, function->name.c_str())));
    if (finfo != nullptr) std::fputs(text.c_str(), finfo);
    dprintf("\t%s", text.c_str());
}

} // namespace

void SITE_SELECTION::accept(CALLSITE& site) {
    FUNINFO* callee = site.callee;
    site.fate = SITE_FATE::INLINED;
    site.caller->inlined_sites[static_cast<std::size_t>(site.index)] = true;
    accepted_of_[static_cast<std::size_t>(callee->cg_number)].push_back(&site);
    accepted_++;
    if (callee->integrable_cfg == nullptr) {
        make_integrable_cfg(callee);
        if (!is_declared_inline(callee)) announce("\nMaking this function inlineable: %s()\n", callee);
    }
    if (callee->remaining_sites == 0 && !TEST_FLAG(callee, FUN_cannot_suppress | FUN_is_suppressed)) {
        callee->flags |= FUN_is_suppressed;
        announce("Inlineable function will be suppressed: %s()\n", callee);
    }
}

int SITE_SELECTION::select(const std::vector<CALLSITE*>& sites,
                           const std::function<bool(const CALLSITE&)>& test, const char* prefix,
                           const SELECTION_LIMITS& limits) {
    const int most_accepted = pass_debug("inline_n");
    const bool comments = pass_debug("inline_commentary") != 0;
    int count = 0;
    for (CALLSITE* site : sites) {
        if (most_accepted != 0 && accepted_ >= most_accepted) break;
        if (site->fate == SITE_FATE::INLINED) continue;
        {
            const IN_FUNCTION caller(site->caller);
            if (test && !test(*site)) continue;
        }
        if (comments) report_candidate(*site, prefix);
        if (site->callee == nullptr) {
            comment_on_inlining("  [can't do this one:  unknown callee.]\n");
            continue;
        }
        try_site(*site);
        const bool too_big = most_accepted == 0 && breaks_a_limit(site->caller, limits);
        if (too_big || explodes_) {
            if (comments) report_rejection(site->caller, limits);
            undo();
            site->fate = SITE_FATE::GROWTH;
        } else {
            if (comments) report_acceptance(*site, limits);
            accept(*site);
            count++;
        }
        if (comments) comment_on_inlining("[new limit %lld]\n", static_cast<long long>(limits.time));
    }
    return count;
}
