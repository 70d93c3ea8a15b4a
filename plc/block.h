// The state of one concealed stream, as it lies in the caller's block.
#pragma once

#include "cvsd_qor.h"

#include <cstddef>
#include <cstdint>

namespace cvsd_qor {

constexpr std::int32_t kMaxPitch = 240;     // samples, at 16000 Hz
constexpr std::int32_t kPeriods = 3;        // pitch periods in the longest repeated segment
constexpr std::int32_t kGainPerLoss = 8191; // Q15: a quarter of full scale less for each lost frame, rounded
                                            // down so that 32767 holds four of them
constexpr std::int32_t kReconverge16k = 36; // samples
constexpr std::int32_t kMinFrame = 30;      // samples; the frames of both rates are multiples of it

// Lost frames that are not silent: one at full gain, then as many as bring the gain from 32767 to 3.
constexpr std::int32_t kAudibleFrames = 1 + 32767 / kGainPerLoss;
static_assert(kAudibleFrames == 5);

constexpr std::size_t kMaxFade = kMaxPitch / 4; // samples: the cross-fade of a segment takes a quarter period
constexpr std::size_t kMaxHistory = kPeriods * kMaxPitch + kMaxFade; // samples
constexpr std::size_t kScratch =
    824; // samples, fixed by the layout; the largest use is the tracker's, 180 + 71

// The narrowband pitch search is written for these values. The block's fields decim, corr_len and
// corr_buf_len repeat them as part of the layout: nothing reads these fields.
constexpr std::int32_t kDecim = 2;     // samples
constexpr std::int32_t kCorrLen = 120; // samples

// A build for 8000 Hz alone refuses 16000 Hz at construction. Every call of the pitch tracker depends on this
// constant: if it is false, no call is compiled and the tracker is not linked.
#ifdef CVSD_QOR_NARROWBAND_ONLY
constexpr bool kWideband = false;
#else
constexpr bool kWideband = true;
#endif

// The order, width and offset of all fields are fixed: tools read the memory of a block by them and compare
// it with recorded states.
struct Block {
    // Set by construction for the rate, constant afterwards. Samples unless another unit is given.
    std::int32_t frame_len;
    std::int32_t atten_step; // Q15 per sample
    std::int32_t pitch_min;
    std::int32_t pitch_max;
    std::int32_t ola_max;      // longest cross-fade of the segment, and the delay of the output
    std::int32_t decim;        // step of the narrowband pitch search: kDecim
    std::int32_t corr_len;     // its correlation window: kCorrLen
    std::int32_t pitch_range;  // its span: pitch_max - pitch_min
    std::int32_t corr_buf_len; // the samples that it reads: corr_len + pitch_max
    std::int32_t history_len;
    std::int32_t sample_rate; // Hz

    std::int32_t erase_count; // frames lost since the last good one, without the one that is being concealed
    std::int32_t ola_len;     // cross-fade of the current loss: a quarter of its first pitch
    std::int32_t pitch;       // period; set when a loss begins, at 16000 Hz again on every lost frame
    std::int32_t syn_pos;     // read position in the repeated segment, 0..syn_len; syn_len means the start
    std::int32_t syn_len;     // the repeated segment: the last syn_len samples of pitch_buf

    std::int16_t history[kMaxHistory];   // [0..history_len-1] oldest first, with concealed frames in place
    std::int16_t last_quarter[kMaxFade]; // [0..ola_len-1] the end of pitch_buf before the loss altered it
    std::int16_t *syn_start;             // pitch_buf_end - syn_len
    std::int16_t *pitch_buf_end;         // pitch_buf + history_len
    std::int32_t reconverge_len;         // samples that a first good frame keeps synthetic: set by good
                                         // frames at 16000 Hz, 0 before; 0 at 8000 Hz
    std::int16_t scratch[kScratch];      // work area of one call
    std::int16_t pitch_buf[kMaxHistory]; // [0..history_len-1] the history at the loss, its end cross-faded
    PitchTrackerState tracker;           // 16000 Hz only
};

static_assert(sizeof(Block) <= G711PLC_MEMORY_SIZE && alignof(Block) <= G711PLC_MEMORY_ALIGN);
static_assert(sizeof(PlcBlock) == G711PLC_MEMORY_SIZE && alignof(PlcBlock) <= G711PLC_MEMORY_ALIGN);
static_assert(sizeof(void *) != 8 ||
              (offsetof(Block, history) == 64 && offsetof(Block, syn_start) == 1744 &&
               offsetof(Block, scratch) == 1764 && offsetof(Block, pitch_buf) == 3412 &&
               offsetof(Block, tracker) == 4976 && sizeof(Block) == 6360));

// The only decision by rate after construction: 16000 Hz or 8000 Hz.
inline bool is_wideband(const Block &b) { return kWideband && b.sample_rate == 16000; }

inline Block &unwrap(PlcBlock *block) { return *reinterpret_cast<Block *>(block); }
inline const Block &unwrap(const PlcBlock *block) { return *reinterpret_cast<const Block *>(block); }

} // namespace cvsd_qor
