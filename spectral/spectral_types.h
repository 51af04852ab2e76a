/* SPDX-License-Identifier: Apache-2.0 */
/** Types that the records of the frame-based effects hold. */
#ifndef KREL_SPECTRAL_SPECTRAL_TYPES_H
#define KREL_SPECTRAL_SPECTRAL_TYPES_H

/** One complex value: an interleaved pair, as the FFT reads and writes it. */
typedef struct krel_complex_t {
    float r; /**< real part */
    float i; /**< imaginary part */
} krel_complex_t;

/** Configuration of the FFT for one size; opaque. */
typedef struct krel_fft_t krel_fft_t;

#endif
