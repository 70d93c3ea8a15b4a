/*
 * libcvsd_qor: voice routines for a synchronous voice link.
 *
 *   CVSD_*     CVSD codec, one bit per sample
 *   g711plc_*  packet loss concealment, one call per frame
 *   PLC_*      the primitives that the concealment is made of
 *
 * C99 and C++. Pure integer computation on memory that the caller owns: no allocation, no locks, no global
 * mutable state, no floating point, the same output bits on every processor.
 *
 * Common to all functions
 *   - Pointers and lengths are trusted: none may be NULL, none is checked against the memory behind it.
 *   - Buffers are aligned for their element type and, unless a function says otherwise, do not overlap.
 *   - A sample is signed 16-bit linear PCM in native byte order.
 *   - Calls on different state records or blocks may run on different threads at once; calls on the same one
 * are made one at a time.
 *   - No call blocks or makes a system call; each costs time bounded by its lengths.
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

/* ---------------------------------------------------------------------------------------------------------------
 * CVSD codec
 *
 * Bit k of a stream is bit (k mod 8) of byte (k div 8), least significant first. A bit of 1 steps the
 * reconstructed signal down, 0 steps it up. One record per direction and stream; encoder and decoder records
 * are alike.
 * -------------------------------------------------------------------------------------------------------------
 */

typedef struct CvsdState {
    int32_t accumulator; /* reconstructed signal, 64 units per PCM unit     -2097151..2097151 */
    int32_t step; /* step size, 1024 units per PCM unit              0 after Init, then 10240..1310720   */
    int32_t run_bits; /* the last four bits, newest in bit 3             0..15 */
} CvsdState;

/* Bytes of one record: 12, that is sizeof(CvsdState). */
CVSD_QOR_API int32_t CVSD_ENC_GetBufferSize(void);
CVSD_QOR_API int32_t CVSD_DEC_GetBufferSize(void);

/* Starts or restarts a stream. Must come before the first Process; may be called at any time. */
CVSD_QOR_API void CVSD_ENC_Init(CvsdState *state);
CVSD_QOR_API void CVSD_DEC_Init(CvsdState *state);

/*
 * Encodes whole bytes, 8 samples each: as many as both lengths allow.
 *
 *   state    in/out  the stream's record
 *   pcm      in      samples
 *   pcm_len  in/out  samples    before: available   after: left over, to be passed again with the next call
 *   bits     out     bytes; those behind the ones written are not touched
 *   bits_len in/out  bytes      before: capacity    after: written
 *
 * 100 samples and a capacity of 3 bytes: 24 samples are encoded, pcm_len becomes 76, bits_len 3.
 * A stream may be cut into calls anywhere between bytes without changing a bit of it.
 * Where the lengths allow no whole byte (zero and negative ones included), nothing is encoded, the record and
 * pcm_len stay as they are, bits_len becomes 0.
 */
CVSD_QOR_API void CVSD_ENC_Process(CvsdState *state, const int16_t *pcm, int32_t *pcm_len, uint8_t *bits,
                                   int32_t *bits_len);

/*
 * Decodes whole bytes, 8 samples each: as many as both lengths allow.
 *
 *   state    in/out  the stream's record
 *   bits     in      bytes
 *   bits_len in/out  bytes      before: available   after: left over, to be passed again with the next call
 *   pcm      out     samples; those behind the ones written are not touched
 *   pcm_len  in/out  samples    before: capacity    after: written
 *
 * 3 bytes and a capacity of 20 samples: 16 samples are decoded, bits_len becomes 1, pcm_len 16.
 * An output sample reflects the bits before it: the first one after Init is 0.
 * Where the lengths allow no whole byte (zero and negative ones included), nothing is decoded, the record and
 * bits_len stay as they are, pcm_len becomes 0.
 */
CVSD_QOR_API void CVSD_DEC_Process(CvsdState *state, const uint8_t *bits, int32_t *bits_len, int16_t *pcm,
                                   int32_t *pcm_len);

/* ---------------------------------------------------------------------------------------------------------------
 * Packet loss concealment
 *
 *                            8000 Hz         16000 Hz
 *   frame                    30 samples      120 samples     3.75 ms and 7.5 ms
 *   delay, constant          30 samples      60 samples      one frame and half a frame
 *
 * For every frame of the stream, in order, exactly one call: g711plc_addtohistory_v2 if it arrived,
 * g711plc_dofe_v2 if it was lost. Either returns one frame of output in the caller's buffer.
 * -------------------------------------------------------------------------------------------------------------
 */

#define G711PLC_MEMORY_SIZE 6496 /* bytes of one block */
#define G711PLC_MEMORY_ALIGN 8   /* alignment of a block, in bytes */

