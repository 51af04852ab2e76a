#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include "effect/effect_library.h"
#include "effect/instance.h"
#include "tests/effect/instance.h"
#include "tests/support/alloc_gate.h"
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
        EXPECT_EQ(instance.configure({}), 0) << "a later configuration works";
    }
    FAIL() << "a configuration never makes that many allocations";
}

TEST(Fault, BlockWhoseBufferCannotGrowPassesThrough) {
    for (const auto format : {AUDIO_FORMAT_PCM_16_BIT, AUDIO_FORMAT_PCM_FLOAT}) {
        Instance instance(Config{.format = format, .access = EFFECT_BUFFER_ACCESS_ACCUMULATE}, 7);
        instance.enable();
        std::vector<float> in(2 * 1000), out(in.size());
        instance.process(in.data(), out.data(), 100);
        if (format == AUDIO_FORMAT_PCM_FLOAT) {
            for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<float>(i) / 4096.0f - 0.2f;
            std::fill(out.begin(), out.end(), 0.5f);
        }
        const auto before = out;
        {
            AllocGate gate(1);
            EXPECT_EQ(instance.process(in.data(), out.data(), 1000), 0);
        }
        if (format == AUDIO_FORMAT_PCM_FLOAT) {
            for (size_t i = 0; i < in.size(); ++i) ASSERT_FLOAT_EQ(out[i], before[i] + in[i]) << i;
        }
        EXPECT_EQ(instance.process(in.data(), out.data(), 1000), 0)
                << "the next block has its buffer";
        EXPECT_EQ(reinterpret_cast<krel_vcp_context_t*>(instance.handle())->frameCount, 1000U);
        EXPECT_NE(reinterpret_cast<krel_vcp_context_t*>(instance.handle())->workBuffer, nullptr);
    }
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
