// SPDX-License-Identifier: Apache-2.0
// All fixed-point arithmetic of the library. A name says operation, format and what happens at the
// edge:
// _sat pins, _wrap keeps the low bits, neither means that the result always fits.
//
// Right shifts are arithmetic and narrowing casts wrap: C++20 guarantees both. Signed overflow
// stays undefined, so every intended wrap goes through a _wrap helper and nothing else may
// overflow.
#ifndef KREL_BASE_FIXED_POINT_H
#define KREL_BASE_FIXED_POINT_H

#include <stdint.h>

namespace krel {

inline constexpr int32_t kOneQ13 = 1 << 13;
inline constexpr int32_t kHalfQ13 = kOneQ13 / 2;

constexpr int16_t wrap_s16(int32_t v) { return static_cast<int16_t>(v); }
constexpr int32_t wrap_s32(int64_t v) { return static_cast<int32_t>(v); }

constexpr int16_t sat_s16(int64_t v) {
    return static_cast<int16_t>(v > INT16_MAX ? INT16_MAX : v < INT16_MIN ? INT16_MIN : v);
}
constexpr int16_t sat_s16(int32_t v) {
    return static_cast<int16_t>(v > INT16_MAX ? INT16_MAX : v < INT16_MIN ? INT16_MIN : v);
}
constexpr int32_t sat_s32(int64_t v) {
    return static_cast<int32_t>(v > INT32_MAX ? INT32_MAX : v < INT32_MIN ? INT32_MIN : v);
}

constexpr int32_t add_wrap_s32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
constexpr int32_t sub_wrap_s32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}
constexpr int32_t mul_wrap_s32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}
/// a * 2^bits, low 32 bits kept; 0 <= bits <= 31.
constexpr int32_t shl_wrap_s32(int32_t a, int bits) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) << bits);
}
constexpr int64_t add_wrap_s64(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
constexpr int64_t sub_wrap_s64(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}
constexpr int64_t mul_wrap_s64(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}

/// |a| in 32 bits: INT32_MIN stays INT32_MIN.
constexpr int32_t abs_wrap_s32(int32_t a) { return a < 0 ? sub_wrap_s32(0, a) : a; }

/// Truncates toward zero, saturates to int32; NaN becomes 0.
constexpr int32_t trunc_sat_s32(double v) {
    if (!(v == v)) return 0;
    if (v >= 2147483647.0) return INT32_MAX;
    return v <= -2147483648.0 ? INT32_MIN : static_cast<int32_t>(v);
}

/// Exact 64-bit product.
constexpr int64_t mul_wide(int32_t a, int32_t b) { return int64_t{a} * b; }

/// Arithmetic right shift by any count: below 0 shifts by 0, above 31 leaves the sign.
constexpr int32_t asr_s32(int32_t a, int32_t bits) {
    return a >> (bits < 0 ? 0 : bits > 31 ? 31 : bits);
}

/// a * b with b in Q13; rounds toward minus infinity, saturates to int32.
constexpr int32_t mul_q13_sat(int32_t a, int32_t b) { return sat_s32(mul_wide(a, b) >> 13); }
/// The same for a 16-bit sample, saturating to 16 bits.
constexpr int16_t mul_q13_sat(int16_t a, int32_t b) { return sat_s16(mul_wide(a, b) >> 13); }

/// a * b with b in Q13; rounds toward minus infinity, low 32 bits kept.
constexpr int32_t mul_q13_wrap(int32_t a, int32_t b) {
    // Of the shifted product only bits 0..31 count, so the shift may be a logical one, which
    // vectors have in 64 bits.
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(mul_wide(a, b)) >> 13));
}

/// floor((a + b) / 2) without overflow.
constexpr int32_t mean_s32(int32_t a, int32_t b) { return (a & b) + ((a ^ b) >> 1); }

/// Q8.23 from full-scale 32-bit: rounds half up, saturates before the shift.
constexpr int32_t q8_23_from_s32(int32_t s) {
    constexpr int32_t kLargest = INT32_MAX - 128;
    return ((s < kLargest ? s : kLargest) + 128) >> 8;
}
/// Full-scale 32-bit from Q8.23, saturating what does not fit in 24 bits.
constexpr int32_t s32_from_q8_23_sat(int32_t s) {
    return s > 0x7fffff ? INT32_MAX : s < -0x800000 ? INT32_MIN : shl_wrap_s32(s, 8);
}
/// 16-bit from Q8.23: rounds half up, saturates.
constexpr int16_t s16_from_q8_23_sat(int32_t s) { return sat_s16(q8_23_from_s32(s)); }

}  // namespace krel

#endif
