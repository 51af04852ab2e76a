// Our stand-ins for platform functions behave as the platform's own.
#include <audio_utils/format.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <bit>
#include <cmath>
#include <string>

namespace {

int32_t to_s32(float x) {  // in place
    memcpy_by_audio_format(&x, AUDIO_FORMAT_PCM_32_BIT, &x, AUDIO_FORMAT_PCM_FLOAT, 1);
    return std::bit_cast<int32_t>(x);
}
float to_float(int32_t s) {
    memcpy_by_audio_format(&s, AUDIO_FORMAT_PCM_FLOAT, &s, AUDIO_FORMAT_PCM_32_BIT, 1);
    return std::bit_cast<float>(s);
}

TEST(FormatStandIn, FloatBecomesIntegersRoundedHalfAwayFromZeroAndPinned) {
    for (uint64_t bits = 0; bits <= UINT32_MAX; bits += 65521) {
        const auto x = std::bit_cast<float>(static_cast<uint32_t>(bits));
        if (std::isnan(x)) continue;
        const double scaled = std::clamp(static_cast<double>(x), -1.0, 1.0) * 2147483648.0;
        const int64_t expected = std::min<int64_t>(std::llround(scaled), INT32_MAX);
        ASSERT_EQ(to_s32(x), expected) << std::hex << bits;
    }
    EXPECT_EQ(to_s32(NAN), 0);
    EXPECT_EQ(to_s32(1.0f), INT32_MAX);
    EXPECT_EQ(to_s32(0x1.fffffep-1f), 0x7FFFFF80);
    EXPECT_EQ(to_s32(0x3p-33f), 1);  // 0.75
    EXPECT_EQ(to_s32(0x3p-32f), 2);  // 1.5
    EXPECT_EQ(to_s32(-0x1p-32f), -1);
    EXPECT_EQ(to_s32(0x1.fffffep-33f), 0);
}

TEST(FormatStandIn, IntegersBecomeFloatsWithTiesToEven) {
    EXPECT_EQ(to_float(-1), -0x1p-31f);
    EXPECT_EQ(to_float(0x01000001), 0.0078125f);
    EXPECT_EQ(std::bit_cast<uint32_t>(to_float(0x01000003)), 0x3C000002u);
    EXPECT_EQ(to_float(0x7FFFFFBF), 0.99999994f);
    EXPECT_EQ(to_float(INT32_MIN), -1.0f);
}

TEST(FormatStandInDeathTest, EqualFormatsAreCopiedAndOtherPairsAbortLikeThePlatform) {
    const uint8_t packed[6] = {1, 2, 3, 4, 5, 6};
    uint8_t copy[6] = {};
    memcpy_by_audio_format(copy, AUDIO_FORMAT_PCM_24_BIT_PACKED, packed,
                           AUDIO_FORMAT_PCM_24_BIT_PACKED, 1);
    EXPECT_EQ(copy[2], 3);
    EXPECT_EQ(copy[3], 0);
    const auto convert = [&](audio_format_t to, audio_format_t from) {
        memcpy_by_audio_format(copy, to, packed, from, 1);
    };
    EXPECT_DEATH(convert(AUDIO_FORMAT_PCM_8_24_BIT, AUDIO_FORMAT_PCM_32_BIT), "");
    EXPECT_DEATH(convert(AUDIO_FORMAT_DEFAULT, AUDIO_FORMAT_DEFAULT), "");
}

TEST(PropertyStandIn, ReadsTheEnvironmentAndFallsBackToTheDefault) {
    char value[PROPERTY_VALUE_MAX];
    unsetenv("AUDIO_KREL_TEST_ONE");
    EXPECT_EQ(property_get("audio.krel.test-one", value, nullptr), 0);
    EXPECT_STREQ(value, "");
    const std::string longer(200, 'x');
    EXPECT_EQ(property_get("audio.krel.test-one", value, longer.c_str()), PROPERTY_VALUE_MAX - 1);
    setenv("AUDIO_KREL_TEST_ONE", "1", 1);
    EXPECT_EQ(property_get("audio.krel.test-one", value, "0"), 1);
    EXPECT_STREQ(value, "1");
    setenv("AUDIO_KREL_TEST_ONE", longer.c_str(), 1);
    EXPECT_EQ(property_get("audio.krel.test-one", value, nullptr), PROPERTY_VALUE_MAX - 1);
    unsetenv("AUDIO_KREL_TEST_ONE");
}

}  // namespace
