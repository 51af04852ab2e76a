/* SPDX-License-Identifier: Apache-2.0 */
/**
 * An envelope follower over a block of values and a shift register made of an array. Both serve the
 * formant processor, where the "block" is a magnitude spectrum and the follower smooths it along
 * the bins.
 */
#ifndef KREL_SPECTRAL_ENVELOPE_H
#define KREL_SPECTRAL_ENVELOPE_H

#include "base/export.h"

KREL_C_BEGIN

/**
 * out[i] = 256 sqrt(|filtered in^2|): the running root mean square of in, times 256.
 *
 * filter  biquad context set up by iir_float_init(); a low-pass smooths. Its history carries over
 *         from call to call
 * in      n values; out may be the same array
 *
 * Returns what filtering returned: n, also when n < 1 and nothing was done, or -1 for a null
 * pointer.
 */
KREL_EXPORT int envelope_detect(void* filter, float* in, float* out, int n);

/**
 * Moves the len values of buf by `shift` places, in place, and fills with zeros: toward the start
 * for direction 1, toward the end for every other direction. A shift below 1 or above len moves
 * nothing.
 *
 * Returns buf.
 */
KREL_EXPORT float* roll_queue(float* buf, int len, int shift, int direction);

KREL_C_END

#endif
