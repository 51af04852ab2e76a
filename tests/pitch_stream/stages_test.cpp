// The stages of the stream one by one: period search, edits of the time scale, base frequency.
#include <gtest/gtest.h>

#include <cmath>

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
        if (static_cast<Product>(diff * best) < static_cast<Product>(least * period))
            least = diff, best = period;
        if (static_cast<Product>(diff * worst) > static_cast<Product>(greatest * period))
            greatest = diff, worst = period;
    }
    return {static_cast<int>(best), static_cast<int>(least / best),
            static_cast<int>(greatest / worst)};
}

/// Two passes, or one below 8000 Hz: over means of `skip` samples, then four coarse steps around what that found.
int find_slowly(const Samples& in, int rate) {
    int low = rate / 400, high = rate / 25;
    const int skip = rate / 4000;
    if (skip > 1) {
        Samples means;
        for (int i = 0; i < length(in) / skip; ++i) {
            int sum = 0;
            for (int j = 0; j < skip; ++j) sum += in.data()[i * skip + j];
            means.push_back(static_cast<int16_t>(sum / skip));
        }
        const int coarse = search_slowly<int32_t>(means, low / skip, high / skip).period;
        low = std::max((coarse - 4) * skip, low);
        high = std::min((coarse + 4) * skip, high);
    }
    return search_slowly<int32_t>(in, low, high).period;
}

TEST(PeriodSearch, EqualsItsDefinitionIncludingTheWrapOfLoudInput) {
    int wrapped = 0;
    for (const int rate : {4000, 7999, 8000, 11025, 16000, 44100, 48000, 96000}) {
        const Stream s = make_stream(rate, {1.0f});
        const int high = s->maxPeriod;
        for (uint32_t seed = 0; seed < 20; ++seed) {
            auto in = noise_s16(2 * high, seed, seed % 2 == 0 ? 2000 : 32767);
            s->prevPeriod = 0;
            ASSERT_EQ(findPitchPeriod(s.get(), in.data(), 1), find_slowly(in, rate)) << rate;
            const int low = high - static_cast<int>(seed);
            const Found found = search(in, low, high);
            ASSERT_EQ(found, search_slowly<int32_t>(in, low, high)) << rate;
            wrapped += found == search_slowly<int64_t>(in, low, high) ? 0 : 1;
        }
    }
    EXPECT_GT(wrapped, 10);
    const auto noise = noise_s16(140, 1);
    for (int last = 1; last < 70; ++last)  // every tail length of a vector loop
        ASSERT_EQ(search(noise, last, last), search_slowly<int32_t>(noise, last, last));
    EXPECT_EQ(search(noise, 5, 4), (Found{0, 1, 0}));
    EXPECT_EQ(search(noise, -9, 8), search(noise, 1, 8));
    for (const int step :
         {8421, 8430}) {  // 255 times the difference, at the first candidate: around 2^31
        Samples in(2000);
        std::fill_n(in.begin(), 1000, static_cast<int16_t>(step));
        EXPECT_EQ(search(in, 1000, 1000).greatest, step == 8421 ? step : 0);
    }

    const Stream s = make_stream(16000, {});
    auto loud = Samples(1280, -32767);
    std::fill_n(s->downSampleBuffer, 1280, int16_t{99});
    downSampleInput(s.get(), loud.data(), 600);
    EXPECT_EQ(s->downSampleBuffer[1], -32767);
    downSampleInput(s.get(), loud.data(), 0);
    downSampleInput(s.get(), loud.data(), -640);  // deliberate: as many zeros
    EXPECT_EQ(s->downSampleBuffer[1], 0);
    EXPECT_EQ(s->downSampleBuffer[2], 99);
}

TEST(PeriodSearch, PreviousPeriodIsKeptOnlyWhenItMatchedClearlyBetter) {
    const Stream s = make_stream(48000, {1.0f});
    const struct {
        int prev_period, prev_diff, least, greatest, prefer_new, kept;
    } cases[] = {{0, 0, 100, 100, 1, 0},     // none yet
                 {300, 0, 0, 100, 1, 0},     // a perfect match
                 {300, 66, 100, 300, 1, 1},  // 3 * 66 < 2 * 100, and 3 * 100 >= 300
                 {300, 67, 100, 300, 1, 0},  {300, 66, 100, 301, 1, 0},  // clearly periodic
                 {300, 99, 100, 9999, 0, 1}, {300, 100, 100, 0, 0, 0}};
    for (const auto& c : cases) {
        s->prevPeriod = c.prev_period;
        s->prevMinDiff = c.prev_diff;
        EXPECT_EQ(prevPeriodBetter(s.get(), c.least, c.greatest, c.prefer_new), c.kept);
    }
}

TEST(TimeScale, CrossFadeEqualsTheTruncatingDivisionForEveryLength) {
    const auto check = [](int n, const Samples& down, Samples up) {
        Samples out = down;
        overlapAdd(n, out.data(), out.data(), up.data());  // in place
        for (int i = 0; i < n; ++i) {
            const int sum = down.data()[i] * (n - i) + up.data()[i] * i;
            ASSERT_EQ(out.data()[i], sum / n) << n << ' ' << i;
        }
    };
    for (const int n : {1, 2, 3, 7, 17, 100, 1920, 7680, 65535}) {
        check(n, noise_s16(n, 1), noise_s16(n, 2));
        for (const int x : {-32768, -32767, -4096, -1, 0, 4095, 32766}) {
            // Sums one step away from whole quotients, of either sign.
            const Samples low(65535, static_cast<int16_t>(x));
            check(n, low, Samples(65535, static_cast<int16_t>(x + 1)));
            check(n, low, Samples(65535, 32767));
        }
    }
}

