/*
 * libcvsd_qor: voice routines for a synchronous voice link.
 *
 *   CVSD_*     CVSD codec, one bit per sample
 *   g711plc_*  packet loss concealment, one call per frame, at 8000 or 16000 Hz
 *   PLC_*      the steps that the concealment is made of, the pitch tracker among them
 *
 * Pure integer computation on memory that the caller owns: no allocation, no locks, no system
 * calls, no global mutable state, no floating point, the same output bits on every processor.
 *
 * Common to all functions
 *   - Pointers and lengths are trusted: none may be NULL, none is checked against the memory behind
 *     it.
 *   - A sample is signed 16-bit linear PCM in native byte order; its whole range is legal
 *     everywhere.
 *   - Buffers are aligned for their element type and, unless a function says otherwise, do not
 *     overlap.
 *   - Calls on different records or blocks may run on different threads at once; calls on the same
 *     one are made one at a time, from any thread.
 *   - No call blocks. Each takes time bounded by its lengths, and at most 8 KiB of stack.
 *
 * A row below reads: parameter, direction, unit and how many, what it means and which values are
 * legal. Where a row has no legal values, all are.
 *
 * Compiles as C99, C11 and C++, and as C89 where <stdint.h> exists.
 */
#ifndef CVSD_QOR_H
#define CVSD_QOR_H

#include <stdint.h>

#define CVSD_QOR_VERSION_MAJOR 1
#define CVSD_QOR_VERSION_MINOR 0
#define CVSD_QOR_VERSION_PATCH 0

#if defined(__GNUC__)
#define CVSD_QOR_API __attribute__((visibility("default")))
#else
#define CVSD_QOR_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* -------------------------------------------------------------------------------------------------
 * CVSD codec
 *
 * Bit k of a stream is bit (k mod 8) of byte (k div 8), least significant first. A bit of 1 steps
 * the reconstructed signal down, 0 steps it up. Encoded silence is the byte 0xAA over and over (after
 * speech it may be 0x55, the same one bit later): the idle pattern. It may be decoded in place of bytes
 * that did not arrive; docs/integrating.md says when that is worth it.
 *
 * The codec's rate is that of its samples, one bit each: 64000 samples and bits per second on the
 * usual link.
 * ---------------------------------------------------------------------------------------------- */

/*
 * The state of one direction of one stream; encoder and decoder records are alike, 12 bytes. A
 * plain record: it may be moved or copied between calls. A copy goes on from where the original
 * stood. Contents outside the ranges below are brought into them when a call begins: the accumulator
 * and the step to the nearest value (a step below 10240 with the first sample), run_bits modulo 16.
 */
typedef struct CvsdState {
    int32_t accumulator; /* reconstructed signal, 64 units per PCM unit      -2097151..2097151             */
    int32_t step;        /* step size, 1024 units per PCM unit               0 after Init, 10240..1310720  */
    int32_t run_bits;    /* the last four bits, the newest in bit 3          0..15, 10 after Init          */
} CvsdState;

/* Bytes of one record: 12, that is sizeof(CvsdState). */
CVSD_QOR_API int32_t CVSD_ENC_GetBufferSize(void);
CVSD_QOR_API int32_t CVSD_DEC_GetBufferSize(void);

/* Starts or restarts a stream. Comes before the first Process, and between calls whenever wanted. */
CVSD_QOR_API void CVSD_ENC_Init(CvsdState *state);
CVSD_QOR_API void CVSD_DEC_Init(CvsdState *state);

/*
 * Encodes whole bytes, 8 samples each: as many as both lengths allow.
 *
 *   state     in/out  1 record     the stream's, after Init
 *   pcm       in      samples      *pcm_len of them
 *   pcm_len   in/out  samples      before: available; after: left over, for the next call
 *   bits      out     bytes        *bits_len of them; those behind the written ones are not touched
 *   bits_len  in/out  bytes        before: capacity; after: written
 *
 * 20 samples and a capacity of 10 bytes: 16 samples are encoded; *pcm_len becomes 4, *bits_len 2.
 * The codec does not keep the 4 samples left over: the next call is to begin with them.
 *
 * 100 samples and a capacity of 3 bytes: 24 samples are encoded; *pcm_len becomes 76, *bits_len 3.
 *
 * A stream may be cut into calls anywhere between bytes without changing a bit of it. Where the
 * lengths allow no whole byte (zero and negative ones included), nothing is encoded: the record and
 * *pcm_len stay as they are, *bits_len becomes 0.
 */
CVSD_QOR_API void CVSD_ENC_Process(CvsdState *state, const int16_t *pcm, int32_t *pcm_len, uint8_t *bits,
                                   int32_t *bits_len);

