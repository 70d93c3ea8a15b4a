// A block for a new stream: all zero, except for the values of the rate and for start values.
#include "plc/steps.h"

#include <cstring>
#include <new>

using namespace cvsd_qor;

namespace {

void set_rate(Block &b, std::int32_t frame_len, std::int32_t pitch_min, std::int32_t pitch_max) {
    b.frame_len = frame_len;
    b.atten_step = kGainPerLoss / frame_len;
    b.pitch_min = pitch_min;
    b.pitch_max = pitch_max;
    b.ola_max = pitch_max / 4;
    b.decim = kDecim;
    b.corr_len = kCorrLen;
    b.pitch_range = pitch_max - pitch_min;
    b.corr_buf_len = kCorrLen + pitch_max;
    b.history_len = kPeriods * pitch_max + b.ola_max; // the longest segment and the cross-fade before it
}

// coarse_pitch is the previous pitch to the first search. decim_exp is the block exponent of the decimated
// history, which is silent: 31 is above the exponent of any frame, so that of the first frame is used. The
// tracker writes the other two before anything reads them.
void start_tracker(Block &b) {
    b.tracker.refine_len = 1;
    b.tracker.coarse_pitch = 100;
    b.tracker.tracked_pitch = 50;
    b.tracker.decim_exp = 31;
    b.tracker.scratch = b.scratch;
}

} // namespace

std::int32_t cvsd_qor::construct(PlcBlock *memory, std::int32_t sample_rate) {
    // Placement new comes before the fill: the compiler may drop a fill made before an object's lifetime.
    Block &b = *new (memory) Block;
    std::memset(memory, 0, G711PLC_MEMORY_SIZE);
    b.sample_rate = sample_rate;
    if (sample_rate == 8000) {
        set_rate(b, 30, 30, 120);
    } else if (kWideband && sample_rate == 16000) {
        set_rate(b, 120, 40, kMaxPitch);
        start_tracker(b);
    } else {
        return -1;
    }
    // A segment of 20 zeros, until the first loss sets all four again. No real pitch has this length, and the
    // segment is never heard.
    b.ola_len = b.pitch = b.syn_pos = b.syn_len = 20;
    b.pitch_buf_end = b.pitch_buf + b.history_len;
    b.syn_start = b.pitch_buf_end - b.syn_len;
    return 0;
}
