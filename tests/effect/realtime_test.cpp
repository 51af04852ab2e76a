// docs/REALTIME.md, held against every preset. KREL_REALTIME_SECONDS lengthens the run, for the table there.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <vector>

#include "tests/effect/instance.h"
#include "tests/effect/platform_calls.h"
#include "tests/support/alloc_gate.h"
#include "tests/support/signals.h"

namespace {

using krel_test::Instance;
using krel_test::platform_calls;

constexpr int kRateHz = 48000;
constexpr int kFrames = 960;
constexpr int kBlocksPerSecond = kRateHz / kFrames;

/// Two voices that glide through an octave each, stereo.
std::vector<float> two_voices() {
    std::vector<float> out;
    for (const double hz : {80.0, 140.0}) {
        for (const int16_t s : krel_test::voice_s16(6 * kRateHz, kRateHz, hz, 2.0 * hz))
            out.insert(out.end(), 2, static_cast<float>(s) / 32768.0f);
    }
    return out;
}

int seconds_to_run() {
    const char* wanted = getenv("KREL_REALTIME_SECONDS");
    return wanted == nullptr ? 12 : std::max(1, atoi(wanted));
}

long count(const char* start_of_line) {
    return std::ranges::count_if(platform_calls.log, [&](const std::string& line) {
        return line.starts_with(start_of_line);
    });
}

class RealTime : public testing::TestWithParam<int32_t> {
  protected:
    static bool has_stream() { return GetParam() >= 10 && GetParam() <= 14; }
};
INSTANTIATE_TEST_SUITE_P(Presets, RealTime, testing::Range(0, 17));

TEST_P(RealTime, OnceWarmProcessKeepsToTheListOfExceptions) {
    const auto voice = two_voices();
    Instance instance({.format = AUDIO_FORMAT_PCM_FLOAT, .access = EFFECT_BUFFER_ACCESS_ACCUMULATE},
                      GetParam());
    instance.enable();
    std::vector<float> in(2 * kFrames), out(in.size());
    size_t at = 0;
    const auto run = [&](int blocks) {
        for (int i = 0; i < blocks; ++i) {
            std::copy_n(voice.begin() + static_cast<ptrdiff_t>(at), in.size(), in.begin());
            at = (at + in.size()) % voice.size();
            ASSERT_EQ(instance.process(in.data(), out.data(), kFrames), 0);
        }
    };
    run(4 * kBlocksPerSecond);

    const int seconds = seconds_to_run();
    const int blocks = seconds * kBlocksPerSecond;
    platform_calls = {};
    platform_calls.counting = true;
    int allocations = 0, reallocations = 0;
    {
        const krel_test::AllocGate gate;
        run(blocks);
        platform_calls.counting = false;
        allocations = gate.allocations();
        reallocations = gate.reallocations();
        EXPECT_EQ(gate.frees(), 0);
    }
    // Only a pitch stream allocates, and only to enlarge what it has.
    EXPECT_EQ(allocations, reallocations);
    EXPECT_LE(reallocations, has_stream() ? 8 + seconds / 60 : 0);
    EXPECT_EQ(platform_calls.files, 0);
    EXPECT_EQ(platform_calls.vcp_locks, blocks) << "one lock per block";
    EXPECT_EQ(platform_calls.other_locks, 0);
    const auto load = count("%s CPU usage") + count("krel_voice_changer_process CPU usage") +
                      count("\t\t mean: ");
    const auto underruns = count("vcp_process: underrun");
    EXPECT_LE(load, 2 * (int64_t{blocks} * kFrames / 128 / 2048 + 1));
    EXPECT_TRUE(has_stream() || underruns == 0);
    EXPECT_EQ(load + underruns, static_cast<long>(platform_calls.log.size()));
    printf("| %2d | %d | %ld | %ld |  preset, enlarged buffers, load lines, underrun lines in %d "
           "s\n",
           GetParam(), reallocations, load, underruns, seconds);
}

TEST_P(RealTime, ASwitchWorksInItsSilentBlockAlone) {
    Instance instance({}, GetParam() == 7 ? 8 : 7);
    instance.enable();
    std::vector<int16_t> block(2 * kFrames, 1000);  // in place
    for (int i = 0; i < 3; ++i) instance.process(block.data(), block.data(), kFrames);
    instance.set_preset(GetParam());
    for (int call = 1; call <= 6; ++call) {
        const bool silent = call == 2, new_length = call == 6;
        const krel_test::AllocGate gate;
        platform_calls = {};
        platform_calls.counting = true;
        instance.process(block.data(), block.data(), new_length ? kFrames / 2 : kFrames);
        platform_calls.counting = false;
        const int taken = gate.allocations() - gate.reallocations();
        EXPECT_EQ(taken > 0, silent) << "call " << call;
        EXPECT_EQ(gate.frees() > 0, silent) << "call " << call;
        // A stream may enlarge its buffers in any block.
        if (!silent && !has_stream()) {
            EXPECT_EQ(gate.reallocations(), new_length ? 1 : 0) << "call " << call;
        }
        EXPECT_EQ(platform_calls.log.empty(), !silent && !new_length) << "call " << call;
        EXPECT_EQ(platform_calls.vcp_locks, silent ? 2 : 1) << "call " << call;
        EXPECT_EQ(platform_calls.other_locks + platform_calls.files, 0) << "call " << call;
    }
}

}  // namespace
