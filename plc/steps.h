// The concealment's functions on a block. Their exported names are in exported.cpp.
#pragma once

#include "plc/block.h"

#include <cstdint>

namespace cvsd_qor {

// Makes a block of the memory. Returns 0, or -1 for a rate that is refused. (construct.cpp)
std::int32_t construct(PlcBlock *memory, std::int32_t sample_rate);

// One of these two for every frame: it was lost (erased_frame.cpp) or it arrived (good_frame.cpp). Either
// leaves the output in the frame.
void erased_frame(Block &b, std::int16_t *frame);
void good_frame(Block &b, std::int16_t *frame);

// The steps of these two, in the order in which a frame passes through them; defined in primitives.cpp where
// no other file is named.

// The pitch at 16000 Hz, on every frame. The tracker gets the newest frame of the history. That is the frame
// of the call before: this call's frame enters the history last. The pitch is left in b.tracker.
inline void track_pitch(Block &b) {
    if constexpr (kWideband) PLC_PitchTracker(&b.tracker, b.history + b.history_len - b.frame_len);
}

// The pitch at 8000 Hz, when a loss begins: of every second period in pitch_min..pitch_max the one at which
// pitch_buf correlates best with its end, or a neighbour that is better. (narrowband_pitch.cpp)
std::int32_t find_pitch(const Block &b);

// Cross-fades n samples from left to right. output may be either of them.
void cross_fade(const std::int16_t *left, const std::int16_t *right, std::int16_t *output, std::int32_t n);

// Reads n samples of the repeated segment from syn_pos on, from its start again after its end, any number of
// times.
void read_segment(Block &b, std::int16_t *output, std::int32_t n);

// Applies the attenuation of a loss: a gain that begins as erase_count gives it and falls by atten_step per
// sample to 0.
void attenuate(const Block &b, std::int16_t *samples, std::int32_t n);

// Cross-fades n samples from the synthetic to the received signal, in place of the latter. The synthetic one
// begins with the gain that erase_count gives.
void fade_to_received(const Block &b, std::int16_t *received, const std::int16_t *synthetic, std::int32_t n);

// Appends the frame to the history and replaces it by the output, which is the history ola_max samples
// earlier.
void save_frame(Block &b, std::int16_t *frame);

} // namespace cvsd_qor
