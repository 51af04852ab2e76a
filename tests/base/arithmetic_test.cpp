#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "base/fixed_point.h"
#include "base/pcm.h"

namespace krel {
namespace {

constexpr int32_t kMax = INT32_MAX;
constexpr int32_t kMin = INT32_MIN;

TEST(FixedPoint, SaturationPinsAndWrappingWraps) {
    EXPECT_EQ(sat_s16(int32_t{32768}), 32767);
    EXPECT_EQ(sat_s16(int32_t{-32769}), -32768);
    EXPECT_EQ(sat_s32(int64_t{kMax} + 1), kMax);
    EXPECT_EQ(sat_s32(int64_t{kMin} - 1), kMin);
    EXPECT_EQ(wrap_s16(32768), -32768);
    EXPECT_EQ(add_wrap_s32(kMax, 1), kMin);
    EXPECT_EQ(sub_wrap_s32(kMin, 1), kMax);
    EXPECT_EQ(mul_wrap_s32(1 << 16, 1 << 15), kMin);
    EXPECT_EQ(shl_wrap_s32(1, 31), kMin);
    EXPECT_EQ(abs_wrap_s32(kMin), kMin);
    EXPECT_EQ(abs_wrap_s32(-7), 7);
}

TEST(FixedPoint, ShiftsRoundTowardMinusInfinityAndTakeAnyCount) {
    EXPECT_EQ(asr_s32(-1, 31), -1);
    EXPECT_EQ(asr_s32(-5, 1), -3);
    EXPECT_EQ(asr_s32(kMax, 99), 0);
    EXPECT_EQ(asr_s32(kMin, 99), -1);
    EXPECT_EQ(asr_s32(42, -3), 42);
    EXPECT_EQ(mul_q13_sat(-1, 1), -1);
    EXPECT_EQ(mul_q13_sat(kMax, 2 * kOneQ13), kMax);
    EXPECT_EQ(mul_q13_sat(kMin, kMin), kMax);
    EXPECT_EQ(mul_q13_wrap(-1, 1), -1);
    EXPECT_EQ(mul_q13_wrap(kMax, 2 * kOneQ13), -2);
    EXPECT_EQ(mul_q13_wrap(kMin, kMin), 0);
    EXPECT_EQ(mean_s32(kMax, kMax - 1), kMax - 1);
    EXPECT_EQ(mean_s32(kMin, kMin), kMin);
    EXPECT_EQ(mean_s32(kMin, kMax), -1);
    EXPECT_EQ(mean_s32(-4, 1), -2);
}

TEST(FixedPoint, SampleWidthsConvertWithRoundingAndSaturation) {
    EXPECT_EQ(q8_23_from_s32(127), 0);
    EXPECT_EQ(q8_23_from_s32(128), 1);
    EXPECT_EQ(q8_23_from_s32(-129), -1);
    EXPECT_EQ(q8_23_from_s32(kMax), (1 << 23) - 1);
    EXPECT_EQ(q8_23_from_s32(kMin), -(1 << 23));
    EXPECT_EQ(s32_from_q8_23_sat(1 << 23), kMax);
    EXPECT_EQ(s32_from_q8_23_sat(-(1 << 23) - 1), kMin);
    EXPECT_EQ(s32_from_q8_23_sat(-3), -768);
    EXPECT_EQ(s16_from_q8_23_sat(127), 0);
    EXPECT_EQ(s16_from_q8_23_sat(128), 1);
    EXPECT_EQ(s16_from_q8_23_sat(kMax), 32767);
    EXPECT_EQ(s16_from_q8_23_sat(kMin), -32768);
}

TEST(FixedPoint, RealNumbersTruncateTowardZeroAndNeverCastOutOfRange) {
    EXPECT_EQ(trunc_sat_s32(2.9), 2);
    EXPECT_EQ(trunc_sat_s32(-2.9), -2);
    EXPECT_EQ(trunc_sat_s32(2147483646.9), kMax - 1);
    EXPECT_EQ(trunc_sat_s32(-2147483648.9), kMin);
    EXPECT_EQ(trunc_sat_s32(1e300), kMax);
    EXPECT_EQ(trunc_sat_s32(-INFINITY), kMin);
    EXPECT_EQ(trunc_sat_s32(NAN), 0);
}

TEST(Pcm, FloatsTruncateTowardZeroAndNeverCastOutOfRange) {
    EXPECT_EQ(s16_from_unit_sat(0.99999f / 32768.0f), 0);
    EXPECT_EQ(s16_from_unit_sat(-1.9f / 32768.0f), -1);
    EXPECT_EQ(s16_from_unit_sat(1.0f), 32767);
    EXPECT_EQ(s16_from_unit_sat(-1.5f), -32768);
    EXPECT_EQ(s16_from_unit_sat(INFINITY), 32767);
    EXPECT_EQ(s16_from_unit_sat(-INFINITY), -32768);
    EXPECT_EQ(s16_from_unit_sat(NAN), 0);

    EXPECT_EQ(s16_from_float_sat(-0.9f), 0);
    EXPECT_EQ(s16_from_float_sat(32767.5f), 32767);
    EXPECT_EQ(s16_from_float_sat(-32768.9f), -32768);
    EXPECT_EQ(s16_from_float_sat(3e38f), 32767);
    EXPECT_EQ(s16_from_float_sat(NAN), 0);

    EXPECT_EQ(s16_from_unit_wrap(1.0f), -32768);
    EXPECT_EQ(s16_from_unit_wrap(1.5f), -16384);
    EXPECT_EQ(s16_from_unit_wrap(-1.25f), 24576);
    EXPECT_EQ(s16_from_unit_wrap(1e30f), -1);
    EXPECT_EQ(s16_from_unit_wrap(-1e30f), 0);
    EXPECT_EQ(s16_from_unit_wrap(NAN), 0);
}

TEST(Pcm, SixteenBitSurvivesTheRoundTrip) {
    for (int s = INT16_MIN; s <= INT16_MAX; ++s) {
        const auto sample = static_cast<int16_t>(s);
        ASSERT_EQ(s16_from_unit_sat(unit_from_s16(sample)), sample);
    }
}

}  // namespace
}  // namespace krel
