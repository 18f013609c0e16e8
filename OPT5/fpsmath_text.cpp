// Simulated floating values from text and to text.
//
// Reading accumulates digits with f_mul and f_add while the number is still exact (28 decimal or 20
// hexadecimal digits), counts the rest, and applies the decimal exponent by powers from a table. The error
// stays below 2 to the -72 of the value, which is not enough by itself where the text is within that of the
// middle between two singles; there the text is compared with the middle in exact arithmetic.
//
// Writing takes digits off the exact quotient of two long integers, so every digit is right for any count.

#include "fpsmath.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string_view>
#include <vector>

#include "types.h"

namespace {

using u128 = unsigned __int128;

const char hex_digits[] = "0123456789abcdef";

const simul_fval digit_values[16] = {
    {{}, F_EXP_ZERO, 0}, {{1}, 16, 0},  {{2}, 16, 0},  {{3}, 16, 0},  {{4}, 16, 0},  {{5}, 16, 0},
    {{6}, 16, 0},        {{7}, 16, 0},  {{8}, 16, 0},  {{9}, 16, 0},  {{10}, 16, 0}, {{11}, 16, 0},
    {{12}, 16, 0},       {{13}, 16, 0}, {{14}, 16, 0}, {{15}, 16, 0},
};
const simul_fval sixteen{{16}, 16, 0};

// 10 to the 2 to the k.
constexpr int POWERS = 14;
const precise_sim_fval precise_powers[POWERS] = {
    {{0x000a, 0x0000, 0x0000, 0x0000, 0x0000, 0x0000, 0x0000}, 16, 0},    // 1e1
    {{0x0064, 0x0000, 0x0000, 0x0000, 0x0000, 0x0000, 0x0000}, 16, 0},    // 1e2
    {{0x2710, 0x0000, 0x0000, 0x0000, 0x0000, 0x0000, 0x0000}, 16, 0},    // 1e4
    {{0x05f5, 0xe100, 0x0000, 0x0000, 0x0000, 0x0000, 0x0000}, 32, 0},    // 1e8
    {{0x0023, 0x86f2, 0x6fc1, 0x0000, 0x0000, 0x0000, 0x0000}, 64, 0},    // 1e16
    {{0x04ee, 0x2d6d, 0x415b, 0x85ac, 0xef81, 0x0000, 0x0000}, 112, 0},   // 1e32
    {{0x0018, 0x4f03, 0xe93f, 0xf9f4, 0xdaa7, 0x97ed, 0x6e39}, 224, 0},   // 1e64
    {{0x024e, 0xe91f, 0x2603, 0xa633, 0x7f19, 0xbccd, 0xb0db}, 432, 0},   // 1e128
    {{0x0005, 0x53f7, 0x5fdc, 0xefce, 0xf46e, 0xeddc, 0x80dd}, 864, 0},   // 1e256
    {{0x001c, 0x6334, 0x15d4, 0xc1d2, 0x38d9, 0x8cab, 0x8a98}, 1712, 0},  // 1e512
    {{0x0325, 0xd9d6, 0x1a05, 0xd430, 0x5d94, 0x34f4, 0xa3c6}, 3408, 0},  // 1e1024
    {{0x0009, 0xe8b3, 0xb5dc, 0x53d5, 0xde4a, 0x74d2, 0x8ce3}, 6816, 0},  // 1e2048
    {{0x0062, 0x3029, 0x0145, 0x104b, 0xcd64, 0xa60a, 0x9fc0}, 13616, 0}, // 1e4096
    {{0x25a8, 0xe874, 0x5feb, 0xc846, 0x831f, 0x0a24, 0x8c18}, 27216, 0}, // 1e8192
};

const simul_fval* powers_of_ten() {
    static const auto table = [] {
        std::vector<simul_fval> rounded(POWERS);
        f_rnd_prectbl(precise_powers, rounded.data(), POWERS);
        return rounded;
    }();
    return table.data();
}

// A natural number of any length, 32 bits a limb, the least significant one first; no zero limbs on top.
class NATURAL {
  public:
    explicit NATURAL(u128 value) {
        for (; value != 0; value >>= 32) limbs_.push_back(static_cast<std::uint32_t>(value));
    }
    bool is_zero() const { return limbs_.empty(); }
    void multiply(std::uint32_t factor, std::uint32_t addend = 0) {
        std::uint64_t carry = addend;
        for (std::uint32_t& limb : limbs_) {
            carry += static_cast<std::uint64_t>(limb) * factor;
            limb = static_cast<std::uint32_t>(carry);
            carry >>= 32;
        }
        if (carry != 0) limbs_.push_back(static_cast<std::uint32_t>(carry));
    }
    void multiply_by_power_of_ten(int n) {
        for (; n >= 9; n -= 9) multiply(1000000000);
        for (; n > 0; n--) multiply(10);
    }
    void shift_left(int count) {
        if (is_zero()) return;
        multiply(std::uint32_t{1} << count % 32);
        limbs_.insert(limbs_.begin(), static_cast<std::size_t>(count) / 32, 0);
    }
    int compare(const NATURAL& other) const {
        if (limbs_.size() != other.limbs_.size()) return limbs_.size() < other.limbs_.size() ? -1 : 1;
        for (std::size_t i = limbs_.size(); i-- > 0;) {
            if (limbs_[i] != other.limbs_[i]) return limbs_[i] < other.limbs_[i] ? -1 : 1;
        }
        return 0;
    }
    // `other` is not greater.
    void subtract(const NATURAL& other) {
        std::int64_t borrow = 0;
        for (std::size_t i = 0; i < limbs_.size(); i++) {
            const std::int64_t limb =
                limbs_[i] - (i < other.limbs_.size() ? std::int64_t{other.limbs_[i]} : 0);
            limbs_[i] = static_cast<std::uint32_t>(limb + borrow);
            borrow = (limb + borrow) >> 32;
        }
        while (!limbs_.empty() && limbs_.back() == 0) limbs_.pop_back();
    }

