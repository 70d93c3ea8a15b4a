// Coarse pitch: normalised autocorrelation of the newest 30 decimated samples (2000 Hz) over the lags 4..41,
// up to seven peaks interpolated to a sixteenth of a millisecond, and the choice among them.
#include "arith/correlation.h"
#include "arith/fixed_point.h"
#include "arith/samples.h"
#include "cvsd_qor.h"

#include <algorithm>
#include <cstdint>

using namespace cvsd_qor;

constexpr std::int16_t x[4] = {4096, 8192, 12288, 16384};
constexpr std::int16_t x2[4] = {512, 2048, 4608, 8192};
constexpr std::int16_t invk[4] = {16384, 10923, 8192, 6554};
constexpr std::int16_t MPTH[4] = {22938, 18022, 15728, 12124};

namespace {

// The arithmetic reads these copies, never the exported symbols, which a host program could define too.
struct Table {
    std::int16_t at[4];
    explicit constexpr Table(const std::int16_t *t) : at{t[0], t[1], t[2], t[3]} {}
};
constexpr Table kOffset(x);
constexpr Table kOffsetSquared(x2);
constexpr Table kReciprocal(invk);
constexpr std::int16_t kMultipleThreshold[5] = {MPTH[0], MPTH[1], MPTH[2], MPTH[3],
                                                9830}; // 0.30 from the 6th on

constexpr int kFirstLag = 4; // decimated samples
constexpr int kLastLag = 41;
constexpr int kSamples = 71; // decimated, oldest first
constexpr int kWindow = 30;  // the newest of them
constexpr int kOldest = kSamples - kWindow;
constexpr int kFactor = 8; // 16000 Hz over 2000 Hz
constexpr int kMaxPeaks = 7;
constexpr std::uint16_t kNoPitch = 40;

// Even at the shortest lag the rounded length ends within the samples.
constexpr int kPadded = whole_vectors(kWindow);
static_assert(kOldest - kFirstLag + kPadded <= kSamples);

// Up to this magnitude of the decimated samples every sum over a window stays below 2^30 and everything that
// the interpolation makes of two or three of those below 2^31: plain arithmetic in any order equals the
// ordered saturating one. The decimation hands over at most 4096.
constexpr int kExactPeak = 5982;
static_assert(kWindow * kExactPeak * kExactPeak < 1 << 30 && 2 * kExactPeak <= INT16_MAX);
static_assert(kWindow * (kExactPeak + 1) * (kExactPeak + 1) >= 1 << 30); // and no larger one would do

struct Plain {
    static constexpr std::int32_t add(std::int32_t a, std::int32_t b) { return a + b; }
    static constexpr std::int32_t sub(std::int32_t a, std::int32_t b) { return a - b; }
};

struct Saturating {
    static constexpr std::int32_t add(std::int32_t a, std::int32_t b) { return add_sat(a, b); }
    static constexpr std::int32_t sub(std::int32_t a, std::int32_t b) { return sub_sat(a, b); }
};

// Indexed by lag - kFirstLag, with room behind for whole vectors and one more.
constexpr int kLags = kLastLag - kFirstLag + 1;
constexpr int kLanes = whole_vectors(kLags);
constexpr int kPerLag = kLanes + 1;
constexpr int kSteps = kLags - 1; // from a lag to the next

struct Lags {
    std::int32_t corr[kPerLag];
    std::int32_t energy[kPerLag];
    // Their normalised forms, with zeros behind; c2 has the sign of the correlation.
    std::int16_t c2[kPerLag];
    std::int16_t mantissa[kPerLag];
    std::int16_t exponent[kPerLag];

    NormalisedCorrelation record(int i) const { return {c2[i], mantissa[i], exponent[i]}; }
};

struct Candidate {
    std::int32_t lag; // samples at 16000 Hz
    NormalisedCorrelation record;
};

struct Candidates {
    Candidate at[kMaxPeaks]; // lags ascend
    int count;

