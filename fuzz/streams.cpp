// Streams: the rate, the samples and the lost frames come from the input. After every call the fields of the
// block and of the tracker are in their documented ranges.
#include "fuzz/hostile.h"
#include "plc/block.h"

#include <algorithm>
#include <cstring>
#include <memory>

using namespace cvsd_qor;

namespace {

bool silent(const std::int16_t *begin, const std::int16_t *end) {
    return std::all_of(begin, end, [](int s) { return s == 0; });
}

void check_tracker(const PitchTrackerState &t) {
    const int shortest = std::max(t.coarse_pitch - 3, 40);
    check(t.coarse_pitch >= 36 && t.coarse_pitch <= 324 &&
          t.refine_len == std::min<int>(t.coarse_pitch, 120));
    check(t.tracked_pitch >= shortest &&
          t.tracked_pitch <= std::max(std::min(t.coarse_pitch + 3, 320), shortest));
    check(t.scale_shift >= 0 && t.scale_shift <= 3 && t.lag_corr >= -1 && t.lag_energy >= 0);
    check(std::abs(t.amp_ratio) <= 16384 && (t.amp_ratio >= 0 || t.lag_corr < 0));
    check(t.amp_weight == std::max((3 * t.amp_ratio) >> 7, 0) && t.decim_exp >= -3 && t.decim_exp <= 37);
}

void check_block(const Block &b, const Block &fresh) {
    check(std::memcmp(&b, &fresh, offsetof(Block, erase_count)) == 0);
    check(b.pitch_buf_end == b.pitch_buf + b.history_len && b.syn_start == b.pitch_buf_end - b.syn_len);
    check(b.syn_pos >= 0 && b.syn_pos <= b.syn_len && b.syn_len >= 1 && b.syn_len <= 3 * b.pitch_max);
    check(b.ola_len <= b.ola_max && b.pitch <= b.pitch_max);
    check(silent(b.history + b.history_len, std::end(b.history)) &&
          silent(b.pitch_buf + b.history_len, std::end(b.pitch_buf)));
    if (b.sample_rate == 16000) return check_tracker(b.tracker);
    check(std::memcmp(&b.tracker, &fresh.tracker, sizeof b.tracker) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    const std::int32_t rate = in.ConsumeBool() ? 16000 : 8000;
    PlcBlock fresh;
    g711plc_construct_v2(&fresh, rate);
    const auto block = std::make_unique<PlcBlock>(); // on the heap: with red zones around it
    check(g711plc_construct_v2(block.get(), rate) == 0);
    const Block &b = unwrap(block.get());

    std::int32_t losses = 0;
    for (int i = 0; i < 24 && in.remaining_bytes() > 0; ++i) {
        const bool lost = in.ConsumeIntegralInRange(0, 2) == 0;
        const Samples received = hostile(in, static_cast<std::size_t>(b.frame_len));
        Samples frame = received;
        (lost ? g711plc_dofe_v2 : g711plc_addtohistory_v2)(block.get(), frame.data());

        check_block(b, unwrap(&fresh));
        const std::int16_t *newest = b.history + b.history_len - b.frame_len;
        check(std::equal(frame.begin(), frame.end(), newest - b.ola_max));
        if (lost) check(b.syn_pos < b.syn_len && b.pitch >= b.pitch_min);
        if (lost && losses >= kAudibleFrames) check(silent(newest, newest + b.frame_len));
        if (!lost && losses == 0) check(std::equal(received.begin(), received.end(), newest));
        losses = lost ? losses + 1 : 0;
        check(b.erase_count == losses);
    }
    return 0;
}
