// A normalised correlation c²/e as mantissas with one common exponent, and the exact comparison of two of
// them. The coarse search and the refinement both rank lags by it.
#pragma once

#include "arith/fixed_point.h"

namespace cvsd_qor {

// c²/e = 2^-exponent · c2 / energy, up to one factor common to all records.
struct NormalisedCorrelation {
    std::int16_t c2;       // high half of the doubled square of c's normalised high half
    std::int16_t energy;   // high half of the normalised e
    std::int32_t exponent; // 2 · norm32(c) - norm32(e): -31..62
};

// c2 without regard to the sign of c.
constexpr NormalisedCorrelation normalise(std::int32_t corr, std::int32_t energy) {
    const int corr_shift = norm32(corr);
    const int energy_shift = norm32(energy);
    const std::int16_t c = high_half(shift_left(corr, corr_shift));
    return {high_half(mul_doubling(c, c)), high_half(shift_left(energy, energy_shift)),
            2 * corr_shift - energy_shift};
}

// Whether a's c²/e is greater than b's: cross-multiplied, the product with the larger exponent aligned to the
// other by a flooring shift. Equality does not beat.
constexpr bool beats(const NormalisedCorrelation &a, const NormalisedCorrelation &b) {
    const std::int32_t product_a = mul_doubling(a.c2, b.energy);
    const std::int32_t product_b = mul_doubling(a.energy, b.c2);
    const int d = a.exponent - b.exponent;
    return shift_right(product_a, std::max(d, 0)) > shift_right(product_b, std::max(-d, 0));
}

} // namespace cvsd_qor
