// The wideband pitch tracker: decimation, coarse search and refinement of one frame.
#include "arith/samples.h"
#include "cvsd_qor.h"

#include <cstdint>

using namespace cvsd_qor;

namespace {

constexpr int kFrame = 120;
constexpr int kSignal = 561;
constexpr int kPast = kSignal - kFrame;
constexpr int kFilterMemory = 60;
constexpr int kDecimated = kFilterMemory + kFrame; // index in the work area, behind the filter's input

} // namespace

std::int32_t PLC_PitchTracker(PitchTrackerState *state, const std::int16_t *frame) {
    std::int16_t *input = state->scratch;
    std::int16_t *decimated = state->scratch + kDecimated;
    copy_samples(frame, kFrame, state->sig_hist + kPast);
    copy_samples(frame, kFrame, input + kFilterMemory);

    PLC_Decim(input, decimated, state);
    state->coarse_pitch = static_cast<std::int16_t>(PLC_CoarsePitch(state, decimated, state->coarse_pitch));
    state->tracked_pitch =
        PLC_RefinePitch(state, &state->amp_ratio, &state->lag_corr, &state->lag_energy, &state->amp_weight,
                        &state->refine_len, &state->scale_shift, state->sig_hist, state->coarse_pitch);

    copy_samples(state->sig_hist + kFrame, kPast, state->sig_hist);
    return 0;
}
