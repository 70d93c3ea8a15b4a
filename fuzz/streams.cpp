// Streams: rate, samples and losses from the input; what the block documents holds after every call.
#include "fuzz/hostile.h"
#include "plc/block.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

using namespace cvsd_qor;

namespace {

// Frames run at either rate, told at the end.
struct Tally {
    long narrow = 0, wide = 0;
    ~Tally() { std::fprintf(stderr, "frames: %ld at 8000 Hz, %ld at 16000 Hz\n", narrow, wide); }
} tally;

template <class T>
bool silent(const T *begin, const T *end) {
    return std::all_of(begin, end, [](T s) { return s == 0; });
}

void check_tracker(const PitchTrackerState &t) {
    const int shortest = std::max(t.coarse_pitch - 3, 40);
    check(t.coarse_pitch >= 36 && t.coarse_pitch <= 324 &&
          t.refine_len == std::min<int>(t.coarse_pitch, 120));
    check(t.tracked_pitch >= shortest &&
          t.tracked_pitch <= std::max(std::min(t.coarse_pitch + 3, 320), shortest));
    check(t.scale_shift >= 0 && t.scale_shift <= 3 && t.lag_corr >= -1 && t.lag_energy >= 0);
    check(std::abs(t.amp_ratio) <= 16384 && (t.amp_ratio >= 0 || t.lag_corr < 0));
    check(t.amp_weight == std::max((3 * t.amp_ratio) >> 7, 0) && t.decim_exp >= -6 && t.decim_exp <= 37);
    for (const int s : t.decim_hist) check(std::abs(s) <= 4096);
}

void check_block(const Block &b, const Block &fresh) {
    check(std::memcmp(&b, &fresh, offsetof(Block, erase_count)) == 0);
    check(b.pitch_buf_end == b.pitch_buf + b.history_len && b.syn_start == b.pitch_buf_end - b.syn_len);
    check(b.syn_pos >= 0 && b.syn_pos <= b.syn_len && b.syn_len >= 1 && b.syn_len <= 3 * b.pitch_max);
    check(b.ola_len <= b.ola_max && b.pitch <= b.pitch_max);
    check(silent(b.history + b.history_len, std::end(b.history)));
    check(silent(b.pitch_buf + b.history_len, std::end(b.pitch_buf)));
    const auto *bytes = reinterpret_cast<const unsigned char *>(&b);
    check(silent(bytes + sizeof b, bytes + G711PLC_MEMORY_SIZE));
    if (b.sample_rate == 16000) return check_tracker(b.tracker);
    check(std::memcmp(&b.tracker, &fresh.tracker, sizeof b.tracker) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    const std::int32_t rate = in.ConsumeBool() ? 16000 : 8000;
    PlcBlock fresh;
    g711plc_construct_v2(&fresh, rate);
    // The same stream in two blocks, at different places and with different garbage before: they must agree.
    constexpr std::size_t kWords = sizeof(PlcBlock) / sizeof(std::int64_t);
    std::vector<std::int64_t> zeros(kWords), ones(kWords + 1, -1);
    PlcBlock *blocks[] = {reinterpret_cast<PlcBlock *>(&zeros[0]), reinterpret_cast<PlcBlock *>(&ones[1])};
    for (PlcBlock *block : blocks) check(g711plc_construct_v2(block, rate) == 0);
    const Block &b = unwrap(blocks[0]);

    std::int32_t losses = 0;
    for (int i = 0; i < 24 && in.remaining_bytes() > 0; ++i) {
        ++(rate == 8000 ? tally.narrow : tally.wide);
        if (losses > 6 && in.ConsumeBool()) { // a loss that never seems to end
            losses = INT32_MAX - 1;
            for (PlcBlock *block : blocks) unwrap(block).erase_count = losses;
        }
        const bool lost = in.ConsumeIntegralInRange(0, 2) == 0;
        const auto call = lost ? g711plc_dofe_v2 : g711plc_addtohistory_v2;
        const Samples received = hostile(in, static_cast<std::size_t>(b.frame_len));
        Samples frame = received;
        Samples other = lost ? Samples(received.size(), 1) : received; // a lost frame's buffer is never read
        call(blocks[0], frame.data());
        call(blocks[1], other.data());

        check(frame == other && ones[0] == -1);
        check_block(b, unwrap(&fresh));
        const std::int16_t *newest = b.history + b.history_len - b.frame_len;
        check(std::equal(frame.begin(), frame.end(), newest - b.ola_max));
        if (lost) check(b.syn_pos < b.syn_len && b.pitch >= b.pitch_min);
        if (lost && losses >= 5) check(silent(newest, newest + b.frame_len));
        if (!lost && losses == 0) check(std::equal(received.begin(), received.end(), newest));
        losses = lost ? losses + (losses < INT32_MAX) : 0;
        check(b.erase_count == losses);
    }
    return 0;
}
