// Every conversion against the same arithmetic done exactly, in 64 bits or in double.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "base/fixed_point.h"
#include "base/pcm.h"

namespace krel {
namespace {

constexpr int32_t kEdges[] = {
        INT32_MIN, INT32_MIN + 1, -8388609, -65537, -32769,  -129,    -128,          -1,       0, 1,
        127,       128,           8191,     32768,  1 << 23, 1 << 30, INT32_MAX - 1, INT32_MAX};

int32_t low_32(int64_t v) { return static_cast<int32_t>(static_cast<uint64_t>(v)); }

TEST(FixedPoint, PinsWrapsAndRoundsTowardMinusInfinityAsNamed) {
    for (const int32_t a : kEdges) {
        for (const int32_t b : kEdges) {
            SCOPED_TRACE(testing::Message() << a << ' ' << b);
            const int64_t product = int64_t{a} * b;
            ASSERT_EQ(add_wrap_s32(a, b), low_32(int64_t{a} + b));
            ASSERT_EQ(sub_wrap_s32(a, b), low_32(int64_t{a} - b));
            ASSERT_EQ(mul_wrap_s32(a, b), low_32(product));
            ASSERT_EQ(mul_wide(a, b), product);
            ASSERT_EQ(sat_s32(product), std::clamp<int64_t>(product, INT32_MIN, INT32_MAX));
            ASSERT_EQ(sat_s16(product), std::clamp<int64_t>(product, INT16_MIN, INT16_MAX));
            ASSERT_EQ(mul_q13_sat(a, b), std::clamp<int64_t>(product >> 13, INT32_MIN, INT32_MAX));
            ASSERT_EQ(mul_q13_wrap(a, b), low_32(product >> 13));
            ASSERT_EQ(mean_s32(a, b), (int64_t{a} + b) >> 1);
        }
        EXPECT_EQ(sat_s16(a), std::clamp(a, INT16_MIN, INT16_MAX));
        EXPECT_EQ(mul_q13_sat(int16_t{INT16_MIN}, a), sat_s16(int64_t{a} * -4));
        EXPECT_EQ(shl_wrap_s32(a, 13), low_32(int64_t{a} * 8192));
        EXPECT_EQ(abs_wrap_s32(a), low_32(std::abs(int64_t{a})));
        EXPECT_EQ(wrap_s16(a) & 0xFFFF, a & 0xFFFF);
        for (const int32_t bits : {-3, 0, 1, 31, 32, 99}) {
            EXPECT_EQ(asr_s32(a, bits), int64_t{a} >> std::clamp(bits, 0, 31)) << a << ' ' << bits;
        }
    }
    EXPECT_EQ(add_wrap_s64(INT64_MAX, 2), INT64_MIN + 1);
    EXPECT_EQ(sub_wrap_s64(INT64_MIN, 2), INT64_MAX - 1);
    EXPECT_EQ(mul_wrap_s64(INT64_MAX, 3), INT64_MAX - 2);
}

TEST(FixedPoint, SampleWidthsConvertWithRoundingHalfUpAndSaturation) {
    for (const int32_t s : kEdges) {
        const double rounded = std::floor((s + 128.0) / 256.0);
        EXPECT_EQ(q8_23_from_s32(s), std::min(rounded, 8388607.0)) << s;
        EXPECT_EQ(s16_from_q8_23_sat(s), std::clamp(rounded, -32768.0, 32767.0)) << s;
        EXPECT_EQ(s32_from_q8_23_sat(s), std::clamp(s * 256.0, -2147483648.0, 2147483647.0)) << s;
    }
}

TEST(FixedPoint, RealNumbersTruncateTowardZeroAndNeverCastOutOfRange) {
    for (const float x :
         {-0.9f, 32767.5f, -32768.9f, 3e38f, 0.99999f / 32768.0f, -1.9f / 32768.0f, 1.0f, 1.5f,
          -1.25f, -1.0f, 65535.9f, 65536.0f, -65537.0f, 1e30f, -1e30f, INFINITY, -INFINITY, NAN}) {
        const auto cut = [&](double scale, double low, double high) {
            return std::isnan(x) ? 0.0 : std::clamp(std::trunc(x * scale), low, high);
        };
        EXPECT_EQ(s16_from_float_sat(x), cut(1.0, -32768.0, 32767.0)) << x;
        EXPECT_EQ(s16_from_unit_sat(x), cut(32768.0, -32768.0, 32767.0)) << x;
        const double wide = cut(32768.0, -2147483648.0, 2147483647.0);
        EXPECT_EQ(s16_from_unit_wrap(x), wrap_s16(static_cast<int32_t>(wide))) << x;
        EXPECT_EQ(trunc_sat_s32(1e5 * x), cut(1e5, -2147483648.0, 2147483647.0)) << x;
    }
    for (int s = INT16_MIN; s <= INT16_MAX; ++s) {
        const auto sample = static_cast<int16_t>(s);
        ASSERT_EQ(s16_from_unit_sat(unit_from_s16(sample)), sample);
    }
}

}  // namespace
}  // namespace krel
