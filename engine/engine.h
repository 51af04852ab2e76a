// SPDX-License-Identifier: Apache-2.0
// The engine behind krel_voice: blocks of any length, the voices' exchange, bypass.
#ifndef KREL_ENGINE_ENGINE_H
#define KREL_ENGINE_ENGINE_H

#include <stddef.h>
#include <stdint.h>

#include <atomic>

#include "base/memory.h"
#include "engine/prepared_voice.h"
#include "engine/services.h"

namespace krel {

/// The newest input samples, to come out again later.
class delay_line {
  public:
    /// Room for `longest` samples of delay. False when memory is short.
    bool init(int longest);

    void push(float sample) { line_[++newest_ & mask_] = sample; }
    /// The sample pushed `ago` pushes before the newest one.
    [[nodiscard]] float past(uint32_t ago) const { return line_[(newest_ - ago) & mask_]; }

  private:
    c_array<float> line_;
    uint32_t mask_ = 0;
    uint32_t newest_ = 0;
};

class voice_engine {
  public:
    voice_engine(int rate_hz, krel_voice_log log, void* context);
    ~voice_engine();
    voice_engine(const voice_engine&) = delete;
    voice_engine& operator=(const voice_engine&) = delete;

    /// Builds the first voice. False when memory is short.
    bool start(int number);

    // Any thread.
    bool prepare(int number);
    bool prepare_begin(int number);
    int prepare_part(int blocks);
    void set_bypass(bool on) { bypass_.store(on, std::memory_order_relaxed); }
    [[nodiscard]] int heard() const { return heard_.load(std::memory_order_relaxed); }

    // The audio thread. T: int16_t or float on the unit scale.
    template <typename T>
    void process(T* samples, size_t count);

  private:
    prepared_voice* build(int number);
    void hand_over(prepared_voice* voice);
    void free_used();

    void begin(prepared_voice* voice);
    void give_back(prepared_voice* voice);
    void take_handed();
    void ramp_in();
    void run_block();
    void cross_fade();
    void begin_fade();
    template <typename T>
    void give(const int16_t* voice, T* samples, int count);
    float mixed(float voice, uint32_t ago);

    const int rate_hz_;
    const int fade_length_;  // samples
    const int ramp_length_;
    engine_client client_;

    // Between the threads: a voice on its way in, and those on their way out, newest first.
    std::atomic<prepared_voice*> handed_{nullptr};
    std::atomic<prepared_voice*> used_{nullptr};
    std::atomic<bool> bypass_{false};
    std::atomic<int> heard_{-1};

    prepared_voice* begun_ = nullptr;  // prepared in parts, by one thread at a time

    // The audio thread's own.
    bool started_ = false;
    prepared_voice* current_ = nullptr;
    prepared_voice* coming_ = nullptr;
    int unheard_ = 0;    // samples that the coming voice has to run before its fade
    int ramped_in_ = 0;  // samples of its input's ramp that are done
    int faded_ = 0;      // samples of the fade that are done
    int filled_ = 0;     // samples in in_
    int16_t in_[kVoiceBlock] = {};
    int16_t out_[kVoiceBlock] = {};  // from filled_ + 1 on to be given
    int32_t amplified_[kVoiceBlock] = {};

    delay_line dry_;
    int dry_delay_ = 0;   // as late as the voice that is heard
    int dry_before_ = 0;  // and the one before
    int dry_faded_ = 0;   // samples since the change from one to the other
    int voice_part_ = 0;  // 0: bypass, ramp_length_: voice
};

}  // namespace krel

#endif
