// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <vector>

#include "host/audio/level_meter.h"
#include "host/audio/sample_format.h"
#include "host/audio/temporary_file.h"
#include "host/error.h"
#include "tests/support/platform.h"

namespace krel::host {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

template <typename T>
void expect_encoded(SampleFormat format, const std::vector<T>& expected) {
    const double hard[] = {1.0, -1.0, 2.0, -INFINITY, kNan, 0.5 / 32768, 1.5 / 32768, -0.5 / 32768};
    std::vector<T> buffer(8);
    encode(format, hard, 8, buffer.data());
    EXPECT_EQ(buffer, expected);
}

TEST(SampleFormat, RoundsToNearestClampsAndKeepsNanOut) {
    expect_encoded<int16_t>(SampleFormat::kS16, {32767, -32768, 32767, -32768, 0, 0, 2, 0});
    expect_encoded<int32_t>(SampleFormat::kS32,
                            {INT32_MAX, INT32_MIN, INT32_MAX, INT32_MIN, 0, 32768, 98304, -32768});
    // Headroom: only 256 times full scale is the end.
    expect_encoded<int32_t>(SampleFormat::kQ8_23,
                            {1 << 23, -(1 << 23), 1 << 24, INT32_MIN, 0, 128, 384, -128});
}

TEST(LevelMeter, MeasuresAcrossBlocks) {
    LevelMeter meter;
    EXPECT_EQ(meter.rms_dbfs(), -INFINITY);
    const double samples[] = {0.5, 32767.0 / 32768, -1.0, 0.0, kNan};
    meter.add(samples, 1);
    EXPECT_NEAR(meter.rms_dbfs(), -6.02, 0.01);
    meter.add(samples + 1, 4);
    EXPECT_NEAR(meter.rms_dbfs(), 10.0 * std::log10(2.25 / 5.0), 0.001);
    EXPECT_EQ(meter.clipped(), 2);
}

TEST(TemporaryFile, IsNeverWrittenThroughALinkThatSomebodyPutInItsPlace) {
    char folder[] = "/tmp/krel-file-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const auto link = std::string(folder) + "/.out.wav." + std::to_string(getpid()) + ".part";
    std::filesystem::create_symlink("victim", link);
    krel_test::g_has_nameless_files = false;
    EXPECT_THROW(TemporaryFile(std::string(folder) + "/out.wav"), Error);
    EXPECT_FALSE(std::filesystem::exists(std::string(folder) + "/victim"));
    std::filesystem::remove(link);
    TemporaryFile file(std::string(folder) + "/out.wav");
    EXPECT_TRUE(file.write("abc", 3) == 3 && std::filesystem::exists(link) && file.commit());
    EXPECT_EQ(std::filesystem::file_size(std::string(folder) + "/out.wav"), 3U);
    krel_test::g_has_nameless_files = true;
    std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace krel::host
