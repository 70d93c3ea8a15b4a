/*
 * libcvsd_qor: voice routines for a synchronous voice link.
 *
 *   CVSD_*     CVSD codec, one bit per sample
 *   g711plc_*  packet loss concealment, one call per frame
 *   PLC_*      the primitives that the concealment is made of
 *
 * C99 and C++. Pure integer computation on memory that the caller owns: no allocation, no locks, no global mutable
 * state, no floating point, the same output bits on every processor.
 *
 * Common to all functions
 *   - Pointers and lengths are trusted: none may be NULL, none is checked against the memory behind it.
 *   - Buffers are aligned for their element type and, unless a function says otherwise, do not overlap.
 *   - A sample is signed 16-bit linear PCM in native byte order.
 *   - Calls on different state records or blocks may run on different threads at once; calls on the same one are made
 *     one at a time.
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
 * Bit k of a stream is bit (k mod 8) of byte (k div 8), least significant first. A bit of 1 steps the reconstructed
 * signal down, 0 steps it up. One record per direction and stream; encoder and decoder records are alike.
 * ------------------------------------------------------------------------------------------------------------- */

typedef struct CvsdState {
    int32_t accumulator; /* reconstructed signal, 64 units per PCM unit     -2097151..2097151                   */
    int32_t step;        /* step size, 1024 units per PCM unit              0 after Init, then 10240..1310720   */
    int32_t run_bits;    /* the last four bits, newest in bit 3             0..15                               */
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
 * Where the lengths allow no whole byte (zero and negative ones included), nothing is encoded, the record and pcm_len
 * stay as they are, bits_len becomes 0.
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
 * Where the lengths allow no whole byte (zero and negative ones included), nothing is decoded, the record and bits_len
 * stay as they are, pcm_len becomes 0.
 */
CVSD_QOR_API void CVSD_DEC_Process(CvsdState *state, const uint8_t *bits, int32_t *bits_len, int16_t *pcm,
                                   int32_t *pcm_len);

#ifdef __cplusplus
}
#endif

#endif /* CVSD_QOR_H */
