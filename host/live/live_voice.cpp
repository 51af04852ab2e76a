// SPDX-License-Identifier: Apache-2.0
#include "host/live/live_voice.h"

#include <algorithm>
#include <cmath>

#include "host/effect/cpu_clock.h"
#include "host/error.h"

namespace krel::host::live {
namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

float peak_of(const float* samples, uint32_t count) {
    float most = 0.0f;
    for (uint32_t i = 0; i < count; ++i) most = std::max(most, std::fabs(samples[i]));
    return most;
}

void raise(std::atomic<float>& peak, float most) {
    float known = peak.load(kRelaxed);
    while (most > known && !peak.compare_exchange_weak(known, most, kRelaxed)) {
    }
}

}  // namespace

LiveVoice::~LiveVoice() {
    for (const Engine* engine : {handed_.load(), used_.load(), current_}) delete engine;
}

void LiveVoice::follow(int rate_hz) {
    delete used_.exchange(nullptr, std::memory_order_acquire);
    if (newest_ != nullptr && newest_->rate_hz == rate_hz) return;
    auto engine = std::make_unique<Engine>();
    engine->voice.reset(krel_voice_create(rate_hz, number_, nullptr, nullptr));
    engine->rate_hz = rate_hz;
    if (!engine->voice) throw Error("no voice works at " + std::to_string(rate_hz) + " Hz");
    krel_voice_bypass(engine->voice.get(), bypass_ ? 1 : 0);
    newest_ = engine.get();
    // One that was not taken yet is this thread's again.
    delete handed_.exchange(engine.release(), std::memory_order_acq_rel);
}

void LiveVoice::choose(int number) {
    if (newest_ != nullptr && krel_voice_prepare(newest_->voice.get(), number) != 0)
        throw Error("out of memory");
    number_ = number;
}

void LiveVoice::bypass(bool on) {
    bypass_ = on;
    if (newest_ != nullptr) krel_voice_bypass(newest_->voice.get(), on ? 1 : 0);
}

int LiveVoice::delay() const {
    return newest_ == nullptr ? 0 : krel_voice_latency(number_, newest_->rate_hz);
}

Levels LiveVoice::take_levels() {
    const auto frames = static_cast<double>(frames_.exchange(0, kRelaxed));
    const auto spent = 1e-9 * static_cast<double>(spent_ns_.exchange(0, kRelaxed));
    return {.in_peak = in_peak_.exchange(0.0f, kRelaxed),
            .out_peak = out_peak_.exchange(0.0f, kRelaxed),
            .cost = frames > 0.0 && newest_ != nullptr ? spent * newest_->rate_hz / frames : 0.0};
}

// ---- the audio thread ---------------------------------------------------------------------------

void LiveVoice::process(const float* in, float* out, uint32_t frames, int rate_hz) noexcept {
    const double start = cpu_seconds();
    // The place for the one before must be free: only the other thread may delete it.
    if (handed_.load(kRelaxed) != nullptr && used_.load(kRelaxed) == nullptr) {
        used_.store(current_, std::memory_order_release);
        current_ = handed_.exchange(nullptr, std::memory_order_acquire);
    }
    if (in == nullptr) {
        std::fill_n(out, frames, 0.0f);
    } else if (in != out) {
        std::copy_n(in, frames, out);
    }
    const float in_peak = peak_of(out, frames);
    raise(in_peak_, in_peak);
    const bool ready = current_ != nullptr && current_->rate_hz == rate_hz;
    if (ready && in_peak > 0.0f) current_->started = true;
    if (ready && current_->started) {
        krel_voice_process_float(current_->voice.get(), out, frames);
    } else {
        std::fill_n(out, frames, 0.0f);
    }
    raise(out_peak_, peak_of(out, frames));
    frames_.fetch_add(frames, kRelaxed);
    spent_ns_.fetch_add(static_cast<uint64_t>(1e9 * (cpu_seconds() - start)), kRelaxed);
}

}  // namespace krel::host::live
