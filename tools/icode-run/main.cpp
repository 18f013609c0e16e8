// icode-run: executes the main function of an intermediate file.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include <pthread.h>

#include "OPT5/types.h"
#include "tools/icode-run/code.h"
#include "tools/icode-run/machine.h"
#include "tools/icode-run/memory.h"
#include "tools/model/program.h"

namespace {

constexpr int FAULT_STATUS = 3;

struct command_line {
    bool stats = false, check = false, trace = false;
    std::string trace_file;
    std::uint64_t max_steps = UINT64_MAX;
    std::string input;
    std::vector<std::string> arguments;
};

[[noreturn]] void usage(const std::string& what) {
    std::fprintf(stderr,
                 "icode-run: %s\nUsage: icode-run [--stats] [--trace[=FILE]] [--check] [--max-steps N] "
                 "FILE.ic [ARGS]...\n",
                 what.c_str());
    std::exit(1);
}

command_line read_words(int argc, char** argv) {
    command_line words;
    for (int i = 1; i < argc; i++) {
        const std::string word = argv[i];
        if (!words.input.empty()) {
            words.arguments.push_back(word);
        } else if (word == "--stats") {
            words.stats = true;
        } else if (word == "--check") {
            words.check = true;
        } else if (word == "--trace") {
            words.trace = true;
        } else if (word.rfind("--trace=", 0) == 0) {
            words.trace = true;
            words.trace_file = word.substr(8);
        } else if (word == "--max-steps" || word.rfind("--max-steps=", 0) == 0) {
            const std::string text = word.size() > 12 ? word.substr(12) : i + 1 < argc ? argv[++i] : "";
            char* end = nullptr;
            words.max_steps = std::strtoull(text.c_str(), &end, 10);
            if (text.empty() || *end != '\0') usage("bad count \"" + text + "\" of --max-steps");
        } else if (word == "--help") {
            std::printf(
                "Usage: icode-run [--stats] [--trace[=FILE]] [--check] [--max-steps N] FILE.ic [ARGS]...\n");
            std::exit(0);
        } else if (word.size() > 1 && word[0] == '-') {
            usage("unknown option " + word);
        } else {
            words.input = word;
            words.arguments.push_back(word);
        }
    }
    if (words.input.empty()) usage("no input file");
    return words;
}

// The depth of the deepest tree: the lowering recurses over trees, on a stack that is sized by this.
std::size_t deepest_tree(const model::program& program) {
    std::size_t deepest = 0;
    std::vector<std::pair<const model::tree*, std::size_t>> pending;
    for (const model::function& f : program.functions)
        for (const model::body_item& item : f.body) {
            if (item.expr != nullptr) pending.emplace_back(item.expr, 1);
            while (!pending.empty()) {
                const auto [t, depth] = pending.back();
                pending.pop_back();
                deepest = std::max(deepest, depth);
                if (t->left != nullptr) pending.emplace_back(t->left, depth + 1);
                if (t->right != nullptr) pending.emplace_back(t->right, depth + 1);
            }
        }
    return deepest;
}

struct lowering_job {
    const model::program* source;
    memory* space;
    bool check;
    lowered_program* out;
    std::string error;
};

void* lower_on_own_stack(void* argument) {
    auto* job = static_cast<lowering_job*>(argument);
    try {
        lower_program(*job->source, *job->space, job->check, *job->out);
    } catch (const std::exception& error) {
        job->error = error.what();
    }
    return nullptr;
}

std::string lower(const model::program& source, memory& space, bool check, lowered_program& out) {
    constexpr std::size_t FRAME = 1024, BASE = std::size_t{8} << 20;
    lowering_job job{&source, &space, check, &out, {}};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, BASE + (deepest_tree(source) * FRAME + 4095) / 4096 * 4096);
    pthread_t thread{};
    if (pthread_create(&thread, &attributes, lower_on_own_stack, &job) != 0)
        return "no room to lower the program";
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    return job.error;
}

void print_stats(const machine& m) {
    constexpr const char* names[] = {nullptr, "arithmetic", "compare", "convert", "load",
                                     "store", "address",    "move",    "branch",  "call"};
    std::uint64_t total = 0;
    for (int c = 1; c < static_cast<int>(COUNT::CLASSES); c++) total += m.count(static_cast<COUNT>(c));
    std::fprintf(stderr, "{\"total\": %llu, \"classes\": {", static_cast<unsigned long long>(total));
    for (int c = 1; c < static_cast<int>(COUNT::CLASSES); c++)
        std::fprintf(stderr, "%s\"%s\": %llu", c > 1 ? ", " : "", names[c],
                     static_cast<unsigned long long>(m.count(static_cast<COUNT>(c))));
    std::fprintf(stderr, "}}\n");
}

} // namespace

int main(int argc, char** argv) {
    const command_line words = read_words(argc, argv);
    model::program program;
    std::string error;
    if (!program.read(words.input, error)) {
        std::fprintf(stderr, "icode-run: %s\n", error.c_str());
        return 1;
    }
    // The file's pointers say how large its address space is.
    std::uint32_t units = 65536;
    for (const TYPE* type : program.types.all_types())
        if (type != nullptr && type->kind() == TYPE::PTR_KIND && type->is_referenced() && type->size() > 16)
            units = 1u << 22;

    memory space(units, words.check);
    lowered_program lowered;
    error = lower(program, space, words.check, lowered);
    if (!error.empty()) {
        std::fprintf(stderr, "icode-run: %s: %s\n", words.input.c_str(), error.c_str());
        return 1;
    }

    machine::options options;
    options.check = words.check;
    options.max_steps = words.max_steps;
    if (words.trace) {
        options.trace = words.trace_file.empty() ? stderr : std::fopen(words.trace_file.c_str(), "w");
        if (options.trace == nullptr) {
            std::perror(words.trace_file.c_str());
            return 1;
        }
    }
    machine m(lowered, space, options);
    int status = 0;
    try {
        try {
            status = m.run_main(words.arguments);
        } catch (const program_exit& end) {
            status = end.status;
        }
        try {
            m.run_exit_functions();
        } catch (const program_exit& end) {
            status = end.status;
        }
    } catch (const program_fault& fault) {
        std::fflush(stdout);
        std::fprintf(stderr, "icode-run: %s: %s\n", m.place().c_str(), fault.what());
        status = FAULT_STATUS;
    }
    std::fflush(stdout);
    if (options.trace != nullptr && options.trace != stderr) std::fclose(options.trace);
    if (words.stats) print_stats(m);
    return status & 0xff;
}
