/* Concealment at 8000 Hz alone, linked without the pitch tracker: 16000 Hz is refused, and the stream is the
 * full library's. */
#include "cvsd_qor.h"

#include <stdio.h>

int main(void) {
    PlcBlock block;
    int16_t frame[30];
    uint32_t digest = 2166136261U; /* FNV-1a */
    if (g711plc_construct_v2(&block, 16000) != -1 || g711plc_construct_v2(&block, 8000) != 0) return 1;
    for (int n = 0; n < 200; ++n) {
        for (int i = 0; i < 30; ++i) frame[i] = (int16_t)((30 * n + i) % (37 + n / 4) * 500);
        (n % 16 == 3 || n % 16 > 8 ? g711plc_dofe_v2 : g711plc_addtohistory_v2)(&block, frame);
        for (int i = 0; i < 30; ++i) digest = (digest ^ (uint16_t)frame[i]) * 16777619U;
    }
    printf("%08lx\n", (unsigned long)digest);
    return digest != 0xfe981040U;
}
