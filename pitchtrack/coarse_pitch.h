// What the steps of the coarse search hand to each other. coarse_pitch.cpp calls them in order.
#pragma once

#include "arith/correlation.h"
#include "arith/fixed_point.h"

#include <cstdint>

namespace cvsd_qor {

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
    // c²/e, normalised; zero behind the lags. c2 has the sign of the correlation: find_candidates() compares
    // signed values and, to take troughs, negates them.
    std::int16_t c2[kLagSlots];
    std::int16_t mantissa[kLagSlots];
    std::int16_t exponent[kLagSlots];
    bool exact; // no sum can overflow, here and in the interpolation: the proof is at kExactPeak in
                // coarse_correlation.cpp

    NormalisedCorrelation record(int i) const { return {c2[i], mantissa[i], exponent[i]}; }
};

struct Candidate {
    std::int32_t lag;             // samples at 16000 Hz
    NormalisedCorrelation record; // c2 >= 0; the energy is <= 0 only after saturating arithmetic or rounding
};

constexpr int kMaxCandidates = 7;

struct Candidates {
    Candidate at[kMaxCandidates]; // lags ascend
    int count;

    std::int32_t longest() const { return at[count - 1].lag; }
};

// coarse_correlation.cpp: the normalised autocorrelation of the newest 30 of 71 decimated samples.
void correlate(const std::int16_t *dec, Lags &lags);

// coarse_candidates.cpp: the interpolated peaks of the autocorrelation. Without a positive peak it negates
// the correlations and takes the troughs.
void find_candidates(Lags &lags, Candidates &candidates);

// coarse_choice.cpp: the lag of the candidate that is the pitch, where prev is the previous coarse pitch.
// At least one candidate.
std::int32_t choose(const Candidates &c, std::int16_t prev);

} // namespace cvsd_qor
