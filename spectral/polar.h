// SPDX-License-Identifier: Apache-2.0
// Spectra as magnitude and phase per bin. Single precision; the arrays of one call must not
// overlap.
#ifndef KREL_SPECTRAL_POLAR_H
#define KREL_SPECTRAL_POLAR_H

#include "spectral/spectral_types.h"

namespace krel {

/// magnitude[k] = 2 |spectrum[k]|: the amplitude of a partial is split over a bin and its mirror
/// image.
void spectrum_magnitudes(const krel_complex_t* spectrum, float* magnitude, int bins);

/// phase[k] = atan2f(im, re), -pi..pi; the sign of a zero counts.
void spectrum_phases(const krel_complex_t* spectrum, float* phase, int bins);

/// spectrum[k] = magnitude[k] (cos phase[k] + i sin phase[k]); |phase[k]| up to 2^36, see
/// kLargestPhase.
void spectrum_from_polar(const float* magnitude, const float* phase, krel_complex_t* spectrum,
                         int bins);

}  // namespace krel

#endif
