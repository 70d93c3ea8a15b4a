// The exported names of the concealment: each wraps a step in steps.h.
#include "plc/steps.h"

#include <algorithm>

using namespace cvsd_qor;

std::int32_t g711plc_GetMemorySize_v2() { return G711PLC_MEMORY_SIZE; }

std::int32_t g711plc_construct_v2(PlcBlock *block, std::int32_t sample_rate) {
    return construct(block, sample_rate);
}

void g711plc_addtohistory_v2(PlcBlock *block, std::int16_t *frame) { good_frame(unwrap(block), frame); }

void g711plc_dofe_v2(PlcBlock *block, std::int16_t *frame) { erased_frame(unwrap(block), frame); }

std::int32_t PLC_FindPitch_fix(const PlcBlock *block) { return find_pitch(unwrap(block)); }

void PLC_GetSynSpeech(PlcBlock *block, std::int16_t *output, std::int32_t n) {
    read_segment(unwrap(block), output, n);
}

void PLC_SaveSpeech(PlcBlock *block, std::int16_t *frame) { save_frame(unwrap(block), frame); }

void PLC_ScaleSpeech(const PlcBlock *block, std::int16_t *frame) {
    attenuate(unwrap(block), frame, unwrap(block).frame_len);
}

void PLC_ScaleSpeech_Reconverge(const PlcBlock *block, std::int16_t *samples, std::int32_t n) {
    attenuate(unwrap(block), samples, n);
}

void PLC_Ola(const std::int16_t *left, const std::int16_t *right, std::int16_t *output, std::int32_t n) {
    cross_fade(left, right, output, n);
}

void PLC_OverlapAdds(const PlcBlock *block, const std::int16_t *left, const std::int16_t *right,
                     std::int16_t *output, std::int32_t n) {
    cross_fade(left, right, output, std::min(n, unwrap(block).frame_len));
}

void PLC_OlaEnd(const PlcBlock *block, std::int16_t *real, const std::int16_t *synthetic, std::int32_t n) {
    fade_to_received(unwrap(block), real, synthetic, n);
}

// A loop, as the regions may overlap: where the destination begins inside the source, bytes repeat.
void plc_mem_copy(void *destination, const void *source, std::int32_t n) {
    auto *to = static_cast<unsigned char *>(destination);
    const auto *from = static_cast<const unsigned char *>(source);
    for (std::int32_t i = 0; i < n; ++i) to[i] = from[i];
}
