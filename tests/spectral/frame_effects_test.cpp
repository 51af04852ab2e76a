// What every frame-based effect promises, whatever it does to the spectrum.
#include <gtest/gtest.h>

#include "base/fixed_point.h"
#include "tests/spectral/effects.h"
#include "tests/support/alloc_gate.h"
#include "tests/support/log_capture.h"

namespace {

using namespace krel_test;

bool silent(const Samples& samples, int from, int to) {
    const auto zero = [](int16_t s) { return s == 0; };
    return std::all_of(samples.begin() + from, samples.begin() + to, zero);
}

template <typename Kind>
class FrameEffect : public testing::Test {};

using Kinds = testing::Types<PitchKind, VocoderKind, VocalKind>;
TYPED_TEST_SUITE(FrameEffect, Kinds);

TYPED_TEST(FrameEffect, CallsOfAnySizeGiveTheSameAndAllocateNothing) {
    const auto voice = voice_s16(12000, 48000);
    const auto expected = Effect<TypeParam>(48000).run(voice);
    ASSERT_GT(rms(expected), 300.0);
    const std::vector<int> splits[] = {{1}, {480, 1, 960}, {2048}, {2049}};
    for (const auto& split : splits)
        EXPECT_EQ(Effect<TypeParam>(48000).run(voice, split), expected) << split[0];

    Effect<TypeParam> effect(48000);  // all at once, into another buffer
    auto in = voice;
    Samples out(in.size(), 99);
    const AllocGate gate;
    EXPECT_EQ(TypeParam::process(effect.get(), in.data(), out.data(), 12000), 12000);
    EXPECT_EQ(gate.allocations(), 0);
    EXPECT_EQ(in, voice);
    EXPECT_EQ(out, expected);
}

TYPED_TEST(FrameEffect, TheFirstHopIsZeroAndSilenceStaysSilent) {
    for (const int rate : {8000, 16000, 44100}) {
        Effect<TypeParam> effect(rate);
        const int hop = effect->hop;
        auto noise = noise_s16(8 * hop, 3, 20000);
        noise.resize(noise.size() * 5 / 2);
        const auto out = effect.run(noise);
        EXPECT_TRUE(silent(out, 0, hop));
        // Four frames see the last noise; after another hop of delay nothing of it is left.
        EXPECT_TRUE(silent(out, 16 * hop, 20 * hop));
        EXPECT_TRUE(silent(Effect<TypeParam>(rate).run(Samples(out.size())), 0, 20 * hop));
    }
}

TYPED_TEST(FrameEffect, OutputBeyondFullScaleSaturatesOrWrapsAround) {
    Effect<TypeParam> effect(48000);
    auto loud = sine_s16(24000, 300.0, 48000, 32767.0);
    for (auto& s : loud) s = s < 0 ? -32768 : 32767;
    const auto out = effect.run(loud);
    const bool wraps = std::is_same_v<TypeParam, VocoderKind>;  // deliberate: it alone does
    int beyond = 0;
    for (size_t i = 0; i < out.size(); ++i) {
        const auto y = static_cast<int32_t>(effect.floats[i] * 32768.0f);
        ASSERT_EQ(out[i], wraps ? krel::wrap_s16(y) : krel::sat_s16(y));
        beyond += y != krel::sat_s16(y) ? 1 : 0;
    }
    EXPECT_GT(beyond, 20);
}

TYPED_TEST(FrameEffect, UnusableArgumentsAndRecordsLeaveTheSamplesAlone) {
    const auto noise = noise_s16(3000, 12);
    Effect<TypeParam> effect(48000);
    int16_t sample = 123;
    const auto call = TypeParam::process;
    EXPECT_EQ(call(nullptr, &sample, &sample, 1), -1);
    EXPECT_EQ(call(effect.get(), nullptr, &sample, 1), -1);
    EXPECT_EQ(call(effect.get(), &sample, nullptr, 1), -1);
    for (const int n : {0, -1}) EXPECT_EQ(call(effect.get(), &sample, &sample, n), 0);
    EXPECT_EQ(sample, 123);
    TypeParam::init(nullptr, 48000);
    TypeParam::deinit(nullptr);

    effect.run(noise);
    TypeParam::deinit(effect.get());
    EXPECT_EQ(effect.run(noise), noise);
    TypeParam::deinit(effect.get());
    EXPECT_EQ(TypeParam::init(effect.get(), 16000), 0);
    EXPECT_EQ(effect.run(noise), Effect<TypeParam>(16000).run(noise));
    {
        const AllocGate gate;
        { const Effect<TypeParam> short_lived(48000); }
        EXPECT_EQ(gate.frees(), gate.allocations());
    }
    const AllocGate gate(7);  // memory was short
    EXPECT_EQ(Effect<TypeParam>(48000).run(noise), noise);
}

TEST(FrameEffects, LogTheirSetUpAndTheirEnd) {
    const LogCapture log;
    {
        Pitch pitch(44100, 1.14f);
        EXPECT_EQ(pitch->freq_per_bin, 44100.0 / 2048.0);
    }
    { const Vocoder vocoder(31999); }
    { const Vocal vocal(48000, 2.0f, 3); }
    std::vector<LogLine> expected;
    for (const char* text :
         {"pitch_init: scale 1.140000, fftsize 2048", "pitch_deinit", "vocoder_init: fftsize 1024",
          "vocoder_deinit", "vocal_init formant ratio 2.000000, fdeq_mode 3", "vocal_deinit"})
        expected.push_back({3, "_K_vcp_core", text});
    vocal_init(nullptr, 48000, 2.01f, 1);
    expected.push_back({6, "_K_vcp_core", "fratio can't support 2.010000"});
    EXPECT_EQ(log.lines(), expected);
}

}  // namespace
