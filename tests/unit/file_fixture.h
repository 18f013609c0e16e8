// What tests of files share: faults as exceptions, and files in memory.

#ifndef TESTS_UNIT_FILE_FIXTURE_H
#define TESTS_UNIT_FILE_FIXTURE_H

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "OPT5/if_file.h"
#include "OPT5/types.h"

struct file_fault : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Faults of a file and of the type package become exceptions for as long as one of these lives.
class faults_throw {
  public:
    faults_throw() {
        if_fatal_hook = [](const std::string& line) { throw file_fault(line); };
        tp_die_hook = [](const char* text) { throw file_fault(text); };
    }
    ~faults_throw() {
        if_fatal_hook = nullptr;
        tp_die_hook = nullptr;
    }
};

using bytes = std::vector<unsigned char>;

inline bytes contents(std::FILE* stream) {
    std::fseek(stream, 0, SEEK_END);
    bytes all(static_cast<std::size_t>(std::ftell(stream)));
    std::rewind(stream);
    all.resize(std::fread(all.data(), 1, all.size(), stream));
    return all;
}

// A stream at its start that holds the bytes; the caller closes it.
inline std::FILE* stream_of(const bytes& data) {
    std::FILE* stream = std::tmpfile();
    std::fwrite(data.data(), 1, data.size(), stream);
    std::rewind(stream);
    return stream;
}

#endif
