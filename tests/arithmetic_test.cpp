// The fixed-point operations against their definitions: in 64 bits, or by single steps.
#include "arith/correlation.h"
#include "tests/support.h"

namespace {

using namespace cvsd_qor;

std::int64_t limited(std::int64_t v) {
    return std::clamp(v, std::int64_t{INT32_MIN}, std::int64_t{INT32_MAX});
}

// v doubled, with saturation, or halved k times.
std::int64_t shifted(std::int64_t v, int k) {
    for (; k > 0; --k) v = limited(2 * v);
    for (; k < 0; ++k) v = v >> 1;
    return v;
}

TEST(Arithmetic, Normalisation) {
    for (std::int64_t w = INT32_MIN; w <= INT32_MAX; w += stride(997)) {
        const auto v = static_cast<std::int32_t>(w);
        const std::int64_t normal = w * (INT64_C(1) << norm32(v));
        const bool is_normal = limited(normal) == normal && limited(2 * normal) != 2 * normal;
        if (shift_left(v, norm32(v)) != normal || is_normal == (v == 0)) FAIL() << v;
    }
    EXPECT_EQ(norm32(0), 0);
}

TEST(Arithmetic, PairsOf16Bits) {
    for (int a = INT16_MIN; a <= INT16_MAX; a += stride(61)) {
        for (int b = INT16_MIN; b <= INT16_MAX; b += stride(67)) {
            const auto x16 = static_cast<std::int16_t>(a);
            const auto y16 = static_cast<std::int16_t>(b);
            if (mul_q15(x16, y16) != std::floor(a * b / 32768.0)) FAIL() << a << " " << b;
            const bool divides = a >= 0 && a < b;
            if (divides && div_q15(x16, y16) != std::floor(a * 32768.0 / b)) FAIL() << a << " " << b;
        }
    }
}

TEST(Arithmetic, ShiftsSumsAndComparisons) {
    Random random(1);
    for (int run = 0; run < 300000; ++run) {
        const auto value = [&] { return static_cast<std::int32_t>(random.engine()) >> random.in(0, 31); };
        const std::int32_t a = value();
        const std::int32_t b = value();
        const int k = random.in(-40, 40);
        ASSERT_EQ(add_sat(a, b), limited(std::int64_t{a} + b)) << a << " " << b;
        ASSERT_EQ(sub_sat(a, b), limited(std::int64_t{a} - b)) << a << " " << b;
        ASSERT_EQ(shift_left_sat32(a, k), shifted(a, k)) << a << " " << k;
        ASSERT_EQ(shift_left_sat16(wrap16(a), k), sample(shifted(wrap16(a), k))) << wrap16(a) << " " << k;
        ASSERT_EQ(BlockShift<std::int16_t>(-std::abs(k))(wrap16(a)), shifted(wrap16(a), -std::abs(k)))
            << wrap16(a) << " " << k;
        const NormalisedCorrelation one = normalise(a, b);
        NormalisedCorrelation other = normalise(value(), value());
        if (k > 0) other.c2 = -other.c2;
        const int d = one.exponent - other.exponent;
        EXPECT_EQ(beats(one, other),
                  shifted(limited(INT64_C(2) * one.c2 * other.energy), std::min(-d, 0)) >
                      shifted(limited(INT64_C(2) * one.energy * other.c2), std::min(d, 0)));
    }
}

} // namespace