/*
 * Decodes whole bytes, 8 samples each: as many as both lengths allow.
 *
 *   state     in/out  1 record     the stream's, after Init
 *   bits      in      bytes        *bits_len of them; any bytes decode
 *   bits_len  in/out  bytes        before: available; after: left over, for the next call
 *   pcm       out     samples      *pcm_len of them; those behind the written ones are not touched
 *   pcm_len   in/out  samples      before: capacity; after: written
 *
 * 3 bytes and a capacity of 20 samples: 2 bytes are decoded; *bits_len becomes 1, *pcm_len 16.
 *
 * An output sample reflects the bits before it, not its own: the first one after Init is 0, and the
 * output lies one sample behind the encoder's input. Its range is -31744..31743. Where the lengths
 * allow no whole byte (zero and negative ones included), nothing is decoded: the record and
 * *bits_len stay as they are, *pcm_len becomes 0.
 */
CVSD_QOR_API void CVSD_DEC_Process(CvsdState *state, const uint8_t *bits, int32_t *bits_len, int16_t *pcm,
                                   int32_t *pcm_len);

/* -------------------------------------------------------------------------------------------------
 * Packet loss concealment
 *
 *                                  8000 Hz        16000 Hz
 *   frame                          30 samples     120 samples     3.75 ms and 7.5 ms
 *   delay of the output, constant  30 samples     60 samples      one frame and half a frame
 *
 * For every frame of the stream, in order, exactly one call: g711plc_addtohistory_v2 if it arrived,
 * g711plc_dofe_v2 if it was lost. Either takes a buffer of one frame and leaves one frame of output
 * in it, so that the output is one unbroken stream. All of one receiver:
 *
 *     PlcBlock block;
 *     int16_t frame[30];
 *     g711plc_construct_v2(&block, 8000);
 *     while (next_frame(frame, &arrived)) {
 *         if (arrived) {
 *             g711plc_addtohistory_v2(&block, frame);
 *         } else {
 *             g711plc_dofe_v2(&block, frame);
 *         }
 *         play(frame, 30);
 *     }
 * ---------------------------------------------------------------------------------------------- */

#define G711PLC_MEMORY_SIZE 6496 /* bytes of one block */
#define G711PLC_MEMORY_ALIGN 8   /* alignment of a block, in bytes */

/*
 * The state of one stream, opaque. Declare one, or point at any memory of the size and alignment
 * above, such as malloc returns.
 *   - A constructed block holds pointers into itself: it works only at the address where it was
 *     constructed. It must not be moved or copied.
 *   - One stream per block. Constructing a used block again starts a new stream in it; nothing of
 *     the old one remains.
 *   - There is nothing to release.
 */
typedef struct PlcBlock {
    union {
        void *align_pointer;
        int64_t align_word;
        unsigned char bytes[G711PLC_MEMORY_SIZE];
    } opaque;
} PlcBlock;

/* Bytes of one block: 6496, the same for both rates. */
CVSD_QOR_API int32_t g711plc_GetMemorySize_v2(void);

/*
 * Prepares a block for a new stream with a silent past.
 *
 *   block        out     1 block      whatever it holds; written whole
 *   sample_rate  in      Hz           8000 or 16000; any other is refused, and 16000 too by a library
 *                                     that was built with CVSD_QOR_NARROWBAND_ONLY
 *
 * Returns 0, or -1 for a rate that is refused: the block then serves for nothing but another
 * construction.
 */
CVSD_QOR_API int32_t g711plc_construct_v2(PlcBlock *block, int32_t sample_rate);

/*
 * Enters a frame that arrived. After a loss its beginning is joined to the synthetic signal.
 *
 *   block        in/out  1 block      constructed, with status 0
 *   frame        in/out  samples      30 or 120; before: as received; after: the output
 */
CVSD_QOR_API void g711plc_addtohistory_v2(PlcBlock *block, int16_t *frame);

/*
 * Conceals a frame that was lost: repeats the pitch period, fades by a quarter of full scale per
 * frame from the second lost frame on, is silent from the sixth on. Takes a loss of any length,
 * also before the first frame that arrives.
 *
 *   block        in/out  1 block      constructed, with status 0
 *   frame        out     samples      30 or 120; before: not read; after: the output
 */
CVSD_QOR_API void g711plc_dofe_v2(PlcBlock *block, int16_t *frame);

/* -------------------------------------------------------------------------------------------------
 * Concealment primitives: the steps of the two calls above, for callers that take these apart. A
 * stream does not need them.
 *
 * Gains and weights are Q15, 32767 for 1. A product of weight and sample is rounded toward minus
 * infinity, a sum of two is limited to 16 bits. `lost` stands for the number of lost frames since
 * the last good one. Every n is in samples; below 1 it means that nothing is done.
 * ---------------------------------------------------------------------------------------------- */

