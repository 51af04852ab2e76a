/* SPDX-License-Identifier: Apache-2.0 */
/**
 * Dynamic range compressor: a block-wise integer peak limiter with a look-ahead delay line.
 *
 * Input samples are 32-bit values on the 16-bit scale that may exceed its range; output is
 * saturated 16-bit. Once per call a target gain is derived from a smoothed peak; per sample the
 * applied gain glides to the least target of the last few calls and multiplies the delayed input.
 * Gains are fixed point: Q13 (8192 is 1.0) and Q17 (131072 is 1.0).
 *
 * One instance belongs to one thread at a time; nothing here locks.
 */
#ifndef KREL_DSP_DRC_H
#define KREL_DSP_DRC_H

#include <stdint.h>

#include "base/export.h"

KREL_C_BEGIN

/** Settings, read by drc_init() only. */
typedef struct drc_params_t {
    /** past blocks whose target gains are kept besides the current one; 1 or more */
    int32_t history_blocks;
    /** samples; the delay line holds history_blocks * delay_unit of them; 1 or more */
    int32_t delay_unit;
    /** the envelope rises by (level - envelope) >> attack_shift per block, 0..31 */
    int32_t attack_shift;
    int32_t release_shift; /**< the same for falling, 0..31 */
    int32_t threshold;     /**< envelope ceiling on the 16-bit sample scale, positive */
    int32_t gain;          /**< target gain, Q13 */
    /** mean level below which the gate gain sinks; below 3 it is taken as 2 */
    int32_t noise_floor;
} drc_params_t;

/** State. Storage belongs to the caller, the two arrays to the record. */
typedef struct drc_t {
    int32_t threshold;
    int32_t attack_shift;
    int32_t release_shift;
    int32_t gain;         /**< Q13 */
    int32_t current_gain; /**< applied to samples, Q17; starts at half the target */
    int32_t envelope;     /**< smoothed peak times target gain, 16-bit scale */
    int32_t gate_gain;    /**< Q17; tracked, never applied */
    int32_t mean_level;   /**< smoothed mean absolute level */
    int32_t noise_floor;  /**< 2 or more */
    int32_t history_len;  /**< index of the newest slot of gain_history */
    int32_t delay_unit;
    int32_t* gain_history; /**< history_len + 1 target gains, Q17, oldest first */
    int32_t* delay_line;   /**< delay_len samples, circular */
    int32_t delay_pos;
    int32_t delay_len; /**< samples by which output lags input */
} drc_t;

/**
 * Sets every field of *drc from *params and allocates the two arrays, zeroed. Does not free arrays
 * of an earlier init: call drc_deinit() first. After a failed allocation, or with a history or
 * delay length below 1, drc_process() processes no sample and leaves its output as it was. Null
 * arguments: nothing happens.
 */
KREL_EXPORT void drc_init(drc_t* drc, drc_params_t* params);

/** Frees both arrays and clears their pointers. Null, and a second call, are harmless. */
KREL_EXPORT void drc_deinit(drc_t* drc);

/**
 * Compresses one block of n samples from in to out, which must not overlap; out lags in by
 * delay_len samples.
 *
 * n < 1 touches no sample but moves the smoothed states as a silent block does. Channels are
 * unknown here: one stream.
 * Real time: allocates nothing.
 */
KREL_EXPORT void drc_process(drc_t* drc, int32_t* in, int16_t* out, int n);

/**
 * Returns the largest |in[i]| of n samples, at least 0, and writes their mean absolute value to
 * *mean (0 for n < 1). INT32_MIN counts as 2^31 in the mean and is ignored by the peak.
 */
KREL_EXPORT int find_current_max_drc(int32_t* in, int32_t* mean, int n);

KREL_C_END

#endif
