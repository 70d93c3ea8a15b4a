// The choice of the pitch among the candidates.
//
// A voiced sound correlates at its period and at every multiple of it, so the strongest candidate may be a
// multiple of the period. The strength of a candidate is its c²/e as a fraction of the strongest candidate's.
// The first rule that finds a candidate decides:
//
//   1. The period by its multiples, against pitch doubling: if there is a candidate at every multiple of a
//      shorter one, then the shorter one is the period.
//        - It is below half of the longest candidate, so at least one multiple can be tested.
//        - Its strength is over 0.73, or over 0.40 if it is the strongest one near the previous pitch.
//        - Within 6 % of each multiple, up to the longest candidate, lies a candidate whose strength is over
//          0.70, 0.55, 0.48, 0.37 for the multiples 2..5 and over 0.30 from the 6th on: over a longer delay a
//          voice changes more.
//   2. The pitch of the previous frame, as the pitch of a voice changes little in a frame: the strongest
//      candidate within a quarter of it.
//        - Longer than the strongest of all: its strength is over 0.78, for it may be a multiple itself.
//        - Shorter: its strength is over 0.43, and its lag is within 9.5 % of a half, a third, a quarter or a
//          fifth of the strongest one's, which then is the multiple.
//   3. The strongest.
#include "arith/correlation.h"
#include "arith/fixed_point.h"
#include "cvsd_qor.h"
#include "pitchtrack/coarse_pitch.h"

#include <algorithm>

using namespace cvsd_qor;

constexpr std::int16_t invk[4] = {16384, 10923, 8192, 6554};
constexpr std::int16_t MPTH[4] = {22938, 18022, 15728, 12124};

namespace cvsd_qor {
namespace {

// The fractions. Tables are read in copies, never by their exported names, which a host program could define
// too.

// Rule 1
constexpr std::int32_t kPeriod = 23921;                                          // 0.73, Q15
constexpr std::int32_t kPeriodNear = 13107;                                      // 0.40, Q15
constexpr std::int16_t kMultipleWidth = 1966;                                    // 0.06, Q15
constexpr std::int16_t kMultiple[] = {MPTH[0], MPTH[1], MPTH[2], MPTH[3], 9830}; // 0.70 .. 0.30, Q15

// Rule 2
constexpr std::int32_t kLongerNear = 25559;                                  // 0.78, Q15
constexpr std::int32_t kShorterNear = 14090;                                 // 0.43, Q15
constexpr std::int16_t kSubMultipleWidth = 3113;                             // 0.095, Q15
constexpr std::int16_t kReciprocal[] = {invk[0], invk[1], invk[2], invk[3]}; // 1/2 .. 1/5, Q15

// Every candidate of positive energy beats this record, as no candidate has a negative c2.
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

    // Saturating sums and rounding in the interpolation can leave an energy that is not positive. By
    // definition the doubled product of -32768 and -32768 saturates to 2^31 - 1. Here an energy of -32768
    // counts as -32767, so that no product leaves 32 bits. The result is the same: 2·c2 <= 65534 is compared
    // with (2^31 - 2^16) >> k instead of (2^31 - 1) >> k. They are equal for k >= 16, and for k < 16 both are
    // at least 65534.
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
[[gnu::noinline]] bool exceeds(NormalisedCorrelation a, const NormalisedCorrelation &b,
                               std::int32_t fraction) {
    a.energy = (a.energy * fraction) >> 15;
    return beats(a, b);
}

// Rule 1: whether each multiple of candidate j's lag has a candidate beside it. The lower end of the
// tolerance is excluded, the upper end included.
bool has_all_multiples(const Candidates &c, int j, const NormalisedCorrelation &best) {
    const std::int32_t period = c.at[j].lag;
    int i = j;
    int k = 0; // into kMultiple, 0 for the double
    for (std::int32_t multiple = 2 * period; multiple <= c.longest(); multiple += period, ++k) {
        const std::int32_t tolerance = mul_q15_rounded(kMultipleWidth, multiple);
        for (;; ++i) {
            if (i == c.count || c.at[i].lag > multiple + tolerance) return false;
            if (c.at[i].lag <= multiple - tolerance) continue;
            if (exceeds(c.at[i].record, best, kMultiple[std::min(k, 4)])) break;
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

} // namespace

std::int32_t choose(const Candidates &c, std::int16_t prev) {
    const int best = std::max(strongest(c).index, 0); // the first if none beats kWeakest
    const int near = strongest_near(c, prev).index;
    const NormalisedCorrelation &best_record = c.at[best].record;
    const std::int32_t best_lag = c.at[best].lag;

    // Rule 1. Ends at the longest candidate at the latest.
    for (int j = 0; 2 * c.at[j].lag < c.longest(); ++j) {
        const bool strong = exceeds(c.at[j].record, best_record, j == near ? kPeriodNear : kPeriod);
        if (strong && has_all_multiples(c, j, best_record)) return c.at[j].lag;
    }

    // Rule 2.
    if (near >= 0 && near != best) {
        const bool longer = near > best;
        const bool strong = exceeds(c.at[near].record, best_record, longer ? kLongerNear : kShorterNear);
        if (strong && (longer || is_sub_multiple(c.at[near].lag, best_lag))) return c.at[near].lag;
    }

    return best_lag;
}

} // namespace cvsd_qor