TEST(TimeScale, EditsHaveTheLengthsThatMakeUpTheSpeed) {
    constexpr int kKept = 77;  // remainder before the edit; fast and slow edits leave it
    const struct {
        float speed;
        int period, edited, copied_after;
    } cases[] = {
            {1.25f, 100, 100, 300},  {1.5f, 100, 100, 100},   {1.999f, 1000, 1000, 1},
            {2.0f, 100, 100, kKept}, {3.0f, 101, 50, kKept},  {2.6f, 100, 62, kKept},
            {0.8f, 100, 100, 300},   {0.75f, 100, 100, 200},  {0.5f, 100, 100, 0},
            {0.25f, 100, 33, kKept}, {0.4f, 100, 67, kKept},  // 66.67: rounded, unlike 62.5 above
            {1.25f, 0, 0, 0},        {200.0f, 100, 0, kKept}, {-1.0f, 100, 0, kKept},
    };
    auto in = noise_s16(3840, 4);
    for (const auto& c : cases) {
        const Stream s = make_stream(48000, {1.0f});
        s->remainingInputToCopy = kKept;
        const bool fast = c.speed > 1.0f;
        const auto edit = fast ? skipPitchPeriod : insertPitchPeriod;
        const int n = edit(s.get(), in.data(), c.speed, c.period);
        EXPECT_EQ(n, c.edited) << c.speed;
        EXPECT_EQ(s->remainingInputToCopy, c.copied_after) << c.speed;
        ASSERT_EQ(s->numOutputSamples, n == 0 ? 0 : n + (fast ? 0 : c.period)) << c.speed;
    }
    const Stream s = make_stream(48000, {0.5f});  // an edit of no samples keeps the input
    s->speed = 0.0001f;
    EXPECT_EQ(pitchWriteShortToStream(s.get(), in.data(), s->maxRequired), 1);
    EXPECT_EQ(changeSpeed(s.get(), INFINITY), 0);
    EXPECT_EQ(s->numInputSamples, s->maxRequired);
}

/// One voiced period at 48 kHz: a half-wave up, a half-wave down.
Samples voiced(int samples, int peak = 8000) {
    return sine_s16(samples, 48000.0 / samples, 48000, peak);
}

/// The estimate and its count after one period of samples.
std::pair<double, int> updated(double before, int count, Samples period) {
    const Stream s = make_stream(48000, kVoices[2]);
    s->baseFreq = before;
    s->baseFreqCount = count;
    updateBaseFreq(s.get(), period.data(), length(period));
    return {s->baseFreq, s->baseFreqCount};
}

TEST(BaseFrequency, CandidateIsBlendedByItsDistanceAndAveraged) {
    for (int distance = 0; distance < 120; ++distance) {
        const double before = 200.7 - distance;  // distances count from whole Hz
        const float keep = std::sqrt(static_cast<float>(std::min(distance, 100)) / 100.0f);
        const auto blended = static_cast<float>(before * keep + (1.0f - keep) * 200.0f);
        for (const int n : {0, 9, 100}) {
            const std::pair expected((before * n + blended) / (n + 1.0), std::min(n + 1, 100));
            EXPECT_EQ(updated(before, n, voiced(240)), expected) << distance;
        }
    }
    EXPECT_EQ(updated(INFINITY, 5, voiced(240)).second, 6);  // no float-to-int cast out of range
    // Candidates from 26 to 259 Hz are taken.
    for (const auto& [period, count] : {std::pair{1847, 5}, {1846, 6}, {185, 6}, {184, 5}})
        EXPECT_EQ(updated(150.0, 5, voiced(period)).second, count) << period;
}

TEST(BaseFrequency, OnlyVoicedPeriodsCount) {
    const auto counts = [](const Samples& in) { return updated(150.0, 0, in).second; };
    EXPECT_EQ(counts(Samples(240, -30000)), 0);
    EXPECT_EQ(counts(voiced(240, 1024)), 0);  // exactly the threshold
    EXPECT_EQ(counts(voiced(240, 1025)), 1);
    Samples crossing(240, 5000);
    for (size_t i = 1; i <= 45; i += 2) crossing[i] = -1;
    EXPECT_EQ(counts(crossing), 1);  // 46 pairs
    crossing[47] = 0;                // zeros count as crossings, too
    EXPECT_EQ(counts(crossing), 0);  // 48, one in five

    const Stream s = make_stream(48000, kVoices[2]);
    for (const int period : {240, 95, INT32_MAX})  // 5 ms, 1.98 ms, a product that wraps to -1000
        EXPECT_EQ(findVocals(s.get(), nullptr, period), 1);
    s->sampleRate = 0;
    EXPECT_EQ(findVocals(s.get(), nullptr, 240), 1);
    EXPECT_EQ(s->vocalMs, 6);
}

}  // namespace
