// Tracker functions and primitives, each called directly with hostile samples, states and counts.
#include "fuzz/hostile.h"
#include "plc/block.h"

#include <algorithm>

using namespace cvsd_qor;

namespace {

void track(FuzzedDataProvider &in) {
    Samples input = hostile(in, 180), output(71), scratch(824);
    PitchTrackerState t{};
    std::ranges::copy(hostile(in, std::size(t.sig_hist)), t.sig_hist);
    std::ranges::copy(hostile(in, std::size(t.decim_mem)), t.decim_mem);
    std::ranges::copy(hostile(in, std::size(t.decim_hist)), t.decim_hist);
    t.decim_exp = in.ConsumeIntegral<std::int16_t>();
    t.coarse_pitch = in.ConsumeIntegral<std::int16_t>();
    t.scratch = scratch.data();
    PLC_Decim(input.data(), output.data(), &t);
    check(std::equal(input.begin() + 120, input.end(), t.decim_mem));
    for (const int s : t.decim_hist) check(std::abs(s) <= 4096);
    check(PLC_PitchTracker(&t, hostile(in, 120).data()) == 0);

    const int coarse = PLC_CoarsePitch(&t, hostile(in, 71).data(), in.ConsumeIntegral<std::int16_t>());
    check(coarse >= 36 && coarse <= 324);
    const auto pitch =
        static_cast<std::int16_t>(in.ConsumeBool() ? coarse : in.ConsumeIntegral<std::int16_t>());
    const int lag = PLC_RefinePitch(&t, &t.amp_ratio, &t.lag_corr, &t.lag_energy, &t.amp_weight,
                                    &t.refine_len, &t.scale_shift, hostile(in, 561).data(), pitch);
    check(lag >= 40 && (pitch != coarse || lag <= 321) && t.refine_len == std::clamp<int>(pitch, 0, 120));
    check(std::abs(t.amp_ratio) <= 16384 && t.amp_weight == std::max((3 * t.amp_ratio) >> 7, 0));
}

// A block of either rate in a loss of any length.
PlcBlock lossy(FuzzedDataProvider &in) {
    PlcBlock block;
    g711plc_construct_v2(&block, in.ConsumeBool() ? 8000 : 16000);
    unwrap(&block).erase_count = in.ConsumeIntegralInRange(1, in.ConsumeBool() ? 8 : INT32_MAX);
    return block;
}

void fade(FuzzedDataProvider &in) {
    const PlcBlock block = lossy(in);
    const auto size =
        in.ConsumeIntegralInRange<std::size_t>(0, in.ConsumeIntegral<std::uint8_t>() ? 300 : 40000);
    const auto n = size > 0 ? static_cast<std::int32_t>(size) : in.ConsumeIntegralInRange(INT32_MIN, 0);
    const Samples left = hostile(in, size), right = hostile(in, size);
    Samples out(size), onto_left = left, onto_right = right, added(size), scaled = left, joined = left;
    PLC_Ola(left.data(), right.data(), out.data(), n);
    PLC_Ola(left.data(), onto_right.data(), onto_right.data(), n);
    PLC_Ola(onto_left.data(), right.data(), onto_left.data(), n);
    check(out == onto_left && out == onto_right);
    PLC_ScaleSpeech_Reconverge(&block, scaled.data(), n);
    for (std::size_t i = 0; i < size; ++i) {
        const int least = std::min<int>({left[i], right[i], 0}), most = std::max<int>({left[i], right[i], 0});
        check(out[i] >= std::max(least - 2, INT16_MIN) && out[i] <= most);
        check(scaled[i] >= std::min<int>(left[i], 0) && scaled[i] <= std::max<int>(left[i], 0));
    }
    PLC_OverlapAdds(&block, left.data(), right.data(), added.data(), n);
    if (n <= unwrap(&block).frame_len) check(added == out);
    PLC_OlaEnd(&block, joined.data(), right.data(), n);
}

void repeat(FuzzedDataProvider &in) {
    PlcBlock block = lossy(in);
    Block &b = unwrap(&block);
    std::ranges::copy(hostile(in, static_cast<std::size_t>(b.history_len)), b.pitch_buf);
    const std::int32_t pitch = PLC_FindPitch_fix(&block);
    check(pitch >= b.pitch_min && pitch <= b.pitch_max);

    b.syn_len = in.ConsumeIntegralInRange(1, b.history_len);
    b.syn_start = b.pitch_buf_end - b.syn_len;
    b.syn_pos = in.ConsumeIntegralInRange(0, b.syn_len);
    std::int32_t position = b.syn_pos;
    Samples out(in.ConsumeIntegralInRange<std::size_t>(0, 900));
    PLC_GetSynSpeech(&block, out.data(), static_cast<std::int32_t>(out.size()));
    for (const std::int16_t s : out) check(s == b.syn_start[position++ % b.syn_len]);
    check(b.syn_pos % b.syn_len == position % b.syn_len);
}

void copy(FuzzedDataProvider &in) {
    auto bytes = in.ConsumeRemainingBytes<std::uint8_t>();
    auto expected = bytes;
    if (bytes.size() < 3) return;
    const std::size_t to = bytes[0] % bytes.size(), from = bytes[1] % bytes.size();
    const std::size_t n = std::min<std::size_t>(bytes[2], bytes.size() - std::max(to, from));
    for (std::size_t i = 0; i < n; ++i) expected[to + i] = expected[from + i];
    plc_mem_copy(bytes.data() + to, bytes.data() + from, static_cast<std::int32_t>(n));
    check(bytes == expected);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    in.PickValueInArray({track, fade, repeat, copy})(in);
    return 0;
}
