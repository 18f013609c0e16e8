// Memory, strings and character classes. Sizes count units; a character is one unit.

#include <algorithm>

#include "tools/icode-run/machine.h"

namespace run {

namespace {

// What strings hold is compared as unsigned units, as memcmp does.
std::uint64_t order(std::uint32_t a, std::uint32_t b) { return a < b ? UINT64_MAX : a > b ? 1 : 0; }

std::uint32_t length(library_call& c, address at) {
    std::uint32_t n = 0;
    while (c.vm.mem.byte(at + n) != 0) n++;
    return n;
}

std::uint32_t count_of(library_call& c, std::size_t i) {
    if (c.raw(i) > c.vm.mem.mask()) throw fault{"a size larger than memory"};
    return static_cast<std::uint32_t>(c.raw(i));
}

std::uint64_t copy_text(library_call& c, address to, std::uint64_t limit, bool fill, bool close) {
    address from = c.pointer(1);
    std::uint64_t n = 0;
    std::uint16_t unit = 1;
    for (; n < limit && (unit = c.vm.mem.byte(from)) != 0; n++, from++) c.vm.mem.set_byte(to++, unit);
    if (close || (fill && n < limit)) c.vm.mem.set_byte(to++, 0), n++;
    if (fill)
        for (; n < limit; n++) c.vm.mem.set_byte(to++, 0);
    return c.raw(0);
}

std::uint64_t compare_text(library_call& c, std::uint64_t limit) {
    address a = c.pointer(0), b = c.pointer(1);
    for (std::uint64_t n = 0; n < limit; n++, a++, b++) {
        const std::uint16_t x = c.vm.mem.byte(a), y = c.vm.mem.byte(b);
        if (x != y) return order(x, y);
        if (x == 0) break;
    }
    return 0;
}

bool contains_unit(library_call& c, address set, std::uint16_t unit) {
    for (std::uint16_t member; (member = c.vm.mem.byte(set)) != 0; set++)
        if (member == unit) return true;
    return false;
}

// Units from the start of the first text that are, or are not, in the second.
std::uint32_t span(library_call& c, address text, address set, bool in) {
    std::uint32_t n = 0;
    for (std::uint16_t unit; (unit = c.vm.mem.byte(text + n)) != 0; n++)
        if (contains_unit(c, set, unit) != in) break;
    return n;
}

std::uint64_t find_unit(library_call& c, bool last) {
    const auto wanted = static_cast<std::uint16_t>(c.raw(1));
    std::uint64_t found = 0;
    for (address at = c.pointer(0);; at++) {
        const std::uint16_t unit = c.vm.mem.byte(at);
        if (unit == wanted) {
            found = at;
            if (!last) break;
        }
        if (unit == 0) break;
    }
    return found;
}

std::uint64_t find_text(library_call& c) {
    const address wanted = c.pointer(1);
    for (address at = c.pointer(0);; at++) {
        std::uint32_t n = 0;
        std::uint16_t unit;
        while ((unit = c.vm.mem.byte(wanted + n)) != 0 && c.vm.mem.byte(at + n) == unit) n++;
        if (unit == 0) return at;
        if (c.vm.mem.byte(at) == 0) return 0;
    }
}

std::uint64_t next_token(library_call& c) {
    address at = c.pointer(0) != 0 ? c.pointer(0) : c.vm.token_rest;
    const address set = c.pointer(1);
    c.vm.token_rest = 0;
    if (at == 0) return 0;
    at += span(c, at, set, true);
    if (c.vm.mem.byte(at) == 0) return 0;
    const address end = at + span(c, at, set, false);
    if (c.vm.mem.byte(end) != 0) {
        c.vm.mem.set_byte(end, 0);
        c.vm.token_rest = end + 1;
    }
    return at;
}

// Classes of the characters 0 to 127; none has any other value.
bool in_range(std::int64_t ch, char from, char to) { return ch >= from && ch <= to; }
bool is_upper(std::int64_t ch) { return in_range(ch, 'A', 'Z'); }
bool is_lower(std::int64_t ch) { return in_range(ch, 'a', 'z'); }
bool is_digit(std::int64_t ch) { return in_range(ch, '0', '9'); }
bool is_alpha(std::int64_t ch) { return is_upper(ch) || is_lower(ch); }
bool is_graph(std::int64_t ch) { return in_range(ch, '!', '~'); }

template <bool (*Test)(std::int64_t)> std::uint64_t test(library_call& c) { return Test(c.integer(0)); }
template <bool (*A)(std::int64_t), bool (*B)(std::int64_t)> bool either(std::int64_t ch) {
    return A(ch) || B(ch);
}
bool is_space(std::int64_t ch) { return ch == ' ' || (ch >= '\t' && ch <= '\r'); }
bool is_hex(std::int64_t ch) { return is_digit(ch) || in_range(ch, 'a', 'f') || in_range(ch, 'A', 'F'); }
bool is_punct(std::int64_t ch) { return is_graph(ch) && !is_alpha(ch) && !is_digit(ch); }
bool is_print(std::int64_t ch) { return in_range(ch, ' ', '~'); }
bool is_cntrl(std::int64_t ch) { return (ch >= 0 && ch < ' ') || ch == 127; }
bool is_blank(std::int64_t ch) { return ch == ' ' || ch == '\t'; }

} // namespace

const std::vector<library_function>& string_functions() {
    static const auto copy = [](library_call& c) {
        c.vm.mem.copy(c.pointer(0), c.pointer(1), count_of(c, 2));
        return c.raw(0);
    };
    static const std::vector<library_function> table = {
        {"memcpy", 3, copy},
        {"memmove", 3, copy},
        {"memset", 3,
         [](library_call& c) {
             const auto unit = static_cast<std::uint16_t>(c.raw(1));
             const std::uint32_t n = count_of(c, 2);
             for (std::uint32_t i = 0; i < n; i++) c.vm.mem.set_byte(c.pointer(0) + i, unit);
             return c.raw(0);
         }},
        {"memcmp", 3,
         [](library_call& c) -> std::uint64_t {
             const std::uint32_t n = count_of(c, 2);
             for (std::uint32_t i = 0; i < n; i++) {
                 const std::uint16_t a = c.vm.mem.byte(c.pointer(0) + i), b = c.vm.mem.byte(c.pointer(1) + i);
                 if (a != b) return order(a, b);
             }
             return 0;
         }},
        {"memchr", 3,
         [](library_call& c) -> std::uint64_t {
             const std::uint32_t n = count_of(c, 2);
             for (std::uint32_t i = 0; i < n; i++)
                 if (c.vm.mem.byte(c.pointer(0) + i) == static_cast<std::uint16_t>(c.raw(1)))
                     return c.pointer(0) + i;
             return 0;
         }},
        {"strlen", 1, [](library_call& c) -> std::uint64_t { return length(c, c.pointer(0)); }},
        {"strcpy", 2, [](library_call& c) { return copy_text(c, c.pointer(0), UINT64_MAX, false, true); }},
        {"strncpy", 3, [](library_call& c) { return copy_text(c, c.pointer(0), c.raw(2), true, false); }},
        {"strcat", 2,
         [](library_call& c) {
             return copy_text(c, c.pointer(0) + length(c, c.pointer(0)), UINT64_MAX, false, true);
         }},
        {"strncat", 3,
         [](library_call& c) {
             return copy_text(c, c.pointer(0) + length(c, c.pointer(0)), c.raw(2), false, true);
         }},
        {"strcmp", 2, [](library_call& c) { return compare_text(c, UINT64_MAX); }},
        {"strcoll", 2, [](library_call& c) { return compare_text(c, UINT64_MAX); }},
        {"strncmp", 3, [](library_call& c) { return compare_text(c, c.raw(2)); }},
        {"strchr", 2, [](library_call& c) { return find_unit(c, false); }},
        {"strrchr", 2, [](library_call& c) { return find_unit(c, true); }},
        {"strspn", 2,
         [](library_call& c) -> std::uint64_t { return span(c, c.pointer(0), c.pointer(1), true); }},
        {"strcspn", 2,
         [](library_call& c) -> std::uint64_t { return span(c, c.pointer(0), c.pointer(1), false); }},
        {"strpbrk", 2,
         [](library_call& c) -> std::uint64_t {
             const address at = c.pointer(0) + span(c, c.pointer(0), c.pointer(1), false);
             return c.vm.mem.byte(at) != 0 ? at : 0;
         }},
        {"strstr", 2, find_text},
        {"strtok", 2, next_token},
        {"isupper", 1, test<is_upper>},
        {"islower", 1, test<is_lower>},
        {"isdigit", 1, test<is_digit>},
        {"isalpha", 1, test<is_alpha>},
        {"isalnum", 1, test<either<is_alpha, is_digit>>},
        {"isgraph", 1, test<is_graph>},
        {"isspace", 1, test<is_space>},
        {"isxdigit", 1, test<is_hex>},
        {"ispunct", 1, test<is_punct>},
        {"isprint", 1, test<is_print>},
        {"iscntrl", 1, test<is_cntrl>},
        {"isblank", 1, test<is_blank>},
        {"toupper", 1, [](library_call& c) { return is_lower(c.integer(0)) ? c.raw(0) - 32 : c.raw(0); }},
        {"tolower", 1, [](library_call& c) { return is_upper(c.integer(0)) ? c.raw(0) + 32 : c.raw(0); }},
    };
    return table;
}

} // namespace run
