// A frame that was lost. The speech before the loss is repeated, from one pitch period to three, and fades to
// silence:
//
//     lost frame            1st    2nd       3rd        4th        5th       6th and later
//     repeated periods      1      2         3          3          3         silence
//     gain in the frame     1      1..3/4    3/4..1/2   1/2..1/4   1/4..0
//
// One period repeated over and over sounds like a tone; a longer segment sounds less so.
#include "arith/fixed_point.h"
#include "arith/samples.h"
#include "plc/steps.h"

#include <algorithm>

using namespace cvsd_qor;

namespace {

void begin_loss(Block &b, std::int16_t *frame);
void widen_segment(Block &b, std::int16_t *frame);
void join_ends(Block &b);

} // namespace

void cvsd_qor::erased_frame(Block &b, std::int16_t *frame) {
    if (is_wideband(b)) {
        track_pitch(b);
        // The tracker finds periods of up to 321 samples. The buffer has room for three of pitch_max, 240: a
        // longer period is cut.
        b.pitch = clamp<std::int32_t>(b.tracker.tracked_pitch, b.pitch_min, b.pitch_max);
    }
    if (b.erase_count == 0) {
        begin_loss(b, frame);
    } else if (b.erase_count < kPeriods) {
        widen_segment(b, frame);
        attenuate(b, frame, b.frame_len);
    } else if (b.erase_count < kAudibleFrames) {
        read_segment(b, frame, b.frame_len);
        attenuate(b, frame, b.frame_len);
    } else {
        std::fill_n(frame, b.frame_len, std::int16_t{0});
    }
    save_frame(b, frame);
    if (b.erase_count < INT32_MAX) ++b.erase_count;
}

namespace {

// The first lost frame: repeats the last period of the history.
void begin_loss(Block &b, std::int16_t *frame) {
    copy_samples(b.history, b.history_len, b.pitch_buf);
    if (!is_wideband(b)) b.pitch = find_pitch(b);
    b.syn_len = b.pitch;
    b.ola_len = b.pitch / 4; // at most ola_max, which is a quarter of pitch_max
    copy_samples(b.pitch_buf_end - b.ola_len, b.ola_len, b.last_quarter);
    join_ends(b);
    // The output is ola_max samples behind the history, so the newest ola_len samples of the history have not
    // been played yet. They are played with the cross-fade, as the segment's start follows them.
    copy_samples(b.pitch_buf_end - b.ola_len, b.ola_len, b.history + b.history_len - b.ola_len);
    b.syn_pos = 0;
    read_segment(b, frame, b.frame_len);
}

// The second and third: lengthens the segment by one period. At 16000 Hz that is the pitch tracked in this
// call, so the periods of a segment may differ.
void widen_segment(Block &b, std::int16_t *frame) {
    const std::int32_t position = b.syn_pos;
    read_segment(b, b.scratch, b.ola_len); // the continuation of the shorter segment

    // The longer segment is read from a position in its first period, which this loss has not repeated yet,
    // at the phase that is due. A position equal to pitch is not reduced: it has the same phase, at the start
    // of the second period.
    b.syn_pos = position;
    while (b.syn_pos > b.pitch) b.syn_pos -= b.pitch;
    b.syn_len += b.pitch;
    join_ends(b);
    read_segment(b, frame, b.frame_len);
    cross_fade(b.scratch, frame, frame, b.ola_len);
}

// Makes the end of the segment run smoothly into its start:
//
//                     ola_len                                  ola_len
//     pitch_buf  ...---|=======|-------------- - - -----------|=======|
//                              ^ syn_start                            ^ pitch_buf_end
//                              |<------------- syn_len -------------->|
//
// On the right, the samples as they were before the loss (last_quarter) fade out and those on the left fade
// in. So the segment ends like the samples before its start, and when it is read again from its start, that
// start follows as it did in the speech.
void join_ends(Block &b) {
    b.syn_start = b.pitch_buf_end - b.syn_len;
    cross_fade(b.last_quarter, b.syn_start - b.ola_len, b.pitch_buf_end - b.ola_len, b.ola_len);
}

} // namespace
