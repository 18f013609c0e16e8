// Many trees against many subjects. The work is done in child processes, so that a crash or an endless loop
// of a subject is one more failure, which gets a seed and a smallest tree like any other.

#ifndef TESTS_SIMP_CAMPAIGN_H
#define TESTS_SIMP_CAMPAIGN_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tests/simp/prove.h"

namespace prove {

struct CAMPAIGN {
    std::uint64_t first = 0; // seeds first to first + trees - 1
    std::uint64_t trees = 1000;
    TRIAL trial;
    std::vector<SUBJECT> subjects;
    unsigned max_reports = 5; // failures that are shrunk and reported
    bool shrink = true;
    unsigned seconds_per_tree = 10;
};

struct RESULT {
    std::uint64_t failures = 0;
    std::vector<std::string> reports;       // one for each that is reported, with how to repeat it
    std::vector<std::string> short_reports; // the same on one line
    std::vector<COUNTS> counts;             // by subject
};

RESULT run_campaign(const PALETTE& palette, const CAMPAIGN& campaign);

// The smallest tree found on which `fails` holds, by replacing subtrees by their operands and by constants.
// Consumes the tree.
NODE* shrink(NODE* tree, const std::function<bool(NODE*)>& fails);

// Runs the function in a child process and returns its text. When the child does not come to its end within
// `seconds`, the text tells how it ended, and `died` becomes true.
std::string run_in_child(const std::function<std::string()>& work, unsigned seconds, bool& died);

} // namespace prove

#endif
