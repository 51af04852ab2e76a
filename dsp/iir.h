/* SPDX-License-Identifier: Apache-2.0 */
/**
 * Second-order Butterworth sections, low-pass and high-pass: bilinear transform with the cutoff
 * pre-warped, run as one biquad in single precision over float or 16-bit samples.
 *
 *     y[n] = b0 x[n] + b1 x[n-1] + b2 x[n-2] - a1 y[n-1] - a2 y[n-2]
 *
 * One context belongs to one thread at a time; nothing here locks, allocates or logs.
 */
#ifndef KREL_DSP_IIR_H
#define KREL_DSP_IIR_H

#include <stdint.h>

#include "base/export.h"

KREL_C_BEGIN

/**
 * The context that the iir_float_ and iir_short_ functions take as void*. Storage belongs to the
 * caller.
 */
typedef struct iir_biquad_t {
    float a1;  /**< of y[n-1] */
    float a2;  /**< of y[n-2] */
    float b0;  /**< of x[n] */
    float b1;  /**< of x[n-1] */
    float b2;  /**< of x[n-2] */
    float x1L; /**< x[n-1], left or mono; then the rest of the history of both channels */
    float x1R;
    float x2L;
    float x2R;
    float y1L;
    float y1R;
    float y2L;
    float y2R;
} iir_biquad_t;

/**
 * One section in double precision: the numerator is gain * (1, b1, 1), the denominator (a0, a1,
 * a2).
 */
typedef struct iir_coeff_gen_t {
    double b0; /**< 1.0 */
    double b1; /**< 2.0 for low-pass, -2.0 for high-pass */
    double a0; /**< 1.0 */
    double a1;
    double a2;
    double gain;
} iir_coeff_gen_t;

/**
 * Sets the coefficients of *ctx and clears its history.
 *
 * sampleRate  Hz
 * cutoff      Hz, 1 to just below sampleRate / 2; from there on the filter is of no use, though
 *             still defined
 * type        1: low-pass; any other value: high-pass
 *
 * Returns 0, or -1 with the context untouched when ctx is null or cutoff < 1. A sampleRate of 0
 * gives NaN coefficients.
 */
KREL_EXPORT int iir_float_init(void* ctx, int sampleRate, int cutoff, int type);

/** Clears the history; the coefficients stay. Null: nothing happens. */
KREL_EXPORT void iir_float_reset(void* ctx);

/**
 * Filters n samples (mono) or n interleaved left-right frames (stereo) from in to out, which may be
 * the same buffer. Mono uses the left history. The channels of a stereo stream are two independent
 * mono filters.
 *
 * Returns n, or -1 when a pointer is null; n < 1 returns n and does nothing.
 */
KREL_EXPORT int iir_float_process_mono(void* ctx, float* in, float* out, int n);
KREL_EXPORT int iir_float_process_stereo(void* ctx, float* in, float* out, int n);

/**
 * As above for 16-bit samples: output is truncated toward zero and saturates, NaN gives 0; the
 * history does not saturate.
 */
KREL_EXPORT int iir_short_process_mono(void* ctx, int16_t* in, int16_t* out, int n);
KREL_EXPORT int iir_short_process_stereo(void* ctx, int16_t* in, int16_t* out, int n);

/**
 * Design only. Note the order of the arguments: cutoff before rate, the reverse of
 * iir_float_init().
 *
 * Returns 0, or -1 with *gen untouched when gen is null or cutoff < 1.
 */
KREL_EXPORT int iir_lpf_init_coeffs(iir_coeff_gen_t* gen, int cutoff, int sampleRate);
KREL_EXPORT int iir_hpf_init_coeffs(iir_coeff_gen_t* gen, int cutoff, int sampleRate);

KREL_C_END

#endif
