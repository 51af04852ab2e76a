/* SPDX-License-Identifier: Apache-2.0 */
/**
 * Reverberator: per channel eight parallel comb filters into four all-passes, mixed with the direct
 * sound, then a DC blocker. 16-bit samples, all integer; gains are Q13 (8192 is 1.0). Delays are
 * fixed in samples, whatever the rate.
 *
 * Order of calls: reverb_init(), any setters, reverb_update(), any number of process calls,
 * reverb_end().
 *
 * One instance belongs to one thread at a time; nothing here locks. A null record is ignored
 * everywhere.
 */
#ifndef KREL_DELAY_REVERB_H
#define KREL_DELAY_REVERB_H

#include <stdint.h>

#include "base/export.h"
#include "delay/reverb_filters.h"

KREL_C_BEGIN

/** State. Storage belongs to the caller, everything it points to to the record. */
typedef struct reverb_t {
    int32_t wet;      /**< wet level, Q13, three times the set value */
    int32_t wet1;     /**< wet gain of the own channel, Q13; from reverb_update() */
    int32_t wet2;     /**< wet gain of the other channel, Q13; from reverb_update() */
    int32_t dry;      /**< dry gain, Q13, twice the set value */
    int32_t roomsize; /**< comb feedback, Q13 */
    int32_t damp;     /**< comb damping, Q13 */
    int32_t width;    /**< stereo width, Q13 */
    int32_t gain;     /**< input gain into the combs, Q13 */
    comber* combL[KREL_REVERB_COMBS];
    comber* combR[KREL_REVERB_COMBS];
    allpass* allpassL[KREL_REVERB_ALLPASSES];
    allpass* allpassR[KREL_REVERB_ALLPASSES];
    dc_remove* dcL;
    dc_remove* dcR;
} reverb_t;

/**
 * Sets every field and builds both channels: room size 0.5, damping 0.5, wet 1/3, dry 0, width 1.0.
 * Does not free what an earlier init built: call reverb_end() first.
 *
 * Returns 0, or -1 when memory is short: nothing stays allocated then, and processing passes audio
 * through unchanged.
 */
KREL_EXPORT int reverb_init(reverb_t* rv);
/** Frees both channels and clears their pointers; the levels stay. A second call is harmless. */
KREL_EXPORT void reverb_end(reverb_t* rv);
/** Brings wet level, width, room size and damping into effect. */
KREL_EXPORT void reverb_update(reverb_t* rv);

/**
 * Room size, Q13, 0 to 1.0; takes effect with reverb_update(). Like all setters, safe for any
 * value.
 */
KREL_EXPORT void reverb_setroomsize(reverb_t* rv, int value);
/** High-frequency damping, Q13, 0 to 1.0; takes effect with reverb_update(). */
KREL_EXPORT void reverb_setdamp(reverb_t* rv, int value);
/** Wet level, Q13; takes effect with reverb_update(). */
KREL_EXPORT void reverb_setwet(reverb_t* rv, int value);
/** Dry level, Q13; takes effect at once. */
KREL_EXPORT void reverb_setdry(reverb_t* rv, int value);
/**
 * Stereo width, Q13, 0 to 1.0; takes effect with reverb_update(). The mono wet level depends on it,
 * too.
 */
KREL_EXPORT void reverb_setwidth(reverb_t* rv, int value);
/** Input gain into the combs, Q13; takes effect at once. */
KREL_EXPORT void reverb_setgain(reverb_t* rv, int value);

/**
 * Processes n mono samples with the left channel, from in to out, which may be the same buffer but
 * must not overlap otherwise. Splitting a stream into calls does not change the output; the direct
 * sound is not delayed.
 *
 * The mix is 32-bit and wraps beyond it (levels far above 1.0), the output saturates. All shifts
 * round toward minus infinity: a tail may end at -1. n < 1 or null buffers: nothing happens. After
 * reverb_end() or a failed init the audio passes through. Real time: allocates nothing.
 */
KREL_EXPORT void reverb_process_mono(reverb_t* rv, int16_t* in, int16_t* out, int n);

/**
 * The same for n frames of two channels in separate buffers. An output may be its own input, or the
 * other channel's as long as both are swapped.
 */
KREL_EXPORT void reverb_process_stereo(reverb_t* rv, int16_t* inL, int16_t* inR, int16_t* outL,
                                       int16_t* outR, unsigned int n);

KREL_C_END

#endif
