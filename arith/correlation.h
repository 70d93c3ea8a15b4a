// A normalised correlation c²/e as mantissas with one common exponent, and the comparison of two of them,
// which is defined to the bit. The coarse search and the refinement both rank lags by it.
#pragma once

#include "arith/fixed_point.h"

namespace cvsd_qor {

// c²/e is 2^-exponent · c2 / energy, up to the truncation of the mantissas and one factor common to all
// records. The mantissas are 16-bit values; the fields are wider because that makes the comparison faster.
struct NormalisedCorrelation {
    std::int32_t c2;       // c² in Q15, from the high half of the normalised c; -32767..32767
    std::int32_t energy;   // high half of the normalised e
    std::int32_t exponent; // 2 · norm32(c) - norm32(e): -31..62
};

// Square of a Q15 value; only -32768 saturates.
constexpr std::int32_t square_q15(std::int32_t c) { return std::min<std::int32_t>((c * c) >> 15, 32767); }

// c2 is not negative here, whatever the sign of the correlation.
constexpr NormalisedCorrelation normalise(std::int32_t corr, std::int32_t energy) {
    const int corr_shift = norm32(corr);
    const int energy_shift = norm32(energy);
    return {square_q15(high_half(shift_left(corr, corr_shift))), high_half(shift_left(energy, energy_shift)),
            2 * corr_shift - energy_shift};
}

// Whether a's c²/e is greater than b's. Equality does not beat. The doubled cross products are compared, the
// one with the larger exponent shifted down to the other with floor: product_a >> d > product_b for d >= 0,
// and product_a > product_b >> -d for d < 0. For integers p > floor(q / 2^n) is p · 2^n > q, so both are
// floor(product_a · 2^-d) > product_b. Beyond 31 a shift changes no outcome, as both products are within 32
// bits.
constexpr bool beats(const NormalisedCorrelation &a, const NormalisedCorrelation &b) {
    const std::int64_t product_a = 2 * (a.c2 * b.energy);
    const std::int64_t product_b = 2 * (b.c2 * a.energy);
    const std::int32_t d = clamp<std::int32_t>(a.exponent - b.exponent, -kMaxShift, kMaxShift);
    return (product_a * (INT64_C(1) << kMaxShift)) >> (kMaxShift + d) > product_b;
}
static_assert(INT64_C(2) * 32767 * 32768 <= INT32_MAX); // no doubled product overflows

} // namespace cvsd_qor
