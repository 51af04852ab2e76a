// Long random use, driven through AELI: several instances, all presets, formats, rates, masks and block lengths, switches,
// reconfigurations, releases. SOAK_SECONDS of wall time, SOAK_SEED to repeat a run.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <optional>
#include <random>
#include <vector>

#include "core/core_record.h"
#include "core/vcp.h"
#include "tests/effect/instance.h"
#include "tests/support/alloc_gate.h"
#include "tests/support/log_capture.h"
#include "tests/support/signals.h"

namespace {

using krel_test::Config;
using krel_test::Instance;
using Clock = std::chrono::steady_clock;

int setting(const char* name, int otherwise) {
    const char* text = getenv(name);
    if (text == nullptr) return otherwise;
    const int value = atoi(text);
    EXPECT_GT(value, 0) << name << '=' << text;
    return value;
}

class Random {
  public:
    explicit Random(uint32_t seed) : engine_(seed + 1) {}
    size_t below(size_t n) { return (engine_() >> 8) % n; }
    template <typename T, size_t N>
    T one_of(const T (&list)[N]) {
        return list[below(N)];
    }

  private:
    std::minstd_rand engine_;
};

struct Figures {
    long blocks = 0, switches = 0, reconfigurations = 0, instances = 0;
    double audio_seconds = 0.0;
    double energy_in = 0.0, energy_out = 0.0;  // of active instances, full scale 1
    int64_t peak_bytes = 0;
};

/// Speech, then full-scale noise, then silence.
std::vector<int16_t> programme() {
    auto out = krel_test::voice_s16(6 * 48000, 48000, 90.0, 250.0, 20000.0);
    const auto noise = krel_test::noise_s16(12000, 1);
    out.insert(out.end(), noise.begin(), noise.end());
    out.resize(out.size() + 24000);
    return out;
}

/// One instance in use. What it plays is the same on both channels.
class Player {
  public:
    Player(Random& random, Figures& figures, const std::vector<int16_t>& audio)
        : random_(random), figures_(figures), audio_(audio) {}

    void step() {
        switch (random_.below(24)) {
            case 0:
                return configure_anyhow();
            case 1:
            case 2:
                ++figures_.switches;
                EXPECT_EQ(instance_->set_preset(static_cast<int32_t>(random_.below(18)) - 1), 0);
                return;
            case 3:
                frames_ = 16 + random_.below(1900);
                return;
            case 4:
                return toggle();
            default:
                play(1 + random_.below(20));
        }
    }

    /// The same few things in memory, whatever went before: an instance that passes a 960-frame block through.
    void settle() {
        if (!instance_ || random_.below(8) == 0) {
            instance_.emplace();
            ++figures_.instances;
            active_ = false;
        }
        instance_->set_preset(7);
        configure({});
        if (!active_) toggle();
        frames_ = 960;
        play(5);  // ends a switch under way
        toggle();
        configure({});
    }

  private:
    void toggle() {
        active_ ? instance_->disable() : instance_->enable();
        active_ = !active_;
    }
    void configure(const Config& config) {
        config_ = config;
        ++figures_.reconfigurations;
        ASSERT_EQ(instance_->configure(config), 0);
    }
    void configure_anyhow() {
        configure({.format = random_.one_of({AUDIO_FORMAT_PCM_16_BIT, AUDIO_FORMAT_PCM_32_BIT,
                                             AUDIO_FORMAT_PCM_8_24_BIT, AUDIO_FORMAT_PCM_FLOAT}),
                   .rate_hz = random_.one_of(
                           {8000U, 11025U, 16000U, 22050U, 32000U, 44100U, 48000U, 96000U}),
                   .mask = random_.below(8) == 0 ? uint32_t{AUDIO_CHANNEL_OUT_MONO}
                                                 : uint32_t{AUDIO_CHANNEL_OUT_STEREO},
                   .access = random_.below(2) == 0 ? uint8_t{EFFECT_BUFFER_ACCESS_WRITE}
                                                   : uint8_t{EFFECT_BUFFER_ACCESS_ACCUMULATE}});
    }
    void play(size_t blocks) {
        for (size_t i = 0; i < blocks && !testing::Test::HasFailure(); ++i) {
            switch (config_.format) {
                case AUDIO_FORMAT_PCM_16_BIT:
                    play_block<int16_t>(32768.0);
                    break;
                case AUDIO_FORMAT_PCM_8_24_BIT:
                    play_block<int32_t>(8388608.0);
                    break;
                case AUDIO_FORMAT_PCM_32_BIT:
                    play_block<int32_t>(2147483648.0);
                    break;
                default:
                    play_block<float>(1.0);
            }
        }
    }
    /// full_scale: the largest magnitude that input and output may have.
    template <typename T>
    void play_block(double full_scale) {
        std::vector<T> in(2 * frames_), out(in.size());
        for (size_t i = 0; i < frames_; ++i, ++at_) {
            in[2 * i] = static_cast<T>(audio_[at_ % audio_.size()] * (full_scale / 32768.0));
            in[2 * i + 1] = in[2 * i];
        }
        EXPECT_EQ(instance_->process(in.data(), out.data(), frames_), active_ ? 0 : -ENODATA);
        // Any other number of channels than two is one stream through both of a frame's samples.
        const bool equal = config_.mask == AUDIO_CHANNEL_OUT_STEREO;
        for (size_t i = 0; i < out.size(); i += 2) {
            ASSERT_TRUE(std::fabs(static_cast<double>(out[i])) <= full_scale) << out[i];
            ASSERT_TRUE(!equal || out[i] == out[i + 1]) << i;
            if (!active_) continue;
            figures_.energy_in += std::pow(static_cast<double>(in[i]) / full_scale, 2);
            figures_.energy_out += std::pow(static_cast<double>(out[i]) / full_scale, 2);
        }
        ++figures_.blocks;
        figures_.audio_seconds += static_cast<double>(frames_) / config_.rate_hz;
        figures_.peak_bytes = std::max(figures_.peak_bytes, krel_test::live().bytes);
    }

