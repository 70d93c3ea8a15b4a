// Pitch refinement: normalised cross-correlation at full rate over the lags within 3 samples of the coarse
// pitch, and the ratio of amplitudes one pitch apart.
#include "arith/correlation.h"
#include "arith/fixed_point.h"
#include "cvsd_qor.h"

#include <algorithm>
#include <array>
#include <cstdint>

using namespace cvsd_qor;

namespace {

constexpr int kSignal = 561; // samples of history
constexpr int kMaxWindow = 120;
constexpr int kShortest = 40; // lags, samples
constexpr int kLongest = 320;
constexpr int kReach = 3; // lags tried on either side

// Beyond these the window would be negative or a segment would begin before the history. The coarse search
// stays within 36..324.
constexpr int kCoarseMin = 0;
constexpr int kCoarseMax = kSignal - kMaxWindow + kReach;

struct Best {
    int lag;
    std::int32_t corr;
    std::int32_t energy;
    NormalisedCorrelation record;
};

// The right shift that keeps the sums of the search below overflow for most signals, judged by the segment at
// one lag.
int scale_for(const std::int16_t *segment, int n) {
    // 120 · (32768 / 8)² is below 2^31.
    static_assert(std::int64_t{kMaxWindow} * 4096 * 4096 <= INT32_MAX);
    std::int32_t energy = 0;
    for (int i = 0; i < n; ++i) energy += (segment[i] >> 3) * (segment[i] >> 3);
    return std::max((7 - norm32(energy)) >> 1, 0);
}

std::int32_t correlation(const std::int16_t *a, const std::int16_t *b, int n) {
    std::int32_t sum = 0;
    for (int i = 0; i < n; ++i) sum = add_sat(sum, mul(a[i], b[i]));
    return sum;
}

Best search(const std::int16_t *window, int n, int first, int last) {
    std::int32_t energy = correlation(window - first, window - first, n);
    const std::int32_t corr = std::max(correlation(window, window - first, n), INT32_C(-1));
    Best best{first, corr, energy, normalise(corr, energy)};
    for (int lag = first + 1; lag <= last; ++lag) {
        const std::int16_t leaving = window[n - lag];
        const std::int16_t entering = window[-lag];
        energy = add_sat(sub_sat(energy, mul(leaving, leaving)), mul(entering, entering));
        const std::int32_t c = correlation(window, window - lag, n);
        const NormalisedCorrelation record = normalise(c, energy);
        if (c > 0 && record.energy > 0 && beats(record, best.record)) best = {lag, c, energy, record};
    }
    return best;
}

std::int32_t magnitude(const std::int16_t *samples, int n) {
    std::int32_t sum = 0;
    for (int i = 0; i < n; ++i) sum += abs16(samples[i]);
    return sum;
}

// current / past in Q14, at most 2 - 2^-14. The numerator is normalised one bit short of the denominator, so
// that the quotient is below 1.
std::int16_t ratio_q14(std::int32_t current, std::int32_t past) {
    if (past == 0) return 0;
    const int current_shift = norm32(current);
    const int past_shift = norm32(past);
    const std::int16_t num = high_half(shift_left_sat32(current, current_shift - 1));
    const std::int16_t den = high_half(shift_left(past, past_shift));
    return shift_left_sat16(div_q15(num, den), past_shift - current_shift);
}

} // namespace

std::int16_t PLC_RefinePitch(const PitchTrackerState * /*state*/, std::int16_t *amp_ratio,
                             std::int32_t *lag_corr, std::int32_t *lag_energy, std::int16_t *amp_weight,
                             std::int16_t *refine_len, std::int16_t *scale_shift,
                             const std::int16_t *sig_hist, std::int16_t coarse_pitch) {
    const int pitch = std::clamp<int>(coarse_pitch, kCoarseMin, kCoarseMax);
    const int n = std::min(pitch, kMaxWindow);
    const int first = std::max(pitch - kReach, kShortest);
    const int last = std::min(pitch + kReach, kLongest);
    const int begin = kSignal - n;

    const int shift = scale_for(sig_hist + begin - first, n);
    std::array<std::int16_t, kSignal> scaled;
    for (std::size_t i = 0; i < kSignal; ++i) scaled[i] = static_cast<std::int16_t>(sig_hist[i] >> shift);
    const std::int16_t *window = scaled.data() + begin;

    const Best best = search(window, n, first, last);

    const std::int16_t ratio = ratio_q14(magnitude(window, n), magnitude(window - best.lag, n));
    const std::int16_t signed_ratio = wrap16(std::clamp(best.corr < 0 ? -ratio : +ratio, -16384, 16384));
    *refine_len = wrap16(n);
    *scale_shift = wrap16(shift);
    *amp_ratio = signed_ratio;
    *amp_weight = wrap16(std::max((3 * signed_ratio) >> 7, 0));
    *lag_energy = best.energy;
    *lag_corr = best.corr;
    return wrap16(best.lag);
}
