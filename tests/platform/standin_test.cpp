#include <audio_utils/format.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <array>
#include <bit>
#include <cmath>
#include <string>
#include <vector>

namespace {

int32_t to_s32(float x) {
    int32_t s = 0x55555555;
    memcpy_by_audio_format(&s, AUDIO_FORMAT_PCM_32_BIT, &x, AUDIO_FORMAT_PCM_FLOAT, 1);
    return s;
}
float to_float(int32_t s) {
    float x = 0.0f;
    memcpy_by_audio_format(&x, AUDIO_FORMAT_PCM_FLOAT, &s, AUDIO_FORMAT_PCM_32_BIT, 1);
    return x;
}

TEST(FormatStandIn, FloatBecomesThePublishedIntegers) {
    struct Row {
        uint32_t float_bits;
        uint32_t pcm;
    };
    const Row rows[] = {
            {0x3F800000, 0x7FFFFFFF}, {0xBF800000, 0x80000000}, {0x3F800001, 0x7FFFFFFF},
            {0x7F800000, 0x7FFFFFFF}, {0xFF800000, 0x80000000}, {0x3F7FFFFF, 0x7FFFFF80},
            {0xBF7FFFFF, 0x80000080}, {0x3F000000, 0x40000000}, {0x3DCCCCCD, 0x0CCCCCD0},
            {0x38000000, 0x00010000}, {0x30000000, 0x00000001}, {0x30400000, 0x00000002},
            {0x2F800000, 0x00000001}, {0x2F7FFFFF, 0x00000000}, {0xAF800000, 0xFFFFFFFF},
            {0x2EDBE6FF, 0x00000000}, {0x00000001, 0x00000000}, {0x80000000, 0x00000000},
            {0x7FC00000, 0x00000000},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(static_cast<uint32_t>(to_s32(std::bit_cast<float>(row.float_bits))), row.pcm)
                << std::hex << row.float_bits;
    }
}

TEST(FormatStandIn, FloatRoundingAgreesWithLlroundAllOverTheRange) {
    for (uint64_t bits = 0; bits <= UINT32_MAX; bits += 65521) {
        const auto x = std::bit_cast<float>(static_cast<uint32_t>(bits));
        if (std::isnan(x)) continue;
        const double scaled = std::clamp(static_cast<double>(x), -1.0, 1.0) * 2147483648.0;
        const int64_t expected = std::min<int64_t>(std::llround(scaled), INT32_MAX);
        ASSERT_EQ(to_s32(x), expected) << std::hex << bits;
    }
}

TEST(FormatStandIn, IntegersBecomeFloatsWithTiesToEven) {
    EXPECT_EQ(to_float(1), 0x1p-31f);
    EXPECT_EQ(to_float(-1), -0x1p-31f);
    EXPECT_EQ(to_float(0x01000001), 0.0078125f);
    EXPECT_EQ(std::bit_cast<uint32_t>(to_float(0x01000003)), 0x3C000002u);
    EXPECT_EQ(to_float(0x7FFFFFC0), 1.0f);
    EXPECT_EQ(to_float(0x7FFFFFBF), 0.99999994f);
    EXPECT_EQ(to_float(INT32_MIN), -1.0f);
}

TEST(FormatStandIn, ConvertsInPlaceAndCopiesEqualFormatsBitByBit) {
    std::array<float, 37> floats{};
    for (size_t i = 0; i < floats.size(); ++i) floats[i] = static_cast<float>(i) / 64.0f - 0.25f;
    const auto before = floats;
    memcpy_by_audio_format(floats.data(), AUDIO_FORMAT_PCM_32_BIT, floats.data(),
                           AUDIO_FORMAT_PCM_FLOAT, floats.size());
    memcpy_by_audio_format(floats.data(), AUDIO_FORMAT_PCM_FLOAT, floats.data(),
                           AUDIO_FORMAT_PCM_32_BIT, floats.size());
    EXPECT_EQ(floats, before);

    const uint32_t signalling[] = {0x7FA12345, 0xFFC00001};
    uint32_t copy[2] = {};
    memcpy_by_audio_format(copy, AUDIO_FORMAT_PCM_FLOAT, signalling, AUDIO_FORMAT_PCM_FLOAT, 2);
    EXPECT_EQ(copy[0], signalling[0]);
    EXPECT_EQ(copy[1], signalling[1]);

    uint8_t packed[6] = {1, 2, 3, 4, 5, 6}, packed_copy[6] = {};
    memcpy_by_audio_format(packed_copy, AUDIO_FORMAT_PCM_24_BIT_PACKED, packed,
                           AUDIO_FORMAT_PCM_24_BIT_PACKED, 1);
    EXPECT_EQ(packed_copy[2], 3);
    EXPECT_EQ(packed_copy[3], 0);
}

TEST(FormatStandInDeathTest, UnsupportedPairsAbortLikeThePlatform) {
    int32_t a = 0, b = 0;
    EXPECT_DEATH(
            memcpy_by_audio_format(&a, AUDIO_FORMAT_PCM_8_24_BIT, &b, AUDIO_FORMAT_PCM_32_BIT, 1),
            "");
    EXPECT_DEATH(memcpy_by_audio_format(&a, AUDIO_FORMAT_DEFAULT, &b, AUDIO_FORMAT_DEFAULT, 1), "");
}

TEST(PropertyStandIn, ReadsTheEnvironmentAndFallsBackToTheDefault) {
    char value[PROPERTY_VALUE_MAX];
    unsetenv("AUDIO_KREL_TEST_ONE");
    EXPECT_EQ(property_get("audio.krel.test-one", value, "0"), 1);
    EXPECT_STREQ(value, "0");
    EXPECT_EQ(property_get("audio.krel.test-one", value, nullptr), 0);
    EXPECT_STREQ(value, "");

    setenv("AUDIO_KREL_TEST_ONE", "1", 1);
    EXPECT_EQ(property_get("audio.krel.test-one", value, "0"), 1);
    EXPECT_STREQ(value, "1");

    const std::string longer(200, 'x');
    setenv("AUDIO_KREL_TEST_ONE", longer.c_str(), 1);
    EXPECT_EQ(property_get("audio.krel.test-one", value, nullptr), PROPERTY_VALUE_MAX - 1);
    setenv("AUDIO_KREL_TEST_ONE", "", 1);
    EXPECT_EQ(property_get("audio.krel.test-one", value, longer.c_str()), PROPERTY_VALUE_MAX - 1);
    unsetenv("AUDIO_KREL_TEST_ONE");
}

}  // namespace
