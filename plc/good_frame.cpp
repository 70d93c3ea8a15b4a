// A frame that arrived: enter it into the history and, after a loss, join it to the synthetic signal.
#include "plc/block.h"

#include <algorithm>

using namespace cvsd_qor;

namespace {

constexpr std::int32_t kJoinGrowth = 32; // samples for each lost frame beyond the first

// The first reconverge_len samples stay synthetic; a cross-fade into the received ones follows.
void join(Block &b, std::int16_t *frame) {
    const std::int32_t synthetic = b.reconverge_len;
    const std::int32_t longest = b.frame_len - synthetic;
    // From the fifth lost frame on the growth alone exceeds a frame; limited, the product cannot overflow.
    const std::int32_t growth = kJoinGrowth * std::clamp(b.erase_count - 1, INT32_C(0), INT32_C(4));
    static_assert(4 * kJoinGrowth >= kMaxFrame);
    const std::int32_t fade = std::min(b.ola_len + growth, longest);

    PLC_GetSynSpeech(wrap(b), b.scratch, synthetic + fade);
    if (synthetic > 0) {
        PLC_ScaleSpeech_Reconverge(wrap(b), b.scratch, synthetic + fade);
        std::copy_n(b.scratch, synthetic, frame);
    }
    PLC_OlaEnd(wrap(b), frame + synthetic, b.scratch + synthetic, fade);
    b.erase_count = 0;
}

} // namespace

void g711plc_addtohistory_v2(PlcBlock *block, std::int16_t *frame) {
    Block &b = unwrap(block);
    b.reconverge_len = 0;
    if (b.sample_rate == 16000) {
        b.reconverge_len = kReconverge16k;
        PLC_PitchTracker(&b.tracker, b.history + b.history_len - b.frame_len);
    }
    if (b.erase_count != 0) join(b, frame);
    PLC_SaveSpeech(block, frame);
}