/*
 * The state of one stream, opaque. Declare one, or use any memory of the size and alignment above.
 * A constructed block holds pointers into itself: it works only at the address where it was constructed and
 * must not be moved or copied. There is nothing to release.
 */
typedef struct PlcBlock {
    union {
        void *align_pointer;
        int64_t align_word;
        unsigned char bytes[G711PLC_MEMORY_SIZE];
    } opaque;
} PlcBlock;

/* Bytes of one block: 6496. */
CVSD_QOR_API int32_t g711plc_GetMemorySize_v2(void);

/*
 * Prepares a block, whatever it holds, for a stream of its own with a silent past. Constructing a used block
 * again restarts it completely.
 *
 *   block        out  the stream's block
 *   sample_rate  in   Hz       8000 or 16000
 *
 * Returns 0, or -1 for any other rate; such a block must not be passed to any function but this one.
 */
CVSD_QOR_API int32_t g711plc_construct_v2(PlcBlock *block, int32_t sample_rate);

/*
 * Enters a frame that arrived. After a loss its beginning is joined to the synthetic signal.
 *
 *   block  in/out  a constructed block
 *   frame  in/out  samples, one frame    before: as received    after: the output, delayed as stated above
 */
CVSD_QOR_API void g711plc_addtohistory_v2(PlcBlock *block, int16_t *frame);

/*
 * Conceals a frame that was lost: repeats the pitch period, fades from the second lost frame on, is silent
 * from the sixth on. A loss of any length is taken.
 *
 *   block  in/out  a constructed block
 *   frame  out     samples, one frame    before: never read    after: the output, delayed as stated above
 */
CVSD_QOR_API void g711plc_dofe_v2(PlcBlock *block, int16_t *frame);

/* ---------------------------------------------------------------------------------------------------------------
 * Concealment primitives: the steps of the two calls above, for callers that take them apart. Gains and
 * weights are Q15; a product of weight and sample is rounded toward minus infinity. With n < 1 none of them
 * does anything.
 * -------------------------------------------------------------------------------------------------------------
 */

/*
 * Reads the repeated pitch segment on from where the last read stopped, wrapping any number of times.
 *
 *   block   in/out  the read position advances by n
 *   output  out     n samples
 *   n       in      samples
 */
CVSD_QOR_API void PLC_GetSynSpeech(PlcBlock *block, int16_t *output, int32_t n);

/* Appends a frame to the history and replaces it by the history one delay earlier; frame: one frame of
 * samples. */
CVSD_QOR_API void PLC_SaveSpeech(PlcBlock *block, int16_t *frame);

/*
 * Attenuation ramp for the current number of lost frames: from 1 - (lost - 1)/4 of full scale, falling by a
 * quarter over one frame, never below 0. In place, over one frame or over the n samples given.
 */
CVSD_QOR_API void PLC_ScaleSpeech(const PlcBlock *block, int16_t *frame);
CVSD_QOR_API void PLC_ScaleSpeech_Reconverge(const PlcBlock *block, int16_t *samples, int32_t n);

/*
 * Cross-fade.
 *
 *   left    in   n samples, fading out: weights 32767 - i·inc, i = 1..n, inc = 32767 / n
 *   right   in   n samples, fading in: weights i·inc
 *   output  out  n samples; may be the same buffer as left or right
 */
CVSD_QOR_API void PLC_Ola(const int16_t *left, const int16_t *right, int16_t *output, int32_t n);

/* PLC_Ola over n samples or one frame, whichever is shorter. */
CVSD_QOR_API void PLC_OverlapAdds(const PlcBlock *block, const int16_t *left, const int16_t *right,
                                  int16_t *output, int32_t n);

/*
 * Join at the end of a loss: the synthetic signal, already down to the gain of the current number of lost
 * frames, fades to nothing while the real one fades in.
 *
 *   real       in/out  n samples    before: as received    after: the join
 *   synthetic  in      n samples
 */
CVSD_QOR_API void PLC_OlaEnd(const PlcBlock *block, int16_t *real, const int16_t *synthetic, int32_t n);

/*
 * Copies n bytes in ascending order. Overlap is allowed: with the destination inside the source the first
 * bytes repeat.
 */
CVSD_QOR_API void plc_mem_copy(void *destination, const void *source, int32_t n);

/*
 * The pitch period, in samples, that correlates best within the block's copy of the history, which
 * g711plc_dofe_v2 takes at the first lost frame: 30..120 at 8000 Hz, 40..240 at 16000 Hz.
 */
CVSD_QOR_API int32_t PLC_FindPitch_fix(const PlcBlock *block);

/* ---------------------------------------------------------------------------------------------------------------
 * Wideband pitch tracker, 16000 Hz: what the concealment runs on every frame, for callers that want the pitch
 * alone.
 * -------------------------------------------------------------------------------------------------------------
 */

