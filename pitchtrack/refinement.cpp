// Pitch refinement: normalised cross-correlation at 16000 Hz over the lags within 3 samples of the coarse
// pitch, and the ratio of the amplitudes one pitch apart.
//
// The window is the newest n samples, up to 120. The segment of a lag is the n samples that are `lag` samples
// older.
#include "arith/correlation.h"
#include "arith/fixed_point.h"
#include "arith/samples.h"
#include "cvsd_qor.h"

#include <algorithm>
#include <cstdint>

using namespace cvsd_qor;

namespace {

constexpr int kSignal = 561;    // samples of history
constexpr int kMaxWindow = 120; // samples; n is less for a shorter pitch
constexpr int kShortestLag = 40;
constexpr int kLongestLag = 320;
constexpr int kReach = 3; // lags on each side of the coarse pitch
constexpr int kLags = 2 * kReach + 1;

// Beyond these limits the window's length would be negative, or a segment would begin before the history. The
// coarse search stays within 36..324.
constexpr int kCoarseMin = 0;
constexpr int kCoarseMax = kSignal - kMaxWindow + kReach;

// kMaxWindow times 0, then kMaxWindow times -1. From [n] on this is a mask that keeps the newest n of
// kMaxWindow samples.
constexpr struct Masks {
    std::int16_t at[2 * kMaxWindow]{};
    constexpr Masks() {
        for (int i = kMaxWindow; i < 2 * kMaxWindow; ++i) at[i] = -1;
    }
} masks;

// The n samples before `end`, n in 0..kMaxWindow, with zeros in front of them up to kMaxWindow. So every sum
// has the same length, which the compiler knows.
struct Segment {
    const std::int16_t *samples;
    const std::int16_t *mask;

