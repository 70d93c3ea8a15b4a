// A frame that arrived. It enters the history; the first one after a loss is joined to the synthetic signal.
#include "arith/samples.h"
#include "plc/steps.h"

#include <algorithm>

using namespace cvsd_qor;

namespace {

// Samples by which the cross-fade is longer for each lost frame beyond the first: the longer the loss, the
// further the repeated pitch has moved away from the speaker's. At 8000 Hz one is more than the frame allows:
// from two lost frames on the whole frame is cross-faded.
constexpr std::int32_t kFadeGrowth = 32;

void join(Block &b, std::int16_t *frame);

} // namespace

void cvsd_qor::good_frame(Block &b, std::int16_t *frame) {
    if (is_wideband(b)) {
        b.reconverge_len = kReconverge16k; // on every good frame, though it is constant and read after a loss
        track_pitch(b);
    }
    if (b.erase_count != 0) join(b, frame);
    save_frame(b, frame);
}

namespace {

// At 16000 Hz the first 2.25 ms stay synthetic: a decoder that missed the bits of the loss needs a while to
// converge. Then, at both rates, the synthetic signal cross-fades into the received one.
//
//     frame   |--- reconverge_len ---|------------ fade ------------|----------------------|
//                   synthetic             synthetic to received             received
void join(Block &b, std::int16_t *frame) {
    const std::int32_t kept = b.reconverge_len;
    const std::int64_t wanted = b.ola_len + kFadeGrowth * (std::int64_t{b.erase_count} - 1);
    const auto fade = static_cast<std::int32_t>(std::min<std::int64_t>(wanted, b.frame_len - kept));

    read_segment(b, b.scratch, kept + fade);
    if (kept != 0) {
        // The samples of the cross-fade are attenuated here and once more by fade_to_received. This is how
        // the join at 16000 Hz is defined: what is left of the synthetic signal is the quieter for it.
        attenuate(b, b.scratch, kept + fade);
        copy_samples(b.scratch, kept, frame);
    }
    fade_to_received(b, frame + kept, b.scratch + kept, fade);
    b.erase_count = 0;
}

} // namespace
