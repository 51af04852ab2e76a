// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <thread>

#include "engine/services.h"
#include "tests/engine/voices.h"
#include "tests/support/platform.h"
#include "tests/support/signals.h"

namespace {

using krel_test::by_effect;
using krel_test::create;
using krel_test::Samples;
using krel_test::Voice;

constexpr int kVoices = 17;

/// The samples through the engine in calls of random lengths, 16-bit and float in turn.
Samples run(krel_voice* voice, const Samples& in, uint32_t seed) {
    std::minstd_rand random(seed + 1);
    Samples out = in;
    for (size_t at = 0, call = 0; at < out.size(); ++call) {
        const size_t count = std::min<size_t>(random() >> 8 & 511, out.size() - at);
        if (call % 2 == 0) {
            krel_voice_process_s16(voice, &out[at], count);
        } else {
            std::vector<float> block;
            for (size_t i = 0; i < count; ++i) block.push_back(out[at + i] / 32768.0f);
            krel_voice_process_float(voice, block.data(), count);
            for (size_t i = 0; i < count; ++i)
                out[at + i] = static_cast<int16_t>(block[i] * 32768.0f);
        }
        at += count;
    }
    return out;
}

class EveryVoice : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Voices, EveryVoice, testing::Range(0, kVoices));

TEST_P(EveryVoice, EqualsTheEffectBitForBitInCallsOfAnyLength) {
    for (const int rate : {8000, 22050, 44100, 48000, 96000}) {
        const auto in = krel_test::voice_s16(2 * rate, rate, 90.0, 260.0);
        EXPECT_EQ(run(create(rate, GetParam()).get(), in, static_cast<uint32_t>(rate)),
                  by_effect(rate, GetParam(), in))
                << rate;
    }
}

TEST_P(EveryVoice, LacksMemoryWithoutHarm) {
    const int failures = krel_test::fail_each_allocation([] { create(8000, GetParam()); });
    EXPECT_GT(failures, 4);
    const auto in = krel_test::voice_s16(4000, 8000);
    krel_test::fail_each_allocation([&] {
        auto voice = create(8000, 7);
        if (!voice) return;
        if (krel_voice_prepare(voice.get(), GetParam()) == 0) return;
        EXPECT_EQ(run(voice.get(), in, 1), by_effect(8000, 7, in)) << "goes on as before";
    });
}

TEST(Engine, RoundsFloatsToTheNearestStepAndPinsThem) {
    constexpr float kStep = 1.0f / 32768.0f;
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    const struct {
        float in;
        int16_t same_as;
    } cases[] = {{0.49f * kStep, 0},      {0.5f * kStep, 1},
                 {-0.5f * kStep, 0},      {-0.51f * kStep, -1},
                 {1000.4f * kStep, 1000}, {1.0f, 32767},
                 {-INFINITY, INT16_MIN},  {INFINITY, 32767},
                 {3.0f, 32767},           {kNan, 0}};
    std::vector<float> floats;
    Samples in;
    for (int i = 0; i < 2000; ++i) {
        floats.push_back(cases[i % 10].in);
        in.push_back(cases[i % 10].same_as);
    }
    auto as_float = create(48000, 2);
    auto as_s16 = create(48000, 2);
    krel_voice_process_float(as_float.get(), floats.data(), floats.size());
    krel_voice_process_s16(as_s16.get(), in.data(), in.size());
    for (size_t i = 0; i < in.size(); ++i) ASSERT_EQ(floats[i], in[i] * kStep) << i;
}

TEST(Engine, DrawsWhatTheCLibraryDrawsUnseeded) {
    srand(1);
    for (uint32_t n = 0; n < 1000; ++n) ASSERT_EQ(krel::unseeded_draw(n), rand()) << n;
}

TEST(Engine, RefusesWhatIsOutOfRangeAndToleratesNull) {
    EXPECT_EQ(krel_voice_count(), kVoices);
    for (const int number : {-1, kVoices}) {
        EXPECT_EQ(krel_voice_name(number), nullptr);
        EXPECT_EQ(krel_voice_description(number), nullptr);
        EXPECT_EQ(krel_voice_latency(number, 48000), -1);
        EXPECT_FALSE(create(48000, number));
        auto voice = create(48000, 3);
        EXPECT_EQ(krel_voice_prepare(voice.get(), number), -1);
    }
    for (const int rate : {-1, 0, 7999, 192001}) {
        EXPECT_FALSE(create(rate, 0));
        EXPECT_EQ(krel_voice_latency(0, rate), -1);
    }
    for (const int rate : {8000, 192000}) EXPECT_TRUE(create(rate, 11));
    EXPECT_EQ(krel_voice_prepare(nullptr, 0), -1);
    EXPECT_EQ(krel_voice_heard(nullptr), -1);
    krel_voice_bypass(nullptr, 1);
    krel_voice_process_s16(nullptr, nullptr, 1);
    krel_voice_process_float(create(8000, 0).get(), nullptr, 1);
    krel_voice_release(nullptr);
}

