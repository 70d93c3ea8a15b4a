// A normalised correlation c²/e as mantissas with one common exponent, and the exact comparison of two of
// them. The coarse search and the refinement both rank lags by it.
#pragma once

#include "arith/fixed_point.h"

namespace cvsd_qor {

// c²/e = 2^-exponent · c2 / energy, up to one factor common to all records. The mantissas are 16-bit values;
// the fields are wider because the comparison is faster so.
struct NormalisedCorrelation {
    std::int32_t c2;       // high half of the doubled square of c's normalised high half
    std::int32_t energy;   // high half of the normalised e
    std::int32_t exponent; // 2 · norm32(c) - norm32(e): -31..62
};

// High half of the doubled square of a 16-bit value; only -32768 saturates.
constexpr std::int32_t half_square(std::int32_t c) { return std::min<std::int32_t>((c * c) >> 15, 32767); }

// c2 without regard to the sign of c.
constexpr NormalisedCorrelation normalise(std::int32_t corr, std::int32_t energy) {
    const int corr_shift = norm32(corr);
    const int energy_shift = norm32(energy);
    return {half_square(high_half(shift_left(corr, corr_shift))), high_half(shift_left(energy, energy_shift)),
            2 * corr_shift - energy_shift};
}

// Whether product_a · 2^-d > product_b, the product with the larger exponent shifted down to the other with
// floor. product_a is half of the doubled product that is meant, product_b is doubled.
//
// For integers, p > floor(q / 2^d) is p · 2^d > q. So one comparison of floor(p · 2^-d) with q serves for
// either sign of the difference d of exponents. Beyond 31 the shift changes no outcome: both products are
// within 32 bits. Shifting by 32 up and 31 + d down doubles product_a on the way.
constexpr bool exceeds(std::int32_t product_a, std::int32_t product_b, std::int32_t d) {
    const std::int32_t shift = kMaxShift + clamp(d, -kMaxShift, kMaxShift);
    return (product_a * (INT64_C(1) << 32)) >> shift > product_b;
}

// Whether a's c²/e is greater than b's, by the doubled cross products. Equality does not beat. The c2 of a
// measured correlation is -32767 at least, so that no doubled product leaves 32 bits.
constexpr bool beats(const NormalisedCorrelation &a, const NormalisedCorrelation &b) {
    return exceeds(a.c2 * b.energy, 2 * (b.c2 * a.energy), a.exponent - b.exponent);
}
static_assert(INT64_C(2) * -32767 * -32768 <= INT32_MAX);

} // namespace cvsd_qor