  private:
    std::vector<std::uint32_t> limbs_;
};

// --- Reading --------------------------------------------------------------------------------------------

// The digits of a number: value = mantissa times base to the scale.
struct DIGITS {
    simul_fval mantissa = pos_zero;
    long long scale = 0;
    int count = 0;               // of the digits in the mantissa
    const char* first = nullptr; // the first that is not zero
    bool any = false;
};

// The value of a digit; -1 for any other character.
int digit_value(char c, int base) {
    const char* place = static_cast<const char*>(
        std::memchr(hex_digits, std::tolower(static_cast<unsigned char>(c)), static_cast<std::size_t>(base)));
    return place != nullptr ? static_cast<int>(place - hex_digits) : -1;
}

void append_digit(DIGITS* digits, int digit, int base) {
    f_mul(&digits->mantissa, base == 16 ? &sixteen : &digit_values[10], &digits->mantissa);
    f_add(&digits->mantissa, &digit_values[digit], &digits->mantissa);
    digits->count++;
}

// Reads digits with a point; returns the end. What follows the digits that are kept becomes one more digit, 1
// where any of it is not zero.
const char* scan_digits(const char* text, int base, DIGITS* digits) {
    int room = base == 16 ? 19 : 27; // what alignment and exact addition keep, less one
    bool point = false;
    bool more = false;
    for (;; text++) {
        if (*text == '.' && !point) {
            point = true;
            continue;
        }
        const int digit = digit_value(*text, base);
        if (digit < 0) break;
        digits->any = true;
        if (digits->first == nullptr && digit != 0) digits->first = text;
        const bool kept = digits->first == nullptr || room > 0;
        if (point && kept) digits->scale--;
        if (!point && !kept) digits->scale++;
        if (!kept) {
            more = more || digit != 0;
        } else if (digits->first != nullptr) {
            append_digit(digits, digit, base);
            room--;
        }
    }
    if (more) {
        append_digit(digits, 1, base);
        digits->scale--;
    }
    return text;
}

// Reads an exponent after the letter; returns the end, null where there are no digits. Saturates.
const char* scan_exponent(const char* text, long long* exponent) {
    const bool negative = *text == '-';
    if (*text == '-' || *text == '+') text++;
    if (digit_value(*text, 10) < 0) return nullptr;
    long long number = 0;
    for (; digit_value(*text, 10) >= 0; text++) {
        number = std::min(number * 10 + digit_value(*text, 10), 1000000000000LL);
    }
    *exponent = negative ? -number : number;
    return text;
}

bool same_word(const char* text, std::string_view word) {
    if (std::strlen(text) != word.size()) return false;
    return std::equal(word.begin(), word.end(), text, [](char expected, char c) {
        return expected == std::tolower(static_cast<unsigned char>(c));
    });
}

int scale_by_power_of_ten(long long exponent, simul_fval* value) {
    // Beyond this the result leaves the limits, whatever the 28 digits are.
    int rest = static_cast<int>(std::clamp(exponent, -16383LL, 16383LL));
    const bool divide = rest < 0;
    if (divide) rest = -rest;
    int status = 0;
    for (const simul_fval* power = powers_of_ten(); rest != 0; rest >>= 1, power++) {
        if ((rest & 1) == 0) continue;
        if ((divide ? f_div(value, power, value) : f_mul(value, power, value)) != 0) status = -1;
    }
    return status;
}

// Orders the decimal text, from its first digit that is not zero, against number times 2 to the n. `exponent`
// is the power of ten of that digit's place.
int compare_text(const char* first, long long exponent, u128 number, int n) {
    // The middle between two singles has at most 113 digits: what follows 120 can only break a tie.
    constexpr int ENOUGH = 120;
    NATURAL left(0);
    int count = 0;
    bool more = false;
    for (const char* text = first;; text++) {
        if (*text == '.') continue;
        const int digit = digit_value(*text, 10);
        if (digit < 0) break;
        if (count == ENOUGH) {
            more = more || digit != 0;
        } else {
            left.multiply(10, static_cast<std::uint32_t>(digit));
            count++;
        }
    }
    left.multiply(10, more ? 1 : 0);
    NATURAL right(number);
    const auto scale = static_cast<int>(exponent - count);
    (scale >= 0 ? left : right).multiply_by_power_of_ten(std::abs(scale));
    (n >= 0 ? right : left).shift_left(std::abs(n));
    return left.compare(right);
}

// Where the value is too close to the middle between two singles to tell on which side the text is, moves it
// to that side, or to the middle.
void settle_half(const DIGITS& digits, long long exponent, simul_fval* value) {
    constexpr int BITS = 96;
    constexpr int SINGLE_BITS = 24;
    constexpr int LEAST_NORMAL = -125;
    simul_fval copy = *value;
    f_left_justify(&copy);
    if (copy.exp > 128) return;
    // The bits that rounding to a single drops; all and one more for the half of the least denormal.
    const int dropped = BITS - SINGLE_BITS + std::max(0, LEAST_NORMAL - copy.exp);
    if (dropped > BITS + 1) return;
    const u128 bits = f_mantissa(&copy);
    const u128 half = static_cast<u128>(1) << (dropped - 1);
    const u128 low = bits & ((half << 1) - 1);
    if ((low > half ? low - half : half - low) > static_cast<u128>(1) << 24) return;
    u128 middle = bits - low + half;
    const int order = compare_text(digits.first, exponent, middle, copy.exp - BITS);
    // Far enough that alignment keeps it, and much less than the half.
    const u128 step = static_cast<u128>(1) << 20;
    if (order != 0) middle = order > 0 ? middle + step : middle - step;
    if (middle >> BITS != 0) {
        middle >>= 1;
        copy.exp++;
    }
    f_set_mantissa(&copy, middle);
    f_left_justify(&copy);
    f_align_radix_pt(&copy);
    *value = copy;
}

int read_decimal(DIGITS& digits, long long exponent, simul_fval* value) {
    *value = digits.mantissa;
    if (digits.first == nullptr) return 0;
    exponent += digits.scale;
    const int status = scale_by_power_of_ten(exponent, value);
    settle_half(digits, exponent + digits.count - 1, value);
    return status;
}

// --- Writing --------------------------------------------------------------------------------------------

// 10 to the `*exponent` <= numerator / denominator < 10 to the `*exponent` + 1, after scaling, with the
// quotient itself in [1, 10). The value is finite and not zero.
void scale_to_quotient(const simul_fval* value, NATURAL* numerator, NATURAL* denominator, int* exponent) {
    simul_fval copy = *value;
    f_left_justify(&copy);
    u128 bits = f_mantissa(&copy);
    int power = copy.exp - 96;
    for (; (bits & 0xffff) == 0; power += 16) bits >>= 16;
    // The logarithm of 2 to the exp - 1, rounded down: never too great, at most one too small.
    const long long estimate = (copy.exp - 1) * 30103LL;
    *exponent = static_cast<int>(estimate / 100000 - (estimate % 100000 < 0 ? 1 : 0));
    *numerator = NATURAL(bits);
    *denominator = NATURAL(1);
    (power >= 0 ? numerator : denominator)->shift_left(std::abs(power));
    (*exponent >= 0 ? denominator : numerator)->multiply_by_power_of_ten(std::abs(*exponent));
    for (int step = 0;; step++) {
        if (step == 4) {
            std::fputs("WARNING: Possible infinite loop in FP convers.\n", stderr);
            return;
        }
        NATURAL ten_times = *denominator;
        ten_times.multiply(10);
        if (numerator->compare(*denominator) < 0) {
            numerator->multiply(10);
            --*exponent;
        } else if (numerator->compare(ten_times) >= 0) {
            *denominator = ten_times;
            ++*exponent;
        } else {
            return;
        }
    }
}

constexpr int MOST_DIGITS = 12000;

// Digits for f_ecvt, or for f_fcvt where `behind_point`.
std::string generate(const simul_fval* value, bool behind_point, int ndigit, int* decpt) {
    ndigit = std::clamp(ndigit, 0, MOST_DIGITS);
    if (f_is_zero(value)) {
        *decpt = 1;
        return std::string(static_cast<std::size_t>(behind_point ? ndigit + 1 : ndigit), '0');
    }
    NATURAL numerator(0);
    NATURAL denominator(0);
    int exponent;
    scale_to_quotient(value, &numerator, &denominator, &exponent);
    const int count = behind_point ? exponent + 1 + ndigit : ndigit;
    std::string digits;
    if (count < 0) {
        *decpt = -ndigit;
        return digits;
    }
    for (int i = 0; i < count; i++) {
        char digit = '0';
        for (; numerator.compare(denominator) >= 0; digit++) numerator.subtract(denominator);
        digits.push_back(digit);
        numerator.multiply(10);
        if (!numerator.is_zero()) continue;
        digits.resize(static_cast<std::size_t>(count), '0');
        break;
    }
    // What is left, times 10, against 5 units of the last digit.
    denominator.multiply(5);
    const int rest = numerator.compare(denominator);
    *decpt = exponent + 1;
    if (rest < 0 || (rest == 0 && (digits.empty() || (digits.back() & 1) == 0))) return digits;
    std::size_t place = digits.size();
    while (place > 0 && digits[place - 1] == '9') digits[--place] = '0';
    if (place > 0) {
        digits[place - 1]++;
    } else {
        // One place more: a one, and zeros.
        digits.insert(digits.begin(), '1');
        ++*decpt;
        if (!behind_point) digits.pop_back();
    }
    return digits;
}

void drop_trailing_zeros(std::string* digits, std::size_t least) {
    while (digits->size() > least && digits->back() == '0') digits->pop_back();
}

void append_exponent(std::string* text, char letter, int exponent, std::size_t least_digits) {
    char digits[24];
    f_utoa(static_cast<unsigned long long>(std::abs(exponent)), digits);
    *text += letter;
    *text += exponent < 0 ? '-' : '+';
    if (std::strlen(digits) < least_digits) *text += '0';
    *text += digits;
}

// d.ddd, all digits; no point where there is one digit.
void append_fraction(std::string* text, const std::string& digits) {
    *text += digits[0];
    if (digits.size() > 1) (*text += '.').append(digits, 1);
}

void append_positional(std::string* text, const std::string& digits, int decpt) {
    const auto point = static_cast<std::size_t>(std::max(decpt, 0));
    if (point == 0) *text += '0';
    for (std::size_t i = 0; i < point; i++) *text += i < digits.size() ? digits[i] : '0';
    if (decpt >= 0 && digits.size() <= point) return;
    *text += '.';
    text->append(static_cast<std::size_t>(std::max(-decpt, 0)), '0');
    if (digits.size() > point) text->append(digits, point);
}

constexpr int MOST_WIDTH = 1000;

// Reads a number of a format, up to MOST_WIDTH.
const char* scan_width(const char* format, int* number) {
    *number = 0;
    for (; digit_value(*format, 10) >= 0; format++) {
        *number = std::min(*number * 10 + digit_value(*format, 10), MOST_WIDTH);
    }
    return format;
}

} // namespace

