// A frame that arrived. It enters the history; the first one after a loss is joined to the synthetic signal.
#include "arith/samples.h"
#include "plc/steps.h"

#include <algorithm>

using namespace cvsd_qor;

namespace {

// Samples that each lost frame beyond the first adds to the cross-fade: the longer the loss, the further the
// repeated speech is from what was said. At 8000 Hz the first addition already makes it the whole frame.
constexpr std::int32_t kFadeGrowth = 32;

void join(Block &b, std::int16_t *frame);

} // namespace

void cvsd_qor::good_frame(Block &b, std::int16_t *frame) {
    if (is_wideband(b)) {
        b.reconverge_len = kReconverge16k;
        track_pitch(b); // keeps the tracker's history complete; its pitch is used by lost frames only
    }
    if (b.erase_count != 0) join(b, frame);
    save_frame(b, frame);
}

namespace {

// At 16000 Hz the first 36 samples, 2.25 ms, stay synthetic: a decoder that missed the bits of the loss takes
// a while to converge again. Then, at both rates, the synthetic signal cross-fades into the received one.
//
//     frame   |--- reconverge_len ---|------------ fade ------------|----------------------|
//                   synthetic             synthetic to received             received
void join(Block &b, std::int16_t *frame) {
    const std::int32_t kept = b.reconverge_len;
    const std::int64_t wanted = b.ola_len + kFadeGrowth * (std::int64_t{b.erase_count} - 1);
    const auto fade = static_cast<std::int32_t>(std::min<std::int64_t>(wanted, b.frame_len - kept));

    read_segment(b, b.scratch, kept + fade);
    if (kept != 0) {
        // The synthetic samples of the cross-fade are attenuated here and once more by fade_to_received. The
        // join at 16000 Hz is defined this way: where the cross-fade begins, the synthetic signal drops to
        // 3/4 of what it was after two lost frames, to 1/2 of it after three and so on.
        attenuate(b, b.scratch, kept + fade);
        copy_samples(b.scratch, kept, frame);
    }
    fade_to_received(b, frame + kept, b.scratch + kept, fade);
    b.erase_count = 0;
}

} // namespace
