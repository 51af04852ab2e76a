// SPDX-License-Identifier: Apache-2.0
// docs/REALTIME.md, held against every preset. KREL_REALTIME_SECONDS lengthens the run, for the
// table there.
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>

#include "core/presets.h"
#include "tests/support/instance.h"
#include "tests/support/platform.h"
#include "tests/support/signals.h"

namespace {

using namespace krel_test;

constexpr int kRateHz = 48000, kFrames = 960, kBlocksPerSecond = kRateHz / kFrames;

class RealTime : public testing::TestWithParam<int32_t> {};
bool has_stream(int32_t preset) { return preset >= 10 && preset <= 14; }
INSTANTIATE_TEST_SUITE_P(Presets, RealTime, testing::Range(0, krel::kPresetCount));

TEST_P(RealTime, OnceWarmProcessKeepsToTheListOfExceptions) {
    auto voice = voice_s16(6 * kRateHz, kRateHz, 80.0, 160.0);
    const auto second = voice_s16(6 * kRateHz, kRateHz, 140.0, 280.0);
    voice.insert(voice.end(), second.begin(), second.end());
    Instance instance({.format = AUDIO_FORMAT_PCM_FLOAT, .access = EFFECT_BUFFER_ACCESS_ACCUMULATE},
                      GetParam());
    instance.enable();
    std::vector<float> in(2 * kFrames);
    std::vector<float> out(in.size());
    size_t at = 0;
    const auto run = [&](int blocks) {
        for (int i = 0; i < blocks; ++i) {
            for (size_t k = 0; k < in.size(); at += k % 2, ++k)
                in[k] = static_cast<float>(voice[at % voice.size()]) / 32768.0f;
            ASSERT_EQ(instance.process(in.data(), out.data(), kFrames), 0);
        }
    };
    run(4 * kBlocksPerSecond);

    const char* wanted = getenv("KREL_REALTIME_SECONDS");
    const int seconds = wanted == nullptr ? 12 : std::max(1, atoi(wanted));
    const int blocks = seconds * kBlocksPerSecond;
    const LogCapture log;
    const Gate gate;
    run(blocks);
    EXPECT_EQ(gate.allocations + gate.frees, 0);
    EXPECT_EQ(gate.files + gate.other_locks, 0);
    EXPECT_EQ(gate.vcp_locks, blocks) << "one lock per block";
    const auto count = [&](const char* text) {
        const auto has = [&](auto& line) { return line.find(text) != std::string::npos; };
        return static_cast<int>(std::ranges::count_if(log.lines, has));
    };
    const int load = count("CPU usage: 2048 loops") + count("128 frames for each loop");
    const int underruns = count("vcp_process: underrun");
    EXPECT_NEAR(load, 2 * (blocks * kFrames / 128 / 2048), 2);
    EXPECT_TRUE(has_stream(GetParam()) || underruns == 0);
    EXPECT_EQ(load + underruns, static_cast<int>(log.lines.size()));
    printf("| %2d | %d | %d | %d |  preset, allocations, load lines, underrun lines in %d s\n",
           GetParam(), gate.allocations, load, underruns, seconds);
}

TEST_P(RealTime, ASwitchWorksInItsSilentBlockAlone) {
    Instance instance({}, GetParam() == 7 ? 8 : 7);
    instance.enable();
    std::vector<int16_t> block(2 * kFrames, 1000);  // in place
    for (int i = 0; i < 3; ++i) instance.process(block.data(), block.data(), kFrames);
    instance.set_preset(GetParam());
    for (int call = 1; call <= 6; ++call) {
        SCOPED_TRACE(call);
        const bool silent = call == 2;
        const bool new_length = call == 6;
        const LogCapture log;
        const Gate gate;
        instance.process(block.data(), block.data(), new_length ? kFrames / 2 : kFrames);
        EXPECT_EQ(gate.allocations > 0, silent || new_length);
        EXPECT_EQ(gate.frees > 0, silent);
        EXPECT_TRUE(silent || gate.reallocations == (new_length ? 1 : 0));
        EXPECT_EQ(log.lines.empty(), !silent && !new_length);
        EXPECT_EQ(gate.vcp_locks, silent ? 2 : 1);
        EXPECT_EQ(gate.other_locks + gate.files, 0);
    }
}

}  // namespace
