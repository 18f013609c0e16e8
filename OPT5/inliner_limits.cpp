#include "inliner_limits.h"

#include <limits>

#include "debug.h"
#include "inliner.h"
#include "inliner_selection.h"

std::int64_t share_of_time(const INLINING& inlining, const char* debug_switch, int default_percent) {
    const int percent = pass_debug(debug_switch) != 0 ? pass_debug(debug_switch) : default_percent;
    const std::int64_t time = inlining.selection.time_sum();
    constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
    const std::int64_t hundreds = time / 100;
    if (percent > 0 && hundreds > most / percent - percent) return most;
    return hundreds * percent + time % 100 * percent / 100;
}

std::int64_t static_limit_of(const INLINING& inlining) {
    return share_of_time(inlining, "inline_static_limit", 700);
}

std::int64_t auto_limit_of(const INLINING& inlining) {
    return share_of_time(inlining, "inline_auto_limit", 200);
}
