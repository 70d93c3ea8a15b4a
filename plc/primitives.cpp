// The steps that the good-frame and the erased-frame path are made of.
#include "arith/fixed_point.h"
#include "arith/samples.h"
#include "plc/block.h"

#include <algorithm>
#include <cstring>

using namespace cvsd_qor;

namespace {

constexpr std::int32_t kUnity = 32767; // Q15

// The gain at the first sample of a frame: 32767 for one lost frame, 0 from the sixth on.
std::int32_t start_gain(std::int32_t erase_count) {
    const std::int64_t gain = kUnity - kGainPerLoss * (std::int64_t{erase_count} - 1);
    return static_cast<std::int32_t>(std::max(gain, INT64_C(0)));
}

// Copies of a length known here are a few moves instead of a call: 8 % of a good frame at 8000 Hz.
void copy_frame(const std::int16_t *from, std::int16_t *to, std::int32_t frame_len) {
    for (std::int32_t i = 0; i < frame_len; i += kMinFrame) {
        std::memcpy(to + i, from + i, kMinFrame * sizeof *to);
    }
}

} // namespace

void PLC_GetSynSpeech(PlcBlock *block, std::int16_t *output, std::int32_t n) {
    Block &b = unwrap(block);
    while (n > 0) {
        const std::int32_t count = std::min(b.syn_len - b.syn_pos, n);
        copy_samples(b.syn_start + b.syn_pos, count, output);
        b.syn_pos += count;
        if (b.syn_pos == b.syn_len) b.syn_pos = 0;
        output += count;
        n -= count;
    }
}

void PLC_SaveSpeech(PlcBlock *block, std::int16_t *frame) {
    Block &b = unwrap(block);
    std::int16_t *newest = b.history + b.history_len - b.frame_len;
    copy_samples(b.history + b.frame_len, b.history_len - b.frame_len, b.history);
    copy_frame(frame, newest, b.frame_len);
    copy_frame(newest - b.ola_max, frame, b.frame_len);
}

void PLC_ScaleSpeech(const PlcBlock *block, std::int16_t *frame) {
    PLC_ScaleSpeech_Reconverge(block, frame, unwrap(block).frame_len);
}

void PLC_ScaleSpeech_Reconverge(const PlcBlock *block, std::int16_t *samples, std::int32_t n) {
    const Block &b = unwrap(block);
    std::int32_t gain = start_gain(b.erase_count);
    for (std::int32_t i = 0; i < n; ++i) {
        samples[i] = static_cast<std::int16_t>(mul_q15(wrap16(gain), samples[i]));
        gain = std::max(gain - b.atten_step, INT32_C(0));
    }
}

[[gnu::noinline]] void PLC_Ola(const std::int16_t *left, const std::int16_t *right, std::int16_t *output,
                               std::int32_t n) {
    if (n < 1) return;
    const std::int32_t increment = kUnity / n;
    for (std::int32_t i = 0; i < n; ++i) {
        // The two weights add up to 32767, so the sum stays within 16 bits without a clamp.
        const std::int32_t weight = (i + 1) * increment;
        output[i] = static_cast<std::int16_t>(mul_q15(wrap16(kUnity - weight), left[i]) +
                                              mul_q15(wrap16(weight), right[i]));
    }
}

void PLC_OverlapAdds(const PlcBlock *block, const std::int16_t *left, const std::int16_t *right,
                     std::int16_t *output, std::int32_t n) {
    PLC_Ola(left, right, output, std::min(n, unwrap(block).frame_len));
}

void PLC_OlaEnd(const PlcBlock *block, std::int16_t *real, const std::int16_t *synthetic, std::int32_t n) {
    if (n < 1) return;
    const std::int32_t increment = kUnity / n;
    const std::int16_t gain = wrap16(start_gain(unwrap(block).erase_count));
    const std::int32_t decrement = mul_q15(gain, wrap16(increment));
    const std::int32_t first = mul_q15(gain, wrap16(kUnity - increment));
    for (std::int32_t i = 0; i < n; ++i) {
        // Rounding makes the synthetic weight fall more slowly than the real one rises: here the sum may need
        // its clamp.
        real[i] = saturate16(mul_q15(wrap16((i + 1) * increment), real[i]) +
                             mul_q15(wrap16(first - i * decrement), synthetic[i]));
    }
}

void plc_mem_copy(void *destination, const void *source, std::int32_t n) {
    auto *to = static_cast<unsigned char *>(destination);
    const auto *from = static_cast<const unsigned char *>(source);
    for (std::int32_t i = 0; i < n; ++i) to[i] = from[i];
}
