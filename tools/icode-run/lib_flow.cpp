// The end of a program that counts how often its blocks run: its counts, as text.
//
// Such a program has tables under this name, one from each file that it was linked from: for each function a
// pointer to its name and one to an array of unsigned long, and a null pointer at the end. The array holds
// the checksum of the function's flow graph, the number of counters and the counters.

#include <cinttypes>
#include <cstdio>

#include "tools/icode-run/machine.h"

namespace run {

namespace {

constexpr std::string_view TABLE = "$O$flow_counts";
constexpr std::uint32_t PER_LINE = 16;

void append_function(machine& vm, const std::string& name, address array, std::string& text) {
    const unsigned bits = vm.program.model.long_int.bits;
    const address units = bits / 16;
    const auto word = [&](std::uint64_t i) {
        return vm.mem.load(array + static_cast<address>(i) * units, bits, false);
    };
    char heading[64];
    std::snprintf(heading, sizeof heading, "function %08" PRIx64 " %" PRIu64 " ", word(0), word(1));
    text += heading + name;
    for (std::uint64_t i = 0; i < word(1); i++)
        text += (i % PER_LINE == 0 ? '\n' : ' ') + std::to_string(word(i + 2));
    text += '\n';
}

void append_table(machine& vm, address at, std::string& text) {
    const unsigned bits = vm.program.model.pointer.bits;
    const address units = (bits + 15) / 16;
    const auto next = [&] {
        const std::uint64_t value = vm.mem.load(at, bits, false);
        at += units;
        return static_cast<address>(value);
    };
    while (const address name = next()) {
        const std::string characters = vm.mem.text(name);
        append_function(vm, characters, next(), text);
    }
}

std::uint64_t collect_counts(library_call& c) {
    std::string text = "flow-counts 1\n";
    for (const model::symbol* symbol : c.vm.program.program.globals) {
        const global_place& place = c.vm.program.place_of(symbol);
        if (place.kind == global_place::OBJECT && symbol->name.starts_with(TABLE))
            append_table(c.vm, place.at, text);
    }
    c.vm.flow_counts = std::move(text);
    return 0;
}

} // namespace

const std::vector<library_function>& flow_functions() {
    static const std::vector<library_function> table = {{"__flow_counts_exit", 0, collect_counts}};
    return table;
}

} // namespace run
