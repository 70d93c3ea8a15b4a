// A normalised correlation c²/e, as two mantissas and one exponent, and the comparison of two of them, which
// is defined to the bit. The coarse search and the refinement rank lags by it.
#pragma once

#include "arith/fixed_point.h"

namespace cvsd_qor {

// c²/e is 2^-exponent · c2 / energy, apart from the truncation of the mantissas and one factor that all
// records share. The mantissas are 16-bit values. Their fields are wider because that makes the comparison
// faster.
struct NormalisedCorrelation {
    std::int32_t c2;       // c² in Q15, from the high half of the normalised c: -32767..32767, and -32768
                           // in the coarse search's kWeakest
    std::int32_t energy;   // high half of the normalised e
    std::int32_t exponent; // 2 · norm32(c) - norm32(e): -31..62
};

// Square of a Q15 value; only -32768 saturates.
constexpr std::int32_t square_q15(std::int32_t c) { return std::min<std::int32_t>((c * c) >> 15, 32767); }

// c2 is never negative here, even for a negative correlation.
constexpr NormalisedCorrelation normalise(std::int32_t corr, std::int32_t energy) {
    const int corr_shift = norm32(corr);
    const int energy_shift = norm32(energy);
    return {square_q15(high_half(shift_left(corr, corr_shift))), high_half(shift_left(energy, energy_shift)),
            2 * corr_shift - energy_shift};
}

// Whether a's c²/e is greater than b's; not if they are equal.
//
// The definition compares the doubled cross products. The product with the larger exponent is shifted right,
// with floor: product_a >> d > product_b for d >= 0, and product_a > product_b >> -d for d < 0. For integers
// p > floor(q / 2^n) is the same as p · 2^n > q. So both cases are floor(product_a · 2^-d) > product_b, one
// shift of a 64-bit value. Both products fit in 32 bits, so a shift by more than 31 gives the same result as
// one by 31.
constexpr bool beats(const NormalisedCorrelation &a, const NormalisedCorrelation &b) {
    const std::int64_t product_a = 2 * (a.c2 * b.energy);
    const std::int64_t product_b = 2 * (b.c2 * a.energy);
    const std::int32_t d = clamp<std::int32_t>(a.exponent - b.exponent, -kMaxShift, kMaxShift);
    return (product_a * (INT64_C(1) << kMaxShift)) >> (kMaxShift + d) > product_b;
}
static_assert(INT64_C(2) * 32767 * 32768 <= INT32_MAX); // no doubled product overflows

} // namespace cvsd_qor
