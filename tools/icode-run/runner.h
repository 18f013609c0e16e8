// The whole way from a program in memory to its exit status.

#ifndef ICODE_RUN_RUNNER_H
#define ICODE_RUN_RUNNER_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "tools/icode-run/code.h"
#include "tools/model/program.h"

namespace run {

struct settings {
    bool stats = false;         // print one line of JSON on standard error
    bool check = false;         // find locals read before they have a value, and after their block
    std::FILE* trace = nullptr; // where volatile accesses are noted, or null
    std::uint64_t max_steps = UINT64_MAX;
    std::string* flow_counts = nullptr; // where the counts of a program that counts its flow go, or null
};

// The counts of executed operators, and of functions entered, as one line of JSON.
std::string stats_line(const class_counts& counts, std::uint64_t entered);

// Runs `main` of the program with these arguments, the first of which is the program's name. Returns the exit
// status: main's value, 3 after a fault of the program (with a line on standard error), or 1 when the program
// can not be run at all (with a line on standard error). The counts are left in `counts` if it is not null.
int run_program(const model::program& program, const std::vector<std::string>& arguments,
                const settings& with, class_counts* counts = nullptr);

} // namespace run

#endif
