// The coarse search: the pitch in the newest 30 decimated samples (2000 Hz), to one sample at 16000 Hz.
#include "pitchtrack/coarse_pitch.h"
#include "cvsd_qor.h"

using namespace cvsd_qor;

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