int f_atof(const char* text, simul_fval* value) {
    const bool negative = *text == '-';
    if (*text == '-' || *text == '+') text++;
    int status = 0;
    if (same_word(text, "nan")) {
        *value = a_nan;
    } else if (same_word(text, "inf") || same_word(text, "infinity")) {
        *value = pos_infin;
    } else {
        const bool hexadecimal = text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
        DIGITS digits;
        text = scan_digits(hexadecimal ? text + 2 : text, hexadecimal ? 16 : 10, &digits);
        long long exponent = 0;
        if (digits.any && std::tolower(static_cast<unsigned char>(*text)) == (hexadecimal ? 'p' : 'e')) {
            text = scan_exponent(text + 1, &exponent);
        }
        if (!digits.any || text == nullptr || *text != '\0') {
            *value = pos_zero;
            return -1;
        }
        if (hexadecimal) {
            const long long power = std::clamp(exponent + 4 * digits.scale, -1000000LL, 1000000LL);
            status = f_ldexp(&digits.mantissa, static_cast<int>(power), value);
        } else {
            status = read_decimal(digits, exponent, value);
        }
    }
    if (negative) f_neg(value, value);
    return status;
}

std::string f_ecvt(const simul_fval* value, int ndigit, int* decpt, int* sign) {
    *sign = value->sign;
    return generate(value, false, std::max(ndigit, 1), decpt);
}