    Segment(const std::int16_t *end, int n) : samples(end - kMaxWindow), mask(masks.at + n) {}
    std::int16_t operator[](int i) const { return static_cast<std::int16_t>(samples[i] & mask[i]); }
};

// The window, stored with its zeros.
using Window = AlignedSamples<kMaxWindow>;

void store(Segment segment, Window &w) {
    for (int i = 0; i < kMaxWindow; ++i) w.at[i] = segment[i];
}

// Energy, modulo 2^32.
std::uint32_t energy_of(Segment s) {
    return static_cast<std::uint32_t>(sum_of<kMaxWindow>([=](int i) { return s[i] * s[i]; }));
}

// Energy of a Segment's or a Window's samples >> 3, which cannot overflow.
template <class Samples>
std::int32_t energy_of_eighths(const Samples &s) {
    static_assert(std::int64_t{kMaxWindow} * 4096 * 4096 <= INT32_MAX);
    return sum_of<kMaxWindow>([&s](int i) { return (s[i] >> 3) * (s[i] >> 3); });
}

// Sum of a Segment's or a Window's magnitudes, where -32768 counts as 32767. As a sum of products of value
// and sign it compiles to multiply-adds too.
template <class Samples>
std::int32_t sum_of_magnitudes(const Samples &s) {
    return sum_of<kMaxWindow>([&s](int i) {
        const std::int16_t v = s[i];
        const auto limited = static_cast<std::int16_t>(v + (v == INT16_MIN));
        return limited * static_cast<std::int16_t>(sign16(v) | 1);
    });
}

// What is searched.
struct Task {
    const std::int16_t *end; // one past the newest sample
    int n;
    int first, last; // lags, at most kLags
    const Window &window;
};

// Correlations are in the order of their segments in memory, energies in the order in which they are
// computed.
struct Sums {
    std::int32_t corr[kVector]; // [last - lag]; the other elements are not used
    std::int32_t energy[kLags]; // [lag - first], of the lag's segment
};

struct Best {
    int lag;
    std::int32_t corr;
    std::int32_t energy;
    NormalisedCorrelation record;
};

// Let h be a sample of the history, q = h >> 3, and s = h >> shift the sample that is searched. Then
// s = 2^(3-shift)·q + r with 0 <= r <= 7. This is the largest energy of r over a segment.
constexpr std::int32_t kMaxRestEnergy = 7 * 7 * kMaxWindow;

// Let Q be the sum of q² over the first lag's segment; it has 31 - norm32(Q) bits. The shift is half of the
// bits beyond 25, rounded up, so Q < 2^25·4^shift. For a silent segment it is 3, as norm32(0) is 0.
int shift_for(std::int32_t first_q) { return std::max((7 - norm32(first_q)) >> 1, 0); }

// So the energy of that segment is below (8·sqrt(2^25) + sqrt(kMaxRestEnergy))², as
// 2^(3-shift)·sqrt(Q) < 2^(3-shift)·2^shift·sqrt(2^25). It fits in an unsigned 32-bit sum.
static_assert(5793 * 5793 > 1 << 25 && 77 * 77 > kMaxRestEnergy);
static_assert(INT64_C(8 * 5793 + 77) * (8 * 5793 + 77) <= UINT32_MAX);

// Sliding energy: from lag to lag one sample leaves the segment and one enters. Returns the largest energy,
// in 64 bits. The stored energies are valid if it is at most INT32_MAX.
std::int64_t slide_energy(const Task &t, Sums &sums) {
    const std::int16_t *segment_end = t.end - t.first;
    std::int64_t energy = energy_of(Segment(segment_end, t.n));
    std::int64_t largest = energy;
    sums.energy[0] = static_cast<std::int32_t>(energy);
    for (int i = 1; i <= t.last - t.first; ++i) {
        const std::int16_t leaving = segment_end[-i];
        const std::int16_t entering = segment_end[-i - t.n];
        energy += mul(entering, entering) - mul(leaving, leaving);
        largest = std::max(largest, energy);
        sums.energy[i] = static_cast<std::int32_t>(energy);
    }
    return largest;
}

// Whether no sum of the search can leave 32 bits. Then plain sums in any order equal the ordered saturating
// ones.
//
// By the Cauchy-Schwarz inequality a partial sum of products is at most sqrt(energy of the window · energy of
// the segment). The shift does not bound the window, so its energy may exceed 32 bits. The energy W of its
// samples >> 3 does not. As s = 8·(s >> 3) + r, the same inequality bounds the window's energy by
// 65·(W + kMaxRestEnergy), where 65 is 8² + 1².
bool is_exact(const Task &t, std::int64_t largest_energy) {
    constexpr std::int64_t kLimit = std::int64_t{INT32_MAX} * INT32_MAX / (8 * 8 + 1);
    return largest_energy <= INT32_MAX &&
           largest_energy * (energy_of_eighths(t.window) + std::int64_t{kMaxRestEnergy}) <= kLimit;
}

// Always computes kLags correlations, a number that the compiler knows. The segments of lags below `first`
// lie in the history too, as last >= kShortestLag >= kLags.
void correlate(const Task &t, Sums &sums) {
    const std::int16_t *segment = t.end - kMaxWindow - t.last;
    for (int k = 0; k < kLags; ++k) sums.corr[k] = sum_of_products(t.window, segment + k);
}

// The sums by their definition: every addition is limited to 32 bits.
[[gnu::noinline]] void correlate_saturating(const Task &t, Sums &sums) {
    const std::int16_t *segment = t.end - kMaxWindow - t.last;
    std::int32_t corr[kVector]{};
    for (int i = 0; i < kMaxWindow; ++i) {
        for (int k = 0; k < kVector; ++k) corr[k] = add_sat(corr[k], mul(t.window[i], segment[i + k]));
    }
    std::copy_n(corr, kVector, sums.corr);
}

// Called after slide_energy(), which leaves the first energy as an unsigned sum. Its terms are not negative,
// so a limit on the sum is the same as a limit on each addition.
[[gnu::noinline]] void limit_energy(const Task &t, Sums &sums) {
    const std::int16_t *segment_end = t.end - t.first;
    const auto first = static_cast<std::uint32_t>(sums.energy[0]);
    sums.energy[0] = static_cast<std::int32_t>(std::min<std::uint32_t>(first, INT32_MAX));
    for (int i = 1; i <= t.last - t.first; ++i) {
        const std::int16_t leaving = segment_end[-i];
        const std::int16_t entering = segment_end[-i - t.n];
        sums.energy[i] = add_sat(sub_sat(sums.energy[i - 1], mul(leaving, leaving)), mul(entering, entering));
    }
}

Best search(const Task &t) {
    Sums sums;
    if (is_exact(t, slide_energy(t, sums))) {
        correlate(t, sums);
    } else {
        limit_energy(t, sums);
        correlate_saturating(t, sums);
    }

    // A negative correlation of the first lag counts as -1. If its energy is 0, no other lag can beat it.
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

// current / past in Q14, at most 2 - 2^-14. The numerator is normalised to one bit less than the denominator,
// so that the quotient is below 1.
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
    const int first = std::max(pitch - kReach, kShortestLag);
    const int last = std::max(std::min(pitch + kReach, kLongestLag), first);

    const std::int16_t *end = sig_hist + kSignal;
    const int shift = shift_for(energy_of_eighths(Segment(end - first, n)));
    std::int16_t scaled[kSignal];
    if (shift != 0) {
        const BlockShift<std::int16_t> scale(-shift);
        for (int i = 0; i < kSignal; ++i) scaled[i] = scale(sig_hist[i]);
        end = scaled + kSignal;
    }

    Window window;
    store(Segment(end, n), window);
    const Task task{end, n, first, last, window};
    const Best best = search(task);

    const std::int16_t ratio =
        ratio_q14(sum_of_magnitudes(window), sum_of_magnitudes(Segment(end - best.lag, n)));
    const std::int16_t signed_ratio = wrap16(clamp<int>(best.corr < 0 ? -ratio : ratio, -16384, 16384));
    *refine_len = wrap16(n);
    *scale_shift = wrap16(shift);
    *amp_ratio = signed_ratio;
    *amp_weight = wrap16(std::max((3 * signed_ratio) >> 7, 0));
    *lag_energy = best.energy;
    *lag_corr = best.corr;
    return wrap16(best.lag);
}
