// Normalised autocorrelation of the newest 30 decimated samples over the lags 4..41.
#include "arith/samples.h"
#include "pitchtrack/coarse_pitch.h"

#include <algorithm>

namespace cvsd_qor {
namespace {

constexpr int kSamples = 71; // decimated, oldest first
constexpr int kWindow = 30;  // the newest of them
constexpr int kWindowBegin = kSamples - kWindow;
constexpr int kSteps = kLags - 1; // from a lag to the next

// The padded window ends within the samples at the shortest lag too.
constexpr int kPadded = whole_vectors(kWindow);
static_assert(kWindowBegin - kFirstLag + kPadded <= kSamples);

// Samples of at most this magnitude keep every correlation and energy within M < 2^30. The interpolation
// keeps its results within 2·M + 4: the bend and the rise are at most M / 2 each and the centre M, and
// rounding adds at most 1.75 to the bend and 1.5 to the rise. Then plain arithmetic in any order equals the
// ordered saturating one. The decimation delivers at most 4096.
constexpr int kExactPeak = 5982;
constexpr std::int32_t kMaxSum = kWindow * kExactPeak * kExactPeak; // M
static_assert(kMaxSum < 1 << 30 && INT64_C(2) * kMaxSum + 4 <= INT32_MAX && 2 * kExactPeak <= INT16_MAX);
static_assert(kWindow * (kExactPeak + 1) * (kExactPeak + 1) >= 1 << 30); // it is the largest such magnitude

bool is_exact(const std::int16_t *dec) {
    std::int16_t highest = *dec;
    std::int16_t lowest = *dec;
    for (int m = 0; m < kSamples; ++m) {
        const std::int16_t v = dec[m];
        highest = std::max(highest, v);
        lowest = std::min(lowest, v);
    }
    return std::max<int>(highest, -lowest) <= kExactPeak;
}

void sum_plain(const std::int16_t *dec, Lags &lags) {
    AlignedSamples<kPadded> window{};
    const std::int16_t *shortest = dec + kWindowBegin - kFirstLag; // the window delayed by the shortest lag
    copy_samples<kWindow>(dec + kWindowBegin, window.at);
    for (int i = 0; i < kLags; ++i) lags.corr[i] = sum_of_products(window, shortest - i);

    // Sliding energy: with each longer lag the newest sample leaves the delayed window and an older one
    // enters. entering² - leaving² = (entering - leaving) · (entering + leaving), where both factors fit in
    // 16 bits.
    std::int32_t change[kSteps]; // longest lag first
    for (int i = 0; i < kSteps; ++i) {
        const std::int16_t entering = dec[i];
        const std::int16_t leaving = dec[i + kWindow];
        const auto difference = static_cast<std::int16_t>(entering - leaving);
        change[i] = difference * static_cast<std::int16_t>(entering + leaving);
    }
    std::int32_t energy = sum_of<kPadded>([=](int m) { return shortest[m] * shortest[m]; });
    for (int m = kWindow; m < kPadded; ++m) energy -= shortest[m] * shortest[m]; // the sum took whole vectors
    lags.energy[0] = energy;
    for (int i = 0; i < kSteps; ++i) {
        energy += change[kSteps - 1 - i];
        lags.energy[i + 1] = energy;
    }
}

// For samples beyond kExactPeak, which only a direct call can bring.
[[gnu::cold]] void sum_saturating(const std::int16_t *dec, Lags &lags) {
    std::int32_t energy = 0;
    for (int m = kWindowBegin; m < kSamples; ++m) {
        energy = add_sat(energy, mul(dec[m - kFirstLag], dec[m - kFirstLag]));
    }
    lags.energy[0] = energy;
    for (int lag = kFirstLag + 1; lag <= kLastLag; ++lag) {
        const std::int16_t leaving = dec[kSamples - lag];
        const std::int16_t entering = dec[kWindowBegin - lag];
        energy = add_sat(sub_sat(energy, mul(leaving, leaving)), mul(entering, entering));
        lags.energy[lag - kFirstLag] = energy;
    }
    for (int lag = kFirstLag; lag <= kLastLag; ++lag) {
        std::int32_t corr = 0;
        for (int m = kWindowBegin; m < kSamples; ++m) corr = add_sat(corr, mul(dec[m], dec[m - lag]));
        lags.corr[lag - kFirstLag] = corr;
    }
}

// normalise() for all lags, in loops that vectorise. c2 gets the sign of the correlation.
void normalise_lags(Lags &lags) {
    std::int16_t c[kLagSlots];
    for (int i = 0; i < kLags; ++i) {
        const int corr_shift = norm32(lags.corr[i]);
        const int energy_shift = norm32(lags.energy[i]);
        c[i] = high_half(shift_left(lags.corr[i], corr_shift));
        lags.mantissa[i] = high_half(shift_left(lags.energy[i], energy_shift));
        lags.exponent[i] = static_cast<std::int16_t>(2 * corr_shift - energy_shift);
    }
    for (std::int16_t *padded : {c, lags.mantissa, lags.exponent}) {
        std::fill_n(padded + kLags, kLagSlots - kLags, std::int16_t{0});
    }
    for (int i = 0; i < kPaddedLags; ++i) {
        const std::int32_t c2 = square_q15(c[i]);
        lags.c2[i] = static_cast<std::int16_t>((sign16(c[i]) | 1) * c2);
    }
    lags.c2[kPaddedLags] = 0;
}

} // namespace

void correlate(const std::int16_t *dec, Lags &lags) {
    lags.exact = is_exact(dec);
    if (lags.exact) {
        sum_plain(dec, lags);
    } else {
        sum_saturating(dec, lags);
    }
    normalise_lags(lags);
}

} // namespace cvsd_qor
