/* SPDX-License-Identifier: Apache-2.0 */
/**
 * Parametric equaliser: a cascade of up to five biquads with the caller's coefficients, for 32-bit
 * stereo in separate channel buffers or 16-bit mono. All integer; coefficients are Q28 (2^28 is
 * 1.0).
 *
 * One instance belongs to one thread at a time; nothing here locks.
 */
#ifndef KREL_DSP_PEQ_H
#define KREL_DSP_PEQ_H

#include <stdint.h>

#include "base/export.h"

KREL_C_BEGIN

enum { KREL_PEQ_BANDS = 5 };

/** One band: y[n] = b0 x[n] + b1 x[n-1] + b2 x[n-2] + a1 y[n-1] + a2 y[n-2]. */
typedef struct peq_band_param_t {
    int32_t enabled; /**< 1 or more counts the band; only the number of enabled bands matters */
    int32_t b0;      /**< Q28, as all coefficients */
    int32_t b1;
    int32_t b2;
    int32_t a1; /**< the negated denominator coefficient: it is added */
    int32_t a2;
} peq_band_param_t;

/** Settings, read by peq_init() only. */
typedef struct peq_stereo_param_t {
    peq_band_param_t band[KREL_PEQ_BANDS];
} peq_stereo_param_t;

/**
 * Returns an equaliser at rest for peq_deinit(), or null without parameters or memory.
 *
 * The enable flags are only counted: with k of them set, bands 0 to k-1 run, whichever carry the
 * flag. Enable bands from the first one on.
 */
KREL_EXPORT void* peq_init(const peq_stereo_param_t* params);

/**
 * Filters n samples per channel. Each output may be its own input, or the other channel's as long
 * as both are swapped.
 *
 * Sums are 64-bit, and the low 32 bits of each band's result count: beyond 32 bits it wraps,
 * nothing saturates. With no band enabled the input is copied. Splitting a stream into calls does
 * not change the output. n < 1 or null arguments: nothing happens. Real time: allocates nothing.
 */
KREL_EXPORT void peq_stereo_process(void* state, int32_t* inL, int32_t* inR, int32_t* outL,
                                    int32_t* outR, int n);

/**
 * The same for n mono samples, with the left channel's history; the output is saturated to 16 bits,
 * bands are not.
 */
KREL_EXPORT void peq_mono_process(void* state, int16_t* in, int16_t* out, int n);

/** Frees the equaliser. Null is accepted. */
KREL_EXPORT void peq_deinit(void* state);

KREL_C_END

#endif
