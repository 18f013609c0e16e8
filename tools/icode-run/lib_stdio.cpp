// Input and output. Characters go out as their low 8 bits.

#include <cstdio>

#include "tools/icode-run/format.h"
#include "tools/icode-run/machine.h"

namespace run {

namespace {

constexpr std::uint64_t END_OF_FILE = UINT64_MAX; // EOF, -1 of any width

int output_of(library_call& c, std::size_t argument) {
    const int stream = c.vm.program.stream_of(c.pointer(argument));
    if (stream < 0) throw fault{"output to something that is no stream"};
    if (stream == 0) throw fault{"output to the standard input"};
    return stream;
}

std::uint64_t put(library_call& c, int stream, const std::string& text) {
    c.vm.out.write(stream, text);
    return text.size();
}

std::uint64_t put_char(library_call& c, int stream) {
    const char byte = static_cast<char>(c.raw(0));
    c.vm.out.write(stream, {&byte, 1});
    return c.raw(0) & 0xff;
}

int read_char(library_call& c) {
    c.vm.out.flush();
    return std::getchar();
}

void input_of(library_call& c, std::size_t argument) {
    if (c.vm.program.stream_of(c.pointer(argument)) != 0)
        throw fault{"input from something that is no input"};
}

// As many characters as fit, and a zero; the length of the whole text.
std::uint64_t put_limited(library_call& c, const std::string& text) {
    const std::uint64_t room = c.raw(1);
    if (room != 0) c.vm.mem.put_text(c.pointer(0), text.substr(0, room - 1));
    return text.size();
}

std::uint64_t formatted(library_call& c, std::size_t format, int stream) {
    call_values values(c, format + 1);
    return put(c, stream, format_text(c.vm, c.pointer(format), values));
}

std::string from_list(library_call& c, std::size_t format) {
    list_values values(c.vm, c.pointer(format + 1));
    return format_text(c.vm, c.pointer(format), values);
}

std::uint64_t get_line(library_call& c) {
    input_of(c, 2);
    const std::int64_t room = c.integer(1);
    std::string line;
    while (static_cast<std::int64_t>(line.size()) + 1 < room) {
        const int byte = read_char(c);
        if (byte == EOF) break;
        line.push_back(static_cast<char>(byte));
        if (byte == '\n') break;
    }
    if (line.empty()) return 0;
    c.vm.mem.put_text(c.pointer(0), line);
    return c.raw(0);
}

} // namespace

const std::vector<library_function>& stdio_functions() {
    static const std::vector<library_function> table = {
        {"printf", 1, [](library_call& c) { return formatted(c, 0, 1); }},
        {"fprintf", 2, [](library_call& c) { return formatted(c, 1, output_of(c, 0)); }},
        {"sprintf", 2,
         [](library_call& c) -> std::uint64_t {
             call_values values(c, 2);
             const std::string text = format_text(c.vm, c.pointer(1), values);
             c.vm.mem.put_text(c.pointer(0), text);
             return text.size();
         }},
        {"snprintf", 3,
         [](library_call& c) {
             call_values values(c, 3);
             return put_limited(c, format_text(c.vm, c.pointer(2), values));
         }},
        {"vprintf", 2, [](library_call& c) { return put(c, 1, from_list(c, 0)); }},
        {"vfprintf", 3, [](library_call& c) { return put(c, output_of(c, 0), from_list(c, 1)); }},
        {"vsprintf", 3,
         [](library_call& c) -> std::uint64_t {
             const std::string text = from_list(c, 1);
             c.vm.mem.put_text(c.pointer(0), text);
             return text.size();
         }},
        {"vsnprintf", 4, [](library_call& c) { return put_limited(c, from_list(c, 2)); }},
        {"puts", 1, [](library_call& c) { return put(c, 1, c.vm.mem.text(c.pointer(0)) + "\n"); }},
        {"fputs", 2, [](library_call& c) { return put(c, output_of(c, 1), c.vm.mem.text(c.pointer(0))); }},
        {"putchar", 1, [](library_call& c) { return put_char(c, 1); }},
        {"fputc", 2, [](library_call& c) { return put_char(c, output_of(c, 1)); }},
        {"putc", 2, [](library_call& c) { return put_char(c, output_of(c, 1)); }},
        {"getchar", 0,
         [](library_call& c) {
             const int byte = read_char(c);
             return byte == EOF ? END_OF_FILE : static_cast<std::uint64_t>(byte);
         }},
        {"fgetc", 1,
         [](library_call& c) {
             input_of(c, 0);
             const int byte = read_char(c);
             return byte == EOF ? END_OF_FILE : static_cast<std::uint64_t>(byte);
         }},
        {"getc", 1,
         [](library_call& c) {
             input_of(c, 0);
             const int byte = read_char(c);
             return byte == EOF ? END_OF_FILE : static_cast<std::uint64_t>(byte);
         }},
        {"fgets", 3, get_line},
        {"fflush", 1,
         [](library_call& c) -> std::uint64_t {
             c.vm.out.flush();
             return 0;
         }},
    };
    return table;
}

} // namespace run