    Random& random_;
    Figures& figures_;
    const std::vector<int16_t>& audio_;
    std::optional<Instance> instance_;
    Config config_;
    size_t frames_ = 960;
    size_t at_ = 0;
    bool active_ = false;
};

// What a pitch stream yields beyond what the core reads stays in its buffer: slow growth that belongs to it, and is measured
// rather than judged, over so many seconds of audio. Only its buffer must not run away from what it holds.
void measure_surplus_of_pitch_streams(int seconds) {
    constexpr int kRunSeconds = 20;
    for (const int preset : {10, 11, 12, 13, 14}) {
        for (const double hz : {80.0, 140.0}) {
            const auto voice = krel_test::voice_s16(kRunSeconds * 48000, 48000, hz, 1.4 * hz);
            void* handle = vcp_init(48000);
            ASSERT_EQ(vcp_set_mode(handle, preset), 0);
            const auto* stream = static_cast<vcp_core_t*>(handle)->stream;
            ASSERT_NE(stream, nullptr);
            int32_t most_unread = 0;
            const auto run = [&] {
                for (size_t at = 0; at + 128 <= voice.size(); at += 128) {
                    int16_t block[128];
                    std::copy_n(voice.begin() + static_cast<ptrdiff_t>(at), 128, block);
                    vcp_process(handle, block, block, 128);
                    most_unread = std::max(most_unread, stream->numOutputSamples);
                }
            };
            run();
            const int32_t unread = stream->numOutputSamples, size = stream->outputBufferSize;
            int done = 0;
            for (; done < seconds; done += kRunSeconds) run();
            printf("soak: preset %d, %3.0f Hz: surplus %+6.2f samples/s in %d s of audio, ", preset,
                   hz, (stream->numOutputSamples - unread) / static_cast<double>(done), done);
            printf("unread %d -> %d, buffer %d -> %d\n", unread, stream->numOutputSamples, size,
                   stream->outputBufferSize);
            EXPECT_LE(stream->outputBufferSize, 2 * (most_unread + 2 * stream->maxRequired));
            vcp_deinit(handle);
        }
    }
}

TEST(Soak, RandomUseLeavesMemoryFlatAndOutputSane) {
    const int seconds = setting("SOAK_SECONDS", 5), seed = setting("SOAK_SEED", 1);
    printf("soak: SOAK_SECONDS=%d SOAK_SEED=%d\n", seconds, seed);
    srand(static_cast<unsigned>(seed));
    Random random(static_cast<uint32_t>(seed));
    Figures figures;
    const auto audio = programme();
    {
        Player players[] = {
                {random, figures, audio}, {random, figures, audio}, {random, figures, audio}};
        for (auto& player : players) player.settle();
        const auto first = krel_test::live();
        const auto end = Clock::now() + std::chrono::seconds(seconds);
        auto last = first;
        while (Clock::now() < end && !HasFailure()) {
            for (int i = 0; i < 100; ++i) players[random.below(std::size(players))].step();
            for (auto& player : players) player.settle();
            last = krel_test::live();
            EXPECT_EQ(last.blocks, first.blocks) << "after " << figures.blocks << " blocks";
            // The allocator may hand out 16 bytes more than last time for the same request.
            EXPECT_LE(std::abs(last.bytes - first.bytes), 16 * first.blocks);
        }
        printf("soak: %ld blocks, %.0f s of audio, %ld switches, %ld reconfigurations, %ld "
               "instances\n",
               figures.blocks, figures.audio_seconds, figures.switches, figures.reconfigurations,
               figures.instances);
        printf("soak: at rest first %lld, last %lld, peak %lld bytes\n",
               static_cast<long long>(first.bytes), static_cast<long long>(last.bytes),
               static_cast<long long>(figures.peak_bytes));
    }
    EXPECT_EQ(krel_test::live().blocks, 0);
    EXPECT_GT(figures.energy_out, 0.1 * figures.energy_in);
    EXPECT_LT(figures.energy_out, 4.0 * figures.energy_in);
    EXPECT_GT(figures.energy_in, 0.0);
    if (seconds >= 60) measure_surplus_of_pitch_streams(seconds);
}

}  // namespace
