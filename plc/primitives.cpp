// The steps of the lost and of the good frame, in the order in which a frame passes through them.
#include "arith/fixed_point.h"
#include "arith/samples.h"
#include "plc/steps.h"

#include <algorithm>
#include <cstring>

namespace cvsd_qor {

namespace {

constexpr std::int32_t kUnity = 32767; // Q15

// The gain with which a lost frame or the first good frame begins. erase_count is the number of frames
// lost before it, at least 1: the gain is 32767 after one, 24576 after two, 3 after five, 0 after more.
std::int32_t start_gain(std::int32_t erase_count) {
    const std::int64_t gain = kUnity - kGainPerLoss * (std::int64_t{erase_count} - 1);
    return static_cast<std::int32_t>(std::max(gain, INT64_C(0)));
}

// Copies piece by piece, as the compiler turns a copy of constant length into a few moves. This saves calls
// that take 8 % of a good frame at 8000 Hz.
void copy_frame(const std::int16_t *from, std::int16_t *to, std::int32_t frame_len) {
    for (std::int32_t i = 0; i < frame_len; i += kMinFrame) {
        std::memcpy(to + i, from + i, kMinFrame * sizeof *to);
    }
}

} // namespace

void cross_fade(const std::int16_t *left, const std::int16_t *right, std::int16_t *output, std::int32_t n) {
    if (n < 1) return;
    const std::int32_t increment = kUnity / n;
    for (std::int32_t i = 0; i < n; ++i) {
        // The two weights add up to 32767, so the sum stays within 16 bits without a clamp.
        const std::int32_t weight = (i + 1) * increment;
        output[i] = static_cast<std::int16_t>(mul_q15(wrap16(kUnity - weight), left[i]) +
                                              mul_q15(wrap16(weight), right[i]));
    }
}

void read_segment(Block &b, std::int16_t *output, std::int32_t n) {
    while (n > 0) {
        // The count is 0 in a fresh block, whose position is the segment's end.
        const std::int32_t count = std::min(b.syn_len - b.syn_pos, n);
        copy_samples(b.syn_start + b.syn_pos, count, output);
        b.syn_pos += count;
        if (b.syn_pos == b.syn_len) b.syn_pos = 0;
        output += count;
        n -= count;
    }
}

// atten_step is kGainPerLoss / frame_len rounded down, so from the last sample of a frame to the first of the
// next the gain falls by a little more: by 1 at 8000 Hz (30 · 273 = 8190) and by 31 at 16000 Hz (120 · 68 =
// 8160), a thousandth of full scale.
void attenuate(const Block &b, std::int16_t *samples, std::int32_t n) {
    std::int32_t gain = start_gain(b.erase_count);
    for (std::int32_t i = 0; i < n; ++i) {
        samples[i] = static_cast<std::int16_t>(mul_q15(wrap16(gain), samples[i]));
        gain = std::max(gain - b.atten_step, INT32_C(0));
    }
}

// The synthetic weight, first - i · decrement, is never negative. For a gain g, first is
// floor(g · (32767 - increment) / 2^15). The amount subtracted is at most (n - 1) · g · increment / 2^15,
// which is not more than the value before floor, as n · increment <= 32767. It is an integer, so it is not
// more than the floor either.
//
// The sum of both weights may exceed 32767, by i at most, since decrement is rounded down: so the result is
// limited.
void fade_to_received(const Block &b, std::int16_t *received, const std::int16_t *synthetic, std::int32_t n) {
    if (n < 1) return;
    const std::int32_t increment = kUnity / n;
    const std::int16_t gain = wrap16(start_gain(b.erase_count));
    const std::int32_t decrement = mul_q15(gain, wrap16(increment));
    const std::int32_t first = mul_q15(gain, wrap16(kUnity - increment));
    for (std::int32_t i = 0; i < n; ++i) {
        received[i] = saturate16(mul_q15(wrap16((i + 1) * increment), received[i]) +
                                 mul_q15(wrap16(first - i * decrement), synthetic[i]));
    }
}

void save_frame(Block &b, std::int16_t *frame) {
    std::int16_t *newest = b.history + b.history_len - b.frame_len;
    copy_samples(b.history + b.frame_len, b.history_len - b.frame_len, b.history);
    copy_frame(frame, newest, b.frame_len);
    copy_frame(newest - b.ola_max, frame, b.frame_len);
}

} // namespace cvsd_qor
