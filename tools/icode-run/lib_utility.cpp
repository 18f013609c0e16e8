// The rest of the standard library: heap, ends of the program, numbers, sorting, jumps, assertions.

#include <algorithm>
#include <numeric>

#include "tools/icode-run/machine.h"

namespace run {

namespace {

constexpr std::uint64_t RANGE_ERROR = 34;

std::uint64_t allocate(library_call& c, std::uint64_t units, bool clear) {
    const address at =
        units > c.vm.mem.mask() ? 0 : c.vm.mem.allocate(static_cast<std::uint32_t>(units), c.vm.stack_top());
    if (at != 0 && clear)
        for (std::uint32_t i = 0; i < units; i++) c.vm.mem.set_byte(at + i, 0);
    return at;
}

std::uint64_t reallocate(library_call& c) {
    const address old = c.pointer(0);
    if (old == 0) return allocate(c, c.raw(1), false);
    const std::uint32_t units = c.vm.mem.block_units(old);
    const std::uint64_t made = allocate(c, c.raw(1), false);
    if (made == 0) return 0;
    c.vm.mem.copy(static_cast<address>(made), old,
                  static_cast<std::uint32_t>(std::min<std::uint64_t>(units, c.raw(1))));
    c.vm.mem.free_block(old);
    return made;
}

int digit_of(std::uint16_t unit) {
    if (unit >= '0' && unit <= '9') return unit - '0';
    if (unit >= 'a' && unit <= 'z') return unit - 'a' + 10;
    if (unit >= 'A' && unit <= 'Z') return unit - 'A' + 10;
    return 99;
}

// strtol and its kin, for a result of `bits`; the end of the number goes to argument 1 unless `bare`.
std::uint64_t parse(library_call& c, unsigned bits, bool is_signed, bool bare) {
    memory& mem = c.vm.mem;
    address at = c.pointer(0);
    const address start = at;
    std::int64_t base = bare ? 10 : c.integer(2);
    while (mem.byte(at) == ' ' || (mem.byte(at) >= '\t' && mem.byte(at) <= '\r')) at++;
    const bool negative = mem.byte(at) == '-';
    if (negative || mem.byte(at) == '+') at++;
    if ((base == 0 || base == 16) && mem.byte(at) == '0' && (mem.byte(at + 1) | 0x20) == 'x' &&
        digit_of(mem.byte(at + 2)) < 16) {
        at += 2;
        base = 16;
    }
    if (base == 0) base = mem.byte(at) == '0' ? 8 : 10;
    const std::uint64_t most = bits >= 64 ? UINT64_MAX : (std::uint64_t{1} << bits) - 1;
    const std::uint64_t limit = is_signed ? most / 2 + (negative ? 1 : 0) : most;
    std::uint64_t value = 0;
    bool any = false, over = false;
    for (int d; (d = digit_of(mem.byte(at))) < base; at++) {
        any = true;
        const auto digit = static_cast<std::uint64_t>(d);
        if (value > (limit - digit) / static_cast<std::uint64_t>(base)) over = true;
        if (!over) value = value * static_cast<std::uint64_t>(base) + digit;
    }
    if (over) {
        value = limit;
        if (c.vm.program.errno_address() != 0)
            mem.store(c.vm.program.errno_address(), c.vm.program.model.plain_int.bits, RANGE_ERROR);
    }
    if (!bare && c.pointer(1) != 0)
        mem.store(c.pointer(1), c.vm.program.model.pointer.bits, any ? at : start);
    return negative && !(over && !is_signed) ? 0 - value : value;
}

// Floating text: the characters that can be part of a number are handed to the host.
std::uint64_t parse_float(library_call& c, bool bare) {
    memory& mem = c.vm.mem;
    std::string text;
    for (address at = c.pointer(0); text.size() < 400; at++) {
        const std::uint16_t unit = mem.byte(at);
        if (unit == 0 || unit > 127) break;
        text.push_back(static_cast<char>(unit));
    }
    char* end = nullptr;
    const float value = std::strtof(text.c_str(), &end);
    if (!bare && c.pointer(1) != 0)
        mem.store(c.pointer(1), c.vm.program.model.pointer.bits,
                  c.pointer(0) + static_cast<address>(end - text.c_str()));
    return image_of(value);
}

std::int64_t call_comparison(library_call& c, address function, address a, address b) {
    const data_model& model = c.vm.program.model;
    const std::uint32_t units = (model.pointer.bits + 15u) / 16;
    const argument_info infos[] = {{model.pointer, units, model.pointer_align},
                                   {model.pointer, units, model.pointer_align}};
    const std::uint64_t values[] = {a, b};
    return static_cast<std::int64_t>(c.vm.call_back(function, infos, values, 2, model.plain_int));
}

// A merge sort, so that the order of comparisons and of equal elements is the same everywhere. Elements are
// sorted by index and then brought into place through the heap of the host.
std::uint64_t sort(library_call& c) {
    const address base = c.pointer(0);
    const std::uint64_t n = c.raw(1), units = c.raw(2);
    const address function = c.pointer(3);
    if (n < 2 || units == 0) return 0;
    if (n > c.vm.mem.mask() || units > c.vm.mem.mask() || n * units > c.vm.mem.mask())
        throw fault{"qsort of more than memory holds"};
    // The comparison sees the elements where they are, so that its pointers stay inside the array.
    std::vector<std::uint32_t> order(n), merged(n);
    std::iota(order.begin(), order.end(), 0u);
    auto element = [&](std::uint32_t i) { return base + i * static_cast<address>(units); };
    for (std::size_t run = 1; run < n; run *= 2) {
        for (std::size_t left = 0; left < n; left += 2 * run) {
            const std::size_t middle = std::min<std::size_t>(left + run, n),
                              end = std::min<std::size_t>(left + 2 * run, n);
            std::size_t a = left, b = middle;
            for (std::size_t to = left; to < end; to++) {
                const bool take_left =
                    b >= end ||
                    (a < middle && call_comparison(c, function, element(order[a]), element(order[b])) <= 0);
                merged[to] = order[take_left ? a++ : b++];
            }
        }
        order.swap(merged);
    }
    std::vector<std::uint16_t> sorted;
    sorted.reserve(n * units);
    for (std::uint32_t i : order)
        for (std::uint32_t u = 0; u < units; u++) sorted.push_back(c.vm.mem.byte(element(i) + u));
    for (std::uint32_t i = 0; i < sorted.size(); i++) c.vm.mem.set_byte(base + i, sorted[i]);
    return 0;
}

std::uint64_t search(library_call& c) {
    std::uint64_t low = 0, high = c.raw(2);
    while (low < high) {
        const std::uint64_t middle = low + (high - low) / 2;
        const auto at = static_cast<address>(c.pointer(1) + middle * c.raw(3));
        const std::int64_t order = call_comparison(c, c.pointer(4), c.pointer(0), at);
        if (order == 0) return at;
        if (order < 0)
            high = middle;
        else
            low = middle + 1;
    }
    return 0;
}

std::uint64_t magnitude(library_call& c) { return c.integer(0) < 0 ? 0 - c.raw(0) : c.raw(0); }

std::uint64_t next_random(library_call& c) {
    c.vm.random_state = c.vm.random_state * 1103515245u + 12345u;
    return (c.vm.random_state >> 16) & 0x7fff;
}

[[noreturn]] void end_by_abort(library_call& c) {
    c.vm.exit_functions.clear();
    throw program_exit{ABORT_STATUS};
}

// The text of a failed assertion: an expression, and if they come along, a file, a line and a function.
std::uint64_t assertion_failed(library_call& c) {
    std::string text = "Assertion failed";
    for (std::size_t i = 0; i < c.count(); i++) {
        if (c.rep(i).kind == scalar::POINTER)
            text += (i == 0 ? ": " : ", ") + c.vm.mem.text(c.pointer(i));
        else
            text += ", line " + std::to_string(c.integer(i));
    }
    c.vm.out.write(2, text + "\n");
    end_by_abort(c);
}

} // namespace

const std::vector<library_function>& utility_functions() {
    static const std::vector<library_function> table = {
        {"malloc", 1, [](library_call& c) { return allocate(c, c.raw(0), false); }},
        {"calloc", 2,
         [](library_call& c) {
             const bool fits = c.raw(1) == 0 || c.raw(0) <= c.vm.mem.mask() / c.raw(1);
             return fits ? allocate(c, c.raw(0) * c.raw(1), true) : 0;
         }},
        {"realloc", 2, reallocate},
        {"free", 1,
         [](library_call& c) -> std::uint64_t {
             if (c.pointer(0) != 0) c.vm.mem.free_block(c.pointer(0));
             return 0;
         }},
        {"abort", 0, [](library_call& c) -> std::uint64_t { end_by_abort(c); }},
        {"exit", 1,
         [](library_call& c) -> std::uint64_t { throw program_exit{static_cast<int>(c.raw(0) & 0xff)}; }},
        {"_Exit", 1,
         [](library_call& c) -> std::uint64_t {
             c.vm.exit_functions.clear();
             throw program_exit{static_cast<int>(c.raw(0) & 0xff)};
         }},
        {"atexit", 1,
         [](library_call& c) -> std::uint64_t {
             c.vm.exit_functions.push_back(c.pointer(0));
             return 0;
         }},
        {"rand", 0, next_random},
        {"srand", 1,
         [](library_call& c) -> std::uint64_t {
             c.vm.random_state = static_cast<std::uint32_t>(c.raw(0));
             return 0;
         }},
        {"abs", 1, magnitude},
        {"labs", 1, magnitude},
        {"llabs", 1, magnitude},
        {"atoi", 1, [](library_call& c) { return parse(c, 64, true, true); }},
        {"atol", 1, [](library_call& c) { return parse(c, 64, true, true); }},
        {"atoll", 1, [](library_call& c) { return parse(c, 64, true, true); }},
        {"strtol", 3,
         [](library_call& c) { return parse(c, c.vm.program.model.long_int.bits, true, false); }},
        {"strtoul", 3,
         [](library_call& c) { return parse(c, c.vm.program.model.long_int.bits, false, false); }},
        {"strtoll", 3,
         [](library_call& c) { return parse(c, c.vm.program.model.long_long.bits, true, false); }},
        {"strtoull", 3,
         [](library_call& c) { return parse(c, c.vm.program.model.long_long.bits, false, false); }},
        {"atof", 1, [](library_call& c) { return parse_float(c, true); }},
        {"strtod", 2, [](library_call& c) { return parse_float(c, false); }},
        {"strtof", 2, [](library_call& c) { return parse_float(c, false); }},
        {"qsort", 4, sort},
        {"bsearch", 5, search},
        {"setjmp", 1, [](library_call&) -> std::uint64_t { throw fault{"setjmp is not called by its name"}; },
         special::SETJMP},
        {"_setjmp", 1,
         [](library_call&) -> std::uint64_t { throw fault{"setjmp is not called by its name"}; },
         special::SETJMP},
        {"longjmp", 2, [](library_call& c) -> std::uint64_t { c.vm.long_jump(c.pointer(0), c.raw(1)); }},
        {"__builtin_expect", 2, [](library_call& c) { return c.raw(0); }},
        {"__assert_fail", 1, assertion_failed},
        {"__assert", 1, assertion_failed},
        {"_assert", 1, assertion_failed},
    };
    return table;
}

} // namespace run
