// The fixed-point operations of the library: saturation, rounding and normalisation, each defined once.
//
// Signed integers are two's complement and >> is arithmetic (both guaranteed since C++20). An operation is
// defined for every argument in the range that its comment states, or for every argument if it states none. A
// result that can leave its type's range is limited to it, except in wrap16.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace cvsd_qor {

// v limited to low..high. Not std::clamp, whose check in hardened builds calls the C++ run-time. The limits
// are converted to v's type, as int32_t is not the same type on all machines.
template <class T>
constexpr T clamp(T v, std::type_identity_t<T> low, std::type_identity_t<T> high) {
    return std::min(std::max(v, low), high);
}

// --- Widths ---------------------------------------------------------------------------------------------

constexpr std::int16_t saturate16(std::int32_t v) {
    return static_cast<std::int16_t>(clamp(v, -32768, 32767));
}

constexpr std::int32_t saturate32(std::int64_t v) {
    return static_cast<std::int32_t>(clamp(v, INT32_MIN, INT32_MAX));
}

// The low 16 bits as a signed value: v itself if it fits.
constexpr std::int16_t wrap16(std::int32_t v) { return static_cast<std::int16_t>(v); }

constexpr std::int16_t high_half(std::int32_t v) { return static_cast<std::int16_t>(v >> 16); }

// The longest shift of a 32-bit value. A right shift by 31 leaves only the sign; a longer one would too.
constexpr int kMaxShift = 31;

// -1 for a negative value, otherwise 0.
constexpr std::int32_t sign(std::int32_t v) { return v >> kMaxShift; }
constexpr std::int16_t sign16(std::int16_t v) { return static_cast<std::int16_t>(v >> 15); }

// Samples in a vector. Loops over whole vectors are the fastest. 0 <= n < 2^30.
constexpr int kVector = 8;
constexpr int whole_vectors(int n) { return (n + kVector - 1) & -kVector; }

// --- Sums -----------------------------------------------------------------------------------------------

// In 32 bits and without a branch, so that loops vectorise. A sum has overflowed if its sign differs from the
// signs of both operands.
constexpr std::int32_t add_sat(std::int32_t a, std::int32_t b) {
    const auto sum = static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
    const std::int32_t overflow = sign((sum ^ a) & (sum ^ b));
    const std::int32_t limit = sign(a) ^ INT32_MAX;
    return (overflow & limit) | (~overflow & sum);
}
constexpr std::int32_t sub_sat(std::int32_t a, std::int32_t b) { return saturate32(std::int64_t{a} - b); }

// |v|; 32767 for -32768.
constexpr std::int16_t abs16(std::int16_t v) { return saturate16(std::max<std::int32_t>(v, -v)); }

// --- Products -------------------------------------------------------------------------------------------

// Plain product; at most 2^30, so exact.
constexpr std::int32_t mul(std::int16_t a, std::int16_t b) { return std::int32_t{a} * b; }

// Weight (Q15) times sample, rounded toward minus infinity.
constexpr std::int32_t mul_q15(std::int16_t weight, std::int16_t sample) { return mul(weight, sample) >> 15; }

// Weight (Q15) times v, rounded to the nearest, halves upward; |v| <= 2^15.
constexpr std::int32_t mul_q15_rounded(std::int16_t weight, std::int32_t v) {
    return (weight * v + 0x4000) >> 15;
}

// v times a Q15 value q >= 0: twice the floor of (v >> 1)·q / 2^15, so bit 0 of v has no effect. The
// definition splits v >> 1 into hi·2^15 + lo and takes 2·hi·q + 2·((lo·q) >> 15), which is the same. As q <
// 2^15, the result is within -2^31 + 2^16..2^31 - 2^16: it fits in 32 bits.
constexpr std::int32_t mul_32_by_q15(std::int32_t v, std::int16_t q) {
    return static_cast<std::int32_t>(2 * ((std::int64_t{v >> 1} * q) >> 15));
}

// --- Normalisation and shifts ---------------------------------------------------------------------------

