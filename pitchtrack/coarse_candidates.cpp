// The candidates for the pitch: up to seven peaks of the autocorrelation between the first and the last lag,
// interpolated to a sample at 16000 Hz.
#include "cvsd_qor.h"
#include "pitchtrack/coarse_pitch.h"

#include <algorithm>

using namespace cvsd_qor;

constexpr std::int16_t x[4] = {4096, 8192, 12288, 16384};
constexpr std::int16_t x2[4] = {512, 2048, 4608, 8192};

namespace cvsd_qor {
namespace {

// --- Find peaks -----------------------------------------------------------------------------------------

// Indices of the lags of positive correlation that beat both neighbours, the first kMaxCandidates of them.
struct Peaks {
    int at[kLags / 2]; // at most 18, every second inner lag, and one slot to write behind them
    int count;
};

// Two neighbours, lags i and i + 1, share one pair of doubled cross products, as in beats(): the longer lag
// beats the shorter one if its product is greater, and the reverse. These are three loops because clang 14
// would keep values of a single loop for its next round instead of using vectors.
Peaks find_peaks(const Lags &lags) {
    std::int32_t longer[kPaddedLags];
    std::int32_t shorter[kPaddedLags];
    std::int16_t longer_down[kPaddedLags];
    std::int16_t shorter_down[kPaddedLags];
    for (int i = 0; i < kPaddedLags; ++i) longer[i] = 2 * (lags.c2[i + 1] * lags.mantissa[i]);
    for (int i = 0; i < kPaddedLags; ++i) shorter[i] = 2 * (lags.c2[i] * lags.mantissa[i + 1]);
    for (int i = 0; i < kPaddedLags; ++i) {
        const auto d = static_cast<std::int16_t>(lags.exponent[i + 1] - lags.exponent[i]);
        longer_down[i] = clamp<std::int16_t>(d, 0, kMaxShift);
        shorter_down[i] = clamp<std::int16_t>(static_cast<std::int16_t>(-d), 0, kMaxShift);
    }

    // Each lag is written behind the list and counted only if it is a peak. This avoids a branch that the
    // processor cannot predict.
    Peaks peaks;
    int count = 0;
    bool rises = false; // lag i is positive and beats the one before
    for (int i = 0; i < kLags - 1; ++i) {
        const std::int32_t after = longer[i] >> longer_down[i];
        const std::int32_t here = shorter[i] >> shorter_down[i];
        peaks.at[count] = i;
        count += static_cast<int>(rises & (here > after));
        rises = (after > here) & (lags.corr[i + 1] > 0);
    }
    peaks.count = std::min(count, kMaxCandidates);
    return peaks;
}

// Turns troughs into peaks. This negates the normalised values, it does not normalise again: the exponents
// stay as they are.
[[gnu::cold]] void negate(Lags &lags) {
    for (int i = 0; i < kLags; ++i) {
        lags.corr[i] = sub_sat(0, lags.corr[i]);
        lags.c2[i] = static_cast<std::int16_t>(-lags.c2[i]);
    }
}

// --- Interpolate ----------------------------------------------------------------------------------------

constexpr int kFactor = 8; // 16000 Hz over 2000 Hz

// The arithmetic reads these copies, never the exported symbols, which a host program could define too.
constexpr std::int16_t kOffset[] = {x[0], x[1], x[2], x[3]};            // 1/8 .. 4/8 of a lag, Q15
constexpr std::int16_t kOffsetSquared[] = {x2[0], x2[1], x2[2], x2[3]}; // their squares

// Exact if lags.exact is set: the bound is at kExactPeak in coarse_correlation.cpp.
struct Plain {
    static constexpr std::int32_t add(std::int32_t a, std::int32_t b) { return a + b; }
    static constexpr std::int32_t sub(std::int32_t a, std::int32_t b) { return a - b; }
};

struct Saturating {
    static constexpr std::int32_t add(std::int32_t a, std::int32_t b) { return add_sat(a, b); }
    static constexpr std::int32_t sub(std::int32_t a, std::int32_t b) { return sub_sat(a, b); }
};

// The best of a peak and the four points at 1/8 .. 4/8 of a lag towards its better neighbour (the shorter one
// if neither is better). The correlations lie on the parabola through the peak and its neighbours, the
// energies on the straight line from the peak to the better neighbour. A point with a negative correlation
// counts by its magnitude, as normalise() drops the sign.
template <class A>
Candidate interpolate(const Lags &lags, int peak) {
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
        const std::int32_t bend = mul_32_by_q15(curvature, kOffsetSquared[i]);
        const std::int32_t rise = mul_32_by_q15(slope, kOffset[i]);
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
void interpolate_all(const Lags &lags, const Peaks &peaks, Candidates &candidates) {
    for (int j = 0; j < peaks.count; ++j) candidates.at[j] = interpolate<Arithmetic>(lags, peaks.at[j]);
}

[[gnu::cold, gnu::noinline]] void interpolate_saturating(const Lags &lags, const Peaks &peaks,
                                                         Candidates &candidates) {
    interpolate_all<Saturating>(lags, peaks, candidates);
}

} // namespace

void find_candidates(Lags &lags, Candidates &candidates) {
    Peaks peaks = find_peaks(lags);
    if (peaks.count == 0) {
        negate(lags);
        peaks = find_peaks(lags);
    }
    candidates.count = peaks.count;
    if (peaks.count == 1) { // a single peak is the pitch without interpolation
        candidates.at[0] = {kFactor * (kFirstLag + peaks.at[0]), lags.record(peaks.at[0])};
    } else if (lags.exact) {
        interpolate_all<Plain>(lags, peaks, candidates);
    } else {
        interpolate_saturating(lags, peaks, candidates);
    }
}

} // namespace cvsd_qor
