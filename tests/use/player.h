// SPDX-License-Identifier: Apache-2.0
// Random use of the library, a step at a time: one instance after another is created, configured,
// switched, fed, released. The seed decides all of it.
#ifndef KREL_TESTS_USE_PLAYER_H
#define KREL_TESTS_USE_PLAYER_H

#include <algorithm>
#include <bit>
#include <cmath>
#include <mutex>
#include <optional>
#include <random>
#include <vector>

#include "core/presets.h"
#include "tests/support/instance.h"
#include "tests/support/signals.h"

namespace krel_test {

class Player {
  public:
    explicit Player(uint32_t seed) : random_(seed + 1) {}

    /// The next step. Every call into the library but creation happens under `library`, if there is
    /// one.
    void step(std::mutex* library = nullptr) {
        if (!instance_) return create();
        std::unique_lock<std::mutex> lock;
        if (library != nullptr) lock = std::unique_lock(*library);
        if (--steps_left_ == 0) return instance_.reset();
        const size_t kind = draw(24);
        if (kind == 0) return configure_anyhow();
        if (kind < 3) return choose(static_cast<int32_t>(draw(18)) - 1);
        if (kind == 3) frames_ = 16 + draw(1900);
        if (kind == 4) return toggle();
        play();
    }
    /// The same few things in memory, whatever went before: an instance that passes 960 frames
    /// through.
    void settle() {
        if (!instance_) create();
        choose(kPlain);
        configure({});
        if (!active_) toggle();
        frames_ = 960;
        for (int i = 0; i < 5; ++i) play();  // ends a switch under way
        toggle();
        configure({});
    }

    long blocks = 0;
    uint64_t digest = 0xCBF29CE484222325ULL;  // of everything that was rendered

  private:
    size_t draw(size_t n) { return (random_() >> 8) % n; }
    void create() {
        steps_left_ = 12 + static_cast<int>(draw(40));
        instance_.emplace();
        ASSERT_EQ(instance_->result_of_creation(), 0);
        active_ = heard_echo_ = false;
        choose(static_cast<int32_t>(draw(krel::kPresetCount)));
        configure_anyhow();
        toggle();
    }
    void choose(int32_t preset) {
        preset_ = preset;
        EXPECT_EQ(instance_->set_preset(preset), 0);
    }
    void toggle() {
        active_ ? instance_->disable() : instance_->enable();
        active_ = !active_;
    }
    void configure(const Config& config) {
        config_ = config;
        EXPECT_EQ(instance_->configure(config), 0);
    }
    void configure_anyhow() {
        constexpr uint32_t kRates[] = {8000, 11025, 16000, 22050, 32000, 44100, 48000, 96000};
        constexpr uint32_t kFormats[] = {1, 3, 4, 5};  // the calculable ones and float
        const uint32_t rate = kRates[draw(8)];
        const uint32_t format = kFormats[draw(4)];
        const bool mono = draw(8) == 0;
        const bool accumulate = draw(2) == 0;
        configure({format, rate, mono ? 1U : 3U, accumulate ? 2U : 0U});
    }
    void play() {
        if (config_.format == AUDIO_FORMAT_PCM_16_BIT) return play_block<int16_t>(0x1p15);
        if (config_.format == AUDIO_FORMAT_PCM_8_24_BIT) return play_block<int32_t>(0x1p23);
        if (config_.format == AUDIO_FORMAT_PCM_32_BIT) return play_block<int32_t>(0x1p31);
        play_block<float>(1.0);
    }
    /// full_scale: the largest magnitude that input and output may have.
    template <typename T>
    void play_block(double full_scale) {
        static const auto voice = voice_s16(6 * 48000, 48000, 90.0, 250.0, 32000.0);
        std::vector<T> in;
        std::vector<T> out(2 * frames_);
        for (size_t i = 0; i < frames_; ++i, ++at_) {
            in.insert(in.end(), 2,
                      static_cast<T>(voice[at_ % voice.size()] * (full_scale / 0x1p15)));
        }
        EXPECT_EQ(instance_->process(in.data(), out.data(), frames_), active_ ? 0 : -ENODATA);
        // Any other number of channels than two is one stream through both of a frame's samples.
        const bool equal = config_.mask == AUDIO_CHANNEL_OUT_STEREO;
        for (size_t i = 0; i < out.size(); i += 2) {
            ASSERT_TRUE(std::fabs(static_cast<double>(out[i])) <= full_scale) << out[i];
            ASSERT_TRUE(!equal || out[i] == out[i + 1]) << i;
        }
        ++blocks;
        // The echo's delays come from rand(), which all instances share.
        heard_echo_ = heard_echo_ || preset_ == 2;
        if (heard_echo_) return;
        using Bits = std::conditional_t<sizeof(T) == 2, uint16_t, uint32_t>;
        for (const T s : out) digest = (digest ^ std::bit_cast<Bits>(s)) * 0x100000001B3ULL;
    }

    std::minstd_rand random_;
    std::optional<Instance> instance_;
    Config config_;
    int32_t preset_ = 0;
    int steps_left_ = 0;
    size_t frames_ = 480, at_ = 0;
    bool active_ = false, heard_echo_ = false;
};

}  // namespace krel_test

#endif
