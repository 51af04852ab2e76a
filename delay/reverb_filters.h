/* SPDX-License-Identifier: Apache-2.0 */
/**
 * The filters of the reverberator: low-pass-feedback comb, all-pass, DC blocker. All integer.
 *
 * Coefficients are Q13 (8192 is 1.0). Each filter takes and returns one sample per call. A filter
 * belongs to one thread at a time; nothing here locks, and nothing but the two init functions
 * allocates.
 */
#ifndef KREL_DELAY_REVERB_FILTERS_H
#define KREL_DELAY_REVERB_FILTERS_H

#include <stdint.h>

#include "base/export.h"

KREL_C_BEGIN

/** Filters of one channel. */
enum { KREL_REVERB_COMBS = 8, KREL_REVERB_ALLPASSES = 4 };

/**
 * Comb filter with a one-pole low-pass in its loop. Storage belongs to the caller, the line to the
 * record.
 */
typedef struct comber {
    int32_t feedback;    /**< loop gain, Q13 */
    int32_t filterstore; /**< low-pass state, samples times 2^13 */
    int32_t damp1;       /**< weight of the previous low-pass state, Q13 */
    int32_t damp2;       /**< weight of the delayed sample, Q13 */
    int32_t* buffer;     /**< delay line, samples times 2^13 */
    int32_t bufsize;     /**< delay in samples */
    int32_t bufidx;      /**< position of the oldest sample, 0..bufsize-1 */
} comber;

/** All-pass filter. Storage belongs to the caller, the line to the record. */
typedef struct allpass {
    int32_t feedback; /**< Q13 */
    int32_t* buffer;  /**< delay line, samples */
    int32_t bufsize;  /**< delay in samples */
    int32_t bufidx;   /**< position of the oldest sample, 0..bufsize-1 */
} allpass;

/** DC blocker, y[n] = 0.996 (x[n] - x[n-1] + y[n-1]). */
typedef struct dc_remove {
    int64_t y;      /**< previous output times 2^13 */
    int64_t x_prev; /**< previous input times 2^13 */
} dc_remove;

/**
 * Sets every field and allocates the line of `size` samples, zeroed: loop gain 0.5, and a low-pass
 * that lets nothing through until comb_setsetdamp(). Does not free an earlier line. Without a line
 * (size < 1, or memory is short) buffer is null and bufsize 0. Null: nothing happens.
 */
KREL_EXPORT void comb_init(comber* comb, int size);
/** Frees the line and clears its pointer. Null, and a second call, are harmless. */
KREL_EXPORT void comb_end(comber* comb);
/** Loop gain, Q13. Any value is safe; at 8192 and above the loop does not decay. */
KREL_EXPORT void comb_setfeedback(comber* comb, int feedback);
/** Damping, Q13: 0 leaves the loop as bright as it is, 8192 closes it. Any value is safe. */
KREL_EXPORT void comb_setsetdamp(comber* comb, int damp);
/**
 * Returns the sample of bufsize calls ago and feeds `input` into the loop. 0 for null and without a
 * line.
 */
KREL_EXPORT int comb_process(int input, comber* comb);

/**
 * Sets every field and allocates the line of `size` samples, zeroed: coefficient 0.5. Does not free
 * an earlier line. Without a line (size < 1, or memory is short) buffer is null and bufsize 0.
 * Null: nothing happens.
 */
KREL_EXPORT void allpass_init(allpass* ap, int size);
/** Frees the line and clears its pointer. Null, and a second call, are harmless. */
KREL_EXPORT void allpass_end(allpass* ap);
/** Coefficient, Q13. Any value is safe. */
KREL_EXPORT void allpass_setfeedback(allpass* ap, int feedback);
/**
 * One sample of (g + z^-N) / (1 + g z^-N), the exact all-pass. Returns `input` for null and without
 * a line.
 */
KREL_EXPORT int allpass_process(int input, allpass* ap);

/** Clears the state. Null: nothing happens. */
KREL_EXPORT void dc_remove_init(dc_remove* dc);
/** Clears the state. Null: nothing happens. */
KREL_EXPORT void dc_remove_end(dc_remove* dc);
/**
 * One sample from *in to *out, which may be the same. Rounds toward minus infinity. Null arguments:
 * nothing happens.
 */
KREL_EXPORT void dc_remove_process(dc_remove* dc, int32_t* in, int32_t* out);

KREL_C_END

#endif