/*
 * State of one stream. To start one: zero, but for refine_len = 1, coarse_pitch = 100, tracked_pitch = 50,
 * decim_exp = 31 and scratch pointing at 824 samples of the caller's. sig_hist, decim_mem, decim_hist,
 * decim_exp and coarse_pitch carry from frame to frame; the rest is written anew by every call.
 */
typedef struct PitchTrackerState {
    int32_t lag_energy;     /* energy of the segment at the chosen lag                                     */
    int32_t lag_corr;       /* correlation of the newest window with that segment                          */
    int16_t refine_len;     /* length of that window, samples: min(coarse pitch, 120)                      */
    int16_t scale_shift;    /* right shift of the signal in lag_energy and lag_corr                0..3    */
    int16_t sig_hist[561];  /* samples [0..440] previous, [441..560] the newest frame                      */
    int16_t amp_weight;     /* 3/128 of amp_ratio, at least 0                                      0..384  */
    int16_t amp_ratio;      /* amplitude of the window over that of the segment, Q14; with the sign of
                               lag_corr                                                   -16384..16384    */
    int16_t coarse_pitch;   /* coarse pitch, samples at 16000 Hz                                  36..324  */
    int16_t tracked_pitch;  /* the result: pitch of the latest frame, samples at 16000 Hz         40..321  */
    int16_t decim_mem[60];  /* samples: the last 60 of the previous frame, oldest first                    */
    int16_t decim_exp;      /* block exponent of decim_hist                                       -6..37   */
    int16_t decim_hist[56]; /* decimated samples (2000 Hz), oldest first, shifted left by decim_exp       */
    int16_t *scratch;       /* 824 samples of work area; nothing in it survives a call                    */
} PitchTrackerState;

/*
 * Tracks one frame.
 *
 *   state  in/out  see above; the result is tracked_pitch
 *   frame  in      120 samples at 16000 Hz
 *
 * Returns 0.
 */
CVSD_QOR_API int32_t PLC_PitchTracker(PitchTrackerState *state, const int16_t *frame);

/*
 * Low-pass filter and decimation by 8.
 *
 *   in     in/out  180 samples [0..59] filled from decim_mem, [60..179] the frame
 *   out    out     71 decimated samples, all with one block exponent: [0..55] previous, [56..70] new
 *   state  in/out  decim_mem, decim_hist and decim_exp
 */
CVSD_QOR_API void PLC_Decim(int16_t *in, int16_t *out, PitchTrackerState *state);

/*
 * Coarse pitch: normalised autocorrelation of the newest 30 decimated samples, with guards against doubled
 * periods.
 *
 *   state  in  not read
 *   dec    in  71 decimated samples, oldest first
 *   prev   in  the previous coarse pitch, samples at 16000 Hz; any value
 *
 * Returns the coarse pitch in samples at 16000 Hz: 36..324, 40 where there is none.
 */
CVSD_QOR_API uint16_t PLC_CoarsePitch(const PitchTrackerState *state, const int16_t *dec, int16_t prev);

/*
 * Refines a coarse pitch by at most 3 samples on the full-rate signal.
 *
 *   state         in   not read
 *   amp_ratio     out  these six: see the fields of the same names
 *   lag_corr      out
 *   lag_energy    out
 *   amp_weight    out
 *   refine_len    out
 *   scale_shift   out
 *   sig_hist      in   561 samples, oldest first
 *   coarse_pitch  in   samples at 16000 Hz, 36..324; others are taken as the nearest of 0..444
 *
 * Returns the pitch in samples at 16000 Hz: 40..321.
 */
CVSD_QOR_API int16_t PLC_RefinePitch(const PitchTrackerState *state, int16_t *amp_ratio, int32_t *lag_corr,
                                     int32_t *lag_energy, int16_t *amp_weight, int16_t *refine_len,
                                     int16_t *scale_shift, const int16_t *sig_hist, int16_t coarse_pitch);

/*
 * The tracker's tables. Their names are short: define CVSD_QOR_NO_TABLES before including this file to leave
 * them out.
 */
#ifndef CVSD_QOR_NO_TABLES
CVSD_QOR_API extern const int16_t bdf[60]; /* decimation filter, Q15, [0] for the newest sample      */
CVSD_QOR_API extern const int16_t x[4];    /* 1/8 .. 4/8, Q15: offsets between two decimated lags    */
CVSD_QOR_API extern const int16_t x2[4];   /* their squares, Q15                                     */
CVSD_QOR_API extern const int16_t invk[4]; /* 1/2 .. 1/5, Q15: sub-multiples of a lag                */
CVSD_QOR_API extern const int16_t MPTH[4]; /* Q15: correlation wanted at the 2nd .. 5th multiple of a lag */
#endif

#ifdef __cplusplus
}
#endif

#endif /* CVSD_QOR_H */
