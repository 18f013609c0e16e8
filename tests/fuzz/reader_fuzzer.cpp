// libFuzzer harness of the reader: any bytes must end in a whole program or in one fault.
//
// Faults of the file become exceptions, so that one process reads many files; all trees belong to the
// program that is being read and go with it.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "OPT5/if_file.h"
#include "OPT5/types.h"
#include "tools/model/program.h"

namespace {

struct file_fault : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if_fatal_hook = [](const std::string& line) { throw file_fault(line); };
    tp_die_hook = [](const char* text) { throw file_fault(text); };
    std::FILE* stream = fmemopen(const_cast<std::uint8_t*>(bytes), size, "rb");
    if (stream == nullptr) return 0;
    model::program program;
    try {
        std::string error;
        program.read(stream, "fuzz.ic", error);
    } catch (const file_fault&) {
    }
    return 0;
}
