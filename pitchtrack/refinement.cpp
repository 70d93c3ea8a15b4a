// Pitch refinement: normalised cross-correlation at full rate over the lags within 3 samples of the coarse
// pitch, and the ratio of amplitudes one pitch apart.
#include "arith/correlation.h"
#include "arith/fixed_point.h"
#include "arith/samples.h"
#include "cvsd_qor.h"

#include <algorithm>
#include <cstdint>

using namespace cvsd_qor;

namespace {

constexpr int kSignal = 561; // samples of history
constexpr int kMaxWindow = 120;
constexpr int kShortest = 40; // lags, samples
constexpr int kLongest = 320;
constexpr int kReach = 3; // lags tried on either side

// Windows are rounded up to whole vectors. Up to seven lags are correlated together, an eighth where that
// makes a vector.
constexpr int kLags = 2 * kReach + 1;
static_assert(kMaxWindow % kVector == 0 && kLags <= kVector);
static_assert(std::int64_t{kMaxWindow} * 4096 * 4096 <= INT32_MAX); // for coarse_energy

// Beyond these the window would be negative or a segment would begin before the history. The coarse search
// stays within 36..324.
constexpr int kCoarseMin = 0;
constexpr int kCoarseMax = kSignal - kMaxWindow + kReach;

// What is searched.
struct Task {
    const std::int16_t *window; // the newest n samples; behind them zeros up to a multiple of kVector
    int n;
    int first, last;         // lags, kLags of them at the most
    const std::int16_t *end; // one past the newest sample

