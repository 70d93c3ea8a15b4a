/*
 * The codec and the concealment in their smallest form: a tone goes through the codec, and a lost frame of
 * the tone is concealed.
 *
 * The tone is a triangle wave with a period of 40 samples. The concealment repeats the last period, so it can
 * restore nearly every sample of the lost frame.
 */
#include "cvsd_qor.h"

#include <stdio.h>
#include <stdlib.h>

enum { FRAME = 30, PERIOD = 40, FRAMES = 20, LOST = 14 };

static int16_t tone(int32_t i) {
    const int32_t phase = i % PERIOD;
    return (int16_t)(400 * abs(phase - PERIOD / 2) - 4000);
}

int main(void) {
    /* Codec: 240 samples become 30 bytes and 240 samples again. */
    int16_t speech[240], decoded[240];
    uint8_t bits[30];
    for (int32_t i = 0; i < 240; ++i) speech[i] = tone(i / 8);

    CvsdState encoder, decoder;
    CVSD_ENC_Init(&encoder);
    CVSD_DEC_Init(&decoder);
    int32_t samples = 240, bytes = 30;
    CVSD_ENC_Process(&encoder, speech, &samples, bits, &bytes);
    printf("codec: 240 samples -> %d bytes", (int)bytes);
    samples = 240;
    CVSD_DEC_Process(&decoder, bits, &bytes, decoded, &samples);
    printf(" -> %d samples; sample 200 was %d and is %d\n", (int)samples, speech[200], decoded[200]);

    /* Concealment: one call for every frame, whether it arrived or was lost. */
    PlcBlock block;
    if (g711plc_construct_v2(&block, 8000) != 0) return 1;
    int32_t worst = 0;
    for (int32_t n = 0; n < FRAMES; ++n) {
        int16_t frame[FRAME];
        for (int32_t i = 0; i < FRAME; ++i) frame[i] = tone(n * FRAME + i);
        if (n == LOST) {
            g711plc_dofe_v2(&block, frame);
        } else {
            g711plc_addtohistory_v2(&block, frame);
        }
        for (int32_t i = 0; n > 0 && i < FRAME; ++i) { /* the output is one frame late */
            const int32_t error = abs(frame[i] - tone((n - 1) * FRAME + i));
            if (error > worst) worst = error;
        }
    }
    printf("concealment: frame %d of %d lost; largest error anywhere %d on a tone of 4000\n", LOST, FRAMES,
           (int)worst);
    return 0;
}
