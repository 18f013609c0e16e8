// icode-link: merges intermediate files into one.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tools/icode-link/linker.h"

namespace {

constexpr const char* USAGE = "Usage: icode-link FILE.ic... -o FILE.ic\n";

[[noreturn]] void usage(const std::string& what) {
    std::fprintf(stderr, "icode-link: %s\n%s", what.c_str(), USAGE);
    std::exit(1);
}

// The output grows beside its place and takes it when it is complete; whatever ends the run before that
// removes it.
std::string temporary;

void remove_temporary() {
    if (!temporary.empty()) std::remove(temporary.c_str());
}

} // namespace

int main(int argc, char** argv) {
    std::vector<std::string> inputs;
    std::string output;
    for (int i = 1; i < argc; i++) {
        const std::string word = argv[i];
        if (word == "-o") {
            if (++i == argc) usage("-o needs a value");
            if (!output.empty()) usage("more than one output file");
            output = argv[i];
        } else if (word == "--help") {
            std::fputs(USAGE, stdout);
            return 0;
        } else if (word.size() > 1 && word[0] == '-') {
            usage("unknown option " + word);
        } else {
            inputs.push_back(word);
        }
    }
    if (inputs.empty()) usage("no input file");
    if (output.empty()) usage("no output file (-o)");

    linking::linker linker;
    for (const std::string& name : inputs) linker.add(name);
    linker.resolve();

    temporary = output + ".tmp";
    std::atexit(remove_temporary);
    std::FILE* stream = std::fopen(temporary.c_str(), "wb");
    if (stream == nullptr) linking::fail(temporary + ": " + std::strerror(errno));
    if (!linker.write(stream, output) || std::rename(temporary.c_str(), output.c_str()) != 0)
        linking::fail(output + ": " + std::strerror(errno));
    temporary.clear();
    return 0;
}
