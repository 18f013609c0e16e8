// The library that programs find without linking one, and the intrinsics.

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <unordered_map>

#include "tools/icode-run/machine.h"

std::string text_at(machine& m, std::uint32_t address) {
    std::string text;
    for (;; address++) {
        const std::int64_t unit = m.space().load(KIND::U16, address);
        if (unit == 0) return text;
        text.push_back(static_cast<char>(unit));
    }
}

std::int64_t argument_source::next(KIND kind) {
    if (args_ != nullptr) {
        if (next_ >= args_->size()) throw program_fault("too few arguments for the format");
        const std::int64_t given = (*values_)[next_];
        const call_argument& arg = (*args_)[next_++];
        // What a format reads is the bits that were passed, as the format's type.
        if (kind == KIND::F32 || arg.kind == KIND::F32) return convert(arg.kind, kind, given);
        return normalise(kind, static_cast<std::uint64_t>(given));
    }
    const unsigned align = units_of(kind) > 1 ? 2 : 1;
    list_ = (list_ + align - 1) / align * align;
    const std::int64_t v = m_.space().load(kind, list_);
    list_ += units_of(kind);
    return v;
}

namespace {

constexpr std::int64_t STREAM_OUT = 2, STREAM_ERR = 3;

// One call of a library function.
struct call_state {
    machine& m;
    const call_site& site;
    std::vector<std::int64_t> values;

    std::int64_t arg(std::size_t i) const {
        if (i >= site.args.size()) throw program_fault("call of " + site.name + " with too few arguments");
        return values[i];
    }
    std::int64_t integer(std::size_t i, KIND kind) const {
        const std::int64_t v = arg(i);
        return convert(site.args[i].kind, kind, v);
    }
    std::uint32_t pointer(std::size_t i) const { return static_cast<std::uint32_t>(integer(i, KIND::U32)); }
    std::uint32_t size(std::size_t i) const { return static_cast<std::uint32_t>(integer(i, KIND::U32)); }
    int number(std::size_t i) const { return static_cast<int>(integer(i, KIND::I16)); }
    float single(std::size_t i) const { return to_float(convert(site.args.at(i).kind, KIND::F32, arg(i))); }
    std::int64_t unit(std::uint32_t at) const { return m.space().load(KIND::U16, at); }
    void put(std::uint32_t at, std::int64_t v) const { m.space().store(KIND::U16, at, v); }
    std::string text(std::size_t i) const { return text_at(m, pointer(i)); }
    void put_text(std::uint32_t at, const std::string& s) const {
        for (char c : s) put(at++, static_cast<unsigned char>(c));
        put(at, 0);
    }
};

using function = std::int64_t (*)(call_state&);

void write_stream(std::int64_t stream, const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stream == STREAM_ERR ? stderr : stdout);
}

std::int64_t print_to(call_state& c, std::int64_t stream, std::size_t format, bool list) {
    argument_source args = list ? argument_source(c.m, c.pointer(format + 1))
                                : argument_source(c.m, &c.site.args, &c.values, format + 1);
    const std::string text = format_text(c.m, c.text(format), args);
    write_stream(stream, text);
    return static_cast<std::int64_t>(text.size());
}

std::int64_t print_into(call_state& c, std::size_t format, bool bounded, bool list) {
    argument_source args = list ? argument_source(c.m, c.pointer(format + 1))
                                : argument_source(c.m, &c.site.args, &c.values, format + 1);
    std::string text = format_text(c.m, c.text(format), args);
    const std::int64_t length = static_cast<std::int64_t>(text.size());
    if (bounded) {
        const std::uint32_t room = c.size(1);
        if (room == 0) return length;
        if (text.size() >= room) text.resize(room - 1);
    }
    c.put_text(c.pointer(0), text);
    return length;
}

std::int64_t compare_units(call_state& c, std::uint32_t limit, bool stop_at_zero) {
    const std::uint32_t a = c.pointer(0), b = c.pointer(1);
    for (std::uint32_t i = 0; i < limit; i++) {
        const std::int64_t x = c.unit(a + i), y = c.unit(b + i);
        if (x != y) return x < y ? -1 : 1;
        if (stop_at_zero && x == 0) break;
    }
    return 0;
}

