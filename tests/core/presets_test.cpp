// The presets as chains: what they set up, what they do when something is missing, and how they treat their buffers.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <string>
#include <vector>

#include "base/fixed_point.h"
#include "core/core_record.h"
#include "core/modes.h"
#include "core/vcp.h"
#include "tables/carrier.h"
#include "tests/support/alloc_gate.h"
#include "tests/support/log_capture.h"
#include "tests/support/signals.h"

namespace {

using krel::Chain;
using krel::kModes;
using krel_test::AllocGate;
using krel_test::LogCapture;

constexpr int kFrames = 128;

class Core {
  public:
    Core(int rate, int mode) : core_(vcp_init(rate)) { vcp_set_mode(core_, mode); }
    ~Core() { vcp_deinit(core_); }
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    /// In place, in blocks of kFrames.
    std::vector<int16_t> run(std::vector<int16_t> audio) {
        for (size_t at = 0; at + kFrames <= audio.size(); at += kFrames) {
            EXPECT_EQ(vcp_process(core_, audio.data() + at, audio.data() + at, kFrames), kFrames);
        }
        return audio;
    }
    vcp_core_t* record() { return static_cast<vcp_core_t*>(core_); }

  private:
    void* core_;
};

class EveryPreset : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Presets, EveryPreset, testing::Range(0, krel::kModeCount));

TEST_P(EveryPreset, PassesAudioThroughWhenAnyAllocationFails) {
    const auto audio = krel_test::noise_s16(8 * kFrames, 5);
    int injected = 0;
    for (bool failed = true; failed; ++injected) {
        void* core = vcp_init(16000);
        {
            AllocGate gate(injected + 1);
            EXPECT_EQ(vcp_set_mode(core, GetParam()), 0);
            failed = gate.failed();
        }
        auto block = audio;
        EXPECT_EQ(vcp_process(core, block.data(), block.data(), static_cast<int>(block.size())),
                  static_cast<int>(block.size()));
        if (failed) {
            EXPECT_EQ(block, audio) << "allocation " << injected + 1;
        }
        EXPECT_EQ(vcp_deinit(core), 0);
        ASSERT_LT(injected, 200);
    }
    EXPECT_EQ(injected > 1, kModes[GetParam()].chain != Chain::kBypass);
}

TEST_P(EveryPreset, KeepsSilenceSilentAndSpeechAudible) {
    Core core(16000, GetParam());
    for (const int16_t s : core.run(std::vector<int16_t>(16000))) ASSERT_TRUE(s == 0 || s == -1);
    const auto out = core.run(krel_test::voice_s16(16000, 16000));
    EXPECT_GT(krel_test::rms({out.begin() + 8000, out.end()}), 100.0);
    // Back to silence, but for the -1 that arithmetic shifts leave behind in the reverberator.
    const auto tail = core.run(std::vector<int16_t>(64000));
    EXPECT_TRUE(std::all_of(tail.end() - 16000, tail.end(),
                            [](int16_t s) { return s == 0 || s == -1; }));
}

TEST_P(EveryPreset, IsSafeAtAnyRate) {
    const auto audio = krel_test::noise_s16(20 * kFrames, 6);
    for (const int rate : {INT32_MIN, -48000, -1, 0, 1, 24, 25, 49, 399, 400, 3999, 7999, 12345,
                           192000, 400000, INT32_MAX}) {
        Core core(rate, GetParam());
        core.run(audio);
    }
}

TEST(Presets, StreamsThatCannotExistPassAudioThrough) {
    const auto audio = krel_test::noise_s16(10 * kFrames, 7);
    for (const int mode : {10, 11, 12, 13, 14}) {
        for (const int rate : {0, 24, 399, INT32_MAX}) {
            Core core(rate, mode);
            EXPECT_EQ(core.run(audio), audio) << "preset " << mode << " at " << rate;
        }
    }
    Core echo(INT32_MAX, 2);
    EXPECT_EQ(echo.run(audio), audio) << "delay lines beyond 64 MiB";
}

