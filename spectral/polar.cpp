// SPDX-License-Identifier: Apache-2.0
#include "spectral/polar.h"

#include <math.h>

#include "base/fast_paths.h"
#include "spectral/trig.h"

namespace krel {

KREL_FAST
void spectrum_magnitudes(const krel_complex_t* spectrum, float* magnitude, int bins) {
    for (int k = 0; k < bins; ++k) {
        const krel_complex_t x = spectrum[k];
        magnitude[k] = 2.0f * sqrtf(x.r * x.r + x.i * x.i);
    }
}

KREL_FAST void spectrum_phases(const krel_complex_t* spectrum, float* phase, int bins) {
    for (int k = 0; k < bins; ++k) phase[k] = bin_atan2(spectrum[k].i, spectrum[k].r);
}

KREL_FAST
void spectrum_from_polar(const float* magnitude, const float* phase, krel_complex_t* spectrum,
                         int bins) {
    for (int k = 0; k < bins; ++k) {
        float sine;
        float cosine;
        bin_sincos(phase[k], &sine, &cosine);
        spectrum[k] = {magnitude[k] * cosine, magnitude[k] * sine};
    }
}

}  // namespace krel