/*
 * Reads the repeated pitch segment on from where the last read stopped, wrapping any number of
 * times.
 *
 *   block        in/out  1 block      constructed; its read position moves on
 *   output       out     samples      n of them
 *   n            in      samples
 */
CVSD_QOR_API void PLC_GetSynSpeech(PlcBlock *block, int16_t *output, int32_t n);

/*
 * Appends a frame to the history and replaces it by the history one delay earlier.
 *
 *   block        in/out  1 block      constructed; its history moves on by a frame
 *   frame        in/out  samples      30 or 120; before: the newest; after: the output
 */
CVSD_QOR_API void PLC_SaveSpeech(PlcBlock *block, int16_t *frame);

/*
 * Attenuation ramp: from 1 - (lost - 1) / 4 of full scale, falling by a quarter over one frame,
 * never below 0. Over one frame, or over n samples.
 *
 *   block        in      1 block      constructed, lost at least 1
 *   frame        in/out  samples      30 or 120
 *   samples      in/out  samples      n of them
 *   n            in      samples
 */
CVSD_QOR_API void PLC_ScaleSpeech(const PlcBlock *block, int16_t *frame);
CVSD_QOR_API void PLC_ScaleSpeech_Reconverge(const PlcBlock *block, int16_t *samples, int32_t n);

/*
 * Cross-fade. Sample i, counted from 1, weighs right with i * (32767 / n), left with 32767 less
 * that.
 *
 *   left         in      samples      n of them, fading out
 *   right        in      samples      n of them, fading in
 *   output       out     samples      n of them; may be the same buffer as left or as right
 *   n            in      samples
 */
CVSD_QOR_API void PLC_Ola(const int16_t *left, const int16_t *right, int16_t *output, int32_t n);

/* PLC_Ola over n samples or over one frame of the block's rate, whichever is shorter. */
CVSD_QOR_API void PLC_OverlapAdds(const PlcBlock *block, const int16_t *left, const int16_t *right,
                                  int16_t *output, int32_t n);

/*
 * Join at the end of a loss: the synthetic signal fades to nothing from the gain at which
 * PLC_ScaleSpeech begins, the real one fades in.
 *
 *   block        in      1 block      constructed, lost at least 1
 *   real         in/out  samples      n of them; before: as received; after: the join
 *   synthetic    in      samples      n of them
 *   n            in      samples
 */
CVSD_QOR_API void PLC_OlaEnd(const PlcBlock *block, int16_t *real, const int16_t *synthetic, int32_t n);

/*
 * Copies bytes in ascending order.
 *
 *   destination  out     bytes        n of them; may overlap the source: where it begins inside it,
 *                                     the source's first bytes repeat
 *   source       in      bytes        n of them
 *   n            in      bytes        below 1 nothing is copied
 */
CVSD_QOR_API void plc_mem_copy(void *destination, const void *source, int32_t n);

/*
 * The pitch search that g711plc_dofe_v2 makes at 8000 Hz when a loss begins.
 *
 *   block        in      1 block      constructed; what is searched is its copy of the history, made
 *                                     when the latest loss began, all zero before the first
 *
 * Returns the period that correlates best, in samples: 30..120 at 8000 Hz, 40..240 at 16000 Hz.
 */
CVSD_QOR_API int32_t PLC_FindPitch_fix(const PlcBlock *block);

/* -------------------------------------------------------------------------------------------------
 * Wideband pitch tracker, 16000 Hz: what the concealment runs on every frame, for callers that want
 * the pitch alone. Lags and pitches are in samples at 16000 Hz.
 * ---------------------------------------------------------------------------------------------- */

/*
 * State of one stream. To start one: all zero, but for refine_len = 1, coarse_pitch = 100,
 * tracked_pitch = 50, decim_exp = 31 and scratch, which points at 824 samples of the caller's. A
 * plain record: it may be moved or copied between calls, as long as scratch points at memory that
 * no other call uses at the same time.
 *
 * From one call to the next carry: sig_hist, coarse_pitch, decim_mem, decim_exp, decim_hist. Every
 * call writes the other results anew.
 */