    std::int32_t longest() const { return at[count - 1].lag; }
};

// --- Correlate ------------------------------------------------------------------------------------------

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

void correlate(const std::int16_t *dec, Lags &lags) {
    Vectors<kPadded> window{};
    const std::int16_t *shortest = dec + kOldest - kFirstLag; // the window delayed by the shortest lag
    copy_samples<kWindow>(dec + kOldest, window.at);
    for (int i = 0; i < kLags; ++i) lags.corr[i] = sum_of_products(window, shortest - i);

    // Towards longer lags one sample leaves the delayed window at its new end and one enters at its old end:
    // entering² - leaving² = (entering - leaving) · (entering + leaving), where both factors fit in 16 bits.
    std::int32_t change[kSteps]; // longest lag first
    for (int i = 0; i < kSteps; ++i) {
        const std::int16_t entering = dec[i];
        const std::int16_t leaving = dec[i + kWindow];
        const auto difference = static_cast<std::int16_t>(entering - leaving);
        change[i] = difference * static_cast<std::int16_t>(entering + leaving);
    }
    std::int32_t energy = sum_of<kPadded>([=](int m) { return shortest[m] * shortest[m]; });
    for (int m = kWindow; m < kPadded; ++m) energy -= shortest[m] * shortest[m];
    lags.energy[0] = energy;
    for (int i = 0; i < kSteps; ++i) lags.energy[i + 1] = energy += change[kSteps - 1 - i];
}

[[gnu::cold]] void correlate_saturating(const std::int16_t *dec, Lags &lags) {
    std::int32_t energy = 0;
    for (int m = kOldest; m < kSamples; ++m) {
        energy = add_sat(energy, mul(dec[m - kFirstLag], dec[m - kFirstLag]));
    }
    lags.energy[0] = energy;
    for (int lag = kFirstLag + 1; lag <= kLastLag; ++lag) {
        const std::int16_t leaving = dec[kSamples - lag];
        const std::int16_t entering = dec[kOldest - lag];
        energy = add_sat(sub_sat(energy, mul(leaving, leaving)), mul(entering, entering));
        lags.energy[lag - kFirstLag] = energy;
    }
    for (int lag = kFirstLag; lag <= kLastLag; ++lag) {
        std::int32_t corr = 0;
        for (int m = kOldest; m < kSamples; ++m) corr = add_sat(corr, mul(dec[m], dec[m - lag]));
        lags.corr[lag - kFirstLag] = corr;
    }
}

// --- Normalise ------------------------------------------------------------------------------------------

void normalise_lags(Lags &lags) {
    std::int16_t c[kPerLag];
    for (int i = 0; i != kLags; ++i) {
        const int corr_shift = norm32(lags.corr[i]);
        const int energy_shift = norm32(lags.energy[i]);
        c[i] = high_half(shift_left(lags.corr[i], corr_shift));
        lags.mantissa[i] = high_half(shift_left(lags.energy[i], energy_shift));
        lags.exponent[i] = static_cast<std::int16_t>(2 * corr_shift - energy_shift);
    }
    for (std::int16_t *padded : {c, lags.mantissa, lags.exponent}) {
        std::fill_n(padded + kLags, kPerLag - kLags, std::int16_t{0});
    }
    for (int i = 0; i != kLanes; ++i) {
        const std::int32_t c2 = half_square(c[i]);
        lags.c2[i] = static_cast<std::int16_t>((sign16(c[i]) | 1) * c2);
    }
    lags.c2[kLanes] = 0;
}

// --- Find peaks -----------------------------------------------------------------------------------------

// Indices of the lags of positive correlation that beat both neighbours, the first kMaxPeaks of them.
struct Peaks {
    int at[kLags / 2]; // 18 where every second inner lag is a peak, and one to write behind
    int count;
};

// Two neighbours need one pair of cross products, as in beats(): the first beats the second if its product is
// greater, and the second the first if it is less. No measured c2 is -32768, so the products need no
// saturation.
Peaks find_peaks(const Lags &lags) {
    std::int32_t here[kLanes];
    std::int32_t before[kLanes];
    std::int16_t here_down[kLanes];
    std::int16_t before_down[kLanes];
    for (int i = 0; i != kLanes; ++i) here[i] = 2 * (lags.c2[i + 1] * lags.mantissa[i]);
    for (int i = 0; i != kLanes; ++i) before[i] = 2 * (lags.c2[i] * lags.mantissa[i + 1]);
    for (int i = 0; i != kLanes; ++i) {
        const auto d = static_cast<std::int16_t>(lags.exponent[i + 1] - lags.exponent[i]);
        here_down[i] = clamp<std::int16_t>(d, 0, kMaxShift);
        before_down[i] = clamp<std::int16_t>(static_cast<std::int16_t>(-d), 0, kMaxShift);
    }

    // Every lag is written behind the list, and counted if it is a peak: that spares a branch that cannot be
    // predicted.
    Peaks peaks;
    int count = 0;
    bool rises = false;
    for (int i = 0; i != kSteps; ++i) {
        const std::int32_t a = here[i] >> here_down[i];
        const std::int32_t b = before[i] >> before_down[i];
        peaks.at[count] = i;
        count += static_cast<int>(rises & (a < b));
        rises = (a > b) & (lags.corr[i + 1] > 0);
    }
    peaks.count = std::min(count, kMaxPeaks);
    return peaks;
}

[[gnu::cold]] void negate(Lags &lags) {
    for (int i = 0; i != kLags; ++i) {
        lags.corr[i] = sub_sat(0, lags.corr[i]);
        lags.c2[i] = static_cast<std::int16_t>(-lags.c2[i]);
    }
}

// --- Interpolate ----------------------------------------------------------------------------------------

// The best of a peak and the four points at 1/8 .. 4/8 of a lag towards its better neighbour, on the parabola
// through the correlations and the straight line through the energies.
template <class Arithmetic>
Candidate interpolate(const Lags &lags, int peak) {
    using A = Arithmetic;
    const std::int32_t centre = lags.corr[peak];
    const std::int32_t slope = A::sub(lags.corr[peak + 1], lags.corr[peak - 1]) >> 1;
    const std::int32_t curvature = A::sub(A::add(lags.corr[peak + 1], lags.corr[peak - 1]) >> 1, centre);
    const bool right = beats(lags.record(peak + 1), lags.record(peak - 1));
    const std::int32_t energy_step = A::sub(lags.energy[right ? peak + 1 : peak - 1], lags.energy[peak]) >> 3;

    std::int32_t energy = lags.energy[peak];
    std::int32_t offset = 0;
    NormalisedCorrelation best = lags.record(peak);
    for (int i = 0; i < 4; ++i) {
        energy = A::add(energy, energy_step);
        const std::int32_t bend = mul_32_by_q15(curvature, kOffsetSquared.at[i]);
        const std::int32_t rise = mul_32_by_q15(slope, kOffset.at[i]);
        const std::int32_t corr = A::add(right ? A::add(bend, rise) : A::sub(bend, rise), centre);
        const NormalisedCorrelation point = normalise(corr, energy);
        if (beats(point, best)) {
            best = point;
            offset = i + 1;
        }
    }
    return {kFactor * (kFirstLag + peak) + (right ? offset : -offset), best};
}

template <class Arithmetic>
Candidates interpolate_all(const Lags &lags, const Peaks &peaks) {
    Candidates c;
    c.count = peaks.count;
    for (int j = 0; j < c.count; ++j) c.at[j] = interpolate<Arithmetic>(lags, peaks.at[j]);
    return c;
}

// Only direct calls can come here, never the decimation's output.
[[gnu::cold, gnu::noinline]] Candidates interpolate_saturating(const Lags &lags, const Peaks &peaks) {
    return interpolate_all<Saturating>(lags, peaks);
}

// --- Choose ---------------------------------------------------------------------------------------------

// The strongest of the candidates that it is offered, the first of equals.
struct Strongest {
    int index = -1; // of the candidate, -1 for none
    NormalisedCorrelation record;

