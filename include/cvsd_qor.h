/*
 * libcvsd_qor: voice routines for a synchronous voice link.
 *
 *   CVSD_*     CVSD codec, one bit per sample
 *   g711plc_*  packet loss concealment, one call per frame, at 8000 or 16000 Hz
 *   PLC_*      the steps of the concealment, with the pitch tracker
 *
 * Pure integer computation on memory that the caller owns: no allocation, no locks, no system
 * calls, no global mutable state, no floating point, the same output bits on every processor.
 *
 * Common to all functions
 *   - Pointers and lengths are trusted, not checked: no pointer may be NULL, and the memory must be
 *     as long as the lengths say.
 *   - A sample is signed 16-bit linear PCM in native byte order; every value is legal everywhere.
 *   - Buffers are aligned for their element type and, unless a function says otherwise, do not
 *     overlap.
 *   - Calls on different records or blocks may run at the same time on different threads. Calls on
 *     the same record or block are made one at a time, from any thread.
 *   - No call blocks. Its lengths bound its time; it uses at most 8 KiB of stack, today
 *     less than 2.5 KiB.
 *
 * Parameters are listed in rows of four columns: name; direction (in, out or in/out); unit; count,
 * meaning and legal values. "before" and "after" mean before and after the call. A row that names
 * no legal values allows all.
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
 * the reconstructed signal down, 0 steps it up. Encoded silence is the idle pattern: the byte 0xAA
 * repeated, or 0x55 after some speech, which is the same pattern one bit later. The idle pattern may be
 * decoded in place of bytes that did not arrive; docs/integrating.md says when to do so.
 *
 * The codec makes one bit of each sample, at any sample rate. The usual link carries 64000 samples, and
 * so 64000 bits, per second.
 * ---------------------------------------------------------------------------------------------- */

/*
 * The state of one direction of one stream: 12 bytes, the same layout for encoder and decoder. A
 * plain record: it may be moved or copied between calls. A copy continues from the state of the
 * original. A call that processes a byte first brings values outside the ranges below into them: the
 * accumulator and the step are limited (a step below 10240 with the first sample), run_bits is taken
 * modulo 16.
 */
typedef struct CvsdState {
    int32_t accumulator; /* reconstructed signal, 64 units per PCM unit      -2097151..2097151             */
    int32_t step;        /* step size, 1024 units per PCM unit               0 after Init, 10240..1310720  */
    int32_t run_bits;    /* the last four bits, the newest in bit 3          0..15, 10 after Init          */
} CvsdState;

/* Size of one record in bytes: 12, that is sizeof(CvsdState). */
CVSD_QOR_API int32_t CVSD_ENC_GetBufferSize(void);
CVSD_QOR_API int32_t CVSD_DEC_GetBufferSize(void);

/*
 * Starts or restarts a stream. Call it before the first Process; it may be called again between any
 * two calls.
 */
CVSD_QOR_API void CVSD_ENC_Init(CvsdState *state);
CVSD_QOR_API void CVSD_DEC_Init(CvsdState *state);

/*
 * Encodes whole bytes, 8 samples each: as many as both lengths allow.
 *
 *   state     in/out  1 record     the stream's, after Init
 *   pcm       in      samples      *pcm_len of them
 *   pcm_len   in/out  samples      before: available; after: left over, for the next call
 *   bits      out     bytes        *bits_len of them; bytes after the last written one do not change
 *   bits_len  in/out  bytes        before: capacity; after: written
 *
 * 20 samples and a capacity of 10 bytes: 16 samples are encoded; *pcm_len becomes 4, *bits_len 2.
 * The codec does not keep the 4 samples left over: start the next call with them.
 *
 * 100 samples and a capacity of 3 bytes: 24 samples are encoded; *pcm_len becomes 76, *bits_len 3.
 *
 * A stream may be split into calls between any two bytes: its bits do not change. If the lengths
 * allow no whole byte (zero and negative lengths included), nothing is encoded: the record and
 * *pcm_len do not change, *bits_len becomes 0.
 */
CVSD_QOR_API void CVSD_ENC_Process(CvsdState *state, const int16_t *pcm, int32_t *pcm_len, uint8_t *bits,
                                   int32_t *bits_len);