// The left shift that brings v into 2^30..2^31-1 or -2^31..-2^30-1; 0 for 0.
constexpr int norm32(std::int32_t v) {
    const auto magnitude_bits = static_cast<std::uint32_t>(v ^ sign(v)); // v or -v-1: bit 31 is clear
    return v == 0 ? 0 : std::countl_zero(magnitude_bits << 1 | 1);
}

// The left shift that brings v > 0 into 16384..32767.
constexpr int norm16(std::int16_t v) { return norm32(v) - 16; }

// v·2^k for 0 <= k <= norm32(v), or for v = 0 and k <= 31. It cannot overflow.
constexpr std::int32_t shift_left(std::int32_t v, int k) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(v) << k);
}

// v·2^k limited to 32 bits. For k < 0, which may be -INT32_MAX, an arithmetic right shift.
constexpr std::int32_t shift_left_sat32(std::int32_t v, int k) {
    return saturate32(std::int64_t{v} << clamp(k, 0, kMaxShift)) >> clamp(-k, 0, kMaxShift);
}

// The same limited to 16 bits.
constexpr std::int16_t shift_left_sat16(std::int16_t v, int k) { return saturate16(shift_left_sat32(v, k)); }

// v·2^k with one k for a block of values: a left shift whose result the caller knows to fit, or an arithmetic
// right shift of any length.
//
// The counts stay below the width of T, because compilers shift 16-bit values in 16-bit lanes. g++ 12 does so
// even where the count can be 16 or more, but POWER and z/Architecture take the count of a lane modulo 16.
// The masks do not change a count. They show clang that 16-bit lanes are enough, which halves the number of
// shifts.
template <class T>
struct BlockShift {
    static constexpr int kLongest = std::numeric_limits<T>::digits;
    int left;
    int right;

    explicit constexpr BlockShift(int k) : left(std::max(k, 0)), right(clamp(-k, 0, kLongest)) {}
    constexpr T operator()(T v) const {
        return static_cast<T>(static_cast<T>(shift_left(v, left & kLongest)) >> (right & kLongest));
    }
};

// floor(32768·num / den) for 0 <= num < den.
constexpr std::int16_t div_q15(std::int16_t num, std::int16_t den) {
    return static_cast<std::int16_t>((std::int32_t{num} << 15) / den);
}

// --- Checked at compile time ----------------------------------------------------------------------------

static_assert(norm32(0) == 0 && norm32(-1) == 31 && norm32(1) == 30 && norm32(INT32_MAX) == 0);
static_assert(norm32(INT32_MIN) == 0 && norm32(-(1 << 30)) == 1 && norm32(-(1 << 30) - 1) == 0);
static_assert(norm16(1) == 14 && norm16(16383) == 1 && norm16(32767) == 0);
static_assert(mul_q15(32767, -1000) == -1000 && mul_q15(32767, 1000) == 999);
static_assert(mul_32_by_q15(INT32_MIN, 32767) == -2147418112 && mul_32_by_q15(7, 16384) == 2);
static_assert(mul_q15_rounded(16384, 1) == 1 && mul_q15_rounded(16384, -1) == 0 &&
              mul_q15_rounded(16383, 1) == 0);
static_assert(shift_left_sat32(-1, kMaxShift) == INT32_MIN && shift_left_sat32(INT32_MAX, -kMaxShift) == 0);
static_assert(shift_left_sat32(1, 40) == INT32_MAX && shift_left_sat32(-5, -40) == -1);
static_assert(shift_left_sat16(-3, 14) == -32768 && shift_left_sat16(-3, -20) == -1);
static_assert(add_sat(INT32_MAX, 1) == INT32_MAX && add_sat(INT32_MIN, -1) == INT32_MIN &&
              add_sat(-5, 9) == 4);
static_assert(abs16(INT16_MIN) == 32767 && abs16(-1) == 1);
static_assert(whole_vectors(1) == kVector && whole_vectors(kVector) == kVector && whole_vectors(0) == 0);

} // namespace cvsd_qor
