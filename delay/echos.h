/* SPDX-License-Identifier: Apache-2.0 */
/**
 * Echo generator: up to six pure delays mixed with the direct sound, on 16-bit mono samples.
 *
 * calculate_echos() chooses delays and levels, echos_init() builds the delay lines, echos_process()
 * runs them. Levels are in 1/128 units. A tap's level scales the direct sound, not the echo: every
 * echo comes back at a quarter.
 *
 * One instance belongs to one thread at a time; nothing here locks.
 */
#ifndef KREL_DELAY_ECHOS_H
#define KREL_DELAY_ECHOS_H

#include <stdint.h>

#include "base/export.h"

KREL_C_BEGIN

enum { KREL_ECHO_TAPS = 6 };

/** State. Storage belongs to the caller, the lines to the record. */
typedef struct echos_t {
    int32_t dry;                     /**< direct-sound level, 1/128 units */
    int32_t tap_count;               /**< accepted taps */
    int32_t pos[KREL_ECHO_TAPS];     /**< position in the line, 0..len-1 */
    int32_t len[KREL_ECHO_TAPS];     /**< delay in samples; 0 for a rejected tap */
    int32_t tap_out[KREL_ECHO_TAPS]; /**< contribution to the latest output sample */
    int32_t gain[KREL_ECHO_TAPS];    /**< level, 1/128 units; 0 for a rejected tap */
    int32_t* line[KREL_ECHO_TAPS];   /**< the last len inputs, each >> 2; null for a rejected tap */
} echos_t;

/**
 * Writes the delays (samples) and levels (1/128 units) of a room's echoes at `rate` Hz.
 *
 * delays, gains  KREL_ECHO_TAPS entries each, zeroed by the caller; entries that the variant does
 *                not use are left alone
 * variant        0: three echoes, 1: four, any other value: six
 *
 * The later delays are jittered by draws from rand(), which nobody here seeds: every process hears
 * the same sequence. Any rate is safe; rates below some 40 Hz give delays of 0, negative rates
 * negative ones. Null arrays: nothing happens and nothing is drawn. The result has no meaning.
 */
KREL_EXPORT int calculate_echos(int rate, int* delays, int* gains, int variant);

/**
 * Sets every field of the echos_t at `echos` and allocates the lines, zeroed. Does not free lines
 * of an earlier init: call echos_deinit() first.
 *
 * delays, gains  KREL_ECHO_TAPS entries each; a tap needs both to be 1 or more, or else it is
 *                rejected
 * dry            direct-sound level, 1/128 units
 *
 * A tap is also rejected when its line cannot be allocated or would take all lines together beyond
 * 64 MiB. Processing walks as many tap positions as were accepted, so rejected ones are expected at
 * the end. A null record or null arrays: nothing happens. Returns 0 always.
 */
KREL_EXPORT int echos_init(void* echos, int* delays, int* gains, int dry);

/**
 * Processes n mono samples from in to out, which may be the same buffer but must not overlap
 * otherwise.
 *
 * Splitting a stream into calls does not change the output. Without accepted taps the output is the
 * input at the direct level. Returns n, or -1 (nothing done) for a null argument; n < 1 touches
 * nothing.
 * Real time: allocates nothing. No latency of its own.
 */
KREL_EXPORT int echos_process(void* echos, int16_t* in, int16_t* out, int n);

/** Frees the lines and clears their pointers. Null, and a second call, are harmless. */
KREL_EXPORT void echos_deinit(void* echos);

KREL_C_END

#endif
