// What every frame-based effect promises, whatever it does to the spectrum.
#include <gtest/gtest.h>

#include <vector>

#include "tests/spectral/effects.h"
#include "tests/support/alloc_gate.h"
#include "tests/support/signals.h"

namespace {

using krel_test::Effect;

bool silent(const std::vector<int16_t>& samples) {
    return std::ranges::all_of(samples, [](int16_t s) { return s == 0; });
}

template <typename Kind>
class FrameEffect : public testing::Test {};

using Kinds = testing::Types<krel_test::PitchKind, krel_test::VocoderKind, krel_test::VocalKind>;
TYPED_TEST_SUITE(FrameEffect, Kinds);

TYPED_TEST(FrameEffect, SplittingTheStreamDoesNotChangeTheOutput) {
    const auto voice = krel_test::voice_s16(12000, 48000);
    const auto expected = Effect<TypeParam>(48000).run(voice);
    ASSERT_GT(krel_test::rms(expected), 300.0);
    const std::vector<int> splits[] = {{1}, {127}, {480, 1, 960}, {2048}, {2049}, {12000}};
    for (const auto& split : splits) {
        EXPECT_EQ(Effect<TypeParam>(48000).run(voice, split), expected) << split[0];
    }
}

TYPED_TEST(FrameEffect, SeparateBuffersGiveTheSameAndLeaveTheInputAlone) {
    const auto voice = krel_test::voice_s16(9000, 44100);
    auto in = voice;
    std::vector<int16_t> out(in.size(), 99);
    Effect<TypeParam> effect(44100);
    EXPECT_EQ(TypeParam::process(effect.get(), in.data(), out.data(), 9000), 9000);
    EXPECT_EQ(in, voice);
    EXPECT_EQ(out, Effect<TypeParam>(44100).run(voice));
}

TYPED_TEST(FrameEffect, TheFirstHopIsZeroAndSilenceStaysSilent) {
    for (const int rate : {8000, 16000, 44100, 48000}) {
        Effect<TypeParam> effect(rate);
        const auto hop = static_cast<size_t>(effect->hop);
        EXPECT_EQ(effect->hop, effect->fft_size / 4);
        EXPECT_EQ(effect->latency, 3 * effect->hop);
        const auto out = effect.run(krel_test::noise_s16(8 * effect->hop, 3, 20000));
        EXPECT_TRUE(silent({out.begin(), out.begin() + effect->hop}));
        EXPECT_FALSE(silent({out.begin() + effect->hop, out.begin() + 2 * effect->hop}));
        // Four frames see the last noise; after another hop of delay nothing of it is left.
        const auto tail = effect.run(std::vector<int16_t>(12 * hop));
        EXPECT_FALSE(silent({tail.begin(), tail.begin() + 2 * effect->hop}));
        EXPECT_TRUE(silent({tail.begin() + 8 * effect->hop, tail.end()}));
        EXPECT_TRUE(silent(Effect<TypeParam>(rate).run(std::vector<int16_t>(12 * hop))));
    }
}

TYPED_TEST(FrameEffect, BadArgumentsAreRefusedAndWriteNothing) {
    Effect<TypeParam> effect(16000);
    int16_t in[4] = {5, 6, 7, 8};
    int16_t out[4] = {1, 2, 3, 4};
    EXPECT_EQ(TypeParam::process(nullptr, in, out, 4), -1);
    EXPECT_EQ(TypeParam::process(effect.get(), nullptr, out, 4), -1);
    EXPECT_EQ(TypeParam::process(effect.get(), in, nullptr, 4), -1);
    EXPECT_EQ(TypeParam::process(effect.get(), in, out, 0), 0);
    EXPECT_EQ(TypeParam::process(effect.get(), in, out, -1), 0);
    EXPECT_EQ(TypeParam::process(effect.get(), in, out, INT32_MIN), 0);
    EXPECT_EQ(out[0], 1);
    EXPECT_EQ(effect->rover, effect->latency);
    TypeParam::init(nullptr, 48000);
    TypeParam::deinit(nullptr);
}

TYPED_TEST(FrameEffect, AFailedAllocationLeavesAPassThroughThatHoldsNothing) {
    const auto voice = krel_test::noise_s16(3000, 11);
    const int injected = krel_test::fail_each_allocation([] {
        typename TypeParam::Context ctx;
        std::memset(static_cast<void*>(&ctx), 0xA5, sizeof ctx);
        EXPECT_EQ(TypeParam::init(&ctx, 8000), 0);
        TypeParam::deinit(&ctx);
    });
    EXPECT_EQ(injected, TypeParam::kAllocations);

    krel_test::AllocGate gate(7);
    Effect<TypeParam> effect(48000);
    EXPECT_EQ(effect->fft_cfg, nullptr);
    EXPECT_EQ(gate.frees(), TypeParam::kBuffers - 1);
    EXPECT_EQ(effect.run(voice, {700}), voice);
}

TYPED_TEST(FrameEffect, AReleasedRecordPassesThroughAndMayBeReleasedAgain) {
    const auto voice = krel_test::noise_s16(600, 12);
    Effect<TypeParam> effect(48000);
    effect.run(voice);
    TypeParam::deinit(effect.get());
    EXPECT_EQ(effect.run(voice), voice);
    TypeParam::deinit(effect.get());
    TypeParam::init(effect.get(), 16000);
    EXPECT_EQ(effect.run(voice), Effect<TypeParam>(16000).run(voice));
}

}  // namespace
