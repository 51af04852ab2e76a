#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cmath>

#include "effect/effect_library.h"
#include "effect/instance.h"
#include "tests/effect/instance.h"
#include "tests/support/alloc_gate.h"
#include "tests/support/log_capture.h"
#include "tests/support/signals.h"

namespace {

using krel_test::AllocGate;
using krel_test::Config;
using krel_test::Instance;
using krel_test::kUuid;

TEST(Fault, CreationWithoutMemoryIsRefused) {
    effect_handle_t handle = nullptr;
    AllocGate gate(1);
    EXPECT_EQ(AELI.create_effect(&kUuid, 0, 0, &handle), -ENOMEM);
    EXPECT_EQ(handle, nullptr);
}

TEST(Fault, EveryFailedAllocationOfAConfigurationLeavesASafeInstance) {
    for (int n = 1; n < 1000; ++n) {
        Instance instance;
        ASSERT_TRUE(instance.created());
        instance.enable();
        int32_t status = 0;
        bool failed = false;
        const krel_test::LogCapture log;
        {
            AllocGate gate(n);
            status = instance.configure({});
            failed = gate.failed();
        }
        std::vector<int16_t> block(256, 1000);
        for (int i = 0; i < 4; ++i) instance.process(block.data(), block.data(), 128);
        if (!failed) {
            EXPECT_EQ(status, 0);
            EXPECT_GT(n, 1);
            return;
        }
        // No voice changer, or one without a core, which passes audio through.
        EXPECT_TRUE(status == 0 || status == -EINVAL);
        if (n == 1) {
            EXPECT_EQ(status, -EINVAL);
            const krel_test::LogLine warning = {5, "_K_krel_vcp_sfx", "init: no work context!"};
            EXPECT_EQ(std::ranges::count(log.lines(), warning), 1);
        }
        EXPECT_EQ(instance.configure({}), 0) << "a later configuration works";
    }
    FAIL() << "a configuration never makes that many allocations";
}

TEST(Fault, RateCommandWithoutMemoryIsRefused) {
    Instance instance{Config{}};
    uint32_t rate = 16000, size = 4;
    int32_t status = 777;
    {
        AllocGate gate(1);
        EXPECT_EQ(instance.command(krel_test::kSetSampleRate, 4, &rate, &size, &status), -EINVAL);
    }
    EXPECT_EQ(status, 777);
    std::vector<int16_t> block(256, 1000);
    EXPECT_EQ(instance.process(block.data(), block.data(), 128), -ENODATA);
    EXPECT_EQ(instance.configure({}), 0) << "a later configuration works";
}

/// A block of 1000 frames whose work buffer cannot grow, and the block after it.
template <typename T>
void expect_pass_through(const Config& config, const std::vector<T>& in,
                         const std::vector<T>& before, const std::vector<T>& expected) {
    Instance instance(config, 7);
    instance.enable();
    auto source = in;
    std::vector<T> out(in.size());
    instance.process(source.data(), out.data(), 100);
    out = before;
    {
        AllocGate gate(1);
        EXPECT_EQ(instance.process(source.data(), out.data(), 1000), 0);
    }
    EXPECT_EQ(out, expected);
    const auto* ctx = reinterpret_cast<krel_vcp_context_t*>(instance.handle());
    EXPECT_EQ(ctx->workBuffer, nullptr);
    EXPECT_EQ(instance.process(source.data(), out.data(), 1000), 0);
    EXPECT_EQ(ctx->frameCount, 1000U) << "the next block has its buffer";
    EXPECT_NE(ctx->workBuffer, nullptr);
}

TEST(Fault, BlockWhoseBufferCannotGrowPassesThrough) {
    const auto noise = krel_test::noise_s16(2000, 3, 10000);
    const std::vector<int16_t> quiet(2000, 500);
    auto sum = noise;
    for (auto& s : sum) s = static_cast<int16_t>(s + 500);
    expect_pass_through<int16_t>({}, noise, quiet, noise);
    expect_pass_through<int16_t>({.access = EFFECT_BUFFER_ACCESS_ACCUMULATE}, noise, quiet, sum);

    std::vector<float> in(2000), added(2000);
    for (size_t i = 0; i < in.size(); ++i) {
        in[i] = static_cast<float>(i) / 4096.0f - 0.2f;
        in[i] = static_cast<float>(std::lround(in[i] * 32768.0f)) /
                32768.0f;  // survives the way through integers
        added[i] = in[i] + 0.25f;
    }
    const Config floating = {.format = AUDIO_FORMAT_PCM_FLOAT,
                             .access = EFFECT_BUFFER_ACCESS_ACCUMULATE};
    expect_pass_through<float>(floating, in, std::vector<float>(2000, 0.25f), added);
}

TEST(Fault, FrameCountsNoBufferCanHaveTouchNoMemory) {
    Instance instance(Config{}, 7);
    instance.enable();
    int16_t tiny[2] = {5, 6};
    for (const size_t frames : {SIZE_MAX, SIZE_MAX / 2, SIZE_MAX / 4}) {
        EXPECT_EQ(instance.process(tiny, tiny, frames), 0);
        EXPECT_EQ(tiny[0], 5);
        EXPECT_EQ(instance.process(tiny, tiny, 1), 0) << "the next block works";
        tiny[0] = 5;
    }
}

TEST(Fault, FormatsOfNoSizeTakeNoTimeWhateverTheFrameCount) {
    Instance instance(Config{.format = AUDIO_FORMAT_DEFAULT}, 7);
    instance.enable();
    int16_t tiny[2] = {5, 6};
    EXPECT_EQ(instance.process(tiny, tiny, SIZE_MAX / 16), 0);
    EXPECT_EQ(tiny[0], 5);
}

TEST(Fault, ReleaseAndReconfigurationAtEveryPointOfASwitchLeakNothing) {
    for (int calls = 0; calls < 6; ++calls) {
        for (const bool reconfigure : {false, true}) {
            Instance instance(Config{}, 7);
            instance.enable();
            std::vector<int16_t> block(512, 3000);
            for (int i = 0; i < 3; ++i) instance.process(block.data(), block.data(), 256);
            instance.set_preset(9);
            for (int i = 0; i < calls; ++i) instance.process(block.data(), block.data(), 256);
            if (reconfigure) {
                EXPECT_EQ(instance.configure({.format = AUDIO_FORMAT_PCM_8_24_BIT}), 0);
                std::vector<int32_t> wide(512, 3000);
                for (int i = 0; i < 6; ++i) instance.process(wide.data(), wide.data(), 256);
            }
        }
    }
}

TEST(Fault, RatesFromZeroToTheLargestAreAccepted) {
    for (const uint32_t rate :
         {0U, 1U, 24U, 399U, 4000U, 192000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        for (int32_t preset = 0; preset <= 16; ++preset) {
            Instance instance(Config{.rate_hz = rate}, preset);
            instance.enable();
            std::vector<int16_t> block(512, 3000);
            for (int i = 0; i < 6; ++i)
                EXPECT_EQ(instance.process(block.data(), block.data(), 256), 0);
        }
    }
}

TEST(Fault, EveryPresetSurvivesEveryFailedAllocationOfItsSwitch) {
    for (int32_t preset = 0; preset <= 16; ++preset) {
        for (int n = 1;; ++n) {
            Instance instance(Config{.rate_hz = 16000}, preset == 8 ? 9 : 8);
            instance.enable();
            std::vector<int16_t> block(512, 3000);
            for (int i = 0; i < 3; ++i) instance.process(block.data(), block.data(), 256);
            instance.set_preset(preset);
            bool failed = false;
            {
                AllocGate gate(n);
                for (int i = 0; i < 6; ++i)
                    EXPECT_EQ(instance.process(block.data(), block.data(), 256), 0);
                failed = gate.failed();
            }
            if (!failed) break;
            ASSERT_LT(n, 200);
        }
    }
}

TEST(Fault, SteadyStateOfTheWholePathAllocatesNothing) {
    Instance instance(
            Config{.format = AUDIO_FORMAT_PCM_FLOAT, .access = EFFECT_BUFFER_ACCESS_ACCUMULATE}, 7);
    instance.enable();
    std::vector<float> in(2 * 960, 0.25f), out(in.size());
    for (int i = 0; i < 4; ++i) instance.process(in.data(), out.data(), 960);
    AllocGate gate;
    for (int i = 0; i < 200; ++i) instance.process(in.data(), out.data(), 960);
    EXPECT_EQ(gate.allocations(), 0);
    EXPECT_EQ(gate.frees(), 0);
}

}  // namespace
