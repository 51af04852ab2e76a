/* SPDX-License-Identifier: Apache-2.0 */
/**
 * Phase-vocoder pitch shifter: 16-bit mono PCM in and out, duration kept, every partial's frequency
 * multiplied by a factor.
 *
 * Frames of N samples (512 below 16 kHz, 1024 below 32 kHz, else 2048) are analysed every N/4
 * samples. On top of the plain shift a second, frequency-dependent pass adds to the same bins, the
 * lowest three bins are ramped in, the band fades out between 5/8 and 7/8 of the Nyquist frequency
 * and a trapezoid lifts its lower half. What exceeds full scale saturates.
 *
 * Sound comes out N samples after it went in: 3N/4 wait in the FIFOs, and a frame's newest samples
 * are at its faded end.
 *
 * One instance belongs to one thread at a time; nothing here locks.
 */
#ifndef KREL_SPECTRAL_PITCH_H
#define KREL_SPECTRAL_PITCH_H

#include <stdint.h>

#include "base/export.h"
#include "spectral/spectral_types.h"

KREL_C_BEGIN

/**
 * State. Storage belongs to the caller, the buffers to the record; N is fft_size, "bins" are
 * 0..N/2.
 */
typedef struct pitch_ctx_t {
    float scale;                /**< output frequency over input frequency, 0..fft_size */
    int32_t fft_size;           /**< N: 512, 1024 or 2048 */
    int32_t overlap;            /**< frames that cover a sample: 4 */
    int32_t half_size;          /**< N/2, the Nyquist bin */
    int32_t hop;                /**< N/4 samples from frame to frame */
    int32_t latency;            /**< N - hop, samples that wait in the FIFOs */
    int32_t rover;              /**< write position in in_fifo, latency..N-1 */
    double freq_per_bin;        /**< Hz */
    double expected_phase_step; /**< advance of bin 1 per hop, radians */
    float* in_block;            /**< N input samples, full scale 1.0 */
    float* out_block;           /**< N output samples, full scale 1.0 */
    float* in_fifo;             /**< N, the frame being filled */
    float* out_fifo;            /**< N, finished samples in the first hop */
    float* last_phase;          /**< N/2+1, analysed phase of the previous frame */
    float* sum_phase;           /**< N/2+1, synthesis phase; up to 2^21, or kept below -64 */
    float* output_accum;        /**< 2N, overlap-add accumulator */
    float* ana_freq;            /**< N, analysed frequency per bin, Hz */
    float* ana_magn;            /**< N, analysed magnitude per bin */
    float* syn_freq;            /**< N, frequency per bin after the shift, Hz */
    float* syn_magn;            /**< N, magnitude per bin after the shift */
    krel_complex_t* fft_in;     /**< N, windowed frame, then the inverse transform */
    krel_complex_t* fft_out;    /**< N, spectrum */
    krel_fft_t* fft_cfg;        /**< null: the record is unusable */
    const float* window;        /**< N values, a constant table */
} pitch_ctx_t;

/**
 * Sets every field of the pitch_ctx_t at ctx and allocates its buffers, zeroed. Buffers of an
 * earlier init are not freed: call pitch_deinit() first.
 *
 * sample_rate  Hz; a negative one is taken for its size only. At 0 there is no frequency scale: the
 *              record is unusable.
 * scale        pitch factor. Below 0 and NaN count as 0 (everything lands in bin 0, which is
 *              silent); above fft_size, where nothing but bin 0 has a target left, it is taken as
 *              fft_size.
 *
 * Always returns 0. When memory is short everything is released and the record is unusable: fft_cfg
 * is null, pitch_process() passes samples through, pitch_deinit() is harmless. Null ctx: nothing
 * happens.
 */
KREL_EXPORT int pitch_init(void* ctx, int sample_rate, float scale);

/**
 * Shifts `frames` 16-bit samples from in to out, which may be the same buffer; any number of
 * frames, in any splitting.
 *
 * Returns frames, 0 for frames < 1, -1 when ctx, in or out is null; nothing is written then.
 * Real time: allocates nothing.
 */
KREL_EXPORT int pitch_process(void* ctx, int16_t* in, int16_t* out, int frames);

/**
 * Frees the buffers and clears their pointers; the record stays the caller's. Null, and a second
 * call, are harmless.
 */
KREL_EXPORT void pitch_deinit(void* ctx);

KREL_C_END

#endif
