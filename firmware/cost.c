/*
 * Counts the instructions of each service on the shipped speech, on an emulated board whose clock advances by
 * a fixed time per instruction (qemu's -icount).
 *
 * usage: cost CLIPS_DIRECTORY
 *
 * Prints a line for each service: name, seconds of speech, number of calls, instructions of all calls,
 * instructions of the longest call.
 */
#include "cvsd_qor.h"

#include <stdio.h>
#include <stdlib.h>

enum { PACKET = 60, SAMPLES = 8 * PACKET, MAX_FRAME = 120, HEADER = 44 };

/* --- Counting ------------------------------------------------------------------------------------------ */

/* The core's own timer, which counts down in 24 bits. */
#define SYSTICK ((volatile uint32_t *)0xE000E010)

static uint32_t ticks_of(void (*call)(void *), void *argument) {
    const uint32_t before = SYSTICK[2];
    call(argument);
    return (before - SYSTICK[2]) & 0xFFFFFF;
}

/* A call without work: its ticks are the overhead of measuring. */
static void nothing(void *argument) { (void)argument; }

enum { TURNS = 100000 };

/* 2 * TURNS instructions, by which ticks are converted to instructions. */
static void known(void *argument) {
    uint32_t turns = TURNS;
    (void)argument;
    __asm__ volatile(".syntax unified\n1: subs %0, #1\n bne 1b" : "+l"(turns) : : "cc");
}

static uint32_t overhead, ticks_of_known;

static void start_counting(void) {
    SYSTICK[1] = 0xFFFFFF;
    SYSTICK[0] = 5; /* on, at the core's clock, without an interrupt */
    overhead = ticks_of(nothing, NULL);
    ticks_of_known = ticks_of(known, NULL) - overhead;
}

static unsigned long instructions(uint64_t ticks) {
    return (unsigned long)((ticks * 2 * TURNS + ticks_of_known / 2) / ticks_of_known);
}

typedef struct {
    uint64_t ticks;
    uint32_t calls, longest;
} Tally;

static void count(Tally *tally, void (*call)(void *), void *argument) {
    const uint32_t ticks = ticks_of(call, argument) - overhead;
    tally->ticks += ticks;
    ++tally->calls;
    if (ticks > tally->longest) tally->longest = ticks;
}

static void report(const char *what, const Tally *tally, double calls_per_second) {
    printf("%s %.4f %lu %lu %lu\n", what, tally->calls / calls_per_second, (unsigned long)tally->calls,
           instructions(tally->ticks), instructions(tally->longest));
}

/* --- Services ------------------------------------------------------------------------------------------ */

typedef struct {
    int16_t *samples;
    long count;
} Speech;

static Speech clip(const char *directory, int kilohertz) {
    Speech speech;
    char path[500];
    snprintf(path, sizeof path, "%s/speech_%dk.wav", directory, kilohertz);
    FILE *file = fopen(path, "rb");
    if (file == NULL || fseek(file, 0, SEEK_END) != 0) exit(1);
    speech.count = (ftell(file) - HEADER) / 2;
    speech.samples = malloc(2 * (size_t)speech.count);
    fseek(file, HEADER, SEEK_SET);
    if (fread(speech.samples, 2, (size_t)speech.count, file) != (size_t)speech.count) exit(1);
    fclose(file);
    return speech;
}

typedef struct {
    CvsdState encoder, decoder;
    int16_t pcm[SAMPLES];
    uint8_t bits[PACKET];
} Codec;

static void encode(void *codec) {
    Codec *c = codec;
    int32_t samples = SAMPLES, bytes = PACKET;
    CVSD_ENC_Process(&c->encoder, c->pcm, &samples, c->bits, &bytes);
}

static void decode(void *codec) {
    Codec *c = codec;
    int32_t samples = SAMPLES, bytes = PACKET;
    CVSD_DEC_Process(&c->decoder, c->bits, &bytes, c->pcm, &samples);
}

/* The clip is brought to 64000 Hz by linear interpolation. */
static void run_codec(Speech speech) {
    static Codec codec;
    Tally encoded = {0}, decoded = {0};
    CVSD_ENC_Init(&codec.encoder);
    CVSD_DEC_Init(&codec.decoder);
    for (long at = 0; at + PACKET < speech.count; at += PACKET) {
        for (int i = 0; i < SAMPLES; ++i) {
            const int16_t *s = speech.samples + at + i / 8;
            codec.pcm[i] = (int16_t)(s[0] + (s[1] - s[0]) * (i % 8) / 8);
        }
        count(&encoded, encode, &codec);
        count(&decoded, decode, &codec);
    }
    report("encode", &encoded, 8000.0 / PACKET);
    report("decode", &decoded, 8000.0 / PACKET);
}

typedef struct {
    PlcBlock block;
    int16_t frame[MAX_FRAME];
} Stream;

static void arrived(void *stream) {
    Stream *s = stream;
    g711plc_addtohistory_v2(&s->block, s->frame);
}

static void lost(void *stream) {
    Stream *s = stream;
    g711plc_dofe_v2(&s->block, s->frame);
}

/* One frame in ten is lost, in bursts of three on average. */
static void run_concealment(const char *what, Speech speech, int32_t rate) {
    static Stream stream;
    const long frame_len = rate == 8000 ? 30 : 120;
    uint64_t random = 1;
    int missing = 0;
    Tally all = {0};
    if (g711plc_construct_v2(&stream.block, rate) != 0) exit(1);
    for (long at = 0; at + frame_len <= speech.count; at += frame_len) {
        for (long i = 0; i < frame_len; ++i) stream.frame[i] = speech.samples[at + i];
        random = random * 48271 % 0x7FFFFFFF;
        missing = random * 27 < (missing ? 18 : 1) * UINT64_C(0x7FFFFFFF);
        count(&all, missing ? lost : arrived, &stream);
    }
    report(what, &all, (double)rate / (double)frame_len);
}

int main(int argc, char **argv) {
    if (argc != 2) return 1;
    const Speech narrow = clip(argv[1], 8), wide = clip(argv[1], 16);
    start_counting();
    run_codec(narrow);
    run_concealment("8000", narrow, 8000);
    run_concealment("16000", wide, 16000);
    return 0;
}