TEST(Presets, ReverberatorSettingsChangeAt44100Hz) {
    struct Row {
        int mode, rate;
        int32_t roomsize, damp, wet, dry, width, gain;
    };
    for (const auto& row : {Row{15, 44099, 5815, 51, 192, 4096, 256, 384},
                            Row{15, 44100, 5851, 103, 1536, 6144, 2048, 1024},
                            Row{16, 44099, 5851, 103, 768, 4096, 1024, 384},
                            Row{16, 44100, 5924, 103, 1536, 6144, 2048, 1024}}) {
        Core core(row.rate, row.mode);
        const reverb_t& rv = core.record()->reverb;
        EXPECT_EQ(rv.roomsize, row.roomsize);
        EXPECT_EQ(rv.damp, row.damp);
        EXPECT_EQ(rv.wet, row.wet);
        EXPECT_EQ(rv.dry, row.dry);
        EXPECT_EQ(rv.width, row.width);
        EXPECT_EQ(rv.gain, row.gain);
        EXPECT_EQ(rv.combR[7]->feedback, row.roomsize) << "updated";
    }
}

TEST(Presets, SteeredStreamsGetTheirTargetsAndFixedOnesTheirRatio) {
    struct Row {
        int mode, target, fixed;
        float max, min, pitch;
    };
    for (const auto& row : {Row{10, 0, 1, 0.0f, 0.5f, 0.8f}, Row{11, 223, 0, 2.7f, 1.5f, 1.0f},
                            Row{12, 0, 1, 0.0f, 0.5f, 1.3f}, Row{13, 200, 0, 2.4f, 1.3f, 1.0f},
                            Row{14, 250, 0, 3.0f, 1.7f, 1.0f}}) {
        Core core(48000, row.mode);
        const pitchStreamStruct& stream = *core.record()->stream;
        EXPECT_EQ(stream.targetBaseFreq, row.target);
        EXPECT_EQ(stream.fixedPitch, row.fixed);
        EXPECT_EQ(stream.maxPitch, row.max);
        EXPECT_EQ(stream.minPitch, row.min);
        EXPECT_EQ(stream.pitch, row.pitch);
        EXPECT_EQ(stream.vocalThreshold, 1024);
        EXPECT_EQ(core.record()->fifo_capacity, 1920);
    }
}

TEST(Presets, VocoderWithCarrierLeavesTheVoiceInItsInput) {
    // Deliberate: preset 0 expects one buffer. With two, the gain goes to whatever `out` held.
    Core apart(16000, 0);
    std::vector<int16_t> in = krel_test::voice_s16(4096, 16000), out(4096, 20000), expected = in;
    vocoder_ctx_t vocoder;
    vocoder_init(&vocoder, 16000, krel::kCarrier);
    vocoder_process(&vocoder, expected.data(), expected.data(), 4096);
    vocoder_deinit(&vocoder);
    vcp_process(apart.record(), in.data(), out.data(), 4096);
    EXPECT_EQ(in, expected);
    EXPECT_EQ(out, std::vector<int16_t>(4096, 32500));
}

TEST(Presets, MakeUpGainFollowsTheEffect) {
    Core core(16000, 6);
    const auto voice = krel_test::voice_s16(8192, 16000, 110, 160, 6000);
    auto expected = voice;
    pitch_ctx_t pitch;
    pitch_init(&pitch, 16000, 1.36f);
    pitch_process(&pitch, expected.data(), expected.data(), 8192);
    pitch_deinit(&pitch);
    for (auto& s : expected) s = krel::sat_s16((s * 19) >> 3);
    EXPECT_EQ(core.run(voice), expected);
}

TEST(Presets, EchoJitterIsDrawnAnewForEveryCore) {
    srand(1);
    Core first(48000, 2), second(48000, 2);
    srand(1);
    Core again(48000, 2);
    const auto lengths = [](Core& core) {
        return std::vector<int>(core.record()->echos.len, core.record()->echos.len + 6);
    };
    EXPECT_EQ(lengths(first), lengths(again));
    EXPECT_NE(lengths(first), lengths(second));
    EXPECT_EQ(first.record()->echos.dry, 45);
}

TEST(Presets, StreamIsPrimedWithTwentyMilliseconds) {
    // The stream yields nothing before two longest periods are held, then the FIFO collects 20 ms before sound comes out.
    constexpr int kRate = 8000;
    Core core(kRate, 12);
    const auto out = core.run(krel_test::noise_s16(kRate, 9, 8000));
    const auto first = std::ranges::find_if(out, [](int16_t s) { return s != 0; });
    EXPECT_GE(first - out.begin(), 2 * (kRate / 25));
    EXPECT_LE(first - out.begin(), 2 * (kRate / 25) + kRate / 50 + 3 * kFrames);
}

}  // namespace
