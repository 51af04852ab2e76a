// What the effects are made of: sizes of transforms, polar form, the envelope of magnitudes.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <numeric>
#include <random>
#include <vector>

#include "dsp/iir.h"
#include "spectral/envelope.h"
#include "spectral/polar.h"
#include "spectral/transform.h"

namespace {

using namespace krel;

TEST(Transform, SizeFollowsTheSampleRate) {
    struct {
        int rate, size, long_size;
    } const rows[] = {{1, 512, 1024},      {15999, 512, 1024},  {16000, 1024, 1024},
                      {31999, 1024, 1024}, {32000, 2048, 2048}, {INT_MAX, 2048, 2048},
                      {0, 2048, 1024},     {-1, 2048, 1024},    {INT_MIN, 2048, 1024}};
    for (const auto& row : rows) {
        EXPECT_EQ(fft_size_for_rate(row.rate), row.size) << row.rate;
        EXPECT_EQ(long_fft_size_for_rate(row.rate), row.long_size) << row.rate;
    }
}

TEST(Polar, PhasesAreAccurateInEveryDirectionAndSignedZerosCount) {
    std::minstd_rand random(3);
    std::uniform_real_distribution<float> level(-1.0f, 1.0f);
    std::vector<krel_complex_t> x(5000);
    for (auto& v : x)
        v = {std::ldexp(level(random), static_cast<int>(random() % 40) - 30), level(random)};
    for (const float r : {0.0f, -0.0f, 1.0f, -1.0f, 1e-30f}) {
        for (const float i : {0.0f, -0.0f, 1.0f, -1.0f, 1e-30f}) x.push_back({r, i});
    }
    std::vector<float> phase(x.size());
    spectrum_phases(x.data(), phase.data(), static_cast<int>(x.size()));
    for (size_t k = 0; k < x.size(); ++k) {
        const double expected = std::atan2(double{x[k].i}, double{x[k].r});
        ASSERT_NEAR(phase[k], expected, 2e-7 * std::fabs(expected)) << x[k].r << " " << x[k].i;
        ASSERT_EQ(std::signbit(phase[k]), std::signbit(expected));
    }
}

TEST(Polar, BackFromPolarIsAccurateAtThePhasesOfAnyUptime) {
    std::minstd_rand random(4);
    std::uniform_real_distribution<float> level(-1.0f, 1.0f);
    std::vector<float> phase = {0.0f, -0.0f, 1.5707964f, 3.1415927f, -3.1415927f, 3e12f};
    // A synthesis phase that has been summed for days.
    for (float range = 1.0f; range < 0x1p36f; range *= 1.5f) {
        for (int i = 0; i < 200; ++i) phase.push_back(range * level(random));
    }
    const std::vector<float> magnitude(phase.size(), 3.0f);
    std::vector<krel_complex_t> x(phase.size());
    spectrum_from_polar(magnitude.data(), phase.data(), x.data(), static_cast<int>(x.size()));
    for (size_t k = 0; k < x.size(); ++k) {
        ASSERT_NEAR(x[k].r, 3.0 * std::cos(double{phase[k]}), 4e-7) << phase[k];
        ASSERT_NEAR(x[k].i, 3.0 * std::sin(double{phase[k]}), 4e-7) << phase[k];
    }
}

TEST(EnvelopeDetect, IsTheRootOfTheFilteredSquaresTimes256) {
    // The filter takes the difference of neighbours: 9 - 25 = -16, folded up.
    iir_biquad_t filter{};
    filter.b0 = 1.0f;
    filter.b1 = -1.0f;
    std::vector<float> io = {5.0f, -3.0f, 0.0f};
    EXPECT_EQ(envelope_detect(&filter, io.data(), io.data(), 3), 3);
    EXPECT_EQ(io, (std::vector<float>{5.0f * 256.0f, 4.0f * 256.0f, 3.0f * 256.0f}));
    EXPECT_EQ(envelope_detect(&filter, io.data(), io.data(), -2), -2);  // the filter's answer
    EXPECT_EQ(envelope_detect(nullptr, io.data(), io.data(), 1), -1);
    EXPECT_EQ(envelope_detect(&filter, nullptr, io.data(), 1), -1);
    EXPECT_EQ(envelope_detect(&filter, io.data(), nullptr, 1), -1);
}

TEST(RollQueue, MovesAndFillsWithZeros) {
    struct {
        int shift, direction;
        std::vector<float> expected;
    } const rows[] = {{2, 1, {3, 4, 5, 0, 0}}, {5, 1, {0, 0, 0, 0, 0}}, {6, 1, {1, 2, 3, 4, 5}},
                      {1, 0, {0, 1, 2, 3, 4}}, {3, 2, {0, 0, 0, 1, 2}}, {-1, 0, {1, 2, 3, 4, 5}}};
    for (const auto& row : rows) {
        std::vector<float> buf(5);
        std::iota(buf.begin(), buf.end(), 1.0f);
        EXPECT_EQ(roll_queue(buf.data(), 5, row.shift, row.direction), buf.data());
        EXPECT_EQ(buf, row.expected) << row.shift << ' ' << row.direction;
    }
    EXPECT_EQ(roll_queue(nullptr, 5, 2, 1), nullptr);
}

}  // namespace
