#include "codec.h"

using namespace cvsd_qor;

namespace {

// Encodes up to kBlockBytes. The last bits stand in the top of `history`, the newest in bit 31: after eight
// samples its top byte is the byte of the stream.
void encode_block(Codec &codec, std::uint32_t &history, const std::int16_t *pcm, std::uint8_t *bits,
                  std::int32_t bytes) {
    std::int32_t target[8 * kBlockBytes];
    for (std::int32_t i = 0; i < 8 * bytes; ++i) target[i] = pcm[i] * 64 + kRaised;

    for (std::int32_t i = 0; i < bytes; ++i) {
        for (int k = 0; k < 8; ++k) {
            const std::int32_t leaked = leak(codec.accumulator);
            // Both lie within ±2^21 + 31, so their difference cannot overflow and its sign is the bit.
            const std::int32_t difference = target[8 * i + k] - leaked;
            history = history >> 1 | (static_cast<std::uint32_t>(difference) & 0x80000000U);
            const bool run = history + 0x10000000U < 0x20000000U; // the top four bits are 1111 or 0000
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
    auto history = static_cast<std::uint32_t>(state->run_bits) << 28;
    for (std::int32_t i = 0; i < bytes; i += kBlockBytes) {
        encode_block(codec, history, pcm + 8 * i, bits + i, std::min(kBlockBytes, bytes - i));
    }
    codec.store(*state, static_cast<std::int32_t>(history >> 28));
}
