#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cmath>
#include <optional>

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

krel_vcp_context_t& record_of(Instance& instance) {
    return *reinterpret_cast<krel_vcp_context_t*>(instance.handle());
}

class FaultyLife : public testing::TestWithParam<int32_t> {
  protected:
    static constexpr Config kNarrow = {.rate_hz = 16000};
    static constexpr Config kWide = {.format = AUDIO_FORMAT_PCM_32_BIT, .rate_hz = 22050};
    static constexpr int32_t kPlain = 7;

    /// Equal blocks through an enabled instance. Without a voice changer they come back as they were, but for the fades.
    template <typename T>
    static void play(Instance& instance, int blocks, size_t frames) {
        const auto noise = krel_test::noise_s16(static_cast<int>(2 * frames), 3, 20000);
        const std::vector<T> in(noise.begin(), noise.end());
        const auto& ctx = record_of(instance);
        for (int i = 0; i < blocks; ++i) {
            const bool carried =
                    ctx.wrapper == nullptr && ctx.fadeInCount == 0 && ctx.fadeOutCount == 0;
            const auto out = instance.run(in);
            EXPECT_TRUE(!carried || out == in);
        }
    }

    /// Everything that allocates, in one instance: configuration, the preset's set-up by a switch and by another
    /// configuration, blocks of a new length, the rate command. Each step answers as it went.
    void live(Instance& instance) const {
        const auto& ctx = record_of(instance);
        const auto configure = [&](const Config& config) {
            const int32_t status = instance.configure(config);
            EXPECT_EQ(status, ctx.wrapper == nullptr ? -EINVAL : 0);
        };
        configure(kNarrow);
        instance.enable();
        play<int16_t>(instance, 2, 96);
        instance.set_preset(GetParam());
        play<int16_t>(instance, 12, 256);
        configure(kWide);
        play<int32_t>(instance, 12, 256);
        instance.set_preset(kPlain);
        play<int32_t>(instance, 4, 96);

        uint32_t rate = 8000, size = 4;
        int32_t status = 777;
        const int32_t result =
                instance.command(krel_test::kSetSampleRate, 4, &rate, &size, &status);
        EXPECT_EQ(result, ctx.wrapper == nullptr ? -EINVAL : 0);
        EXPECT_EQ(status, result == 0 ? 0 : 777);
        play<int32_t>(instance, 2, 96);
    }

    /// What an instance with the preset makes of noise from its configuration on.
    static std::vector<int16_t> render(Instance& instance) {
        srand(1);  // the echo's jitter
        EXPECT_EQ(instance.configure(kNarrow), 0);
        instance.enable();
        auto audio = krel_test::noise_s16(2 * 12 * 256, 4, 20000);
        for (size_t at = 0; at < audio.size(); at += 512)
            EXPECT_EQ(instance.process(&audio[at], &audio[at], 256), 0);
        return audio;
    }

    static std::vector<int16_t> render_again(Instance& instance, int32_t preset) {
        if (record_of(instance).state != krel::kActive) instance.enable();
        instance.set_preset(preset);
        EXPECT_EQ(instance.configure(kNarrow), 0);
        play<int16_t>(instance, 4, 96);  // any switch under way ends
        instance.disable();
        return render(instance);
    }
};
INSTANTIATE_TEST_SUITE_P(Presets, FaultyLife, testing::Range(0, 17));

TEST_P(FaultyLife, EndsInADocumentedErrorOrABypassAndStartsAnewWithoutALeak) {
    std::vector<int16_t> expected;
    {
        Instance fresh(kNarrow, GetParam());
        expected = render(fresh);
    }
    const krel_test::LogCapture swallowed;
    int injected = 0;
    for (const bool from_there_on : {false, true}) {
        bool failed = true;
        for (int n = 1; failed; ++n) {
            const auto before = krel_test::live();
            std::optional<Instance> instance;
            {
                AllocGate gate(n, from_there_on);
                instance.emplace();
                ASSERT_EQ(instance->created(), n > 1);
                if (instance->created()) live(*instance);
                failed = gate.failed();
            }
            if (instance->created()) {
                ASSERT_EQ(render_again(*instance, GetParam()), expected) << "after failure " << n;
            }
            instance.reset();
            ASSERT_EQ(krel_test::live(), before) << "after failure " << n;
            ASSERT_LT(n, 1000);
            injected += failed ? 1 : 0;
        }
    }
    EXPECT_GT(injected, 60);
    RecordProperty("injected_faults", injected);
    printf("preset %d survives %d injected faults\n", GetParam(), injected);
}

TEST(Fault, ConfigurationWithoutMemoryWarnsOnceAndLeavesNoVoiceChanger) {
    Instance instance;
    const krel_test::LogCapture log;
    const AllocGate gate(1);
    EXPECT_EQ(instance.configure({}), -EINVAL);
    const krel_test::LogLine warning = {5, "_K_krel_vcp_sfx", "init: no work context!"};
    EXPECT_EQ(std::ranges::count(log.lines(), warning), 1);
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
    const auto& ctx = record_of(instance);
    EXPECT_EQ(ctx.workBuffer, nullptr);
    EXPECT_EQ(instance.process(source.data(), out.data(), 1000), 0);
    EXPECT_EQ(ctx.frameCount, 1000U) << "the next block has its buffer";
    EXPECT_NE(ctx.workBuffer, nullptr);
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
            const AllocGate gate;
            Instance instance(Config{.rate_hz = rate}, preset);
            instance.enable();
            std::vector<int16_t> block(512, 3000);
            for (int i = 0; i < 6; ++i)
                EXPECT_EQ(instance.process(block.data(), block.data(), 256), 0);
            EXPECT_LE(gate.largest(), size_t{64} << 20) << rate << ' ' << preset;
        }
    }
}

}  // namespace
