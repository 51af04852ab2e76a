// SPDX-License-Identifier: Apache-2.0
// The carrier sound whose phases the spectral vocoder's robot voice speaks with: a sung vowel of 32768 samples within
// +-1, peak 0.5285, trough -0.4430, RMS 0.1747, zero in its first three samples and after sample 32293.
#ifndef KREL_TABLES_CARRIER_H
#define KREL_TABLES_CARRIER_H

namespace krel {

inline constexpr int kCarrierLength = 32768;
// NOLINTBEGIN(bugprone-dynamic-static-initializers): constants, nothing runs to set them
extern const float kCarrier[kCarrierLength];
// NOLINTEND(bugprone-dynamic-static-initializers)

}  // namespace krel

#endif