typedef struct PitchTrackerState {
    int32_t lag_energy;     /* energy of the segment at the chosen lag                                     */
    int32_t lag_corr;       /* correlation of the newest window with that segment                          */
    int16_t refine_len;     /* length of that window, samples: the coarse pitch, at most 120      36..120  */
    int16_t scale_shift;    /* right shift of the signal in lag_energy and lag_corr                  0..3  */
    int16_t sig_hist[561];  /* samples, oldest first: [0..440] previous, [441..560] the newest frame       */
    int16_t amp_weight;     /* 3/128 of amp_ratio, at least 0                                      0..384  */
    int16_t amp_ratio;      /* amplitude of the window over that of the segment, Q14,
                               negative where lag_corr is                                   -16384..16384  */
    int16_t coarse_pitch;   /* coarse pitch of the latest frame                                   36..324  */
    int16_t tracked_pitch;  /* the result: pitch of the latest frame                              40..321  */
    int16_t decim_mem[60];  /* samples, oldest first: the last 60 of the latest frame                      */
    int16_t decim_exp;      /* block exponent of decim_hist                                        -3..37  */
    int16_t decim_hist[56]; /* samples at 2000 Hz, oldest first, shifted left by decim_exp                 */
    int16_t *scratch;       /* work area, 824 samples; nothing in it survives a call                       */
} PitchTrackerState;

/*
 * Tracks one frame: PLC_Decim, PLC_CoarsePitch and PLC_RefinePitch in turn.
 *
 *   state        in/out  1 record     started as above; the result is its tracked_pitch
 *   frame        in      samples      120; may not lie in the work area
 *
 * Returns 0.
 */
CVSD_QOR_API int32_t PLC_PitchTracker(PitchTrackerState *state, const int16_t *frame);

/*
 * Low-pass filter and decimation by 8.
 *
 *   in           in/out  samples      180: [0..59] filled from decim_mem, [60..179] the frame
 *   out          out     samples      71 at 2000 Hz, oldest first, of one block exponent:
 *                                     [0..55] previous, [56..70] the frame's
 *   state        in/out  1 record     its decim_mem, decim_hist and decim_exp
 */
CVSD_QOR_API void PLC_Decim(int16_t *in, int16_t *out, PitchTrackerState *state);

/*
 * Coarse pitch: normalised autocorrelation of the newest 30 decimated samples, with guards against
 * multiples of the period.
 *
 *   state        in      1 record     not read
 *   dec          in      samples      71 at 2000 Hz, oldest first
 *   prev         in      samples      the previous coarse pitch
 *
 * Returns the coarse pitch, 36..324; 40 where there is none.
 */
CVSD_QOR_API uint16_t PLC_CoarsePitch(const PitchTrackerState *state, const int16_t *dec, int16_t prev);

/*
 * Refines a coarse pitch on the full-rate signal: searches the lags within 3 samples of it and 40..320.
 *
 *   state         in     1 record     not read
 *   amp_ratio     out    1 value      this and the next five: as the fields of the same names
 *   lag_corr      out    1 value
 *   lag_energy    out    1 value
 *   amp_weight    out    1 value
 *   refine_len    out    1 value
 *   scale_shift   out    1 value
 *   sig_hist      in     samples      561, oldest first
 *   coarse_pitch  in     samples      36..324 from the coarse search; 0..444 is taken as it stands, any
 *                                     other as the nearer end
 *
 * Returns the pitch: 40..321, and up to 441 where the coarse pitch is beyond 324.
 */
CVSD_QOR_API int16_t PLC_RefinePitch(const PitchTrackerState *state, int16_t *amp_ratio, int32_t *lag_corr,
                                     int32_t *lag_energy, int16_t *amp_weight, int16_t *refine_len,
                                     int16_t *scale_shift, const int16_t *sig_hist, int16_t coarse_pitch);

/*
 * The tracker's tables, Q15: 32768 stands for 1. Their names are short: a program that has an x of
 * its own, also a local one under -Wshadow, defines CVSD_QOR_NO_TABLES before it includes this
 * file, and they are left out. What a program calls x never reaches the library's arithmetic,
 * whether they are left out or not.
 */
#ifndef CVSD_QOR_NO_TABLES
CVSD_QOR_API extern const int16_t bdf[60]; /* decimation filter; [k] weighs the sample k before the newest */
CVSD_QOR_API extern const int16_t x[4];    /* 1/8, 2/8, 3/8, 4/8: offsets between two decimated lags       */
CVSD_QOR_API extern const int16_t x2[4];   /* their squares                                                */
CVSD_QOR_API extern const int16_t invk[4]; /* 1/2, 1/3, 1/4, 1/5: the parts of a lag that are tried        */
CVSD_QOR_API extern const int16_t MPTH[4]; /* 0.70, 0.55, 0.48, 0.37: how strong the 2nd, 3rd, 4th and 5th
                                              multiple of a lag must be beside the strongest lag           */
#endif

#ifdef __cplusplus
}
#endif

#endif /* CVSD_QOR_H */
