// SPDX-License-Identifier: Apache-2.0
// The transform of the frame-based effects, for real signals. Forward is unscaled, inverse
// multiplies by 1/N: every gain in this folder assumes exactly that.
#ifndef KREL_SPECTRAL_TRANSFORM_H
#define KREL_SPECTRAL_TRANSFORM_H

#include <stdint.h>

#include "spectral/spectral_types.h"

namespace krel {

/// Transform size of effects that use all three sizes: 512 points below 16 kHz, 1024 below 32 kHz,
/// else 2048. A rate of 0 or less counts as a high one.
constexpr int32_t fft_size_for_rate(int sample_rate) {
    if (sample_rate < 1 || sample_rate >= 32000) return 2048;
    return sample_rate < 16000 ? 512 : 1024;
}

/// Transform size of effects that need finer bins at low rates: 1024 points for every rate below 32
/// kHz, also for 0 and less, else 2048.
constexpr int32_t long_fft_size_for_rate(int sample_rate) {
    return sample_rate < 32000 ? 1024 : 2048;
}

/// Configuration for 512, 1024 or 2048 points; null when memory is short.
krel_fft_t* fft_create(int32_t size);

/// Frees the configuration and clears the pointer; null is harmless.
void fft_destroy(krel_fft_t*& cfg);

/// X[k] = sum over n of x[n] exp(-2 pi i k n / N), k = 0..N/2, written to `spectrum`, which is N
/// values long and lends its upper half as scratch. x lies in the first half of `work`, two samples
/// to a complex value; all N values of it change.
void fft_forward(krel_fft_t* cfg, krel_complex_t* work, krel_complex_t* spectrum);

/// x[n] = 1/N times the real part of the sum over k = 0..N/2 of X[k] exp(2 pi i k n / N). Storage
/// as for fft_forward().
void fft_inverse(krel_fft_t* cfg, krel_complex_t* spectrum, krel_complex_t* work);

}  // namespace krel

#endif