TEST(Engine, LogsToItsCallerAndNeverWhileItProcesses) {
    std::vector<std::string> lines;
    const auto keep = [](void* to, int priority, const char* line) {
        EXPECT_EQ(priority, 3);
        static_cast<std::vector<std::string>*>(to)->emplace_back(line);
    };
    krel_voice* voice = krel_voice_create(48000, 10, keep, &lines);
    EXPECT_EQ(lines,
              (std::vector<std::string>{"vcp_init: sample_rate 48000", "vcp_set_mode: mode 10"}));
    lines.clear();
    krel_voice_prepare(voice, 3);
    EXPECT_EQ(lines.back(), "pitch_init: scale 0.780000, fftsize 2048");
    lines.clear();
    run(voice, krel_test::noise_s16(200000, 1), 1);
    EXPECT_TRUE(lines.empty()) << lines[0];
    krel_voice_release(voice);
    EXPECT_EQ(std::ranges::count(lines, "vcp_deinit: mMode 10"), 1);
}

/// Whether y[i] is x[i - delay] from `from` on.
template <typename T>
testing::AssertionResult is_delayed(const std::vector<T>& y, const std::vector<T>& x, int delay,
                                    size_t from) {
    for (size_t i = from; i < y.size(); ++i) {
        if (y[i] != x[i - static_cast<size_t>(delay)])
            return testing::AssertionFailure() << "differs at " << i;
    }
    return testing::AssertionSuccess();
}

TEST(Bypass, GivesTheInputAsLateAsTheVoiceAndComesBackToIt) {
    constexpr int kRate = 48000;
    constexpr int kRamp = kRate / 50;
    std::minstd_rand random(1);
    std::vector<float> in(kRate);  // finer than 16 bits
    for (auto& x : in) x = std::sin(static_cast<float>(random() >> 8)) * 0.3f;
    for (int number = 0; number < kVoices; ++number) {
        auto voice = create(kRate, number);
        auto out = in;
        krel_voice_bypass(voice.get(), 1);
        krel_voice_process_float(voice.get(), out.data(), out.size());
        const int latency = krel_voice_latency(number, kRate);
        EXPECT_TRUE(is_delayed(out, in, latency, static_cast<size_t>(std::max(latency, kRamp))))
                << number;

        // To a voice of another delay, unheard, and back to the sound.
        const int other = number == 11 ? 7 : 11;
        krel_voice_prepare(voice.get(), other);
        out = in;
        krel_voice_process_float(voice.get(), out.data(), out.size());
        EXPECT_EQ(krel_voice_heard(voice.get()), other);
        EXPECT_TRUE(is_delayed(out, in, krel_voice_latency(other, kRate), kRate / 2)) << number;
    }
}

TEST(Bypass, RampsWithoutAClickAndLeavesTheVoiceAsItWas) {
    constexpr int kRate = 48000;
    const auto in = krel_test::sine_s16(3 * kRate, 200.0, kRate, 9000.0);
    auto voice = create(kRate, 5);
    auto other = create(kRate, 5);
    auto out = in;
    auto untouched = in;
    krel_voice_process_s16(other.get(), untouched.data(), untouched.size());
    for (int second = 0; second < 3; ++second) {
        krel_voice_bypass(voice.get(), second == 1);
        krel_voice_process_s16(voice.get(), &out[static_cast<size_t>(second * kRate)], kRate);
    }
    EXPECT_TRUE(std::equal(out.begin(), out.begin() + kRate, untouched.begin()));
    EXPECT_TRUE(std::equal(out.begin() + 2 * kRate + kRate / 50, out.end(),
                           untouched.begin() + 2 * kRate + kRate / 50));
    const Samples settled(out.begin() + kRate / 2, out.end());
    const Samples plain(untouched.begin() + kRate / 2, untouched.end());
    EXPECT_LT(krel_test::largest_second_difference(settled),
              krel_test::largest_second_difference(plain) + 40);
}

TEST(Threads, ChoosesBypassesAndReadsWhileItProcesses) {
    const krel_test::Live before = krel_test::live();
    {
        auto voice = create(16000, 0);
        std::atomic<bool> stop{false};
        std::vector<std::thread> threads;
        for (const int first : {1, 2}) {
            threads.emplace_back([&, first] {
                for (int i = 0; i < 40; ++i) {
                    EXPECT_EQ(krel_voice_prepare(voice.get(), (first + 2 * i) % kVoices), 0);
                    krel_voice_bypass(voice.get(), i % 3 == 0);
                    EXPECT_GE(krel_voice_heard(voice.get()), 0);
                }
            });
        }
        std::thread audio([&] {
            Samples block(160);
            while (!stop) krel_voice_process_s16(voice.get(), block.data(), block.size());
        });
        for (auto& thread : threads) thread.join();
        stop = true;
        audio.join();
        EXPECT_EQ(krel_voice_prepare(voice.get(), 3), 0) << "one that nobody takes";
    }
    EXPECT_EQ(krel_test::live(), before);
}

}  // namespace
