#include "codec.h"

using namespace cvsd_qor;

std::int32_t CVSD_DEC_GetBufferSize() { return sizeof(CvsdState); }

void CVSD_DEC_Init(CvsdState *state) { *state = {0, 0, 10}; }

void CVSD_DEC_Process(CvsdState *state, const std::uint8_t *bits, std::int32_t *bits_len, std::int16_t *pcm,
                      std::int32_t *pcm_len) {
    const std::int32_t bytes = whole_bytes(*bits_len, *pcm_len);
    *bits_len -= bytes;
    *pcm_len = 8 * bytes;
    if (bytes == 0) return;

    Codec codec(*state);
    for (std::int32_t i = 0; i < bytes; ++i) {
        const std::int32_t byte = bits[i];
        for (int k = 0; k < 8; ++k) {
            const std::int32_t leaked = leak(codec.accumulator);
            pcm[8 * i + k] = static_cast<std::int16_t>(leaked / 64); // toward zero
            codec.step(leaked, -(byte >> k & 1));
        }
    }
    codec.store(*state);
}
