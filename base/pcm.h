// SPDX-License-Identifier: Apache-2.0
// Conversion between 16-bit PCM and float samples on the +-1 scale ("unit").
#ifndef KREL_BASE_PCM_H
#define KREL_BASE_PCM_H

#include <stdint.h>

namespace krel {

constexpr float unit_from_s16(int16_t s) { return static_cast<float>(s) * (1.0f / 32768.0f); }

/// x on the 16-bit scale, truncated toward zero, saturated; NaN becomes 0.
constexpr int16_t s16_from_float_sat(float x) {
    if (!(x == x)) return 0;
    const float pinned = x > 32767.0f ? 32767.0f : x < -32768.0f ? -32768.0f : x;
    return static_cast<int16_t>(pinned);
}

/// x * 32768, truncated toward zero, saturated to 16 bits; NaN becomes 0.
constexpr int16_t s16_from_unit_sat(float x) { return s16_from_float_sat(x * 32768.0f); }

/// x * 32768, truncated toward zero to 32 bits (saturating there; NaN becomes 0), low 16 bits kept:
/// beyond +-1 it wraps.
constexpr int16_t s16_from_unit_wrap(float x) {
    const float scaled = x * 32768.0f;
    if (!(scaled == scaled)) return 0;
    if (scaled >= 2147483648.0f) return static_cast<int16_t>(INT32_MAX);
    if (scaled < -2147483648.0f) return static_cast<int16_t>(INT32_MIN);
    return static_cast<int16_t>(static_cast<int32_t>(scaled));
}

/// Whole blocks; in and out must not overlap. Nothing happens for n < 1.
inline void unit_from_s16(const int16_t* in, float* out, int n) {
    for (int i = 0; i < n; ++i) out[i] = unit_from_s16(in[i]);
}
inline void s16_from_unit_sat(const float* in, int16_t* out, int n) {
    for (int i = 0; i < n; ++i) out[i] = s16_from_unit_sat(in[i]);
}
inline void s16_from_unit_wrap(const float* in, int16_t* out, int n) {
    for (int i = 0; i < n; ++i) out[i] = s16_from_unit_wrap(in[i]);
}

}  // namespace krel

#endif
