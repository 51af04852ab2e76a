// SPDX-License-Identifier: Apache-2.0
// atan2 and sincos for whole spectra: no branches and no calls, so that loops over bins vectorise.
// The polynomials are minimax fits in single precision (Remez exchange on the relative error); the
// arguments of sincos are reduced in double.
#ifndef KREL_SPECTRAL_TRIG_H
#define KREL_SPECTRAL_TRIG_H

#include <stdint.h>

#include <bit>

namespace krel {

inline constexpr double kPi = 3.141592653589793;

/// atan2f(y, x) within 3 ulp, also for zeros of either sign. x and y finite.
inline float bin_atan2(float y, float x) {
    constexpr auto kHalfTurn = static_cast<float>(kPi);
    constexpr auto kQuarterTurn = static_cast<float>(kPi / 2.0);
    const float ay = __builtin_fabsf(y);
    const float ax = __builtin_fabsf(x);
    const float low = ay < ax ? ay : ax;
    const float high = ay < ax ? ax : ay;
    const float z = low / (high == 0.0f ? 1.0f : high);
    const float z2 = z * z;
    float series = 0.002920692575f;
    series = -0.01636792938f + z2 * series;
    series = 0.04321186303f + z2 * series;
    series = -0.07552214471f + z2 * series;
    series = 0.1066600472f + z2 * series;
    series = -0.1421105532f + z2 * series;
    series = 0.1999377284f + z2 * series;
    series = -0.3333315274f + z2 * series;
    const float octant = z + z * z2 * series;
    const float quadrant = ay > ax ? kQuarterTurn - octant : octant;
    const float half = __builtin_copysignf(1.0f, x) < 0.0f ? kHalfTurn - quadrant : quadrant;
    return __builtin_copysignf(half, y);
}

/// Largest phase for which bin_sincos() is that accurate. Phase sums are kept far below it.
inline constexpr float kLargestPhase = 0x1p36f;

/// Sine and cosine within 2 ulp, |phase| up to kLargestPhase; the sine of -0 is +0.
inline void bin_sincos(float phase, float* sine, float* cosine) {
    // pi/2 in pieces of 17 bits: their products with a quadrant number of 36 bits are exact.
    constexpr double kHigh = 0x1.922p0;
    constexpr double kMiddle = -0x1.2aefp-18;
    constexpr double kLow = 0x1.68c234c4c6629p-39;
    constexpr double kToInteger = 0x1.8p52;  // added, it leaves an integer in a double's low bits
    const double x = static_cast<double>(phase);
    const double shifted = x * (2.0 / kPi) + kToInteger;
    const double quadrant = shifted - kToInteger;
    const auto r = static_cast<float>(x - quadrant * kHigh - quadrant * kMiddle - quadrant * kLow);
    const auto turn = static_cast<uint32_t>(std::bit_cast<uint64_t>(shifted));
    const float r2 = r * r;
    float s = -0.000195172347f;
    s = 0.00833217769f + r2 * s;
    s = -0.166666549f + r2 * s;
    s = r + r * r2 * s;
    float c = 0.0000244383795f;
    c = -0.00138873669f + r2 * c;
    c = 0.0416666469f + r2 * c;
    c = 1.0f - (0.5f * r2 - r2 * r2 * c);
    const bool odd = (turn & 1U) != 0;
    const uint32_t sine_sign = (turn & 2U) << 30;
    const uint32_t cosine_sign = ((turn + 1U) & 2U) << 30;
    *sine = std::bit_cast<float>(std::bit_cast<uint32_t>(odd ? c : s) ^ sine_sign);
    *cosine = std::bit_cast<float>(std::bit_cast<uint32_t>(odd ? s : c) ^ cosine_sign);
}

}  // namespace krel

#endif
