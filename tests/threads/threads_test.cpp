// Several instances on several threads at once. Calls for one instance never overlap, as the platform promises; they come
// from whichever thread is free, as they do there (audio thread, control threads). What an instance renders must not depend
// on the others. Built with the thread sanitizer, the same run looks for unordered accesses.
#include <gtest/gtest.h>
#include <stdarg.h>
#include <stdio.h>

#include <array>
#include <bit>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <thread>

#include "tests/effect/instance.h"
#include "tests/support/signals.h"
#include "wrapper/voice_changer.h"

namespace {

using krel_test::Config;
using krel_test::Instance;

constexpr int kThreads = 4;
constexpr int kEcho =
        2;  // its delays come from rand(), which all instances share: not compared from there on

/// 16-bit or float noise of a voice's level; the same samples for the same arguments.
template <typename T>
std::vector<T> block_of(size_t frames, uint32_t seed) {
    const auto noise = krel_test::noise_s16(static_cast<int>(2 * frames), seed, 12000);
    std::vector<T> out(noise.size());
    constexpr float kScale = std::is_same_v<T, float> ? 0x1p-15f : 1.0f;
    for (size_t i = 0; i < out.size(); ++i) out[i] = static_cast<T>(noise[i] * kScale);
    return out;
}

/// One instance after another, a step at a time: created, configured, switched, fed, released. The seed decides all of it.
class Player {
  public:
    explicit Player(uint32_t seed) : random_(seed + 1) {}

    /// The next step. Every call into the library but creation happens under `library`, if there is one.
    void step(std::mutex* library) {
        if (!instance_ && !voice_changer_) return create();
        std::unique_lock<std::mutex> lock;
        if (library != nullptr) lock = std::unique_lock(*library);
        if (--steps_left_ == 0) return release();
        if (voice_changer_) return step_voice_changer();
        step_instance();
    }
    /// Everything that was rendered.
    [[nodiscard]] uint64_t digest() const { return digest_; }

  private:
    uint32_t draw(uint32_t n) { return static_cast<uint32_t>(random_() >> 8) % n; }
    int32_t draw_preset() { return static_cast<int32_t>(draw(17)); }
    uint32_t draw_rate() { return std::array{8000U, 16000U, 24000U}[draw(3)]; }

    void create() {
        steps_left_ = 12 + static_cast<int>(draw(16));
        preset_ = draw_preset();
        heard_echo_ = false;
        if (draw(4) == 0) {
            voice_changer_.reset(krel_voice_changer_init(2, draw_rate(), KREL_FORMAT_S16, 0));
            krel_voice_changer_set_mode(voice_changer_.get(), preset_);
            return;
        }
        instance_.emplace();
        ASSERT_TRUE(instance_->created());
        active_ = configured_ = false;
    }
    void release() {
        instance_.reset();
        voice_changer_.reset();
    }
    void step_voice_changer() {
        if (draw(8) == 0) {
            preset_ = draw_preset();
            return krel_voice_changer_set_mode(voice_changer_.get(), preset_);
        }
        auto block = block_of<int16_t>(100 + draw(400), draw(100));
        krel_voice_changer_process(voice_changer_.get(), block.data(), 2 * block.size());
        add(block);
    }
    void step_instance() {
        const uint32_t kind = draw(16);
        if (!configured_ || kind == 0) return configure();
        if (!active_) {
            active_ = true;
            return instance_->enable();
        }
        if (kind == 1) {
            preset_ = draw_preset();
            EXPECT_EQ(instance_->set_preset(preset_), 0);
            EXPECT_EQ(instance_->preset(), preset_);
            return;
        }
        if (kind == 2) {
            active_ = false;
            return instance_->disable();
        }
        const size_t frames = std::array{160U, 192U, 480U}[draw(3)];
        float_ ? add(instance_->run(block_of<float>(frames, draw(100))))
               : add(instance_->run(block_of<int16_t>(frames, draw(100))));
    }
    void configure() {
        float_ = draw(2) == 0;
        const auto format = float_ ? AUDIO_FORMAT_PCM_FLOAT : AUDIO_FORMAT_PCM_16_BIT;
        if (!configured_) instance_->set_preset(preset_);
        configured_ = true;
        EXPECT_EQ(instance_->configure({.format = format, .rate_hz = draw_rate()}), 0);
    }
    template <typename T>
    void add(const std::vector<T>& block) {
        if (preset_ == kEcho) heard_echo_ = true;
        if (heard_echo_) return;
        for (const T s : block) digest_ = (digest_ ^ std::bit_cast<Bits<T>>(s)) * 0x100000001B3ULL;
    }
    template <typename T>
    using Bits = std::conditional_t<sizeof(T) == 2, uint16_t, uint32_t>;

