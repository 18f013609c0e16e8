// The limits that several policies set.

#ifndef OPT5_INLINER_LIMITS_H
#define OPT5_INLINER_LIMITS_H

#include <cstdint>

struct INLINING;

// So many percent of the time sum: those of the debug switch, or the default.
std::int64_t share_of_time(const INLINING& inlining, const char* debug_switch, int default_percent);

// For functions that are declared inline.
std::int64_t static_limit_of(const INLINING& inlining);
// For other functions.
std::int64_t auto_limit_of(const INLINING& inlining);

#endif
