// SPDX-License-Identifier: Apache-2.0
// Choosing another voice while samples flow.
#include <gtest/gtest.h>
#include <stdio.h>

#include <algorithm>
#include <numeric>

#include "tests/engine/voices.h"
#include "tests/support/platform.h"
#include "tests/support/signals.h"

namespace {

using krel_test::by_effect;
using krel_test::create;
using krel_test::Samples;

constexpr int kRate = 48000;
constexpr int kFade = kRate * 30 / 1000;
constexpr int kRamp = kRate * 20 / 1000;
constexpr int kBlock = 128;
constexpr int kCollect = kBlock - 1;

class EveryPair : public testing::TestWithParam<int> {
  protected:
    static int first() { return GetParam(); }
    static int second() { return (GetParam() * 5 + 3) % 17; }
};
INSTANTIATE_TEST_SUITE_P(Voices, EveryPair, testing::Range(0, 17));

/// How long the second voice runs unheard: as long as it is late and its input's ramp lasts,
/// streams a little longer; in whole blocks.
int unheard_samples(int number) {
    const bool stream = number >= 10 && number <= 14;
    const int late = krel_voice_latency(number, kRate) - kCollect + kRamp + (stream ? 1920 : 0);
    return (late + kBlock - 1) / kBlock * kBlock;
}

TEST_P(EveryPair, FadesFromOneEffectToTheOtherAfterTheNewOnesOwnDelay) {
    const auto in = krel_test::voice_s16(2 * kRate, kRate, 100.0, 180.0);
    constexpr int kTaken = 37 * kBlock;  // the new voice hears from here on
    Samples heard_by_second(in.begin() + kTaken, in.end());
    for (int i = 0; i < kRamp; ++i) {
        auto& s = heard_by_second[static_cast<size_t>(i)];
        s = static_cast<int16_t>(s * i / kRamp);
    }
    const auto a = by_effect(kRate, first(), in);
    auto b = by_effect(kRate, second(), heard_by_second);
    b.insert(b.begin(), kTaken, 0);

    auto voice = create(kRate, first());
    auto out = in;
    const size_t chosen = kTaken + kBlock - 40;  // while the block is collected that it takes over
    krel_voice_process_s16(voice.get(), out.data(), chosen);
    ASSERT_EQ(krel_voice_prepare(voice.get(), second()), 0);
    krel_voice_process_s16(voice.get(), &out[chosen], out.size() - chosen);

    const int fade = kTaken + unheard_samples(second()) + kCollect;
    for (int i = 0; i < static_cast<int>(in.size()); ++i) {
        const auto n = static_cast<size_t>(i);
        const int share = std::clamp(i - fade, 0, kFade);
        ASSERT_EQ(out[n], (a[n] * (kFade - share) + b[n] * share) / kFade) << i << ' ' << fade;
    }
    EXPECT_EQ(krel_voice_heard(voice.get()), second());
}

TEST_P(EveryPair, DoesNotClickOnAPureToneWhichHidesNothing) {
    const auto in = krel_test::sine_s16(2 * kRate, 240.0, kRate, 6500.0);
    const auto bend = [&](int from, int to, int since) {
        auto voice = create(kRate, from);
        auto out = in;
        krel_voice_process_s16(voice.get(), out.data(), kRate);
        if (to != from) krel_voice_prepare(voice.get(), to);
        krel_voice_process_s16(voice.get(), &out[kRate], kRate);
        return krel_test::largest_second_difference(Samples(out.begin() + since, out.end()));
    };
    const int own = std::max(bend(first(), first(), kRate), bend(second(), second(), kRate));
    const int with_switch = bend(first(), second(), kRate);
    EXPECT_LE(with_switch, own * 3 / 2);
    printf("| %d to %d | %d | %d |  voices, largest second difference with a switch, without\n",
           first(), second(), with_switch, own);
}

TEST(Switch, OnlyTheLatestOfSeveralChoicesIsTakenAndARunningFadeEnds) {
    const auto in = krel_test::voice_s16(kRate, kRate);
    auto voice = create(kRate, 7);
    for (const int number : {0, 11, 4}) krel_voice_prepare(voice.get(), number);
    EXPECT_EQ(krel_voice_heard(voice.get()), 7);
    auto out = in;
    krel_voice_process_s16(voice.get(), out.data(), out.size());
    EXPECT_EQ(out, by_effect(kRate, 4, in)) << "before the first sample there is nothing to fade";

    // 11 is late; 9, which follows it before it was heard, takes its place. Chosen during the fade,
    // 3 waits for its end.
    const auto run = [&](int samples) {
        out.assign(static_cast<size_t>(samples), 0);
        krel_voice_process_s16(voice.get(), out.data(), out.size());
        return krel_voice_heard(voice.get());
    };
    krel_voice_prepare(voice.get(), 11);
    EXPECT_EQ(run(1000), 4);
    krel_voice_prepare(voice.get(), 9);
    EXPECT_EQ(run(unheard_samples(9) + 2 * kBlock), 9);
    krel_voice_prepare(voice.get(), 3);
    EXPECT_EQ(run(kFade - kBlock), 9);
    EXPECT_EQ(run(unheard_samples(3) + 3 * kBlock), 3);
}

TEST(Switch, PreparedInPartsAVoiceComesWithTheLastOfThemAndIsTheSame) {
    const auto in = krel_test::voice_s16(kRate, kRate);
    auto voice = create(kRate, 7);
    EXPECT_EQ(krel_voice_prepare_part(voice.get(), 1), 0) << "none is begun";
    krel_voice_prepare_begin(voice.get(), 11);
    krel_voice_prepare_part(voice.get(), 100);
    EXPECT_EQ(krel_voice_prepare_begin(voice.get(), 17), -1) << "and 11 stays begun";
    ASSERT_EQ(krel_voice_prepare_begin(voice.get(), 2), 0);
    int parts = 1;
    while (krel_voice_prepare_part(voice.get(), 100) > 0) ++parts;
    EXPECT_EQ(parts, 3);
    auto out = in;
    krel_voice_process_s16(voice.get(), out.data(), out.size());
    EXPECT_EQ(out, by_effect(kRate, 2, in));
    krel_voice_prepare_begin(voice.get(), 15);  // is freed with the engine
}

TEST(Switch, NeitherProcessingNorSwitchingAllocatesInTheAudioThread) {
    const char* wanted = getenv("KREL_REALTIME_SECONDS");
    const int seconds = wanted == nullptr ? 4 : std::max(1, atoi(wanted));
    const auto in = krel_test::voice_s16(12 * kRate, kRate, 80.0, 300.0);
    for (const int rate : {8000, 44100, 48000}) {
        for (int number = 0; number < 17; ++number) {
            auto voice = create(rate, number);
            size_t at = 0;
            Samples block;
            int calls = 0;
            for (int second = 0; second < seconds; ++second) {
                // Every fifth second another voice and back.
                if (second % 5 == 2) krel_voice_prepare(voice.get(), (number + second) % 17);
                if (second % 5 == 4) krel_voice_prepare(voice.get(), number);
                for (int done = 0; done < rate; done += 441) {
                    block.assign(&in[at], &in[at] + 441);
                    at = (at + 441) % (in.size() - 441);
                    const krel_test::Gate gate;
                    krel_voice_process_s16(voice.get(), block.data(), block.size());
                    calls += gate.allocations + gate.frees;
                }
            }
            EXPECT_EQ(calls, 0) << rate << " Hz, voice " << number;
        }
    }
}

}  // namespace
