// The coarse search: the pitch in the newest 30 decimated samples (2000 Hz), to one sample at 16000 Hz.
// Normalised autocorrelation over the lags 4..41, up to seven peaks between the first and the last lag,
// interpolated to a sample at 16000 Hz, and the choice among them.
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

constexpr int kFirstLag = 4; // decimated samples
constexpr int kLastLag = 41;
constexpr int kLags = kLastLag - kFirstLag + 1;

// Arrays over the lags are indexed by lag - kFirstLag. Behind the lags they have room for whole vectors and
// for one element more.
constexpr int kPaddedLags = whole_vectors(kLags);
constexpr int kLagSlots = kPaddedLags + 1;

struct Lags {
    std::int32_t corr[kLagSlots];   // correlation of the window with the window delayed by the lag
    std::int32_t energy[kLagSlots]; // of the delayed window
    // c²/e, normalised; zero behind the lags. c2 has the sign of the correlation.
    std::int16_t c2[kLagSlots];
    std::int16_t mantissa[kLagSlots];
    std::int16_t exponent[kLagSlots];
    bool exact; // no sum can overflow, here and in the interpolation

    NormalisedCorrelation record(int i) const { return {c2[i], mantissa[i], exponent[i]}; }
};

struct Candidate {
    std::int32_t lag; // samples at 16000 Hz
    NormalisedCorrelation record;
};

constexpr int kMaxCandidates = 7;

struct Candidates {
    Candidate at[kMaxCandidates]; // lags ascend
    int count;

    std::int32_t longest() const { return at[count - 1].lag; }
};

// --- Correlate ------------------------------------------------------------------------------------------

constexpr int kSamples = 71; // decimated, oldest first
constexpr int kWindow = 30;  // the newest of them
constexpr int kWindowBegin = kSamples - kWindow;
constexpr int kSteps = kLags - 1; // from a lag to the next

// The padded window ends within the samples at the shortest lag too.
constexpr int kPadded = whole_vectors(kWindow);
static_assert(kWindowBegin - kFirstLag + kPadded <= kSamples);

// Samples of at most this magnitude keep every correlation and energy within M < 2^30. The interpolation
// keeps its results within 2·M + 4 < 2^31: the bend and the rise are at most M / 2 each, the centre M. Then
// plain arithmetic in any order equals the ordered saturating one. The decimation delivers at most 4096.
constexpr int kExactPeak = 5982;
static_assert(kWindow * kExactPeak * kExactPeak < 1 << 30 && 2 * kExactPeak <= INT16_MAX);
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

// The normalised autocorrelation of 71 decimated samples.
void correlate(const std::int16_t *dec, Lags &lags) {
    lags.exact = is_exact(dec);
    if (lags.exact) {
        sum_plain(dec, lags);
    } else {
        sum_saturating(dec, lags);
    }
    normalise_lags(lags);
}

// --- Find peaks -----------------------------------------------------------------------------------------

// Indices of the lags of positive correlation that beat both neighbours, the first kMaxCandidates of them.
struct Peaks {
    int at[kLags / 2]; // at most 18, every second inner lag, and one slot to write behind them
    int count;
};

// Two neighbours, lags i and i + 1, share one pair of doubled cross products, as in beats(): the later lag
// beats the earlier one if its product is greater, and the reverse. These are three loops because clang 14
// would keep values of a single loop for its next round instead of using vectors.
Peaks find_peaks(const Lags &lags) {
    std::int32_t later[kPaddedLags];
    std::int32_t earlier[kPaddedLags];
    std::int16_t later_down[kPaddedLags];
    std::int16_t earlier_down[kPaddedLags];
    for (int i = 0; i < kPaddedLags; ++i) later[i] = 2 * (lags.c2[i + 1] * lags.mantissa[i]);
    for (int i = 0; i < kPaddedLags; ++i) earlier[i] = 2 * (lags.c2[i] * lags.mantissa[i + 1]);
    for (int i = 0; i < kPaddedLags; ++i) {
        const auto d = static_cast<std::int16_t>(lags.exponent[i + 1] - lags.exponent[i]);
        later_down[i] = clamp<std::int16_t>(d, 0, kMaxShift);
        earlier_down[i] = clamp<std::int16_t>(static_cast<std::int16_t>(-d), 0, kMaxShift);
    }

    // Each lag is written behind the list and counted only if it is a peak. This avoids a branch that the
    // processor cannot predict.
    Peaks peaks;
    int count = 0;
    bool rises = false; // lag i is positive and beats the one before
    for (int i = 0; i < kLags - 1; ++i) {
        const std::int32_t after = later[i] >> later_down[i];
        const std::int32_t here = earlier[i] >> earlier_down[i];
        peaks.at[count] = i;
        count += static_cast<int>(rises & (here > after));
        rises = (after > here) & (lags.corr[i + 1] > 0);
    }
    peaks.count = std::min(count, kMaxCandidates);
    return peaks;
}