std::int64_t copy_text(call_state& c, std::uint32_t to, std::uint32_t from, std::uint32_t limit, bool pad,
                       bool close) {
    std::uint32_t i = 0;
    for (; i < limit; i++) {
        const std::int64_t u = c.unit(from + i);
        if (u == 0 && !pad) break;
        if (u == 0) {
            for (; i < limit; i++) c.put(to + i, 0);
            return c.pointer(0);
        }
        c.put(to + i, u);
    }
    if (close) c.put(to + i, 0);
    return c.pointer(0);
}

std::uint32_t length_of(call_state& c, std::uint32_t at) {
    std::uint32_t n = 0;
    while (c.unit(at + n) != 0) n++;
    return n;
}

std::int64_t find_unit(call_state& c, std::uint32_t at, std::int64_t wanted, bool last) {
    std::int64_t found = 0;
    for (;; at++) {
        const std::int64_t u = c.unit(at);
        if (u == wanted) {
            found = at;
            if (!last) return found;
        }
        if (u == 0) return found;
    }
}

std::uint32_t span(call_state& c, bool accept) {
    const std::uint32_t at = c.pointer(0);
    const std::string set = c.text(1);
    std::uint32_t n = 0;
    for (;; n++) {
        const std::int64_t u = c.unit(at + n);
        if (u == 0 || (set.find(static_cast<char>(u)) != std::string::npos) != accept) return n;
    }
}

std::int64_t tokenise(call_state& c) {
    const std::string set = c.text(1);
    std::uint32_t at = c.pointer(0) != 0 ? c.pointer(0) : c.m.token_cursor;
    if (at == 0) return 0;
    const auto is_separator = [&](std::int64_t u) {
        return u != 0 && set.find(static_cast<char>(u)) != std::string::npos;
    };
    while (is_separator(c.unit(at))) at++;
    if (c.unit(at) == 0) {
        c.m.token_cursor = 0;
        return 0;
    }
    const std::uint32_t start = at;
    while (c.unit(at) != 0 && !is_separator(c.unit(at))) at++;
    if (c.unit(at) == 0) {
        c.m.token_cursor = 0;
    } else {
        c.put(at, 0);
        c.m.token_cursor = at + 1;
    }
    return start;
}

// Reads a number of a program's text; `saturate` gives the bounds of the result.
std::int64_t read_number(call_state& c, bool is_unsigned, int base) {
    std::uint32_t at = c.pointer(0);
    const auto start = at;
    while (std::isspace(static_cast<int>(c.unit(at) & 0xff)) && c.unit(at) < 128) at++;
    bool negative = false;
    if (c.unit(at) == '-' || c.unit(at) == '+') negative = c.unit(at++) == '-';
    const auto digit = [&](std::uint32_t p) -> int {
        const std::int64_t u = c.unit(p);
        if (u >= '0' && u <= '9') return static_cast<int>(u - '0');
        if (u >= 'a' && u <= 'z') return static_cast<int>(u - 'a' + 10);
        if (u >= 'A' && u <= 'Z') return static_cast<int>(u - 'A' + 10);
        return 99;
    };
    if ((base == 0 || base == 16) && c.unit(at) == '0' && (c.unit(at + 1) | 0x20) == 'x' &&
        digit(at + 2) < 16) {
        at += 2;
        base = 16;
    }
    if (base == 0) base = c.unit(at) == '0' ? 8 : 10;
    std::uint64_t value = 0;
    bool any = false, over = false;
    for (int d; (d = digit(at)) < base; at++) {
        any = true;
        value = value * static_cast<std::uint64_t>(base) + static_cast<std::uint64_t>(d);
        if (value > 0xffffffffu) {
            over = true;
            value = 0xffffffffu;
        }
    }
    if (c.site.args.size() > 1 && c.site.name != "atoi" && c.site.name != "atol") {
        const std::uint32_t end = c.pointer(1);
        if (end != 0) c.put(end, any ? at : start);
    }
    if (is_unsigned) {
        if (over) return 0xffffffffu;
        return static_cast<std::int64_t>(negative ? 0 - value : value) & 0xffffffff;
    }
    if (!negative) return static_cast<std::int64_t>(std::min<std::uint64_t>(value, 0x7fffffffu));
    return value > 0x80000000u ? -0x80000000LL : -static_cast<std::int64_t>(value);
}

