/* A program that knows the library from its installed header and files alone. */
#include <cvsd_qor.h>

#include <stdio.h>

int main(void) {
    const int16_t pcm[8] = {1000, 1000, 1000, 1000, 1000, 1000, 1000, 1000};
    int32_t samples = 8, bytes = 1;
    uint8_t bits;
    CvsdState state;
    CVSD_ENC_Init(&state);
    CVSD_ENC_Process(&state, pcm, &samples, &bits, &bytes);

    PlcBlock block;
    int16_t frame[120];
    const int32_t status = g711plc_construct_v2(&block, 16000);
    g711plc_dofe_v2(&block, frame);

    printf("bits %02x, status %d, filter %d\n", bits, (int)status, bdf[0]);
    return !(samples == 0 && bytes == 1 && bits == 0 && status == 0 && bdf[0] == 1209 && frame[119] == 0 &&
             sizeof state == (size_t)CVSD_ENC_GetBufferSize() &&
             sizeof block == (size_t)g711plc_GetMemorySize_v2());
}
