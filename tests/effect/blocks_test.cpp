// SPDX-License-Identifier: Apache-2.0
// The exported building blocks where the conformance vectors do not reach: short of memory, and
// accuracy at the edges.
#include <speex/speex_resampler.h>

#include <cmath>
#include <memory>
#include <random>
#include <utility>

#include "core/vcp.h"
#include "delay/reverb.h"
#include "pitch_stream/pitch_stream.h"
#include "spectral/polar.h"
#include "tests/support/platform.h"
#include "tests/support/signals.h"

namespace {

using namespace krel_test;
using Samples = std::vector<int16_t>;

TEST(BlockFault, EveryPresetPassesAudioThroughWhenAnyAllocationFails) {
    const Samples noise = noise_s16(1024, 5);
    for (int preset = -1; preset <= 17; ++preset) {
        const bool has_effects = preset >= 0 && preset <= 16 && (preset < 7 || preset > 9);
        const int failures = fail_each_allocation([&] {
            void* core = vcp_init(16000);
            EXPECT_EQ(vcp_set_mode(core, preset), core == nullptr ? -1 : 0);
            const bool failed = Gate::open()->failed();
            Samples io = noise;
            for (size_t at = 0; at < 1024; at += 128) vcp_process(core, &io[at], &io[at], 128);
            EXPECT_EQ(io == noise, failed || !has_effects) << preset;
            vcp_deinit(core);
        });
        EXPECT_EQ(failures > 1, has_effects) << preset;
    }
}

TEST(BlockFault, AReverberatorThatCannotBeBuiltSaysSoAndPassesThrough) {
    const Samples left = noise_s16(1000, 2);
    const Samples right = noise_s16(1000, 3);
    EXPECT_EQ(fail_each_allocation([&] {
                  reverb_t rv;
                  const int result = reverb_init(&rv);
                  const bool failed = Gate::open()->failed();
                  EXPECT_EQ(result, failed ? -1 : 0);
                  Samples l = left;
                  Samples r = right;
                  reverb_process_mono(&rv, l.data(), l.data(), 1000);
                  EXPECT_EQ(l == left, failed);
                  reverb_process_stereo(&rv, l.data(), r.data(), r.data(), l.data(), 1000);
                  EXPECT_EQ(l == right && r == left, failed);
                  reverb_end(&rv);
              }),
              50);
}

TEST(Reverb, CombsStartClosedWithHalfTheLoopGain) {
    comber comb;
    comb_init(&comb, 3);
    EXPECT_EQ(comb.damp1, 8192);
    for (const bool open : {false, true}) {
        if (open) comb_setsetdamp(&comb, 0);
        int impulse = -1001;
        for (const int echo : {0, 0, 0, -1001, 0, 0, -501, 0, 0, -251}) {
            const int expected = open || echo == -1001 ? echo : 0;
            EXPECT_EQ(comb_process(std::exchange(impulse, 0), &comb), expected);
        }
    }
    comb_end(&comb);
}

using Stream = std::unique_ptr<pitchStreamStruct, decltype([](auto* s) { pitchDestroyStream(s); })>;

/// With a fixed pitch, or else with a target for the voice.
Stream make_stream(int rate_hz, float pitch, int target_hz = 0) {
    Stream s(pitchCreateStream(rate_hz, target_hz, 2.7f, 0.5f, 1024));
    if (pitch > 0.0f) pitchSetPitch(s.get(), pitch);
    return s;
}

TEST(PitchStream, RatesAndTargetsHaveLimits) {
    for (const int rate : {0, INT32_MIN, 399, 400, 1638399, 1638400})
        EXPECT_EQ(make_stream(rate, 0.8f) != nullptr, rate == 400 || rate == 1638399) << rate;
    for (const int target : {24, 25, 260, 261}) {
        EXPECT_EQ(make_stream(8000, 0.0f, target)->fixedPitch, target < 25 || target > 260)
                << target;
    }
}

/// Numerator and denominator of the resampler's ratio after the stream was asked for `rate` Hz.
std::pair<uint32_t, uint32_t> ratio_for(const Stream& s, double rate) {
    Samples noise = noise_s16(64, 1);
    copyToOutput(s.get(), noise.data(), 64);
    EXPECT_EQ(
            adjustRate(s.get(), static_cast<float>(s->sampleRate / rate), s->numOutputSamples - 64),
            1);
    std::pair<uint32_t, uint32_t> ratio;
    speex_resampler_get_ratio(s->resampler, &ratio.first, &ratio.second);
    return ratio;
}

TEST(PitchStream, RatiosWithALargeDenominatorAreApproximated) {
    for (const int rate : {65535, 65537, 131071}) {
        const Stream s = make_stream(rate, 0.0f, 200);
        for (const double wanted : {65534.0, 65535.0, 65536.0, 131069.0}) {
            const auto [numerator, denominator] = ratio_for(s, wanted);
            EXPECT_LE(denominator, 65535U);
            EXPECT_NEAR(1.0 * denominator / numerator, wanted / rate, 1e-4);
        }
    }
    EXPECT_EQ(ratio_for(make_stream(65537, 0.0f, 200), 65535.0).second, 65535U);
}

TEST(PitchStream, RefusedFilterMemoryKeepsTheLastRatioUntilThereIsSome) {
    using Ratio = std::pair<uint32_t, uint32_t>;
    const Stream s = make_stream(16000, 0.0f, 223);
    EXPECT_EQ(ratio_for(s, 10000.0), Ratio(8, 5));
    {
        const Gate gate(1, /*from_there_on=*/true);  // a longer filter
        EXPECT_EQ(ratio_for(s, 6400.0), Ratio(8, 5));
        EXPECT_TRUE(gate.failed());
    }
    EXPECT_EQ(ratio_for(s, 6400.0), Ratio(5, 2));
}

TEST(PitchStream, AFailedAllocationLeavesNoStreamOrADeadOne) {
    auto voice = voice_s16(24000, 8000);
    for (const float pitch : {0.8f, 1.3f, 1.0f, 0.0f}) {
        int dead = 0;
        const int injected = fail_each_allocation([&] {
            const Stream s = make_stream(8000, pitch, 223);
            if (s == nullptr) return;
            int written = 1;
            for (const int n : {100, 5000, 3000, 9000, 0, 200}) {  // not read: the output grows
                const bool dies = pitchWriteShortToStream(s.get(), voice.data(), n) == 0;
                EXPECT_TRUE(written == 1 || dies) << "for good";
                written = dies ? 0 : 1;
            }
            dead += 1 - written;
            EXPECT_TRUE(written == 1 ||
                        changeSpeed(s.get(), 1.5f) + adjustRate(s.get(), 1.5f, 0) == 0);
        });
        EXPECT_TRUE(dead >= 2 && injected > dead + 10);  // creation, the resampler
    }
}

}  // namespace
