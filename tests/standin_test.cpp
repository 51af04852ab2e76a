// SPDX-License-Identifier: Apache-2.0
// Our stand-ins for platform functions behave as the platform's own.
#include <audio_utils/format.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

namespace {

TEST(FormatStandInDeathTest, EqualFormatsAreCopiedAndOtherPairsAbortLikeThePlatform) {
    const uint8_t packed[6] = {1, 2, 3, 4, 5, 6};
    uint8_t copy[6] = {};
    const auto convert = [&](audio_format_t to, audio_format_t from) {
        memcpy_by_audio_format(copy, to, packed, from, 1);
    };
    convert(AUDIO_FORMAT_PCM_24_BIT_PACKED, AUDIO_FORMAT_PCM_24_BIT_PACKED);
    EXPECT_TRUE(copy[2] == 3 && copy[3] == 0);
    EXPECT_DEATH(convert(AUDIO_FORMAT_PCM_8_24_BIT, AUDIO_FORMAT_PCM_32_BIT), "");
    EXPECT_DEATH(convert(AUDIO_FORMAT_DEFAULT, AUDIO_FORMAT_DEFAULT), "");
}

TEST(PropertyStandIn, ReadsTheEnvironmentAndFallsBackToTheDefault) {
    char value[PROPERTY_VALUE_MAX];
    const std::string longer(200, 'x');
    unsetenv("AUDIO_KREL_TEST_ONE");
    EXPECT_EQ(property_get("audio.krel.test-one", value, nullptr), 0);
    EXPECT_EQ(property_get("audio.krel.test-one", value, longer.c_str()), PROPERTY_VALUE_MAX - 1);
    setenv("AUDIO_KREL_TEST_ONE", "1", 1);
    EXPECT_TRUE(property_get("audio.krel.test-one", value, "0") == 1 && value[0] == '1');
    setenv("AUDIO_KREL_TEST_ONE", longer.c_str(), 1);
    EXPECT_EQ(property_get("audio.krel.test-one", value, nullptr), PROPERTY_VALUE_MAX - 1);
    unsetenv("AUDIO_KREL_TEST_ONE");
}

}  // namespace