std::int64_t sort(call_state& c) {
    // Heap sort: no recursion, and the same sequence of comparisons everywhere.
    const std::uint32_t base = c.pointer(0), count = c.size(1), size = c.size(2), compare = c.pointer(3);
    memory& space = c.m.space();
    if (count < 2) return 0;
    space.check(base, size, false);
    const auto less = [&](std::uint32_t i, std::uint32_t j) {
        return c.m.call_back(compare, {base + i * size, base + j * size}) < 0;
    };
    const auto swap = [&](std::uint32_t i, std::uint32_t j) {
        for (std::uint32_t k = 0; k < size; k++) {
            const std::int64_t x = space.load(KIND::U16, base + i * size + k),
                               y = space.load(KIND::U16, base + j * size + k);
            space.store(KIND::U16, base + i * size + k, y);
            space.store(KIND::U16, base + j * size + k, x);
        }
    };
    const auto sift = [&](std::uint32_t root, std::uint32_t end) {
        for (;;) {
            std::uint32_t child = 2 * root + 1;
            if (child >= end) return;
            if (child + 1 < end && less(child, child + 1)) child++;
            if (!less(root, child)) return;
            swap(root, child);
            root = child;
        }
    };
    for (std::uint32_t i = count / 2; i-- > 0;) sift(i, count);
    for (std::uint32_t end = count; end-- > 1;) {
        swap(0, end);
        sift(0, end);
    }
    return 0;
}

std::int64_t search(call_state& c) {
    const std::uint32_t key = c.pointer(0), base = c.pointer(1), size = c.size(3), compare = c.pointer(4);
    std::uint32_t low = 0, high = c.size(2);
    while (low < high) {
        const std::uint32_t middle = (low + high) / 2;
        const std::int64_t order = c.m.call_back(compare, {key, base + middle * size});
        if (order == 0) return base + middle * size;
        if (order < 0)
            high = middle;
        else
            low = middle + 1;
    }
    return 0;
}

template <float (*F)(float)> std::int64_t math1(call_state& c) { return from_float(F(c.single(0))); }
template <float (*F)(float, float)> std::int64_t math2(call_state& c) {
    return from_float(F(c.single(0), c.single(1)));
}
template <int (*F)(int)> std::int64_t classify(call_state& c) {
    const int u = c.number(0);
    return u >= 0 && u < 128 ? F(u) : 0;
}
template <int (*F)(int)> std::int64_t change_case(call_state& c) {
    const int u = c.number(0);
    return u >= 0 && u < 128 ? F(u) : u;
}

// The widest representation of two operands of an intrinsic.
std::int64_t choose(call_state& c, bool larger) {
    if (c.site.args.at(0).kind == KIND::F32) {
        const float a = c.single(0), b = c.single(1);
        return from_float((a < b) == larger ? b : a);
    }
    const bool as_unsigned = c.site.args[0].kind == KIND::U64;
    const auto a = c.arg(0), b = c.arg(1);
    const bool less = as_unsigned ? static_cast<std::uint64_t>(a) < static_cast<std::uint64_t>(b) : a < b;
    return less == larger ? b : a;
}

std::int64_t saturate(std::int64_t v, int bits) {
    const std::int64_t top = (std::int64_t{1} << (bits - 1)) - 1;
    return std::clamp(v, -top - 1, top);
}

struct entry {
    const char* name;
    function run;
};