    struct Deinit {
        void operator()(void* ws) const { krel_voice_changer_deinit(ws); }
    };
    std::minstd_rand random_;
    std::optional<Instance> instance_;
    std::unique_ptr<void, Deinit> voice_changer_;
    bool configured_ = false, active_ = false, float_ = false, heard_echo_ = false;
    int32_t preset_ = 0;
    int steps_left_ = 0;
    uint64_t digest_ = 0xCBF29CE484222325ULL;
};

struct Slot {
    explicit Slot(uint32_t seed) : player(seed) {}
    std::mutex mutex;  // what keeps calls for one instance apart
    Player player;
    int steps = 0;
};

/// All slots, kSteps each, by kThreads threads; `library`: see Player::step().
void play_together(std::vector<std::unique_ptr<Slot>>& slots, int steps, std::mutex* library) {
    std::vector<std::thread> threads;
    for (size_t first = 0; first < kThreads; ++first) {
        threads.emplace_back([&, first] {
            size_t finished = 0;
            for (size_t i = first; finished < slots.size(); ++i) {
                Slot& slot = *slots[i % slots.size()];
                const std::lock_guard lock(slot.mutex);
                finished = slot.steps < steps ? 0 : finished + 1;
                if (slot.steps++ < steps) slot.player.step(library);
            }
        });
    }
    for (auto& thread : threads) thread.join();
}

void expect_independent_instances(std::mutex* library) {
    constexpr int kSlots = 6, kSteps = 600;
    std::vector<std::unique_ptr<Slot>> slots;
    for (uint32_t seed = 0; seed < kSlots; ++seed) slots.push_back(std::make_unique<Slot>(seed));
    play_together(slots, kSteps, library);
    for (uint32_t seed = 0; seed < kSlots; ++seed) {
        Player alone(seed);
        for (int i = 0; i < kSteps; ++i) alone.step(nullptr);
        EXPECT_EQ(slots[seed]->player.digest(), alone.digest()) << "seed " << seed;
    }
}

TEST(Threads, InstancesDoNotDisturbEachOther) { expect_independent_instances(nullptr); }

TEST(Threads, InstancesDoNotDisturbEachOtherBehindOneLockWithCreationBesideIt) {
    std::mutex library;
    expect_independent_instances(&library);
}

TEST(Threads, OneVoiceChangerSwitchesWhileItProcesses) {
    void* ws = krel_voice_changer_init(2, 16000, KREL_FORMAT_S16, 0);
    std::thread control([ws] {
        for (int i = 0; i < 60; ++i) krel_voice_changer_set_mode(ws, i % 17);
    });
    for (int i = 0; i < 300; ++i) {
        auto block = block_of<int16_t>(160, 1);
        krel_voice_changer_process(ws, block.data(), 2 * block.size());
        for (size_t at = 0; at < block.size(); at += 2) EXPECT_EQ(block[at], block[at + 1]);
    }
    control.join();
    krel_voice_changer_deinit(ws);
}

}  // namespace

extern "C" int __wrap___android_log_print(int, const char*, const char* format, ...) {
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return length;
}
