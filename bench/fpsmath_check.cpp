// Compares the arithmetic of simulated floating values with the host's singles in bulk; run by hand.
//
//   fpsmath_check N                     N pairs through + - * / sqrt and comparison, and N texts
//   fpsmath_check --all-singles [STEP]  every STEP-th single to text ("%a" and "%.9g") and back
//
// Prints what disagrees (the first ten) and the counts; exit 1 where anything does.

#include <bit>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

#include "OPT5/fpsmath.h"

namespace {

unsigned long long faults = 0;

float single(const simul_fval& value) { return std::bit_cast<float>(get_ieee_flt_fmt(&value)); }

bool same(float a, float b) {
    if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
    return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}

void expect(const char* what, float a, float b, float got, float expected) {
    if (same(got, expected)) return;
    if (faults++ < 10) std::printf("%s %a %a: %a, not %a\n", what, a, b, got, expected);
}

void pairs(unsigned long long count) {
    std::mt19937_64 random(1);
    for (unsigned long long i = 0; i < count; i++) {
        const auto bits = random();
        auto second = static_cast<std::uint32_t>(bits >> 32);
        // Half of the pairs have exponents near each other, where bits meet.
        if (i % 2 == 0) second = (second & 0x807fffff) | (((bits >> 23) + random() % 61 - 30) & 0xff) << 23;
        const auto a = std::bit_cast<float>(static_cast<std::uint32_t>(bits));
        const auto b = std::bit_cast<float>(second);
        simul_fval x;
        simul_fval y;
        simul_fval r;
        ieee_cvt_ftos(static_cast<std::uint32_t>(bits), &x);
        ieee_cvt_ftos(second, &y);
        f_add(&x, &y, &r);
        expect("+", a, b, single(r), a + b);
        f_sub(&x, &y, &r);
        expect("-", a, b, single(r), a - b);
        f_mul(&x, &y, &r);
        expect("*", a, b, single(r), a * b);
        f_div(&x, &y, &r);
        expect("/", a, b, single(r), a / b);
        f_sqrt(&x, &r);
        expect("sqrt", a, a, single(r), a < 0 ? 0.0f : std::sqrt(a));
        expect("<", a, b, static_cast<float>(f_lt(&x, &y)), a < b ? 1.0f : 0.0f);
    }
}

// Decimal texts of up to 40 digits.
void texts(unsigned long long count) {
    std::mt19937_64 random(2);
    for (unsigned long long i = 0; i < count; i++) {
        char text[64];
        const unsigned long long high = random() >> random() % 60;
        const unsigned long long low = random();
        const auto exponent = static_cast<int>(random() % 100) - 70;
        std::snprintf(text, sizeof text, i % 2 == 0 ? "%llu.%llue%d" : "%llu%llue%d", high, low, exponent);
        simul_fval value;
        f_atof(text, &value);
        const float expected = std::strtof(text, nullptr);
        if (!same(single(value), expected) && faults++ < 10) {
            std::printf("%s: %a, not %a\n", text, single(value), expected);
        }
    }
}

void all_singles(std::uint64_t step) {
    for (std::uint64_t image = 0; image <= 0xffffffff; image += step) {
        const auto bits = static_cast<std::uint32_t>(image);
        if ((bits & 0x7f800000) == 0x7f800000 && (bits & 0x7fffff) != 0) continue; // NaN
        simul_fval value;
        ieee_cvt_ftos(bits, &value);
        for (const char* format : {"%a", "%.9g"}) {
            char text[128];
            f_ftoa(text, format, &value);
            simul_fval back;
            f_atof(text, &back);
            if (get_ieee_flt_fmt(&back) != bits && faults++ < 10) std::printf("%08x %s\n", bits, text);
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    const auto start = std::chrono::steady_clock::now();
    if (argc >= 2 && std::strcmp(argv[1], "--all-singles") == 0) {
        const unsigned long long step = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
        all_singles(step != 0 ? step : 1);
    } else if (argc == 2 && argv[1][0] >= '0' && argv[1][0] <= '9') {
        const unsigned long long count = std::strtoull(argv[1], nullptr, 10);
        pairs(count);
        texts(count);
    } else {
        std::fprintf(stderr, "Usage: fpsmath_check N | --all-singles [STEP]\n");
        return 2;
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    std::printf("%llu disagree, %.1f s\n", faults, seconds.count());
    return faults != 0;
}