/*
 * Decodes whole bytes, 8 samples each: as many as both lengths allow.
 *
 *   state     in/out  1 record     the stream's, after Init
 *   bits      in      bytes        *bits_len of them; any bytes decode
 *   bits_len  in/out  bytes        before: available; after: left over, for the next call
 *   pcm       out     samples      *pcm_len of them; samples after the last written one do not change
 *   pcm_len   in/out  samples      before: capacity; after: written
 *
 * 3 bytes and a capacity of 20 samples: 2 bytes are decoded; *bits_len becomes 1, *pcm_len 16.
 *
 * An output sample depends on the bits before its own, not on its own: the first one after Init is
 * 0, and the output is one sample later than the encoder's input. The output range is -31744..31743.
 * If the lengths allow no whole byte (zero and negative lengths included), nothing is decoded: the
 * record and *bits_len do not change, *pcm_len becomes 0.
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
 * Make exactly one call for every frame of the stream, in order: g711plc_addtohistory_v2 if it
 * arrived, g711plc_dofe_v2 if it was lost. Both take a buffer of one frame and write one frame of
 * output to it, so the output is one continuous stream. A whole receiver:
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
 * The state of one stream, opaque. Declare one, or use any memory of the size and alignment above,
 * for example from malloc.
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

/* Size of one block in bytes: 6496, the same for both rates. */
CVSD_QOR_API int32_t g711plc_GetMemorySize_v2(void);

/*
 * Prepares a block for a new stream. Its history is silence.
 *
 *   block        out     1 block      before: any content; after: every byte is written
 *   sample_rate  in      Hz           8000 or 16000; any other rate is refused. A library that was
 *                                     built with CVSD_QOR_NARROWBAND_ONLY refuses 16000 too
 *
 * Returns 0, or -1 for a refused rate: then the only legal use of the block is to construct it again.
 */
CVSD_QOR_API int32_t g711plc_construct_v2(PlcBlock *block, int32_t sample_rate);

/*
 * Appends a frame that arrived to the history. If it is the first after a loss, the synthetic signal
 * continues into it before that: at 16000 Hz it replaces the first 36 samples, then at both rates it
 * cross-fades to the frame. docs/integrating.md, "Which call when", has the lengths.
 *
 *   block        in/out  1 block      constructed; construction returned 0
 *   frame        in/out  samples      30 or 120; before: as received; after: the output
 */
CVSD_QOR_API void g711plc_addtohistory_v2(PlcBlock *block, int16_t *frame);

/*
 * Conceals a frame that was lost ("dofe": do frame erasure). It repeats the pitch period. From the
 * second lost frame on, the gain falls by a quarter of full scale per frame; from the sixth on, the
 * signal is silent. A loss may have any length, also before the first frame that arrives.
 *
 *   block        in/out  1 block      constructed; construction returned 0
 *   frame        out     samples      30 or 120; before: not read; after: the output
 */
CVSD_QOR_API void g711plc_dofe_v2(PlcBlock *block, int16_t *frame);

/* -------------------------------------------------------------------------------------------------
 * Concealment primitives: the steps of the two calls above, for callers that run the steps
 * themselves. A stream does not need them.
 *
 * Gains and weights are Q15, 32767 for 1. A product of weight and sample is rounded toward minus
 * infinity, a sum of two is limited to 16 bits. `lost` is the number of lost frames since the last
 * good one. Only completed calls of g711plc_dofe_v2 count: the frame that is being made does not.
 * Every n is in samples, that of plc_mem_copy in bytes; if it is below 1, nothing is done.
 * ---------------------------------------------------------------------------------------------- */

/*
 * Reads the next n samples of the repeated pitch segment, from where the last read stopped. After
 * the segment's last sample its first one follows, any number of times.
 *
 *   block        in/out  1 block      constructed; its read position advances
 *   output       out     samples      n of them
 *   n            in      samples
 */
CVSD_QOR_API void PLC_GetSynSpeech(PlcBlock *block, int16_t *output, int32_t n);

/*
 * Appends a frame to the history, then replaces it by the output: the frame of the history that ends
 * one delay before the history's end, 30 samples at 8000 Hz and 60 at 16000 Hz.
 *
 *   block        in/out  1 block      constructed; its history advances by one frame
 *   frame        in/out  samples      30 or 120; before: the newest frame; after: the output
 */
CVSD_QOR_API void PLC_SaveSpeech(PlcBlock *block, int16_t *frame);

/*
 * Attenuation ramp: the gain of the first sample is 32767 - 8191 * (lost - 1), about
 * 1 - (lost - 1) / 4. It falls by 273 per sample at 8000 Hz and by 68 at 16000 Hz, a quarter of full
 * scale over one frame, never below 0. PLC_ScaleSpeech processes one frame, the other n samples.
 *
 *   block        in      1 block      constructed, lost at least 1
 *   frame        in/out  samples      30 or 120
 *   samples      in/out  samples      n of them
 *   n            in      samples
 */
