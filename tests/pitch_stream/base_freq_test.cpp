#include <gtest/gtest.h>

#include <cmath>

#include "tests/pitch_stream/stream_support.h"

namespace {

using namespace krel_test;

constexpr Setting kTracking = {0.0f, 223, 2.7f, 1.5f};

/// One voiced period at 48 kHz: a half-wave up, a half-wave down.
Samples voiced(int samples, int peak = 8000) {
    return sine_s16(samples, 48000.0 / samples, 48000, peak);
}

TEST(BaseFrequency, CandidateIsBlendedByItsDistanceAndAveraged) {
    const struct {
        double before;
        int count, period;
        double after;
        int count_after;
    } cases[] = {
            {100.0, 0, 240, 100.0, 1},        // 200 Hz is too far off
            {190.0, 0, 240, 196.8377223, 1},  // 190 w + 200 (1 - w), w = sqrt(0.1)
            {190.9, 100, 240, (100 * 190.9 + 197.1223) / 101, 100},  // distance from 190
            {200.0, 9, 240, 200.0, 10},                              // the candidate itself
            {100.0, 5, 1846, 100.0 - 74 * (1 - 0.8602325) / 6, 6},   // 26 Hz
            {200.0, 5, 185, 200.0 + 59 * (1 - 0.7681146) / 6, 6},    // 259 Hz
            {100.0, 5, 1847, 100.0, 5},                              // 25 Hz
            {200.0, 5, 184, 200.0, 5},                               // 260 Hz
            {100.0, 5, -3, 100.0, 5},
            {INFINITY, 5, 240, INFINITY, 6},  // no float-to-int cast out of range
    };
    for (const auto& c : cases) {
        const Stream s = make_stream(48000, kTracking);
        s->baseFreq = c.before;
        s->baseFreqCount = c.count;
        updateBaseFreq(s.get(), voiced(std::max(c.period, 1)).data(), c.period);
        EXPECT_TRUE(s->baseFreq == c.after || std::fabs(s->baseFreq - c.after) < 2e-5) << c.period;
        EXPECT_EQ(s->baseFreqCount, c.count_after) << c.period;
    }
}

TEST(BaseFrequency, OnlyVoicedPeriodsCount) {
    auto counts = [](Samples in) {  // 240 samples at 48 kHz: a candidate of 200 Hz
        const Stream s = make_stream(48000, kTracking);
        updateBaseFreq(s.get(), in.data(), 240);
        return s->baseFreqCount == 1;
    };
    Samples negative(240, -30000);
    EXPECT_FALSE(counts(negative));
    EXPECT_FALSE(counts(noise_s16(240, 1)));
    EXPECT_FALSE(counts(voiced(240, 1024)));  // exactly the threshold
    EXPECT_TRUE(counts(voiced(240, 1025)));
    Samples crossing(240, 5000);
    for (size_t i = 1; i <= 45; i += 2) crossing[i] = -1;
    EXPECT_TRUE(counts(crossing));  // 46 pairs
    crossing[47] = -1;
    EXPECT_FALSE(counts(crossing));  // 48, one in five
    crossing[45] = crossing[47] = 0;
    EXPECT_FALSE(counts(crossing));  // zeros count as crossings, too

    Stream s = make_stream(48000, kTracking);
    run(s, noise_s16(48000, 9));
    run(s, Samples(48000));
    EXPECT_EQ(s->baseFreq, 100.0);
}

TEST(BaseFrequency, VocalTimeCountsWholeMilliseconds) {
    const Stream s = make_stream(48000, kTracking);
    for (const int period :
         {240, 95, INT32_MAX})  // 5 ms, 1.98 ms, and a product that wraps to -1000
        EXPECT_EQ(findVocals(s.get(), nullptr, period), 1);
    s->sampleRate = 0;
    EXPECT_EQ(findVocals(s.get(), nullptr, 240), 1);
    EXPECT_EQ(s->vocalMs, 6);
}

}  // namespace
