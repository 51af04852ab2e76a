/* SPDX-License-Identifier: Apache-2.0 */
/**
 * Vocal formant processor for one channel of 16-bit PCM. Keeps the phase of every partial, and so
 * the pitch, and changes magnitudes in two independent ways:
 *
 * - formant shift, for ratios below 1: each frame's smoothed spectral envelope is squeezed along
 *   the frequency axis by the ratio, and the quotient of the squeezed and the original envelope is
 *   the gain of each bin, limited to 1/32..32;
 * - formant EQ: a fixed gain curve over frequency, one of five.
 *
 * An unchanged spectrum comes back with a gain of 0.75. The audible delay is fft_size samples (1024
 * below 32 kHz, else 2048).
 *
 * One instance belongs to one thread at a time; nothing here locks.
 */
#ifndef KREL_SPECTRAL_VOCAL_H
#define KREL_SPECTRAL_VOCAL_H

#include <stdint.h>

#include "base/export.h"
#include "dsp/iir.h"
#include "spectral/spectral_types.h"

KREL_C_BEGIN

struct SpeexResamplerState_;

/**
 * State. Storage belongs to the caller, everything that it points to (but the window) to the
 * record. N is fft_size.
 */
typedef struct vocal_ctx_t {
    float formant_ratio;        /**< 0.4..2; from 1 up formants stay where they are */
    int32_t fft_size;           /**< N: 1024 or 2048 */
    int32_t overlap;            /**< 4 */
    int32_t half_size;          /**< N / 2 */
    int32_t hop;                /**< N / 4, samples from frame to frame */
    int32_t latency;            /**< N - hop */
    int32_t rover;              /**< write position in in_fifo, latency..N-1 between calls */
    double freq_per_bin;        /**< Hz; kept for reference */
    double expected_phase_step; /**< phase advance of bin 1 per hop, radians; kept for reference */
    float* in_block;            /**< [N] the call's input, +-1 scale */
    float* out_block;           /**< [N] the call's output, +-1 scale */
    float* in_fifo;             /**< [N] analysis frame being filled */
    float* out_fifo;            /**< [N] finished samples, the first hop used */
    const float* window;        /**< [N] Hann */
    krel_complex_t* fft_in;     /**< [N] windowed frame, later the inverse transform */
    krel_complex_t* fft_out;    /**< [N] spectrum, later the one to synthesise */
    krel_fft_t* fft_cfg;        /**< null: nothing to process with, audio passes through */
    float* spare_a;             /**< [N/2+1] unused */
    float* spare_b;             /**< [N/2+1] unused */
    float* output_accum;        /**< [2N] overlap-add accumulator */
    float* phase;               /**< [N/2] analysed phase per bin */
    float* magnitude;           /**< [N/2] analysed magnitude per bin */
    float* envelope;            /**< [N/2] smoothed magnitudes, times 256 */
    float* syn_phase;           /**< [N/2] phase to synthesise */
    float* syn_magn;            /**< [N/2] magnitude to synthesise */
    float* shifted_envelope;    /**< [N] the envelope, squeezed; whole numbers of 16 bits */
    /** bins; kept for reference: the lag that processing makes up for is always 10 */
    int32_t envelope_delay;
    iir_biquad_t envelope_filter; /**< low-pass along the bins, cleared after every frame */
    struct SpeexResamplerState_* resampler; /**< squeezes the envelope, cleared after every frame */
    int32_t fdeq_mode;                      /**< below 1: no EQ, 1..5: curve */
    float* eq_gain;                         /**< [N/2] linear gain per bin, all 0 without EQ */
} vocal_ctx_t;

/**
 * Sets every field of the vocal_ctx_t at ctx, whatever it held. Does not free an earlier init: call
 * vocal_deinit() first.
 *
 * sample_rate    Hz, any value. Above the EQ curve's last breakpoint its last cubic piece goes on,
 *                but never above that breakpoint's gain; at a negative rate the first gain holds
 *                for all bins
 * formant_ratio  new formant frequency / old, 0.4..2; NaN counts as 1
 * fdeq_mode      1..5: EQ curve; every other value: no EQ
 *
 * Returns 0, or -1 with the record untouched for a null ctx or a ratio out of range (which is
 * logged). When memory is short the result is still 0: the record then owns nothing and
 * vocal_process() passes audio through.
 */
KREL_EXPORT int vocal_init(void* ctx, int sample_rate, float formant_ratio, int fdeq_mode);

/**
 * Processes `frames` samples from in to out, which may be the same buffer. Any number of frames;
 * the stream may be cut into calls anywhere. Digital silence gives silence.
 *
 * Returns frames, 0 for frames < 1, -1 for a null pointer. Real time: allocates nothing.
 */
KREL_EXPORT int vocal_process(void* ctx, int16_t* in, int16_t* out, int frames);

/** Releases what the record owns and clears its pointers; null, and a second call, are harmless. */
KREL_EXPORT void vocal_deinit(void* ctx);

KREL_C_END

#endif
