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

constexpr int kSignal = 561;  // samples of history
constexpr int kWindow = 120;  // samples that are compared, at most
constexpr int kShortest = 40; // lags, samples
constexpr int kLongest = 320;
constexpr int kReach = 3; // lags tried on either side of the coarse pitch
constexpr int kLags = 2 * kReach + 1;

// Beyond these the window would be negative or a segment would begin before the history. The coarse search
// stays within 36..324.
constexpr int kCoarseMin = 0;
constexpr int kCoarseMax = kSignal - kWindow + kReach;

// kWindow times 0, kWindow times -1: from [n] on, the mask that lets the newest n of kWindow samples through.
constexpr struct Masks {
    std::int16_t at[2 * kWindow]{};
    constexpr Masks() {
        for (int i = kWindow; i < 2 * kWindow; ++i) at[i] = -1;
    }
} masks;

// The n samples before `end`, 0..kWindow, behind zeros that make them kWindow: every sum has one known
// length.
struct Segment {
    const std::int16_t *samples;
    const std::int16_t *mask;

    Segment(const std::int16_t *end, int n) : samples(end - kWindow), mask(masks.at + n) {}
    std::int16_t operator[](int i) const { return static_cast<std::int16_t>(samples[i] & mask[i]); }
};

// A segment that is read often, with its zeros.
using Window = Vectors<kWindow>;

Window copy(Segment segment) {
    Window w;
    for (int i = 0; i < kWindow; ++i) w.at[i] = segment[i];
    return w;
}

// Modulo 2^32.
std::uint32_t energy(Segment s) {
    return static_cast<std::uint32_t>(sum_of<kWindow>([=](int i) { return s[i] * s[i]; }));
}

// On a scale on which it cannot overflow. Of a Segment or a Window.
template <class Samples>
std::int32_t coarse_energy(const Samples &s) {
    static_assert(std::int64_t{kWindow} * 4096 * 4096 <= INT32_MAX);
    return sum_of<kWindow>([&s](int i) { return (s[i] >> 3) * (s[i] >> 3); });
}

// Sum of the magnitudes, -32768 counting as 32767. A product of value and sign becomes a multiply-add.
template <class Samples>
std::int32_t magnitude(const Samples &s) {
    return sum_of<kWindow>([&s](int i) {
        const std::int16_t v = s[i];
        const auto limited = static_cast<std::int16_t>(v + (v == INT16_MIN));
        return limited * static_cast<std::int16_t>(sign16(v) | 1);
    });
}

// What is searched. The segment of a lag is the n samples that lie the lag before the newest n.
struct Task {
    const std::int16_t *end; // one past the newest sample
    int n;
    int first, last; // lags, kLags of them at the most
    Window newest;
};

struct Sums {
    std::int32_t corr[kVector]; // [last - lag], and one lane that only makes a whole vector
    std::int32_t energy[kLags]; // [lag - first], of the lag's segment
};

struct Best {
    int lag;
    std::int32_t corr;
    std::int32_t energy;
    NormalisedCorrelation record;
};

// With q = h >> 3 for a sample h of the history and s = h >> shift for a searched one, s = 2^(3-shift)·q + r
// with 0 <= r <= 7. Over a segment r has a square norm of at most kRest.
constexpr std::int32_t kRest = 7 * 7 * kWindow;

// The shift is judged by the first lag: its Q, the sum of q², is below 2^25·4^shift. Its energy is below
// (8·sqrt(2^25) + sqrt(kRest))², which an unsigned 32-bit sum holds.
int shift_for(std::int32_t first_q) { return std::max((7 - norm32(first_q)) >> 1, 0); }
static_assert(5793 * 5793 > 1 << 25 && 77 * 77 > kRest);
static_assert(INT64_C(8 * 5793 + 77) * (8 * 5793 + 77) <= UINT32_MAX);

// The energies without any limit, by way of the samples that leave a segment and enter it from lag to lag.
// Returns the largest.
std::int64_t slide_energy(const Task &t, Sums &sums) {
    const std::int16_t *segment_end = t.end - t.first;
    std::int64_t e = energy(Segment(segment_end, t.n));
    std::int64_t largest = e;
    sums.energy[0] = static_cast<std::int32_t>(e);
    for (int i = 1; i <= t.last - t.first; ++i) {
        const std::int16_t leaving = segment_end[-i];
        const std::int16_t entering = segment_end[-i - t.n];
        e += mul(entering, entering) - mul(leaving, leaving);
        largest = std::max(largest, e);
        sums.energy[i] = static_cast<std::int32_t>(e);
    }
    return largest;
}