// Turns troughs into peaks. The exponents stay as they are.
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

struct Plain {
    static constexpr std::int32_t add(std::int32_t a, std::int32_t b) { return a + b; }
    static constexpr std::int32_t sub(std::int32_t a, std::int32_t b) { return a - b; }
};

struct Saturating {
    static constexpr std::int32_t add(std::int32_t a, std::int32_t b) { return add_sat(a, b); }
    static constexpr std::int32_t sub(std::int32_t a, std::int32_t b) { return sub_sat(a, b); }
};

// The best of a peak and the four points at 1/8 .. 4/8 of a lag towards its better neighbour (the earlier one
// if neither is better). The correlations lie on the parabola through the peak and its neighbours, the
// energies on the straight line from the peak to the better neighbour.
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

// The interpolated peaks of the autocorrelation. Without a positive peak it negates the correlations and
// takes the troughs.
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

// --- Choose ---------------------------------------------------------------------------------------------
//
// A voiced sound correlates at its period and at every multiple of it, so the strongest candidate may be a
// multiple of the period. The strength of a candidate is its c²/e as a fraction of the strongest candidate's.
// The first rule that finds a candidate decides:
//
//   1. The period by its multiples, against pitch doubling: if there is a candidate at every multiple of a
//      shorter one, then the shorter one is the period.
//        - It is below half of the longest candidate, so at least one multiple can be tested.
//        - Its strength is over 0.73, or over 0.40 if it is the one near the previous pitch.
//        - Within 6 % of each multiple, up to the longest candidate, lies a candidate whose strength is over
//          0.70, 0.55, 0.48, 0.37 for the multiples 2..5 and over 0.30 from the 6th on: over a longer delay a
//          voice changes more.
//   2. The pitch of the previous frame, as the pitch of a voice changes little in a frame: the strongest
//      candidate within a quarter of it.
//        - Longer than the strongest of all: its strength is over 0.78, for it may be a multiple itself.
//        - Shorter: its strength is over 0.43, and its lag is within 9.5 % of a half, a third, a quarter or a
//          fifth of the strongest one's, which then is the multiple.
//   3. The strongest.

// The fractions. Tables are read in copies here too.

// Rule 1
constexpr std::int32_t kPeriod = 23921;                                          // 0.73, Q15
constexpr std::int32_t kPeriodNear = 13107;                                      // 0.40, Q15
constexpr std::int16_t kMultipleWidth = 1966;                                    // 0.06, Q15
constexpr std::int16_t kMultiple[] = {MPTH[0], MPTH[1], MPTH[2], MPTH[3], 9830}; // 0.70 .. 0.30, Q15

// Rule 2
constexpr std::int32_t kLongerNear = 51118;                                  // 0.78, Q16
constexpr std::int32_t kShorterNear = 28180;                                 // 0.43, Q16
constexpr std::int16_t kSubMultipleWidth = 3113;                             // 0.095, Q15
constexpr std::int16_t kReciprocal[] = {invk[0], invk[1], invk[2], invk[3]}; // 1/2 .. 1/5, Q15

// Every candidate of positive energy beats this record, as none has a negative c2.
constexpr NormalisedCorrelation kWeakest = {INT16_MIN, 1, 0};

// The strongest of the candidates that it is offered, the first of equals.
struct Strongest {
    int index = -1; // of the candidate, -1 for none
    NormalisedCorrelation record = kWeakest;

    void offer(int j, const NormalisedCorrelation &r) {
        if (index < 0 ? beats_weakest(r) : beats(r, record)) {
            index = j;
            record = r;
        }
    }