    void offer(int j, const NormalisedCorrelation &r) {
        if (index < 0 ? beats_any(r) : beats(r, record)) {
            index = j;
            record = r;
        }
    }

    // The first is compared with a c2 of -32768 over an energy of 1. Every positive energy beats it, as no
    // candidate's c2 is negative. Saturating sums and rounding in the interpolation can leave an energy that
    // is not positive.
    static bool beats_any(const NormalisedCorrelation &r) {
        return r.energy > 0 || exceeds(r.c2, mul_doubling(INT16_MIN, r.energy), r.exponent);
    }
};

Strongest strongest(const Candidates &c) {
    Strongest s;
    for (int j = 0; j < c.count; ++j) s.offer(j, c.at[j].record);
    return s;
}

// Within a quarter of the previous pitch. Differences are 16-bit values, as any prev is legal.
Strongest strongest_near(const Candidates &c, std::int16_t prev) {
    Strongest s;
    for (int j = 0; j < c.count; ++j) {
        const std::int16_t distance = abs16(wrap16(c.at[j].lag - prev));
        if (wrap16(distance - (prev >> 2)) <= 0) s.offer(j, c.at[j].record);
    }
    return s;
}

// Whether a beats b with a's energy weighed down, that is whether a reaches a fraction of b.
[[gnu::noinline]] bool beats_weighted(NormalisedCorrelation a, const NormalisedCorrelation &b,
                                      std::int32_t energy) {
    a.energy = energy;
    return beats(a, b);
}

// Whether every multiple of candidate j's lag, up to the longest candidate, is itself a candidate of some
// strength.
bool multiples_confirm(const Candidates &c, int j, const NormalisedCorrelation &best) {
    const std::int32_t period = c.at[j].lag;
    int i = j;
    int k = 0;
    for (std::int32_t multiple = 2 * period; multiple <= c.longest(); multiple += period, ++k) {
        const std::int32_t tolerance = mul_q15_rounded(1966, multiple); // 0.06
        const std::int16_t threshold = kMultipleThreshold[std::min(k, 4)];
        for (;; ++i) {
            if (i == c.count || c.at[i].lag > multiple + tolerance) return false;
            if (c.at[i].lag <= multiple - tolerance) continue;
            const NormalisedCorrelation &r = c.at[i].record;
            if (beats_weighted(r, best, high_half(mul_doubling(r.energy, threshold)))) break;
        }
    }
    return true;
}

// Whether lag is about a half, a third, a quarter or a fifth of whole.
bool is_sub_multiple(std::int32_t lag, std::int32_t whole) {
    for (const std::int16_t reciprocal : kReciprocal.at) {
        const std::int32_t part = (reciprocal * whole) >> 15;
        const std::int32_t tolerance = mul_q15_rounded(3113, part); // 0.095
        if (part - tolerance < lag && lag < part + tolerance) return true;
    }
    return false;
}

std::int32_t choose(const Candidates &c, std::int16_t prev) {
    const int best = std::max(strongest(c).index, 0);
    const int near = strongest_near(c, prev).index;
    const NormalisedCorrelation &best_record = c.at[best].record;

    // Ends at the longest lag at the latest.
    for (int j = 0; 2 * c.at[j].lag < c.longest(); ++j) {
        const NormalisedCorrelation &r = c.at[j].record;
        const std::int32_t weight = j == near ? 13107 : 23921; // 0.40 and 0.73
        if (beats_weighted(r, best_record, (r.energy * weight) >> 15) &&
            multiples_confirm(c, j, best_record)) {
            return c.at[j].lag;
        }
    }

    if (near < 0 || near == best) return c.at[best].lag;
    const NormalisedCorrelation &r = c.at[near].record;
    const bool longer = near > best;
    const std::int32_t weight = longer ? 51118 : 28180; // 0.78 and 0.43, Q16
    const bool keeps_up = beats_weighted(r, best_record, (r.energy * weight) >> 16);
    const bool fits = longer || is_sub_multiple(c.at[near].lag, c.at[best].lag);
    return keeps_up && fits ? c.at[near].lag : c.at[best].lag;
}

} // namespace

std::uint16_t PLC_CoarsePitch(const PitchTrackerState * /*state*/, const std::int16_t *dec,
                              std::int16_t prev) {
    Lags lags;
    const bool exact = is_exact(dec);
    if (exact) {
        correlate(dec, lags);
    } else {
        correlate_saturating(dec, lags);
    }

    normalise_lags(lags);

    Peaks peaks = find_peaks(lags);
    if (peaks.count == 0) {
        negate(lags);
        peaks = find_peaks(lags);
    }
    if (peaks.count == 0) return kNoPitch;
    if (peaks.count == 1) return static_cast<std::uint16_t>(kFactor * (kFirstLag + peaks.at[0]));

    const Candidates candidates =
        exact ? interpolate_all<Plain>(lags, peaks) : interpolate_saturating(lags, peaks);
    return static_cast<std::uint16_t>(choose(candidates, prev));
}
