#include "cvsd/codec.h"

using namespace cvsd_qor;

namespace {

// Encodes up to kBlockBytes. `history` is a shift register of the bits: the newest enters at bit 31, so the
// top four bits are the last four, and after eight samples the top byte is the byte of the stream.
void encode_block(Codec &codec, std::uint32_t &history, const std::int16_t *pcm, std::uint8_t *bits,
                  std::int32_t bytes) {
    std::int32_t target[8 * kBlockBytes];
    for (std::int32_t i = 0; i < 8 * bytes; ++i) target[i] = pcm[i] * 64 + kLeakOffset;

    for (std::int32_t i = 0; i < bytes; ++i) {
        for (int k = 0; k < 8; ++k) {
            const std::int32_t leaked = leak(codec.accumulator);
            // The bit is 1, down, where the sample is below the leaked value; equality gives 0. Both lie
            // within ±2^21 + 31, so the difference cannot overflow and its sign is the bit.
            const std::int32_t difference = target[8 * i + k] - leaked;
            history = history >> 1 | (static_cast<std::uint32_t>(difference) & 0x80000000U);
            // One added to the last four bits, modulo 16, makes 0 of 1111 and 1 of 0000; all others give 2 or
            // more. The bits below do not change that.
            const bool run = history + (1U << 28) < 2U << 28;
            codec.move(leaked, run, sign(difference));
        }
        bits[i] = static_cast<std::uint8_t>(history >> 24);
    }
}

} // namespace

std::int32_t CVSD_ENC_GetBufferSize() { return sizeof(CvsdState); }

void CVSD_ENC_Init(CvsdState *state) { *state = {0, 0, 10}; }

void CVSD_ENC_Process(CvsdState *state, const std::int16_t *pcm, std::int32_t *pcm_len, std::uint8_t *bits,
                      std::int32_t *bits_len) {
    const std::int32_t bytes = whole_bytes(*bits_len, *pcm_len);
    *pcm_len -= 8 * bytes;
    *bits_len = bytes;
    if (bytes == 0) return;

    Codec codec(*state);
    auto history = static_cast<std::uint32_t>(state->run_bits) << 28; // its low four bits
    for (std::int32_t i = 0; i < bytes; i += kBlockBytes) {
        encode_block(codec, history, pcm + 8 * i, bits + i, std::min(kBlockBytes, bytes - i));
    }
    codec.store(*state, static_cast<std::int32_t>(history >> 28));
}
