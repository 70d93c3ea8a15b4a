#include "codec.h"

using namespace cvsd_qor;

std::int32_t CVSD_ENC_GetBufferSize() { return sizeof(CvsdState); }

void CVSD_ENC_Init(CvsdState *state) { *state = {0, 0, 10}; }

void CVSD_ENC_Process(CvsdState *state, const std::int16_t *pcm, std::int32_t *pcm_len, std::uint8_t *bits,
                      std::int32_t *bits_len) {
    const std::int32_t bytes = whole_bytes(*bits_len, *pcm_len);
    *pcm_len -= 8 * bytes;
    *bits_len = bytes;
    if (bytes == 0) return;

    Codec codec(*state);
    for (std::int32_t i = 0; i < bytes; ++i) {
        for (int k = 0; k < 8; ++k) {
            const std::int32_t leaked = leak(codec.accumulator);
            // Both sides lie within ±2^21, so the difference cannot overflow and its sign is the comparison.
            codec.step(leaked, (pcm[8 * i + k] * 64 - leaked) >> 31);
        }
        bits[i] = static_cast<std::uint8_t>(codec.history >> 24);
    }
    codec.store(*state);
}
