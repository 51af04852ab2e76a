// SPDX-License-Identifier: Apache-2.0
// Instances short of memory, and uses that no sane caller makes.
#include <stdlib.h>

#include <optional>

#include "core/presets.h"
#include "tests/support/instance.h"
#include "tests/support/platform.h"
#include "tests/support/signals.h"

namespace {

using namespace krel_test;

constexpr Config kNarrow = {.rate_hz = 16000};
constexpr Config kWide = {.format = AUDIO_FORMAT_PCM_32_BIT, .rate_hz = 22050};

/// Equal blocks through an enabled instance, and what becomes of them. Without a voice changer they
/// come back as they were, but for the fades.
template <typename T>
std::vector<T> play(Instance& instance, int blocks, int frames) {
    const auto noise = noise_s16(2 * frames, 3, 20000);
    const std::vector<T> in(noise.begin(), noise.end());
    std::vector<T> all;
    for (int i = 0; i < blocks; ++i) {
        const auto before = instance.record();
        const auto out = instance.run(in);
        EXPECT_TRUE(out == in || before.wrapper != nullptr ||
                    before.fadeInCount + before.fadeOutCount > 0);
        all.insert(all.end(), out.begin(), out.end());
    }
    return all;
}

/// Everything that allocates, in one instance. Each step answers as it went. Returns what the
/// preset makes of noise.
std::vector<int16_t> live_through(Instance& instance, int32_t preset) {
    const auto answers = [&](int32_t result) {
        EXPECT_EQ(result, instance.record().wrapper == nullptr ? -EINVAL : 0);
    };
    if (instance.record().state == krel::kActive) instance.disable();
    answers(instance.configure(kWide));
    instance.enable();
    play<int32_t>(instance, 2, 96);
    instance.set_preset(kPlain);
    play<int32_t>(instance, 4, 256);
    instance.set_preset(preset);
    play<int32_t>(instance, 12, 256);
    const uint32_t rate = 8000;
    answers(instance.send(EFFECT_CMD_SET_SAMPLE_RATE, sizeof rate, &rate));
    play<int32_t>(instance, 2, 96);
    srand(1);  // the echo's jitter
    answers(instance.configure(kNarrow));
    return play<int16_t>(instance, 12, 256);
}

class FaultyLife : public testing::TestWithParam<int32_t> {};
INSTANTIATE_TEST_SUITE_P(Presets, FaultyLife, testing::Range(0, krel::kPresetCount));

TEST_P(FaultyLife, EndsInADocumentedErrorOrABypassAndStartsAnewWithoutALeak) {
    Instance fresh;
    const auto expected = live_through(fresh, GetParam());
    for (const bool from_there_on : {false, true}) {
        int injected = 0;
        for (bool failed = true; failed; ++injected) {
            const Live before = live();
            std::optional<Instance> instance;
            {
                const Gate gate(injected + 1, from_there_on);
                instance.emplace();
                ASSERT_EQ(instance->result_of_creation(), injected == 0 ? -ENOMEM : 0);
                if (injected > 0) live_through(*instance, GetParam());
                failed = gate.failed();
            }
            if (injected > 0) {
                ASSERT_EQ(live_through(*instance, GetParam()), expected) << "failure " << injected;
            }
            instance.reset();
            ASSERT_TRUE(live() == before) << "failure " << injected;
        }
        EXPECT_GT(injected, 30);
    }
}

TEST(Fault, BlockWhoseBufferCannotGrowPassesAsThroughAnInactiveInstance) {
    const auto noise = noise_s16(4000, 3);
    for (const uint32_t format : {1U, 3U, 4U, 5U}) {
        for (const uint32_t access :
             {EFFECT_BUFFER_ACCESS_WRITE, EFFECT_BUFFER_ACCESS_ACCUMULATE}) {
            const Config config = {.format = format, .access = access};
            Instance instance(config);
            Instance inactive(config);
            instance.enable();
            const auto processed = [&](Instance& by, size_t frames) {
                auto in = noise;
                std::vector<int16_t> out(in.size(), 0x1111);
                by.process(in.data(), out.data(), frames);
                return out;
            };
            processed(instance, 100);
            const auto expected = processed(inactive, 1000);
            std::optional<Gate> gate(1);
            EXPECT_EQ(processed(instance, 1000), expected) << format;
            gate.reset();
            EXPECT_EQ(instance.record().workBuffer, nullptr);
            processed(instance, 1000);
            EXPECT_NE(instance.record().workBuffer, nullptr) << "the next block has its buffer";
        }
    }
}

TEST(Fault, NullAndUninitialisedInstancesAreRefused) {
    Instance instance;
    EXPECT_EQ((*instance.handle())->command(nullptr, EFFECT_CMD_INIT, 0, nullptr, nullptr, nullptr),
              -EINVAL);
    instance.record().state = krel::kUninitialised;
    EXPECT_EQ(instance.send(EFFECT_CMD_RESET), -EINVAL);
}

}  // namespace
