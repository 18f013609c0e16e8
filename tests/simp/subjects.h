// What of the optimizer is proved: one row per entry point and promise.

#ifndef TESTS_SIMP_SUBJECTS_H
#define TESTS_SIMP_SUBJECTS_H

#include <string>
#include <vector>

#include "tests/simp/prove.h"

namespace prove {

const std::vector<SUBJECT>& all_subjects();
// The subjects of these names, separated by commas; ends the process with status 2 for a name that is none.
std::vector<SUBJECT> subjects_named(const std::string& names);

} // namespace prove

#endif
