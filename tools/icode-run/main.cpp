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

constexpr const char* USAGE = "Usage: icode-run [--stats] [--trace[=FILE]] [--check] [--max-steps N] "
                              "[--flow-counts=FILE] FILE.ic [ARGS]...\n";

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

// A program that was not made to count, or was aborted, leaves no counts: there is no file then.
bool write_counts(const char* name, const std::string& text) {
    if (text.empty()) {
        std::fprintf(stderr, "icode-run: %s is not written: the program left no counts\n", name);
        return true;
    }
    std::FILE* stream = std::fopen(name, "w");
    const bool written = stream != nullptr && std::fwrite(text.data(), 1, text.size(), stream) == text.size();
    if (stream != nullptr && std::fclose(stream) == 0 && written) return true;
    std::fprintf(stderr, "icode-run: %s: %s\n", name, std::strerror(errno));
    return false;
}

} // namespace

int main(int argc, char** argv) {
    run::settings with;
    std::FILE* trace_file = nullptr;
    const char* flow_counts_name = nullptr;
    std::string flow_counts;
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
        } else if (word.starts_with("--flow-counts=")) {
            flow_counts_name = argv[i] + std::strlen("--flow-counts=");
            with.flow_counts = &flow_counts;
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
    if (flow_counts_name != nullptr && !write_counts(flow_counts_name, flow_counts)) return 1;
    return status;
}