    int rounded() const { return whole_vectors(n); }
    const std::int16_t *segment(int lag) const { return end - n - lag; }
};

struct Correlations {
    std::int32_t at[kVector];
};

struct Best {
    int lag;
    std::int32_t corr;
    std::int32_t energy;
    NormalisedCorrelation record;
};

// Energy on a scale on which no sum of a window overflows.
std::int32_t coarse_energy(const std::int16_t *samples, int n) {
    std::int32_t sum = 0;
    for (int i = 0; i < n; ++i) sum += (samples[i] >> 3) * (samples[i] >> 3);
    return sum;
}

// With q = h >> 3 for a sample h of the history and s = h >> shift for a searched one, |s| <= 2^(3-shift)·|q|
// + 8. With Q the sum of q² over at most 136 samples, the norm of s is at most 2^(3-shift)·sqrt(Q) + 94. A
// partial sum of squares is at most the square of the segments' norm, one of products at most that norm times
// the window's (Cauchy-Schwarz). Taking 31/32 of 2^25 as the limit for the segments' Q, and its square for
// the product of both, leaves room for the 94: the window's Q is at most 120·4096², its root below 44870; the
// root of the limit is below 5702.
constexpr std::int64_t kExactLimit = INT64_C(31) << 20;
static_assert(64 * kExactLimit + 94 * (8 * 44870 + 8 * 5702) + 94 * 94 <= INT32_MAX);
static_assert(64 * (kExactLimit + (1 << 20)) > INT32_MAX); // another 32nd would be too much

// Whether no sum of the search can leave 32 bits: then plain sums in any order equal the ordered saturating
// ones.
bool is_exact(std::int64_t segments_q, std::int64_t window_q, int shift) {
    const std::int64_t scaled_limit = kExactLimit << 2 * shift;
    return segments_q <= scaled_limit && segments_q * window_q <= scaled_limit * scaled_limit;
}

// Correlations of the window with the segments that begin k samples on from that of the last lag: index k is
// for the lag k less. With zeros behind the window n may be rounded up.
Correlations correlate(const std::int16_t *window, const std::int16_t *segments, int n) {
    Correlations c{};
    for (int i = 0; i < n; ++i) {
        for (int k = 0; k < kLags; ++k) c.at[k] += window[i] * segments[i + k];
    }
    return c;
}

[[gnu::noinline]] Correlations correlate_saturating(const std::int16_t *window, const std::int16_t *segments,
                                                    int n) {
    Correlations c{};
    for (int i = 0; i < n; ++i) {
        for (int k = 0; k < kVector; ++k) {
            c.at[k] = add_sat(c.at[k], mul(window[i], segments[i + k]));
        }
    }
    return c;
}

std::int32_t energy(const std::int16_t *samples, int n) {
    std::int32_t sum = 0;
    for (int i = 0; i < n; ++i) sum += samples[i] * samples[i];
    return sum;
}

[[gnu::noinline]] std::int32_t energy_saturating(const std::int16_t *samples, int n) {
    std::int32_t sum = 0;
    for (int i = 0; i < n; ++i) sum = add_sat(sum, mul(samples[i], samples[i]));
    return sum;
}

Best search(const Task &t, bool exact) {
    const std::int16_t *segments = t.segment(t.last);
    const Correlations corr =
        exact ? correlate(t.window, segments, t.rounded()) : correlate_saturating(t.window, segments, t.n);
    const std::int16_t *segment = t.segment(t.first);
    std::int32_t e = exact ? energy(segment, t.n) : energy_saturating(segment, t.n);

    const std::int32_t first_corr = std::max<std::int32_t>(corr.at[t.last - t.first], -1);
    Best best{t.first, first_corr, e, normalise(first_corr, e)};
    for (int lag = t.first + 1; lag <= t.last; ++lag) {
        const std::int16_t leaving = segment[t.n - 1];
        const std::int16_t entering = *--segment;
        e = add_sat(sub_sat(e, mul(leaving, leaving)), mul(entering, entering));
        const std::int32_t c = corr.at[t.last - lag];
        if (c <= 0 || e <= 0) continue;
        const NormalisedCorrelation record = normalise(c, e);
        if (beats(record, best.record)) best = {lag, c, e, record};
    }
    return best;
}

// Sum of the magnitudes, -32768 counting as 32767; as a sum of products it is one multiply-add for eight
// samples.
std::int32_t magnitude(const std::int16_t *samples, int n) {
    std::int32_t sum = 0;
    for (int i = 0; i < n; ++i) {
        const std::int16_t v = samples[i];
        const auto limited = static_cast<std::int16_t>(v + (v == INT16_MIN));
        sum += limited * static_cast<std::int16_t>(sign16(v) | 1);
    }
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
    const int pitch = clamp<int>(coarse_pitch, kCoarseMin, kCoarseMax);
    const int n = std::min(pitch, kMaxWindow);
    const int first = std::max(pitch - kReach, kShortest);
    const int last = std::max(std::min(pitch + kReach, kLongest), first);

    const std::int16_t *end = sig_hist + kSignal;

    // The scale keeps the sums of the search below overflow for most signals; it is judged by the first lag
    // alone.
    const std::int32_t first_q = coarse_energy(end - n - first, n);
    const int shift = std::max((7 - norm32(first_q)) >> 1, 0);
    // All segments that are correlated lie within a vector before and behind the first lag's.
    const std::int64_t segments_q =
        std::int64_t{first_q} + coarse_energy(end - n - last, kVector) + coarse_energy(end - first, kVector);
    const bool exact = is_exact(segments_q, coarse_energy(end - n, n), shift);

    std::int16_t scaled[kSignal];
    if (shift != 0) {
        const BlockShift<std::int16_t> scale(-shift);
        for (int i = 0; i < kSignal; ++i) scaled[i] = scale(sig_hist[i]);
        end = scaled + kSignal;
    }
    std::int16_t padded[kMaxWindow + kVector];
    const std::int16_t *window = end - n;
    if (n % kVector != 0) {
        copy_samples(window, n, padded);
        std::fill_n(padded + n, kVector, std::int16_t{0});
        window = padded;
    }
    const Task task{window, n, first, last, end};
    const Best best = search(task, exact);

    const std::int16_t ratio =
        ratio_q14(magnitude(window, task.rounded()), magnitude(task.segment(best.lag), n));
    const std::int16_t signed_ratio = wrap16(clamp<int>(best.corr < 0 ? -ratio : +ratio, -16384, 16384));
    *refine_len = wrap16(n);
    *scale_shift = wrap16(shift);
    *amp_ratio = signed_ratio;
    *amp_weight = wrap16(std::max((3 * signed_ratio) >> 7, 0));
    *lag_energy = best.energy;
    *lag_corr = best.corr;
    return wrap16(best.lag);
}