CVSD_QOR_API void PLC_ScaleSpeech(const PlcBlock *block, int16_t *frame);
CVSD_QOR_API void PLC_ScaleSpeech_Reconverge(const PlcBlock *block, int16_t *samples, int32_t n);

/*
 * Cross-fade. Sample i, i = 1..n, weights right with w = i * (32767 / n), where the division rounds
 * down, and left with 32767 - w.
 *
 *   left         in      samples      n of them, fading out
 *   right        in      samples      n of them, fading in
 *   output       out     samples      n of them; may be the same buffer as left or as right
 *   n            in      samples
 */
CVSD_QOR_API void PLC_Ola(const int16_t *left, const int16_t *right, int16_t *output, int32_t n);

/* PLC_Ola over n samples, or over one frame at the block's rate if that is shorter. */
CVSD_QOR_API void PLC_OverlapAdds(const PlcBlock *block, const int16_t *left, const int16_t *right,
                                  int16_t *output, int32_t n);

/*
 * Join at the end of a loss, a cross-fade: the synthetic signal fades out from g, the gain at which
 * PLC_ScaleSpeech starts, the real one fades in. With d = 32767 / n, sample i, i = 1..n, weights real
 * with i * d and synthetic with ((g * (32767 - d)) >> 15) - (i - 1) * ((g * d) >> 15).
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
 *   destination  out     bytes        n of them; may overlap the source: if it begins k bytes after
 *                                     the source's start, the source's first k bytes repeat
 *   source       in      bytes        n of them
 *   n            in      bytes        if below 1, nothing is copied
 */
CVSD_QOR_API void plc_mem_copy(void *destination, const void *source, int32_t n);

/*
 * The pitch search that g711plc_dofe_v2 makes at 8000 Hz when a loss begins.
 *
 *   block        in      1 block      constructed; the search uses its copy of the history, which is
 *                                     made when a loss begins and is all zero before the first loss.
 *                                     The concealment then cross-fades its end, so a search after
 *                                     g711plc_dofe_v2 may find another period
 *
 * Returns a period in samples, 30..120 at 8000 Hz, 40..240 at 16000 Hz: of every second period the
 * one with the highest correlation, or one of its two neighbours if that correlates better.
 */
CVSD_QOR_API int32_t PLC_FindPitch_fix(const PlcBlock *block);

/* -------------------------------------------------------------------------------------------------
 * Wideband pitch tracker, 16000 Hz. The concealment runs it on every frame; callers that need only
 * the pitch can call it directly. Lags and pitches are in samples at 16000 Hz.
 * ---------------------------------------------------------------------------------------------- */

/*
 * State of one stream. To start a stream, set all fields to zero except:
 *   coarse_pitch   100   the previous pitch for the first coarse search
 *   decim_exp      31    above the exponent of any frame, so the first frame decides
 *   refine_len     1     a result; the first call overwrites it
 *   tracked_pitch  50    a result; the first call overwrites it
 *   scratch              pointer to 824 samples that the caller provides
 *
 * A plain record: it may be moved or copied between calls, as long as scratch points at memory that
 * no other call uses at the same time.
 *
 * sig_hist, coarse_pitch, decim_mem, decim_exp and decim_hist carry the state from one call to the
 * next. Every call overwrites all other fields except scratch.
 */
typedef struct PitchTrackerState {
    int32_t lag_energy;     /* energy of the segment at the chosen lag                                     */
    int32_t lag_corr;       /* correlation of the window, the newest samples, with it; -1 if negative      */
    int16_t refine_len;     /* length of window and segment, samples: coarse pitch, at most 120   36..120  */
    int16_t scale_shift;    /* right shift of the signal in lag_energy and lag_corr, 3 for silence   0..3  */
    int16_t sig_hist[561];  /* samples, oldest first: [441..560] the newest frame, [0..440] those before
                               it; a call ends by moving the newest 441 to [0..440] for the next one       */
    int16_t amp_weight;     /* 3/128 of amp_ratio, at least 0                                      0..384  */
    int16_t amp_ratio;      /* amplitude of the window divided by that of the segment, Q14;
                               negative if lag_corr is                                      -16384..16384  */
    int16_t coarse_pitch;   /* coarse pitch of the latest frame                                   36..324  */
    int16_t tracked_pitch;  /* the result: pitch of the latest frame                              40..321  */
    int16_t decim_mem[60];  /* samples, oldest first: the last 60 of the latest frame                      */
    int16_t decim_exp;      /* block exponent of decim_hist: -3 at full scale, 37 after silence    -3..37  */
    int16_t decim_hist[56]; /* samples at 2000 Hz, oldest first: about the signal * 2^(decim_exp - 1)      */
    int16_t *scratch;       /* work area, 824 samples; nothing in it is kept between calls                 */
} PitchTrackerState;

