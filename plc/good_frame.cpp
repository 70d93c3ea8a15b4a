// A frame that arrived: enter it into the history and, after a loss, join it to the synthetic signal.
#include "arith/samples.h"
#include "plc/block.h"

#include <algorithm>

using namespace cvsd_qor;

namespace {

constexpr std::int32_t kJoinGrowth = 32; // samples for each lost frame beyond the first

// The first reconverge_len samples stay synthetic; a cross-fade into the received ones follows.
void join(Block &b, std::int16_t *frame) {
    const std::int32_t synthetic = b.reconverge_len;
    const std::int32_t longest = b.frame_len - synthetic;
    const std::int64_t grown = b.ola_len + kJoinGrowth * (std::int64_t{b.erase_count} - 1);
    const auto fade = static_cast<std::int32_t>(std::min<std::int64_t>(grown, longest));

    PLC_GetSynSpeech(wrap(b), b.scratch, synthetic + fade);
    if (synthetic != 0) {
        PLC_ScaleSpeech_Reconverge(wrap(b), b.scratch, synthetic + fade);
        copy_samples(b.scratch, synthetic, frame);
    }
    PLC_OlaEnd(wrap(b), frame + synthetic, b.scratch + synthetic, fade);
    b.erase_count = 0;
}

} // namespace

void g711plc_addtohistory_v2(PlcBlock *block, std::int16_t *frame) {
    Block &b = unwrap(block);
    if (kWideband && b.sample_rate == 16000) {
        b.reconverge_len = kReconverge16k;
        PLC_PitchTracker(&b.tracker, b.history + b.history_len - b.frame_len);
    }
    if (b.erase_count != 0) join(b, frame);
    PLC_SaveSpeech(block, frame);
}