// Whether no sum of the search can leave 32 bits: then sums in any order equal the ordered saturating ones.
//
// A partial sum of products is at most the norm of the newest samples times that of the segment
// (Cauchy-Schwarz). The square norm of the newest samples, s = 8·(s >> 3) + r, is at most (8² + 1²)·(Q +
// kRest), by the same inequality.
bool is_exact(const Task &t, std::int64_t largest_energy) {
    constexpr std::int64_t kLimit = std::int64_t{INT32_MAX} * INT32_MAX / (8 * 8 + 1);
    return largest_energy <= INT32_MAX &&
           largest_energy * (coarse_energy(t.newest) + std::int64_t{kRest}) <= kLimit;
}

void correlate(const Task &t, Sums &sums) {
    const std::int16_t *segment = t.end - kWindow - t.last;
    for (int k = 0; k < kLags; ++k) sums.corr[k] = sum_of_products(t.newest, segment + k);
}

// All sums as they are defined, each addition limited to 32 bits. The terms of the first energy are positive,
// so that limiting their sum is the same.
[[gnu::cold, gnu::noinline]] void sum_saturating(const Task &t, Sums &sums) {
    const std::int16_t *segment_end = t.end - t.first;
    sums.energy[0] =
        static_cast<std::int32_t>(std::min<std::uint32_t>(energy(Segment(segment_end, t.n)), INT32_MAX));
    for (int i = 1; i <= t.last - t.first; ++i) {
        const std::int16_t leaving = segment_end[-i];
        const std::int16_t entering = segment_end[-i - t.n];
        sums.energy[i] = add_sat(sub_sat(sums.energy[i - 1], mul(leaving, leaving)), mul(entering, entering));
    }

    const std::int16_t *segment = t.end - kWindow - t.last;
    std::fill_n(sums.corr, kVector, 0);
    for (int i = 0; i < kWindow; ++i) {
        for (int k = 0; k < kVector; ++k) {
            sums.corr[k] = add_sat(sums.corr[k], mul(t.newest[i], segment[i + k]));
        }
    }
}

Best search(const Task &t) {
    Sums sums;
    if (is_exact(t, slide_energy(t, sums))) {
        correlate(t, sums);
    } else {
        sum_saturating(t, sums);
    }

    const std::int32_t first_corr = std::max<std::int32_t>(sums.corr[t.last - t.first], -1);
    Best best{t.first, first_corr, sums.energy[0], normalise(first_corr, sums.energy[0])};
    for (int lag = t.first + 1; lag <= t.last; ++lag) {
        const std::int32_t corr = sums.corr[t.last - lag];
        const std::int32_t energy = sums.energy[lag - t.first];
        if (corr <= 0 || energy <= 0) continue;
        const NormalisedCorrelation record = normalise(corr, energy);
        if (beats(record, best.record)) best = {lag, corr, energy, record};
    }
    return best;
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
    const int n = std::min(pitch, kWindow);
    const int first = std::max(pitch - kReach, kShortest);
    const int last = std::max(std::min(pitch + kReach, kLongest), first);

    const std::int16_t *end = sig_hist + kSignal;
    const int shift = shift_for(coarse_energy(Segment(end - first, n)));
    std::int16_t scaled[kSignal];
    if (shift != 0) {
        const BlockShift<std::int16_t> scale(-shift);
        for (int i = 0; i < kSignal; ++i) scaled[i] = scale(sig_hist[i]);
        end = scaled + kSignal;
    }

    const Task task{end, n, first, last, copy(Segment(end, n))};
    const Best best = search(task);

    const std::int16_t ratio = ratio_q14(magnitude(task.newest), magnitude(Segment(end - best.lag, n)));
    const std::int16_t signed_ratio = wrap16(clamp<int>(best.corr < 0 ? -ratio : +ratio, -16384, 16384));
    *refine_len = wrap16(n);
    *scale_shift = wrap16(shift);
    *amp_ratio = signed_ratio;
    *amp_weight = wrap16(std::max((3 * signed_ratio) >> 7, 0));
    *lag_energy = best.energy;
    *lag_corr = best.corr;
    return wrap16(best.lag);
}