const entry entries[] = {
    {"printf", [](call_state& c) { return print_to(c, STREAM_OUT, 0, false); }},
    {"fprintf", [](call_state& c) { return print_to(c, c.arg(0), 1, false); }},
    {"vprintf", [](call_state& c) { return print_to(c, STREAM_OUT, 0, true); }},
    {"vfprintf", [](call_state& c) { return print_to(c, c.arg(0), 1, true); }},
    {"sprintf", [](call_state& c) { return print_into(c, 1, false, false); }},
    {"snprintf", [](call_state& c) { return print_into(c, 2, true, false); }},
    {"vsprintf", [](call_state& c) { return print_into(c, 1, false, true); }},
    {"vsnprintf", [](call_state& c) { return print_into(c, 2, true, true); }},
    {"puts",
     [](call_state& c) -> std::int64_t {
         write_stream(STREAM_OUT, c.text(0) + "\n");
         return 0;
     }},
    {"fputs",
     [](call_state& c) -> std::int64_t {
         write_stream(c.arg(1), c.text(0));
         return 0;
     }},
    {"putchar",
     [](call_state& c) -> std::int64_t {
         write_stream(STREAM_OUT, std::string(1, static_cast<char>(c.number(0))));
         return c.number(0) & 0xff;
     }},
    {"fputc",
     [](call_state& c) -> std::int64_t {
         write_stream(c.arg(1), std::string(1, static_cast<char>(c.number(0))));
         return c.number(0) & 0xff;
     }},
    {"putc",
     [](call_state& c) -> std::int64_t {
         write_stream(c.arg(1), std::string(1, static_cast<char>(c.number(0))));
         return c.number(0) & 0xff;
     }},
    {"getchar", [](call_state&) -> std::int64_t { return std::getchar(); }},
    {"fflush", [](call_state&) -> std::int64_t { return std::fflush(stdout); }},
    {"malloc", [](call_state& c) -> std::int64_t { return c.m.space().allocate(c.size(0)); }},
    {"calloc",
     [](call_state& c) -> std::int64_t {
         const std::uint64_t units = std::uint64_t{c.size(0)} * c.size(1);
         if (units > 0xffffff) return 0;
         const std::uint32_t at = c.m.space().allocate(static_cast<std::uint32_t>(units));
         for (std::uint32_t i = 0; at != 0 && i < units; i++) c.put(at + i, 0);
         return at;
     }},
    {"realloc",
     [](call_state& c) -> std::int64_t {
         const std::uint32_t old = c.pointer(0);
         const std::uint32_t at = c.m.space().allocate(c.size(1));
         if (old == 0 || at == 0) return at;
         c.m.space().copy(at, old, std::min(c.m.space().block_size(old), c.size(1)));
         c.m.space().release_block(old);
         return at;
     }},
    {"free",
     [](call_state& c) -> std::int64_t {
         if (c.pointer(0) != 0) c.m.space().release_block(c.pointer(0));
         return 0;
     }},
    {"abort", [](call_state&) -> std::int64_t { throw program_exit{134}; }},
    {"exit", [](call_state& c) -> std::int64_t { throw program_exit{c.number(0)}; }},
    {"_Exit",
     [](call_state& c) -> std::int64_t {
         c.m.exit_functions.clear();
         throw program_exit{c.number(0)};
     }},
    {"atexit",
     [](call_state& c) -> std::int64_t {
         c.m.exit_functions.push_back(c.pointer(0));
         return 0;
     }},
    {"__assert_fail",
     [](call_state& c) -> std::int64_t {
         const std::string line = c.text(1) + ":" + std::to_string(c.integer(2, KIND::U16)) +
                                  ": assertion failed: " + c.text(0) + "\n";
         std::fflush(stdout);
         write_stream(STREAM_ERR, line);
         c.m.exit_functions.clear();
         throw program_exit{134};
     }},
    {"rand",
     [](call_state& c) -> std::int64_t {
         c.m.random_state = c.m.random_state * 1103515245u + 12345u;
         return (c.m.random_state >> 16) & 0x7fff;
     }},
    {"srand",
     [](call_state& c) -> std::int64_t {
         c.m.random_state = static_cast<std::uint32_t>(c.integer(0, KIND::U16));
         return 0;
     }},
    {"memcpy",
     [](call_state& c) -> std::int64_t {
         c.m.space().copy(c.pointer(0), c.pointer(1), c.size(2));
         return c.pointer(0);
     }},
    {"memmove",
     [](call_state& c) -> std::int64_t {
         c.m.space().copy(c.pointer(0), c.pointer(1), c.size(2));
         return c.pointer(0);
     }},
    {"memset",
     [](call_state& c) -> std::int64_t {
         for (std::uint32_t i = 0; i < c.size(2); i++) c.put(c.pointer(0) + i, c.integer(1, KIND::U16));
         return c.pointer(0);
     }},
    {"memcmp", [](call_state& c) { return compare_units(c, c.size(2), false); }},
    {"memchr",
     [](call_state& c) -> std::int64_t {
         for (std::uint32_t i = 0; i < c.size(2); i++)
             if (c.unit(c.pointer(0) + i) == c.integer(1, KIND::U16)) return c.pointer(0) + i;
         return 0;
     }},
    {"strlen", [](call_state& c) -> std::int64_t { return length_of(c, c.pointer(0)); }},
    {"strcpy",
     [](call_state& c) { return copy_text(c, c.pointer(0), c.pointer(1), UINT32_MAX, false, true); }},
    {"strncpy",
     [](call_state& c) { return copy_text(c, c.pointer(0), c.pointer(1), c.size(2), true, false); }},
    {"strcat",
     [](call_state& c) {
         return copy_text(c, c.pointer(0) + length_of(c, c.pointer(0)), c.pointer(1), UINT32_MAX, false,
                          true);
     }},
    {"strncat",
     [](call_state& c) {
         return copy_text(c, c.pointer(0) + length_of(c, c.pointer(0)), c.pointer(1), c.size(2), false, true);
     }},
    {"strcmp", [](call_state& c) { return compare_units(c, UINT32_MAX, true); }},
    {"strncmp", [](call_state& c) { return compare_units(c, c.size(2), true); }},
    {"strchr", [](call_state& c) { return find_unit(c, c.pointer(0), c.integer(1, KIND::U16), false); }},
    {"strrchr", [](call_state& c) { return find_unit(c, c.pointer(0), c.integer(1, KIND::U16), true); }},
    {"strstr",
     [](call_state& c) -> std::int64_t {
         const std::size_t at = c.text(0).find(c.text(1));
         return at == std::string::npos ? 0 : static_cast<std::int64_t>(c.pointer(0) + at);
     }},
    {"strpbrk",
     [](call_state& c) -> std::int64_t {
         const std::uint32_t n = span(c, false);
         return c.unit(c.pointer(0) + n) == 0 ? 0 : c.pointer(0) + n;
     }},
    {"strspn", [](call_state& c) -> std::int64_t { return span(c, true); }},
    {"strcspn", [](call_state& c) -> std::int64_t { return span(c, false); }},
    {"strtok", tokenise},
    {"abs", [](call_state& c) -> std::int64_t { return std::abs(c.number(0)); }},
    {"labs", [](call_state& c) -> std::int64_t { return std::llabs(c.integer(0, KIND::I32)); }},
    {"llabs",
     [](call_state& c) -> std::int64_t {
         const auto v = static_cast<std::uint64_t>(c.integer(0, KIND::I64));
         return static_cast<std::int64_t>(static_cast<std::int64_t>(v) < 0 ? 0 - v : v);
     }},
    {"atoi", [](call_state& c) { return read_number(c, false, 10); }},
    {"atol", [](call_state& c) { return read_number(c, false, 10); }},
    {"atof", [](call_state& c) { return from_float(std::strtof(c.text(0).c_str(), nullptr)); }},
    {"strtol", [](call_state& c) { return read_number(c, false, c.number(2)); }},
    {"strtoul", [](call_state& c) { return read_number(c, true, c.number(2)); }},
    {"qsort", sort},
    {"bsearch", search},
    {"setjmp", [](call_state&) -> std::int64_t { throw program_fault("setjmp through a pointer"); }},
    {"longjmp", [](call_state&) -> std::int64_t { throw program_fault("longjmp through a pointer"); }},
    {"isalnum", classify<std::isalnum>},
    {"isalpha", classify<std::isalpha>},
    {"iscntrl", classify<std::iscntrl>},
    {"isdigit", classify<std::isdigit>},
    {"isgraph", classify<std::isgraph>},
    {"islower", classify<std::islower>},
    {"isprint", classify<std::isprint>},
    {"ispunct", classify<std::ispunct>},
    {"isspace", classify<std::isspace>},
    {"isupper", classify<std::isupper>},
    {"isxdigit", classify<std::isxdigit>},
    {"tolower", change_case<std::tolower>},
    {"toupper", change_case<std::toupper>},
    {"acos", math1<acosf>},
    {"asin", math1<asinf>},
    {"atan", math1<atanf>},
    {"ceil", math1<ceilf>},
    {"cos", math1<cosf>},
    {"cosh", math1<coshf>},
    {"exp", math1<expf>},
    {"fabs", math1<fabsf>},
    {"floor", math1<floorf>},
    {"log", math1<logf>},
    {"log10", math1<log10f>},
    {"log2", math1<log2f>},
    {"round", math1<roundf>},
    {"sin", math1<sinf>},
    {"sinh", math1<sinhf>},
    {"sqrt", math1<sqrtf>},
    {"tan", math1<tanf>},
    {"tanh", math1<tanhf>},
    {"trunc", math1<truncf>},
    {"atan2", math2<atan2f>},
    {"fmod", math2<fmodf>},
    {"pow", math2<powf>},
    {"fmin", math2<fminf>},
    {"fmax", math2<fmaxf>},
    {"ldexp", [](call_state& c) { return from_float(std::ldexp(c.single(0), c.number(1))); }},
    {"frexp",
     [](call_state& c) {
         int exponent = 0;
         const float f = std::frexp(c.single(0), &exponent);
         c.put(c.pointer(1), exponent);
         return from_float(f);
     }},
    {"modf",
     [](call_state& c) {
         float whole = 0;
         const float f = std::modf(c.single(0), &whole);
         c.m.space().store(KIND::F32, c.pointer(1), from_float(whole));
         return from_float(f);
     }},
    {"__builtin_expect", [](call_state& c) { return c.arg(0); }},
    {"_never_executed",
     [](call_state&) -> std::int64_t { throw program_fault("a point that is never reached"); }},
    // Intrinsics.
    {"quest$colon", [](call_state& c) { return c.arg(0) != 0 ? c.arg(1) : c.arg(2); }},
    {"_min", [](call_state& c) { return choose(c, false); }},
    {"_max", [](call_state& c) { return choose(c, true); }},
    {"_sadd",
     [](call_state& c) { return saturate(c.arg(0) + c.arg(1), static_cast<int>(bits_of(c.site.result))); }},
    {"_ssub",
     [](call_state& c) { return saturate(c.arg(0) - c.arg(1), static_cast<int>(bits_of(c.site.result))); }},
};

} // namespace

int find_builtin(const std::string& name) {
    static const std::unordered_map<std::string, int> by_name = [] {
        std::unordered_map<std::string, int> map;
        int i = 0;
        for (const entry& e : entries) map.emplace(e.name, i++);
        return map;
    }();
    auto found = by_name.find(name);
    if (found != by_name.end()) return found->second;
    // Every floating type is a single: the f names are the same functions.
    if (name.size() > 1 && name.back() == 'f') {
        found = by_name.find(name.substr(0, name.size() - 1));
        static const std::size_t first_math = static_cast<std::size_t>(by_name.at("acos")),
                                 last_math = static_cast<std::size_t>(by_name.at("modf"));
        if (found != by_name.end() && static_cast<std::size_t>(found->second) >= first_math &&
            static_cast<std::size_t>(found->second) <= last_math)
            return found->second;
    }
    return -1;
}

std::int64_t run_builtin(machine& m, int index, const call_site& site, std::vector<std::int64_t> values) {
    call_state state{m, site, std::move(values)};
    return entries[index].run(state);
}
