// SPDX-License-Identifier: Apache-2.0
// The voice in a live graph: an engine for the graph's rate, levels and cost.
#ifndef KREL_HOST_LIVE_LIVE_VOICE_H
#define KREL_HOST_LIVE_LIVE_VOICE_H

#include <atomic>
#include <memory>

#include "engine/voice.h"
#include "host/live/backend.h"

namespace krel::host::live {

struct Levels {
    float in_peak = 0.0f;  // 1.0: full scale
    float out_peak = 0.0f;
    double cost = 0.0;  // share of one core
};

/// A voice begins with the first period that is not silent. From there on it is what the engine
/// makes of these samples, to the bit, however long it waited before.
///
/// All but process() from one thread, which must see the last process call end before it destroys
/// this.
class LiveVoice final : public Processor {
  public:
    explicit LiveVoice(int number) : number_(number) {}
    ~LiveVoice();
    LiveVoice(const LiveVoice&) = delete;
    LiveVoice& operator=(const LiveVoice&) = delete;

    /// Works at this rate from the next period on. Until a first call there is silence, and also
    /// while the graph runs at another one. To be called now and then: frees what is no longer
    /// used. Throws Error where no voice works at the rate.
    void follow(int rate_hz);
    /// Throws Error when memory is short.
    void choose(int number);
    void bypass(bool on);

    [[nodiscard]] int number() const { return number_; }
    [[nodiscard]] bool bypassed() const { return bypass_; }
    /// Samples by which the chosen voice is late; 0 while no rate is known.
    [[nodiscard]] int delay() const;
    /// Since the last call.
    Levels take_levels();

    void process(const float* in, float* out, uint32_t frames, int rate_hz) noexcept override;

  private:
    struct Release {
        void operator()(krel_voice* voice) const { krel_voice_release(voice); }
    };
    struct Engine {
        std::unique_ptr<krel_voice, Release> voice;
        int rate_hz;
        bool started = false;  // there was a sound; the audio thread's own
    };

    int number_;
    bool bypass_ = false;
    Engine* newest_ = nullptr;  // the audio thread's, or on its way there

    // Between the threads.
    std::atomic<Engine*> handed_{nullptr};
    std::atomic<Engine*> used_{nullptr};
    std::atomic<float> in_peak_{0.0f};
    std::atomic<float> out_peak_{0.0f};
    std::atomic<uint64_t> frames_{0};
    std::atomic<uint64_t> spent_ns_{0};

    // The audio thread's own.
    Engine* current_ = nullptr;
};

}  // namespace krel::host::live

#endif