std::string f_fcvt(const simul_fval* value, int ndigit, int* decpt, int* sign) {
    *sign = value->sign;
    return generate(value, true, ndigit, decpt);
}

std::string f_acvt(const simul_fval* value, int ndigit, int* exponent, int* sign) {
    ndigit = std::clamp(ndigit, 0, MOST_DIGITS);
    const auto length = static_cast<std::size_t>(ndigit) + 1;
    *sign = value->sign;
    *exponent = 0;
    if (f_is_zero(value)) return std::string(length, '0');
    simul_fval copy = *value;
    f_left_justify(&copy);
    *exponent = copy.exp - 1;
    // One bit, then 24 digits, the last of which has 3 bits.
    constexpr int MOST = 24;
    u128 bits = f_mantissa(&copy) << 1;
    if (ndigit < MOST) {
        const int dropped = 4 * (MOST - ndigit);
        const u128 half = static_cast<u128>(1) << (dropped - 1);
        const u128 rest = bits & ((half << 1) - 1);
        bits >>= dropped;
        if (rest > half || (rest == half && (bits & 1) != 0)) bits++;
        if (bits >> (4 * ndigit) == 2) {
            bits >>= 1;
            ++*exponent;
        }
        bits <<= dropped;
    }
    std::string digits;
    for (int i = 0; i <= std::min(ndigit, MOST); i++) {
        digits.push_back(hex_digits[static_cast<unsigned>(bits >> (4 * (MOST - i))) & 15]);
    }
    digits.resize(length, '0');
    return digits;
}

