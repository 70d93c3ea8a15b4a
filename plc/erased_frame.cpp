// A frame that was lost: repeat the last pitch period, widen the repeated segment to two and three periods on
// the second and third lost frame, fade from the second on, and be silent from the sixth on.
#include "arith/fixed_point.h"
#include "arith/samples.h"
#include "plc/block.h"

#include <algorithm>

using namespace cvsd_qor;

namespace {

// Makes the end of the repeated segment run smoothly into its start.
void close_ring(Block &b) {
    b.syn_start = b.pitch_buf_end - b.syn_len;
    PLC_Ola(b.last_quarter, b.syn_start - b.ola_len, b.pitch_buf_end - b.ola_len, b.ola_len);
}

void begin(Block &b, std::int16_t *frame) {
    copy_samples(b.history, b.history_len, b.pitch_buf);
    if (b.sample_rate == 8000) b.pitch = PLC_FindPitch_fix(wrap(b));
    b.syn_len = b.pitch;
    b.ola_len = std::min(b.pitch >> 2, b.ola_max);
    copy_samples(b.pitch_buf_end - b.ola_len, b.ola_len, b.last_quarter);
    close_ring(b);
    // The delayed output has not yet given out these samples: it carries the join too.
    copy_samples(b.pitch_buf_end - b.ola_len, b.ola_len, b.history + b.history_len - b.ola_len);
    b.syn_pos = 0;
    PLC_GetSynSpeech(wrap(b), frame, b.frame_len);
}

void widen(Block &b, std::int16_t *frame) {
    const std::int32_t position = b.syn_pos;
    PLC_GetSynSpeech(wrap(b), b.scratch, b.ola_len); // what the narrower segment would have gone on with
    b.syn_pos = position;
    while (b.syn_pos > b.pitch) b.syn_pos -= b.pitch;
    b.syn_len += b.pitch;
    close_ring(b);
    PLC_GetSynSpeech(wrap(b), frame, b.frame_len);
    PLC_OverlapAdds(wrap(b), b.scratch, frame, frame, b.ola_len);
    PLC_ScaleSpeech(wrap(b), frame);
}

void go_on(Block &b, std::int16_t *frame) {
    PLC_GetSynSpeech(wrap(b), frame, b.frame_len);
    PLC_ScaleSpeech(wrap(b), frame);
}

} // namespace

void g711plc_dofe_v2(PlcBlock *block, std::int16_t *frame) {
    Block &b = unwrap(block);
    if (kWideband && b.sample_rate == 16000) {
        PLC_PitchTracker(&b.tracker, b.history + b.history_len - b.frame_len);
        b.pitch = clamp<std::int32_t>(b.tracker.tracked_pitch, b.pitch_min, b.pitch_max);
    }
    if (b.erase_count == 0) {
        begin(b, frame);
    } else if (b.erase_count <= 2) {
        widen(b, frame);
    } else if (b.erase_count <= 4) {
        go_on(b, frame);
    } else {
        std::fill_n(frame, b.frame_len, std::int16_t{0});
    }
    PLC_SaveSpeech(block, frame);
    if (b.erase_count < INT32_MAX) ++b.erase_count;
}
