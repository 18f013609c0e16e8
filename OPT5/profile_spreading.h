// How often each function is entered, spread from callers to callees.

#ifndef OPT5_PROFILE_SPREADING_H
#define OPT5_PROFILE_SPREADING_H

#include <vector>

struct FUNINFO;

constexpr unsigned UNKNOWN_COUNT = 0xffffffffu;
constexpr unsigned LARGEST_COUNT = 0xfffffffeu;

// Gives every function without a profile an entry count: what the sites that call it add up to, callers
// first; 1 where nothing is known. The call sites must have been analysed.
void spread_profile_counts(const std::vector<FUNINFO*>& functions);

// Makes the counts of functions without a profile unknown again.
void forget_spread_counts(const std::vector<FUNINFO*>& functions);

#endif
