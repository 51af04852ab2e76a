#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "host/level_meter.h"
#include "host/presets.h"
#include "host/sample_format.h"

namespace krel::host {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

template <typename T>
std::vector<T> encoded(SampleFormat format, const std::vector<double>& samples) {
    std::vector<T> buffer(samples.size());
    encode(format, samples.data(), samples.size(), buffer.data());
    return buffer;
}

TEST(SampleFormat, RoundsToNearestClampsAndKeepsNanOut) {
    const std::vector<double> hard = {1.0,  -1.0,        2.0,         -kInfinity,
                                      kNan, 0.5 / 32768, 1.5 / 32768, -0.5 / 32768};
    EXPECT_EQ(encoded<int16_t>(SampleFormat::kS16, hard),
              (std::vector<int16_t>{32767, -32768, 32767, -32768, 0, 0, 2, 0}));
    EXPECT_EQ(encoded<int32_t>(SampleFormat::kS32, hard),
              (std::vector<int32_t>{INT32_MAX, INT32_MIN, INT32_MAX, INT32_MIN, 0, 32768, 98304,
                                    -32768}));
    // Headroom: only 256 times full scale is the end.
    EXPECT_EQ(encoded<int32_t>(SampleFormat::kQ8_23, hard),
              (std::vector<int32_t>{1 << 23, -(1 << 23), 1 << 24, INT32_MIN, 0, 128, 384, -128}));
}

TEST(SampleFormat, SixteenBitAudioSurvivesEveryBufferFormat) {
    std::vector<double> all;
    for (int s = INT16_MIN; s <= INT16_MAX; ++s) all.push_back(s / 32768.0);
    for (const SampleFormat format :
         {SampleFormat::kFloat, SampleFormat::kS16, SampleFormat::kS32, SampleFormat::kQ8_23}) {
        std::vector<int32_t> buffer(all.size());
        std::vector<double> back(all.size());
        encode(format, all.data(), all.size(), buffer.data());
        decode(format, buffer.data(), all.size(), back.data());
        EXPECT_EQ(back, all) << format_name(format);
    }
}

TEST(LevelMeter, MeasuresAcrossBlocks) {
    LevelMeter meter;
    EXPECT_EQ(meter.rms_dbfs(), -INFINITY);
    const double first[] = {0.5, -0.5};
    const double second[] = {32767.0 / 32768, -1.0, 0.0, kNan};
    meter.add(first, 2);
    EXPECT_NEAR(meter.peak_dbfs(), -6.02, 0.01);
    EXPECT_NEAR(meter.rms_dbfs(), -6.02, 0.01);
    meter.add(second, 4);
    EXPECT_EQ(meter.peak_dbfs(), 0.0);
    EXPECT_NEAR(meter.rms_dbfs(), 10.0 * std::log10(2.5 / 6.0), 0.001);
    EXPECT_EQ(meter.clipped(), 2);
}

TEST(Latency, ChangesExactlyWhereTheTransformsDo) {
    EXPECT_EQ(latency_samples(7, 8000), 607);
    EXPECT_EQ(latency_samples(2, 96000), 607);
    EXPECT_EQ(latency_samples(3, 15999), 607 + 512);
    EXPECT_EQ(latency_samples(3, 16000), 607 + 1024);
    EXPECT_EQ(latency_samples(3, 32000), 607 + 2048);
    EXPECT_EQ(latency_samples(0, 8000), 607 + 1024);
    EXPECT_EQ(latency_samples(15, 31999), 607 + 1024);
    EXPECT_EQ(latency_samples(16, 32000), 607 + 2048);
    EXPECT_EQ(latency_samples(12, 48000), 607 + 4800);
    EXPECT_EQ(latency_samples(11, 16000), 607 + 1600 + 1024);
}

}  // namespace
}  // namespace krel::host
