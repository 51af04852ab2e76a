#include "spectral/envelope.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <numeric>
#include <vector>

#include "dsp/iir.h"

namespace {

TEST(EnvelopeDetect, ConstantMagnitudeTendsTo256TimesIt) {
    iir_biquad_t filter;
    iir_float_init(&filter, 8000, 100, 1);
    std::vector<float> io(1000);
    for (size_t i = 0; i < io.size(); ++i) io[i] = i % 2 == 0 ? 0.25f : -0.25f;
    EXPECT_EQ(envelope_detect(&filter, io.data(), io.data(), 1000), 1000);
    EXPECT_LT(io[0], 8.0f);  // a low-pass starts from nothing
    EXPECT_NEAR(io.back(), 64.0f, 0.01f);
}

TEST(EnvelopeDetect, FilterOvershootBelowZeroIsFoldedUp) {
    // The filter takes the difference of neighbours: 9 - 25 = -16.
    iir_biquad_t filter{};
    filter.b0 = 1.0f;
    filter.b1 = -1.0f;
    float in[] = {5.0f, 3.0f, 0.0f};
    float out[3];
    EXPECT_EQ(envelope_detect(&filter, in, out, 3), 3);
    EXPECT_EQ(out[0], 5.0f * 256.0f);
    EXPECT_EQ(out[1], 4.0f * 256.0f);
    EXPECT_EQ(out[2], 3.0f * 256.0f);
    EXPECT_EQ(in[0], 5.0f);
}

TEST(EnvelopeDetect, ResultIsThatOfTheFilter) {
    iir_biquad_t filter{};
    float io[] = {-2.0f};
    for (const int n : {0, -1, INT_MIN}) EXPECT_EQ(envelope_detect(&filter, io, io, n), n);
    EXPECT_EQ(io[0], -2.0f);
    EXPECT_EQ(envelope_detect(nullptr, io, io, 0), -1);
    EXPECT_EQ(envelope_detect(&filter, nullptr, io, 1), -1);
    EXPECT_EQ(envelope_detect(&filter, io, nullptr, 1), -1);
    EXPECT_EQ(envelope_detect(nullptr, io, io, 1), -1);  // unfiltered: |in| * 256
    EXPECT_EQ(io[0], 512.0f);
}

TEST(RollQueue, MovesAndFillsWithZeros) {
    struct {
        int shift, direction;
        std::vector<float> expected;
    } const rows[] = {
            {2, 1, {3, 4, 5, 0, 0}},       {4, 1, {5, 0, 0, 0, 0}},  {5, 1, {0, 0, 0, 0, 0}},
            {1, 0, {0, 1, 2, 3, 4}},       {2, -1, {0, 0, 1, 2, 3}}, {3, 2, {0, 0, 0, 1, 2}},
            {5, 7, {0, 0, 0, 0, 0}},       {0, 1, {1, 2, 3, 4, 5}},  {6, 1, {1, 2, 3, 4, 5}},
            {INT_MAX, 0, {1, 2, 3, 4, 5}}, {-1, 1, {1, 2, 3, 4, 5}}, {INT_MIN, 0, {1, 2, 3, 4, 5}},
    };
    for (const auto& row : rows) {
        std::vector<float> buf(5);
        std::iota(buf.begin(), buf.end(), 1.0f);
        EXPECT_EQ(roll_queue(buf.data(), 5, row.shift, row.direction), buf.data());
        EXPECT_EQ(buf, row.expected) << row.shift << ' ' << row.direction;
    }
    EXPECT_EQ(roll_queue(nullptr, 5, 2, 1), nullptr);
    float one = 1.0f;
    EXPECT_EQ(roll_queue(&one, -3, -5, 1), &one);
    EXPECT_EQ(one, 1.0f);
}

}  // namespace