char* f_utoa(unsigned long long value, char* out) {
    char* end = out;
    do {
        *end++ = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    std::reverse(out, end);
    *end = '\0';
    return end;
}

std::string f_f2ascii(const simul_fval* value, char conversion, int precision) {
    if (f_is_nan(value)) return "NaN";
    if (f_is_infin(value)) return value->sign != 0 ? "-Inf" : "Inf";
    constexpr int DEFAULT_PRECISION = 6;
    const bool given = precision >= 0;
    if (!given) precision = DEFAULT_PRECISION;
    int place;
    int sign;
    std::string digits;
    std::string text = value->sign != 0 ? "-" : "";
    switch (conversion) {
        case 'e':
            digits = f_ecvt(value, precision + 1, &place, &sign);
            append_fraction(&text, digits);
            append_exponent(&text, 'e', place - 1, 2);
            break;
        case 'f':
            digits = f_fcvt(value, precision, &place, &sign);
            append_positional(&text, digits, place);
            break;
        case 'a':
            digits = f_acvt(value, precision, &place, &sign);
            if (!given) drop_trailing_zeros(&digits, 1);
            append_fraction(&(text += "0x"), digits);
            append_exponent(&text, 'p', place, 1);
            break;
        default:
            precision = std::max(precision, 1);
            digits = f_ecvt(value, precision, &place, &sign);
            drop_trailing_zeros(&digits, 1);
            if (place - 1 < -4 || place > precision) {
                append_fraction(&text, digits);
                append_exponent(&text, 'e', place - 1, 2);
            } else {
                append_positional(&text, digits, place);
            }
    }
    return text;
}

int f_ftoa(char* out, const char* format, const simul_fval* value) {
    char* end = out;
    while (*format != '\0' && *format != '%') *end++ = *format++;
    if (*format == '%') {
        int width;
        int precision = -1;
        format = scan_width(format + 1, &width);
        if (*format == '.') format = scan_width(format + 1, &precision);
        const char conversion = *format;
        if (conversion != '\0') format++;
        const std::string text = f_f2ascii(value, conversion, precision);
        for (auto length = static_cast<int>(text.size()); length < width; length++) *end++ = ' ';
        end = std::copy(text.begin(), text.end(), end);
        while (*format != '\0') *end++ = *format++;
    }
    *end = '\0';
    return static_cast<int>(end - out);
}

std::string f_print_hex(const simul_fval* value) {
    simul_fval rounded = *value;
    truncate_fval_to_target(&rounded, nullptr);
    char text[128];
    f_ftoa(text, "%a", &rounded);
    return text;
}

std::string fval2text(const simul_fval* value, TYPE* type) {
    char text[128];
    f_ftoa(text, "%g", value);
    std::string result = text;
    if (type != nullptr && type->is_float()) result += 'F';
    if (type != nullptr && type->is_ldouble()) result += 'L';
    return result;
}

void f_print(const simul_fval* value, std::FILE* stream) {
    std::fputs(f_f2ascii(value, 'g', 25).c_str(), stream);
}

void f_dbg(const simul_fval* value, std::FILE* stream) {
    std::fprintf(stream, "%c.%04x %04x %04x %04x %04x %04x * 2^%d", value->sign != 0 ? '-' : '+',
                 unsigned{value->mant[0]}, unsigned{value->mant[1]}, unsigned{value->mant[2]},
                 unsigned{value->mant[3]}, unsigned{value->mant[4]}, unsigned{value->mant[5]},
                 static_cast<int>(value->exp));
}

std::string normalize_fcon(const char* text, int digits) {
    std::string result(1, *text == '-' ? '-' : '+');
    if (*text == '-' || *text == '+') text++;
    // The exponent of the first digit that counts, by its distance from the point.
    long exponent = 0;
    std::string mantissa;
    bool behind_point = false;
    for (; (*text >= '0' && *text <= '9') || (*text == '.' && !behind_point); text++) {
        if (*text == '.') {
            behind_point = true;
            continue;
        }
        const bool leads = mantissa.empty();
        if (!leads || *text != '0') mantissa += *text;
        if (behind_point && leads) exponent--;
        if (!behind_point && !leads) exponent++;
    }
    if (mantissa.empty()) return "+0";
    long given = 0;
    if (*text == 'e' || *text == 'E') std::sscanf(text + 1, "%8ld", &given);
    if (digits > 0 && mantissa.size() > static_cast<std::size_t>(digits)) mantissa.resize(digits);
    while (mantissa.size() > 1 && mantissa.back() == '0') mantissa.pop_back();
    result += mantissa[0];
    result += '.';
    result.append(mantissa, 1);
    return result + "e" + std::to_string(exponent + given);
}
