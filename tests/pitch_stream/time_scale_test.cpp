#include <gtest/gtest.h>

#include <cmath>

#include "tests/pitch_stream/stream_support.h"

namespace {

using namespace krel_test;

TEST(TimeScale, CrossFadeEqualsTheTruncatingDivisionForEveryLength) {
    auto check = [](int n, Samples down, Samples up) {
        Samples out = down;
        overlapAdd(n, out.data(), out.data(), up.data());  // in place
        for (int i = 0; i < n; ++i) {
            const int sum = down.data()[i] * (n - i) + up.data()[i] * i;
            ASSERT_EQ(out.data()[i], sum / n) << n << ' ' << i;
        }
    };
    const Samples low(65535, -32768);
    const Samples high(65535, 32767);
    for (const int n : {1, 2, 3, 7, 8, 9, 15, 16, 17, 31, 100, 255, 1000, 1920, 7680, 65535}) {
        check(n, noise_s16(n, 1), noise_s16(n, 2));
        check(n, low, high);
        check(n, low, low);
        check(n, high, high);
    }
    // Sums one step away from whole quotients, of either sign.
    for (int n = 1; n < 600; ++n) {
        for (const int x : {0, -1, 4095, -4096, 32766, -32767}) {
            const auto size = static_cast<size_t>(n);
            check(n, Samples(size, static_cast<int16_t>(x)),
                  Samples(size, static_cast<int16_t>(x + 1)));
        }
    }
    overlapAdd(-4, nullptr, nullptr, nullptr);
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
    auto in = noise_s16(2000, 4);
    for (const auto& c : cases) {
        const Stream s = make_stream(48000, {1.0f});
        s->remainingInputToCopy = kKept;
        const bool fast = c.speed > 1.0f;
        const int n =
                (fast ? skipPitchPeriod : insertPitchPeriod)(s.get(), in.data(), c.speed, c.period);
        EXPECT_EQ(n, c.edited) << c.speed;
        EXPECT_EQ(s->remainingInputToCopy, c.copied_after) << c.speed;
        ASSERT_EQ(s->numOutputSamples, n == 0 ? 0 : n + (fast ? 0 : c.period)) << c.speed;
        if (n == 0) continue;
        // Both begin where the input begins, and end a step before where it continues.
        EXPECT_EQ(s->outputBuffer[0], in[0]);
        const int last = (fast ? c.period + n : n) - 1;
        EXPECT_NEAR(s->outputBuffer[s->numOutputSamples - 1], in.data()[last], 65536 / n)
                << c.speed;
    }
}

TEST(TimeScale, DurationIsDividedBySpeedWithoutClicks) {
    auto voice = voice_s16(5 * 16000, 16000, 100.0, 180.0);
    for (const float speed : {0.34f, 0.5f, 0.769f, 0.95f, 1.25f, 1.9f, 2.0f, 2.9f}) {
        const Stream s = make_stream(16000, {1.0f});
        addShortSamplesToInputBuffer(s.get(), voice.data(), s->maxRequired - 1);
        ASSERT_EQ(changeSpeed(s.get(), speed), 1);
        EXPECT_EQ(s->numOutputSamples, 0);  // not yet two longest periods
        EXPECT_EQ(s->numInputSamples, s->maxRequired - 1);
        addShortSamplesToInputBuffer(s.get(), voice.data() + s->maxRequired - 1, 70000);
        ASSERT_EQ(changeSpeed(s.get(), speed), 1);
        EXPECT_LT(s->numInputSamples, s->maxRequired);
        const double ahead = s->remainingInputToCopy;
        const double consumed = 70000 + s->maxRequired - 1 - s->numInputSamples + ahead;
        EXPECT_NEAR((s->numOutputSamples + ahead) * speed / consumed, 1.0, 0.005) << speed;
        EXPECT_LE(
                largest_second_difference({s->outputBuffer, s->outputBuffer + s->numOutputSamples}),
                1.05 * largest_second_difference(voice));
    }
}

TEST(TimeScale, EditOfNoSamplesFailsAndKeepsTheInput) {
    const Stream s = make_stream(16000, {1.0f});
    auto noise = noise_s16(s->maxRequired, 6);
    addShortSamplesToInputBuffer(s.get(), noise.data(), s->maxRequired);
    for (const float speed : {0.0001f, 0.0f, -3.0f, 1e9f, INFINITY}) {
        EXPECT_EQ(changeSpeed(s.get(), speed), 0) << speed;
        EXPECT_EQ(s->numInputSamples, s->maxRequired);
    }
    s->speed = 0.0001f;  // as a part of a write it is no error
    s->pitch = 0.5f;
    EXPECT_EQ(pitchWriteShortToStream(s.get(), nullptr, 0), 1);
    EXPECT_EQ(changeSpeed(s.get(), 1.0f), 1);
    EXPECT_EQ(s->remainingInputToCopy, INT32_MAX);  // a speed of exactly 1 never needs another edit
}

}  // namespace
