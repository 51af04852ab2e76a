/* SPDX-License-Identifier: Apache-2.0 */
/**
 * Spectral vocoder: 16-bit mono PCM in and out. Each frame of the voice keeps its magnitude
 * spectrum; every bin's phase is replaced by a fixed one, taken once from a carrier sound. The
 * phases never advance, so the output repeats its pattern every hop: a robot's voice on the hop
 * rate's pitch.
 *
 * Frames have N samples (1024 below 32 kHz, else 2048) and overlap four-fold. Sound comes out N
 * samples after it went in: 3N/4 wait in the FIFOs, and a frame's newest samples are at its faded
 * end.
 *
 * One instance belongs to one thread at a time; nothing here locks.
 */
#ifndef KREL_SPECTRAL_VOCODER_H
#define KREL_SPECTRAL_VOCODER_H

#include <stdint.h>

#include "base/export.h"
#include "spectral/spectral_types.h"

KREL_C_BEGIN

/**
 * State. Storage belongs to the caller, the buffers to the record; N is fft_size, "bins" are
 * 0..N/2.
 */
typedef struct vocoder_ctx_t {
    int32_t fft_size;        /**< N: 1024 or 2048 */
    int32_t overlap;         /**< frames that cover a sample: 4 */
    int32_t half_size;       /**< N/2, the Nyquist bin */
    int32_t hop;             /**< N/4 samples from frame to frame */
    int32_t latency;         /**< N - hop, samples that wait in the FIFOs */
    int32_t rover;           /**< write position in in_fifo, latency..N-1 */
    float* in_block;         /**< N input samples, full scale 1.0 */
    float* out_block;        /**< N output samples, full scale 1.0 */
    float* in_fifo;          /**< N, the frame being filled */
    float* out_fifo;         /**< N, finished samples in the first hop */
    krel_complex_t* fft_in;  /**< N, windowed frame, then the inverse transform */
    krel_complex_t* fft_out; /**< N, spectrum */
    krel_fft_t* fft_cfg;     /**< null: the record is unusable */
    float* magnitude;        /**< N/2+1, the frame's magnitudes */
    float* carrier_phase;    /**< N/2+1, radians, -pi..pi */
    float* output_accum;     /**< 2N, overlap-add accumulator */
    const float* window;     /**< N values, a constant table */
} vocoder_ctx_t;

/**
 * Sets every field of the vocoder_ctx_t at ctx and allocates its buffers, zeroed. Buffers of an
 * earlier init are not freed: call vocoder_deinit() first.
 *
 * sample_rate  Hz; only chooses N, and 0 or less counts as a low rate
 * carrier      480 + N samples, of which the last N are read, in this call only; silence gives
 *              phase 0 in every bin
 *
 * Returns 0, or -1 for a null ctx or carrier. After a null carrier, and when memory is short (which
 * returns 0), nothing is held and the record is unusable: fft_cfg is null, vocoder_process() passes
 * samples through, vocoder_deinit() is harmless.
 */
KREL_EXPORT int vocoder_init(void* ctx, int sample_rate, const float* carrier);

/**
 * Processes `frames` 16-bit samples from in to out, which may be the same buffer; any number of
 * frames, in any splitting. Output beyond full scale wraps around, it does not clip.
 *
 * Returns frames, 0 for frames < 1, -1 when ctx, in or out is null; nothing is written then.
 * Real time: allocates nothing.
 */
KREL_EXPORT int vocoder_process(void* ctx, int16_t* in, int16_t* out, int frames);

/**
 * Frees the buffers and clears their pointers; the record stays the caller's. Null, and a second
 * call, are harmless.
 */
KREL_EXPORT void vocoder_deinit(void* ctx);

KREL_C_END

#endif
