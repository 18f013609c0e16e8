#include "tools/icode-run/format.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "tools/icode-run/machine.h"

namespace run {

std::size_t call_values::take() {
    if (next_ >= call_.count()) throw fault{"a format asks for more arguments than there are"};
    return next_++;
}

std::uint64_t call_values::integer(const scalar& as, std::uint32_t) {
    const std::size_t i = take();
    if (call_.rep(i).is_float()) return float_to_integer(call_.number(i), as.bits, as.is_signed);
    return extend(call_.raw(i), as);
}

float call_values::number() { return call_.number(take()); }

std::uint64_t list_values::take(const scalar& as, std::uint32_t units, std::uint32_t align) {
    next_ = (next_ + align - 1) / align * align;
    const std::uint64_t value = vm_.mem.load(next_, as.bits, as.is_signed);
    next_ += units;
    return value;
}

std::uint64_t list_values::integer(const scalar& as, std::uint32_t align) {
    return take(as, (as.bits + 15u) / 16, align);
}

float list_values::number() {
    const data_model& model = vm_.program.model;
    return as_float(take({scalar::FLOATING, 32, false}, model.double_units, model.double_align));
}

namespace {

constexpr int MAX_WIDTH = 4096; // of a field, and its precision: more is cut

struct directive {
    bool left = false, plus = false, space = false, alternate = false, zero = false;
    int width = 0;
    int precision = -1;
    enum { HALF, PLAIN, LONG, LONG_LONG } length = PLAIN;
};

std::string padded(std::string text, const directive& d, std::size_t zeros_at) {
    const auto width = static_cast<std::size_t>(d.width);
    if (text.size() >= width) return text;
    const std::size_t missing = width - text.size();
    if (d.left) return text + std::string(missing, ' ');
    if (zeros_at != std::string::npos) return text.insert(zeros_at, missing, '0');
    return std::string(missing, ' ') + text;
}

std::string integer_text(std::uint64_t value, bool is_signed, char conversion, const directive& d) {
    std::string sign;
    if (is_signed) {
        const bool negative = static_cast<std::int64_t>(value) < 0;
        if (negative) value = 0 - value;
        sign = negative ? "-" : d.plus ? "+" : d.space ? " " : "";
    }
    const unsigned base = conversion == 'o'                                             ? 8
                          : conversion == 'x' || conversion == 'X' || conversion == 'p' ? 16
                                                                                        : 10;
    const bool zero_value = value == 0;
    std::string digits;
    const char* const letters = conversion == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
    for (; value != 0; value /= base) digits.push_back(letters[value % base]);
    std::reverse(digits.begin(), digits.end());
    const std::size_t least = d.precision < 0 ? 1 : static_cast<std::size_t>(d.precision);
    if (digits.size() < least) digits.insert(0, least - digits.size(), '0');
    if (d.alternate && base == 8 && (digits.empty() || digits[0] != '0')) digits.insert(0, 1, '0');
    if (d.alternate && base == 16 && !zero_value) sign += conversion == 'X' ? "0X" : "0x";
    return padded(sign + digits, d, d.zero && d.precision < 0 ? sign.size() : std::string::npos);
}

std::string float_text(float value, char conversion, const directive& d) {
    std::string format = "%";
    if (d.left) format += '-';
    if (d.plus) format += '+';
    if (d.space) format += ' ';
    if (d.alternate) format += '#';
    if (d.zero) format += '0';
    format += "*.*";
    format += conversion;
    const int precision = d.precision < 0 && conversion != 'a' ? 6 : d.precision;
    char small[256];
    const int n =
        std::snprintf(small, sizeof small, format.c_str(), d.width, precision, static_cast<double>(value));
    if (n < static_cast<int>(sizeof small)) return small;
    std::string large(static_cast<std::size_t>(n) + 1, 0);
    std::snprintf(large.data(), large.size(), format.c_str(), d.width, precision, static_cast<double>(value));
    large.pop_back();
    return large;
}

class formatter {
  public:
    formatter(machine& vm, address format, value_source& values) : vm_(vm), at_(format), values_(values) {}