    // Saturating sums and rounding in the interpolation can leave an energy that is not positive. -32768
    // counts as -32767 here, so that no product leaves 32 bits. The result is the same: 2·c2 <= 65534 is
    // compared with (2^31 - 2^16) >> k instead of (2^31 - 1) >> k. They are equal for k >= 16, and for k < 16
    // both are at least 65534.
    static bool beats_weakest(const NormalisedCorrelation &r) {
        return r.energy > 0 || beats({r.c2, std::max<std::int32_t>(r.energy, -32767), r.exponent}, kWeakest);
    }
};

Strongest strongest(const Candidates &c) {
    Strongest s;
    for (int j = 0; j < c.count; ++j) s.offer(j, c.at[j].record);
    return s;
}

// Of those within a quarter of the previous pitch. The differences wrap to 16 bits: any prev is allowed.
Strongest strongest_near(const Candidates &c, std::int16_t prev) {
    Strongest s;
    for (int j = 0; j < c.count; ++j) {
        const std::int16_t distance = abs16(wrap16(c.at[j].lag - prev));
        if (wrap16(distance - (prev >> 2)) <= 0) s.offer(j, c.at[j].record);
    }
    return s;
}

// Whether a's strength exceeds a fraction of b's: the fraction scales a's energy down. Out of line, as calls
// are rare.
[[gnu::noinline]] bool exceeds(NormalisedCorrelation a, const NormalisedCorrelation &b, std::int32_t fraction,
                               int fraction_bits) {
    a.energy = (a.energy * fraction) >> fraction_bits;
    return beats(a, b);
}

// Rule 1: whether each multiple of candidate j's lag has a candidate beside it.
bool has_all_multiples(const Candidates &c, int j, const NormalisedCorrelation &best) {
    const std::int32_t period = c.at[j].lag;
    int i = j;
    int k = 0;
    for (std::int32_t multiple = 2 * period; multiple <= c.longest(); multiple += period, ++k) {
        const std::int32_t tolerance = mul_q15_rounded(kMultipleWidth, multiple);
        for (;; ++i) {
            if (i == c.count || c.at[i].lag > multiple + tolerance) return false;
            if (c.at[i].lag <= multiple - tolerance) continue;
            if (exceeds(c.at[i].record, best, kMultiple[std::min(k, 4)], 15)) break;
        }
    }
    return true;
}

// Rule 2: whether lag is about a half, a third, a quarter or a fifth of whole.
bool is_sub_multiple(std::int32_t lag, std::int32_t whole) {
    for (const std::int16_t reciprocal : kReciprocal) {
        const std::int32_t part = (reciprocal * whole) >> 15;
        const std::int32_t tolerance = mul_q15_rounded(kSubMultipleWidth, part);
        if (part - tolerance < lag && lag < part + tolerance) return true;
    }
    return false;
}

// The lag of the candidate that is the pitch, where prev is the pitch of the frame before. At least one
// candidate.
std::int32_t choose(const Candidates &c, std::int16_t prev) {
    const int best = std::max(strongest(c).index, 0);
    const int near = strongest_near(c, prev).index;
    const NormalisedCorrelation &best_record = c.at[best].record;
    const std::int32_t best_lag = c.at[best].lag;

    // Rule 1. Ends at the longest candidate at the latest.
    for (int j = 0; 2 * c.at[j].lag < c.longest(); ++j) {
        const bool strong = exceeds(c.at[j].record, best_record, j == near ? kPeriodNear : kPeriod, 15);
        if (strong && has_all_multiples(c, j, best_record)) return c.at[j].lag;
    }

    // Rule 2.
    if (near >= 0 && near != best) {
        const bool longer = near > best;
        const bool strong = exceeds(c.at[near].record, best_record, longer ? kLongerNear : kShorterNear, 16);
        if (strong && (longer || is_sub_multiple(c.at[near].lag, best_lag))) return c.at[near].lag;
    }

    return best_lag;
}

} // namespace

std::uint16_t PLC_CoarsePitch(const PitchTrackerState * /*state*/, const std::int16_t *dec,
                              std::int16_t prev) {
    constexpr std::uint16_t kNoPitch = 40;

    Lags lags;
    correlate(dec, lags);

    Candidates candidates;
    find_candidates(lags, candidates);
    if (candidates.count == 0) return kNoPitch;

    return static_cast<std::uint16_t>(choose(candidates, prev));
}
