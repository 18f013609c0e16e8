// Any bytes are a file to the reader: it takes them or ends with one line, and never does anything else.
//
// What the reader takes must also be fit for writing, since a fault of the file that slips through shows up
// only there: the program is written, and the result must be readable and have as many globals and functions.
//
// With libFuzzer: ninja reader_fuzzer && bin/reader_fuzzer -max_len=4096 tests/fuzz/corpus
// The unit tests of the file layer run the same function over the corpus and over damaged copies of it.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include "OPT5/if_file.h"
#include "OPT5/types.h"
#include "tools/model/program.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

struct file_fault {
    std::string line;
};

[[noreturn]] void not_the_same(const char* what) {
    std::fprintf(stderr, "what was read cannot be read again: %s\n", what);
    std::abort();
}

void write_body(I_FILE& to, const model::function& function) {
    to.if_write_begin_func(function.sym, function.has_psn ? &function.psn : nullptr);
    for (const model::body_item& item : function.body) {
        using kind = model::body_item::kind;
        const PSN* psn = item.has_psn ? &item.psn : nullptr;
        switch (item.what) {
            case kind::symbol:
                to.if_enter_local(item.sym);
                to.if_write_symbol(item.sym);
                break;
            case kind::end_args: to.if_write_end_args(psn); break;
            case kind::end_locals: to.if_write_end_locals(psn); break;
            case kind::begin_block: to.if_write_begin_block(psn); break;
            case kind::end_block: to.if_write_end_block(psn); break;
            case kind::expr: to.if_write_expr(item.expr, psn); break;
            case kind::label: to.if_write_label(item.number); break;
            case kind::assembly: to.if_write_assembly(item.text.c_str(), psn); break;
            case kind::comment: to.if_write_comment(item.text.c_str()); break;
            case kind::pragma: to.if_write_pragma(item.prag); break;
        }
    }
    if (!function.eht.empty()) to.if_write_func_eht(function.eht);
    to.if_write_end_func(nullptr);
}

// Writes the program to `to`, which it closes.
void write(model::program& program, std::FILE* to) {
    const auto abandon = [](I_FILE* file) { I_FILE::if_close(file, true); };
    std::unique_ptr<I_FILE, decltype(abandon)> file(
        I_FILE::if_create(to, &program.types, program.producer.c_str(), "again.ic"), abandon);
    for (const OPTION_SET& set : program.option_sets) file->if_enter_option_set(set.number, set.words);
    for (model::symbol* symbol : program.globals) file->if_enter_global(symbol);
    for (const model::function& function : program.functions) write_body(*file, function);
    for (model::symbol* symbol : program.globals) {
        if (symbol->init.empty()) continue;
        file->if_write_init(symbol);
        for (model::tree* tree : symbol->init) file->if_write_expr_node(tree);
    }
    if (I_FILE::if_close(file.release(), false) != 0) not_the_same("the stream failed");
}

// Both files live in memory for the length of one call.
void read_write_read(const std::uint8_t* data, std::size_t size) {
    std::string error;
    model::program first;
    std::FILE* in = fmemopen(const_cast<std::uint8_t*>(data), size, "rb");
    if (in == nullptr) std::abort();
    if (!first.read(in, "in.ic", error)) return;

    // The file layer closes its streams, so each pass gets one of its own on the file in memory.
    const int fd = memfd_create("again.ic", 0);
    std::FILE* out = fdopen(dup(fd), "w+b");
    std::FILE* again = fdopen(fd, "rb");
    if (out == nullptr || again == nullptr) std::abort();
    try {
        write(first, out);
        model::program second;
        std::rewind(again);
        if (!second.read(again, "again.ic", error)) not_the_same(error.c_str());
        if (second.globals.size() != first.globals.size()) not_the_same("other globals");
        if (second.functions.size() != first.functions.size()) not_the_same("other functions");
    } catch (const file_fault& fault) {
        not_the_same(fault.line.c_str());
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // An unknown record is told on standard output; a fuzzer meets millions.
    if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0; // no stream in memory is empty
    if_fatal_hook = [](const std::string& line) { throw file_fault{line}; };
    tp_die_hook = [](const char* text) { throw file_fault{text}; };
    try {
        read_write_read(data, size);
    } catch (const file_fault&) {
        // The end of the run, by one line.
    }
    if_fatal_hook = nullptr;
    tp_die_hook = nullptr;
    return 0;
}