/*
 * Tracks one frame: PLC_Decim, PLC_CoarsePitch and PLC_RefinePitch in turn.
 *
 *   state        in/out  1 record     started as above; the result is its tracked_pitch
 *   frame        in      samples      120; must not lie in the work area
 *
 * Returns 0.
 */
CVSD_QOR_API int32_t PLC_PitchTracker(PitchTrackerState *state, const int16_t *frame);

/*
 * Low-pass filter and decimation by 8.
 *
 *   in           in/out  samples      180: [0..59] filled from decim_mem, [60..179] the frame
 *   out          out     samples      71 at 2000 Hz, oldest first, with one common block exponent:
 *                                     [0..55] previous, [56..70] the frame's
 *   state        in/out  1 record     reads and writes only decim_mem, decim_hist and decim_exp
 */
CVSD_QOR_API void PLC_Decim(int16_t *in, int16_t *out, PitchTrackerState *state);

/*
 * Coarse pitch: normalised autocorrelation of the newest 30 decimated samples, with guards against
 * multiples of the period and a preference for the previous pitch.
 *
 *   state        in      1 record     not read; kept for compatibility of the signature
 *   dec          in      samples      71 at 2000 Hz, oldest first
 *   prev         in      samples      the previous coarse pitch
 *
 * Returns the coarse pitch, 36..324. 40 is also returned if the autocorrelation has no peak, neither
 * a positive nor a negative one.
 */
CVSD_QOR_API uint16_t PLC_CoarsePitch(const PitchTrackerState *state, const int16_t *dec, int16_t prev);

/*
 * Refines a coarse pitch on the full-rate signal. Searches the lags from coarse_pitch - 3 to
 * coarse_pitch + 3 that lie in 40..320. If none does, one lag is taken: 40 for a coarse pitch below
 * that range, coarse_pitch - 3 for one above (324 gives 321).
 *
 *   state         in     1 record     not read; kept for compatibility of the signature
 *   amp_ratio     out    1 value      this and the next five: see the fields of the same names
 *   lag_corr      out    1 value
 *   lag_energy    out    1 value
 *   amp_weight    out    1 value
 *   refine_len    out    1 value
 *   scale_shift   out    1 value
 *   sig_hist      in     samples      561, oldest first
 *   coarse_pitch  in     samples      0..444, 36..324 from the coarse search; other values are limited
 *                                     to 0..444
 *
 * Returns the pitch: 40..321, and up to 441 if the coarse pitch is above 324.
 */
CVSD_QOR_API int16_t PLC_RefinePitch(const PitchTrackerState *state, int16_t *amp_ratio, int32_t *lag_corr,
                                     int32_t *lag_energy, int16_t *amp_weight, int16_t *refine_len,
                                     int16_t *scale_shift, const int16_t *sig_hist, int16_t coarse_pitch);

/*
 * The tracker's tables, Q15: 32768 stands for 1, unlike the gains above. Their names are short. A program
 * that has an x of its own, with -Wshadow even a local one, defines CVSD_QOR_NO_TABLES before it includes
 * this file: the tables are then not declared. In both cases the library's arithmetic never uses the
 * program's x.
 */
#ifndef CVSD_QOR_NO_TABLES
CVSD_QOR_API extern const int16_t bdf[60]; /* decimation filter; [k] weights the sample k before the newest */
CVSD_QOR_API extern const int16_t x[4];    /* 1/8, 2/8, 3/8, 4/8: interpolation points between two lags     */
CVSD_QOR_API extern const int16_t x2[4];   /* their squares                                                 */
CVSD_QOR_API extern const int16_t invk[4]; /* 1/2, 1/3, 1/4, 1/5: sub-multiples of a lag that are tried     */
CVSD_QOR_API extern const int16_t MPTH[4]; /* 0.70, 0.55, 0.48, 0.37: thresholds for the 2nd, 3rd, 4th and
                                              5th multiple of a lag, relative to the strongest lag          */
#endif

#ifdef __cplusplus
}
#endif

#endif /* CVSD_QOR_H */
