#include "plc/block.h"

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
    b.corr_buf_len = b.corr_len + pitch_max;
    b.history_len = 3 * pitch_max + b.ola_max; // three periods and the overlap before them
}

void start_tracker(Block &b) {
    b.tracker.refine_len = 1;
    b.tracker.coarse_pitch = 100;
    b.tracker.tracked_pitch = 50;
    b.tracker.decim_exp = 31;
    b.tracker.scratch = b.scratch;
}

} // namespace

std::int32_t g711plc_GetMemorySize_v2() { return G711PLC_MEMORY_SIZE; }

std::int32_t g711plc_construct_v2(PlcBlock *block, std::int32_t sample_rate) {
    Block &b =
        *new (block) Block; // first: a fill made before the object's lifetime need not outlast its beginning
    std::memset(block, 0, G711PLC_MEMORY_SIZE);
    b.sample_rate = sample_rate;
    if (sample_rate == 8000) {
        set_rate(b, 30, 30, 120);
    } else if (kWideband && sample_rate == 16000) {
        set_rate(b, 120, 40, 240);
        start_tracker(b);
    } else {
        return -1;
    }
    b.ola_len = b.pitch = b.syn_pos = b.syn_len = 20;
    b.pitch_buf_end = b.pitch_buf + b.history_len;
    b.syn_start = b.pitch_buf_end - b.syn_len;
    return 0;
}
