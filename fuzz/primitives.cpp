// The functions of the tracker and the primitives: direct calls with hostile samples, states and counts.
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

// A block of either rate in a burst of any length, with any repeated segment.
void synthesise(FuzzedDataProvider &in) {
    PlcBlock block;
    g711plc_construct_v2(&block, in.ConsumeBool() ? 8000 : 16000);
    Block &b = unwrap(&block);
    b.erase_count = in.ConsumeIntegralInRange(1, in.ConsumeBool() ? 8 : INT32_MAX);
    std::ranges::copy(hostile(in, static_cast<std::size_t>(b.history_len)), b.pitch_buf);
    const std::int32_t pitch = PLC_FindPitch_fix(&block);
    check(pitch >= b.pitch_min && pitch <= b.pitch_max);

    b.syn_len = in.ConsumeIntegralInRange(1, b.history_len);
    b.syn_start = b.pitch_buf_end - b.syn_len;
    std::int32_t position = b.syn_pos = in.ConsumeIntegralInRange(0, b.syn_len);
    Samples left(in.ConsumeIntegralInRange<std::size_t>(0, in.ConsumeIntegral<std::uint8_t>() ? 900 : 40000));
    PLC_GetSynSpeech(&block, left.data(), static_cast<std::int32_t>(left.size()));
    for (const std::int16_t s : left) check(s == b.syn_start[position++ % b.syn_len]);

    const Samples right = hostile(in, left.size());
    const auto n =
        left.empty() ? in.ConsumeIntegralInRange(INT32_MIN, 0) : static_cast<std::int32_t>(left.size());
    Samples out = right;
    PLC_Ola(left.data(), out.data(), out.data(), n);
    PLC_OverlapAdds(&block, left.data(), right.data(), out.data(), n);
    PLC_OlaEnd(&block, out.data(), right.data(), n);
    PLC_ScaleSpeech_Reconverge(&block, left.data(), n);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    in.PickValueInArray({track, synthesise})(in);
    return 0;
}
