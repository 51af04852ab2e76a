#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "tests/pitch_stream/stream_support.h"

namespace {

using namespace krel_test;

struct Found {
    int period, least, greatest;
    bool operator==(const Found&) const = default;
};

Found search(Samples in, int low, int high) {
    Found f;
    f.period = findPitchPeriodInRange(in.data(), low, high, &f.least, &f.greatest);
    return f;
}

/// The definition, a sample at a time. Product: the type in which the candidates are compared.
template <typename Product>
Found search_slowly(const Samples& samples, int low, int high) {
    const int16_t* in = samples.data();
    int64_t least = 1, best = 0, greatest = 0, worst = 255;
    for (int64_t period = low; period <= high; ++period) {
        int64_t diff = 0;
        for (int64_t i = 0; i < period; ++i) diff += std::abs(in[i] - in[i + period]);
        if (static_cast<Product>(diff * best) < static_cast<Product>(least * period)) {
            least = diff;
            best = period;
        }
        if (static_cast<Product>(diff * worst) > static_cast<Product>(greatest * period)) {
            greatest = diff;
            worst = period;
        }
    }
    return {static_cast<int>(best), static_cast<int>(least / best),
            static_cast<int>(greatest / worst)};
}

TEST(PeriodSearch, RangeSearchEqualsItsDefinitionIncludingTheWrapOfLoudInput) {
    std::minstd_rand random(11);
    int wrapped = 0;
    for (uint32_t round = 0; round < 30; ++round) {
        const int high = 1800 + static_cast<int>(random() % 120);
        const int low = high - static_cast<int>(random() % 120);
        const auto noise = noise_s16(2 * high, round);
        for (const auto& in : {noise, sine_s16(2 * high, 90.0 + round, 48000, 32767.0)}) {
            const Found found = search(in, low, high);
            ASSERT_EQ(found, search_slowly<int32_t>(in, low, high)) << low << ' ' << high;
            wrapped += found == search_slowly<int64_t>(in, low, high) ? 0 : 1;
        }
        for (int last = 1; last < 70; ++last)  // every tail length of a vector loop
            ASSERT_EQ(search(noise, last, last), search_slowly<int32_t>(noise, last, last));
    }
    EXPECT_GT(wrapped, 10);
    const auto noise = noise_s16(64, 1);
    EXPECT_EQ(search(noise, 5, 4), (Found{0, 1, 0}));
    EXPECT_EQ(search(noise, INT32_MIN, 0), (Found{0, 1, 0}));
    EXPECT_EQ(search(noise, -9, 8), search(noise, 1, 8));
}

TEST(PeriodSearch, DecimationTruncatesMeansTowardZeroForEverySkip) {
    const Stream s = make_stream(48000, {1.0f});
    auto noise = noise_s16(s->maxRequired, 3);
    std::fill_n(noise.begin(), 960, int16_t{-32768});
    for (const int skip : {1, 2, 3, 4, 5, 8, 11, 12, 13, 48, 1000, s->maxRequired}) {
        downSampleInput(s.get(), noise.data(), skip);
        for (int i = 0; i < s->maxRequired / skip; ++i) {
            int sum = 0;
            for (int j = 0; j < skip; ++j) sum += noise.data()[i * skip + j];
            ASSERT_EQ(s->downSampleBuffer[i], sum / skip) << skip << ' ' << i;
        }
    }
    const int16_t before = s->downSampleBuffer[0];
    for (const int nothing : {s->maxRequired + 1, 0}) {
        downSampleInput(s.get(), noise.data(), nothing);
        EXPECT_EQ(s->downSampleBuffer[0], before);
    }
    downSampleInput(s.get(), noise.data(), -1);
    EXPECT_EQ(s->downSampleBuffer[0], 0);
}

/// Two passes, or one below 8000 Hz; the fine window is cut off at the ends of the range. Quiet, so that nothing wraps.
TEST(PeriodSearch, FindsThePeriodOfASawtoothUpToBothEndsOfTheRange) {
    for (const int rate : {4000, 7999, 8000, 16000, 44100, 48000, 96000}) {
        const Stream s = make_stream(rate, {1.0f});
        Samples in(static_cast<size_t>(s->maxRequired));
        s->prevPeriod = 3;  // never kept over silence, whose shortest period is as good as any
        EXPECT_EQ(findPitchPeriod(s.get(), in.data(), 0), s->minPeriod);
        for (const int period : {s->minPeriod, 40 * (rate / 4000), s->maxPeriod}) {
            for (int i = 0; i < length(in); ++i)
                in.data()[i] = static_cast<int16_t>(400 - 800 * (i % period) / period);
            EXPECT_EQ(findPitchPeriod(s.get(), in.data(), 1), period) << rate;
            EXPECT_EQ(s->prevMinDiff, 0);
        }
    }
}

TEST(PeriodSearch, FinePassLooksFourCoarseStepsAroundTheCoarseResult) {
    const Stream s = make_stream(48000, {1.0f});
    for (uint32_t seed = 0; seed < 20; ++seed) {
        auto in = noise_s16(s->maxRequired, seed, 2000);
        s->prevPeriod = 0;
        const int found = findPitchPeriod(s.get(), in.data(), 1);
        const int coarse = search({s->downSampleBuffer, s->downSampleBuffer + 320}, 10, 160).period;
        const int low = std::max(12 * (coarse - 4), 120);
        const int high = std::min(12 * (coarse + 4), 1920);
        EXPECT_EQ(found, search(in, low, high).period) << seed;
    }
}

TEST(PeriodSearch, PreviousPeriodIsKeptOnlyWhenItMatchedClearlyBetter) {
    const Stream s = make_stream(48000, {1.0f});
    auto kept = [&](int prev_period, int prev_diff, int least, int greatest, int prefer_new) {
        s->prevPeriod = prev_period;
        s->prevMinDiff = prev_diff;
        return prevPeriodBetter(s.get(), least, greatest, prefer_new);
    };
    EXPECT_EQ(kept(0, 0, 100, 100, 1), 0);     // none yet
    EXPECT_EQ(kept(300, 0, 0, 100, 1), 0);     // a perfect match
    EXPECT_EQ(kept(300, 66, 100, 300, 1), 1);  // 3 * 66 < 2 * 100, and 3 * 100 >= 300
    EXPECT_EQ(kept(300, 67, 100, 300, 1), 0);
    EXPECT_EQ(kept(300, 66, 100, 301, 1), 0);  // clearly periodic
    EXPECT_EQ(kept(300, 99, 100, 9999, 0), 1);
    EXPECT_EQ(kept(300, 100, 100, 0, 0), 0);
    auto noise =
            noise_s16(s->maxRequired, 2);  // the search returns the kept one, but remembers its own
    s->prevPeriod = 777;
    s->prevMinDiff = 1;
    EXPECT_EQ(findPitchPeriod(s.get(), noise.data(), 1), 777);
    EXPECT_NE(s->prevPeriod, 777);
    EXPECT_GT(s->prevMinDiff, 1000);
}

}  // namespace
