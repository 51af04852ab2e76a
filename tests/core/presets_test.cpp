// What every preset promises, whatever its chain.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "core/modes.h"
#include "core/vcp.h"
#include "tests/support/alloc_gate.h"
#include "tests/support/log_capture.h"
#include "tests/support/signals.h"

namespace {

using krel::Chain;
using Samples = std::vector<int16_t>;

constexpr int kFrames = 128;

/// In place, in blocks of kFrames.
Samples run(void* core, Samples audio) {
    for (size_t at = 0; at + kFrames <= audio.size(); at += kFrames)
        EXPECT_EQ(vcp_process(core, audio.data() + at, audio.data() + at, kFrames), kFrames);
    return audio;
}

class EveryPreset : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Presets, EveryPreset, testing::Range(0, krel::kModeCount));

TEST_P(EveryPreset, KeepsSilenceSilentAndSpeechAudible) {
    void* core = vcp_init(16000);
    vcp_set_mode(core, GetParam());
    // But for the -1 that arithmetic shifts leave behind in the reverberator.
    const auto silent = [](int16_t s) { return s == 0 || s == -1; };
    EXPECT_TRUE(std::ranges::all_of(run(core, Samples(16000)), silent));
    const auto out = run(core, krel_test::voice_s16(16000, 16000));
    EXPECT_GT(krel_test::rms({out.begin() + 8000, out.end()}), 100.0);
    const auto tail = run(core, Samples(64000));
    EXPECT_TRUE(std::all_of(tail.end() - 16000, tail.end(), silent));
    vcp_deinit(core);
}

TEST_P(EveryPreset, IsSafeAtAnyRateAndPassesThroughWhatItCannotDo) {
    const Chain chain = krel::kModes[GetParam()].chain;
    const bool stream = chain == Chain::kStream || chain == Chain::kStreamFormant;
    const auto audio = krel_test::noise_s16(20 * kFrames, 6);
    for (const int rate : {INT32_MIN, -48000, 0, 1, 24, 25, 49, 399, 400, 3999, 7999, 12345, 192000,
                           400000, INT32_MAX}) {
        void* core = vcp_init(rate);
        vcp_set_mode(core, GetParam());
        const bool passed = run(core, audio) == audio;
        // Streams have a least rate, and neither they nor delay lines have room for the largest.
        if (stream || chain == Chain::kEcho) {
            EXPECT_EQ(passed, rate < (stream ? 400 : 24) || rate == INT32_MAX) << rate;
        }
        vcp_deinit(core);
    }
}

TEST_P(EveryPreset, PassesAudioThroughWhenAnyAllocationFails) {
    const auto audio = krel_test::noise_s16(8 * kFrames, 5);
    const auto before = krel_test::live();
    int n = 1;
    for (bool failed = true; failed; ++n) {
        void* core = vcp_init(16000);
        {
            const krel_test::AllocGate gate(n);
            EXPECT_EQ(vcp_set_mode(core, GetParam()), 0);
            failed = gate.failed();
        }
        EXPECT_TRUE(!failed || run(core, audio) == audio) << "allocation " << n;
        vcp_deinit(core);
        ASSERT_EQ(krel_test::live(), before) << "leaked after allocation " << n;
    }
    EXPECT_EQ(n > 2, krel::kModes[GetParam()].chain != Chain::kBypass);
}

TEST(Vcp, PresetIsChosenOncePerCore) {
    krel_test::LogCapture log;
    void* core = vcp_init(48000);
    const auto audio = krel_test::noise_s16(kFrames, 1);
    EXPECT_EQ(run(core, audio), audio) << "without a preset";
    EXPECT_EQ(vcp_set_mode(core, 8), 0);
    EXPECT_EQ(vcp_set_mode(core, 9), 0);
    int16_t sample = 1;
    EXPECT_EQ(vcp_process(core, &sample, &sample, 0), -1);
    EXPECT_EQ(vcp_process(core, nullptr, &sample, 1), -1);
    EXPECT_EQ(vcp_process(core, &sample, nullptr, 1), -1);
    EXPECT_EQ(vcp_deinit(core), 0);
    EXPECT_EQ(vcp_deinit(vcp_init(48000)), 0) << "leaves without a word";
    const std::vector<krel_test::LogLine> expected = {
            {3, "_K_vcp_core", "vcp_init: sample_rate 48000"},
            {3, "_K_vcp_core", "vcp_set_mode: mode 8"},
            {3, "_K_vcp_core", "vcp_deinit: mMode 8"},
            {3, "_K_vcp_core", "vcp_init: sample_rate 48000"}};
    EXPECT_EQ(log.lines(), expected);
    EXPECT_EQ(vcp_set_mode(nullptr, 3), -1);
    EXPECT_EQ(vcp_process(nullptr, &sample, &sample, 1), -1);
    EXPECT_EQ(vcp_deinit(nullptr), -1);
}

}  // namespace