    std::string run() {
        for (char c; (c = next()) != 0;) {
            if (c != '%')
                out_.push_back(c);
            else
                convert();
        }
        return std::move(out_);
    }

  private:
    char next() { return static_cast<char>(vm_.mem.byte(at_++)); }

    int plain_int() {
        return static_cast<int>(values_.integer(vm_.program.model.plain_int, vm_.program.model.int_align));
    }

    int number(char& c) {
        int n = 0;
        for (; c >= '0' && c <= '9'; c = next()) n = std::min(n * 10 + (c - '0'), MAX_WIDTH);
        return n;
    }

    std::uint64_t integer(const directive& d, bool is_signed) {
        const data_model& model = vm_.program.model;
        scalar as = model.plain_int;
        std::uint32_t align = model.int_align;
        if (d.length == directive::LONG) as = model.long_int, align = model.long_align;
        if (d.length == directive::LONG_LONG) as = model.long_long, align = model.long_long_align;
        as.is_signed = is_signed;
        return values_.integer(as, align);
    }

    void convert() {
        directive d;
        char c = next();
        for (;; c = next()) {
            if (c == '-')
                d.left = true;
            else if (c == '+')
                d.plus = true;
            else if (c == ' ')
                d.space = true;
            else if (c == '#')
                d.alternate = true;
            else if (c == '0')
                d.zero = true;
            else
                break;
        }
        if (c == '*') {
            d.width = std::clamp(plain_int(), -MAX_WIDTH, MAX_WIDTH);
            if (d.width < 0) d.left = true, d.width = -d.width;
            c = next();
        } else {
            d.width = number(c);
        }
        if (c == '.') {
            c = next();
            if (c == '*') {
                d.precision = std::clamp(plain_int(), -1, MAX_WIDTH);
                c = next();
            } else {
                d.precision = number(c);
            }
        }
        for (;; c = next()) {
            if (c == 'h')
                d.length = directive::HALF;
            else if (c == 'l')
                d.length = d.length == directive::LONG ? directive::LONG_LONG : directive::LONG;
            else if (c == 'j')
                d.length = directive::LONG_LONG;
            else if (c != 'L' && c != 'z' && c != 't')
                break;
        }
        const data_model& model = vm_.program.model;
        switch (c) {
            case 'd':
            case 'i': out_ += integer_text(integer(d, true), true, 'd', d); break;
            case 'u':
            case 'x':
            case 'X':
            case 'o': out_ += integer_text(integer(d, false), false, c, d); break;
            case 'c':
                out_ += padded(std::string(1, static_cast<char>(plain_int())), d, std::string::npos);
                break;
            case 'p':
                d.alternate = true;
                out_ += integer_text(values_.integer(model.pointer, model.pointer_align), false, 'p', d);
                break;
            case 's': {
                const auto at = static_cast<address>(values_.integer(model.pointer, model.pointer_align));
                std::string text;
                while (d.precision < 0 || text.size() < static_cast<std::size_t>(d.precision)) {
                    const std::uint16_t unit = vm_.mem.byte(at + static_cast<address>(text.size()));
                    if (unit == 0) break;
                    text.push_back(static_cast<char>(unit));
                }
                out_ += padded(std::move(text), d, std::string::npos);
                break;
            }
            case 'e':
            case 'E':
            case 'f':
            case 'F':
            case 'g':
            case 'G':
            case 'a':
            case 'A': out_ += float_text(values_.number(), c, d); break;
            case 'n':
                vm_.mem.store(static_cast<address>(values_.integer(model.pointer, model.pointer_align)),
                              model.plain_int.bits, out_.size());
                break;
            case '%': out_.push_back('%'); break;
            default: throw fault{"a format with an unknown conversion"};
        }
    }

    machine& vm_;
    address at_;
    value_source& values_;
    std::string out_;
};

} // namespace

std::string format_text(machine& vm, address format, value_source& values) {
    return formatter(vm, format, values).run();
}

} // namespace run
