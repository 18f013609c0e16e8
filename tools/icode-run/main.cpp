// icode-run: executes the function main of an intermediate file.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "tools/icode-run/runner.h"
#include "tools/model/program.h"

namespace {

constexpr const char* USAGE =
    "Usage: icode-run [--stats] [--trace[=FILE]] [--check] [--max-steps N] FILE.ic [ARGS]...\n";

int usage() {
    std::fputs(USAGE, stderr);
    return 1;
}

bool parse_count(const char* text, std::uint64_t& value) {
    char* end = nullptr;
    errno = 0;
    value = std::strtoull(text, &end, 10);
    return *text >= '0' && *text <= '9' && *end == 0 && errno == 0;
}

} // namespace

int main(int argc, char** argv) {
    run::settings with;
    std::FILE* trace_file = nullptr;
    int i = 1;
    for (; i < argc && std::strncmp(argv[i], "--", 2) == 0; i++) {
        const std::string_view word = argv[i];
        if (word == "--stats") {
            with.stats = true;
        } else if (word == "--check") {
            with.check = true;
        } else if (word == "--trace") {
            with.trace = stderr;
        } else if (word.starts_with("--trace=")) {
            if (trace_file != nullptr) std::fclose(trace_file);
            trace_file = std::fopen(argv[i] + std::strlen("--trace="), "w");
            if (trace_file == nullptr) {
                std::fprintf(stderr, "icode-run: %s: %s\n", argv[i] + std::strlen("--trace="),
                             std::strerror(errno));
                return 1;
            }
            with.trace = trace_file;
        } else if (word == "--max-steps" && i + 1 < argc) {
            if (!parse_count(argv[++i], with.max_steps)) return usage();
        } else if (word.starts_with("--max-steps=")) {
            if (!parse_count(argv[i] + std::strlen("--max-steps="), with.max_steps)) return usage();
        } else if (word == "--help") {
            std::fputs(USAGE, stdout);
            return 0;
        } else {
            return usage();
        }
    }
    if (i >= argc) return usage();

    model::program program;
    std::string error;
    if (!program.read(argv[i], error)) {
        std::fprintf(stderr, "icode-run: %s\n", error.c_str());
        return 1;
    }
    const std::vector<std::string> arguments(argv + i, argv + argc);
    const int status = run::run_program(program, arguments, with);
    if (trace_file != nullptr && std::fclose(trace_file) != 0) {
        std::fprintf(stderr, "icode-run: the trace could not be written\n");
        return 1;
    }
    return status;
}
