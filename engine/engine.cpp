// SPDX-License-Identifier: Apache-2.0
#include "engine/engine.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "base/fixed_point.h"
#include "base/pcm.h"
#include "engine/voices.h"

namespace krel {
namespace {

constexpr int kFadeMs = 30;
constexpr int kRampMs = 20;
constexpr int kStreamMs =
        40;  // the longest pitch period, by which a stream may be later than usual

constexpr int to_samples(int ms, int rate_hz) { return rate_hz * ms / 1000; }

constexpr int latency(int block_delay) { return kCollectDelay + block_delay; }

/// How long a new voice runs before it is good to hear: its input's ramp has come out.
int unheard_samples(int number, int rate_hz) {
    const int spare = has_stream(number) ? kRampMs + kStreamMs : kRampMs;
    return block_delay(number, rate_hz) + to_samples(spare, rate_hz);
}

int longest_latency(int rate_hz) {
    int longest = 0;
    for (int number = 0; number < kPresetCount; ++number)
        longest = std::max(longest, latency(block_delay(number, rate_hz)));
    return longest;
}

/// By way of 32 and 24 bits, each rounded: so do the effect library's float buffers become 16 bits.
int16_t to_s16(float x) {
    const double scaled = static_cast<double>(x) * 0x1p31;
    return s16_from_q8_23_sat(q8_23_from_s32(trunc_sat_s32(scaled + (scaled < 0.0 ? -0.5 : 0.5))));
}
int16_t to_s16(int16_t x) { return x; }

float to_unit(float x) { return x; }
float to_unit(int16_t x) { return unit_from_s16(x); }

void from_unit(float x, float& to) { to = x; }
void from_unit(float x, int16_t& to) { to = s16_from_unit_sat(x); }

void from_s16(int16_t x, float& to) { to = unit_from_s16(x); }
void from_s16(int16_t x, int16_t& to) { to = x; }

/// a, b and what lies between: b's share grows from 0 at 0 to 1 at `length`.
float blend(float a, float b, int at, int length) {
    if (at <= 0) return a;
    return at >= length ? b : a + (b - a) * (static_cast<float>(at) / static_cast<float>(length));
}

}  // namespace

bool delay_line::init(int longest) {
    const auto size = std::bit_ceil(static_cast<uint32_t>(longest) + 1);
    line_ = zeroed<float>(size);
    mask_ = size - 1;
    return line_ != nullptr;
}

voice_engine::voice_engine(int rate_hz, krel_voice_log log, void* context)
    : rate_hz_(rate_hz),
      fade_length_(to_samples(kFadeMs, rate_hz)),
      ramp_length_(to_samples(kRampMs, rate_hz)),
      client_{.log = log, .context = context},
      dry_faded_(fade_length_),
      voice_part_(ramp_length_) {}

voice_engine::~voice_engine() {
    free_used();
    const serving served(&client_);
    for (prepared_voice* voice : {handed_.load(), begun_, current_, coming_}) free_voice(voice);
}

bool voice_engine::start(int number) {
    prepared_voice* voice = build(number);
    if (voice == nullptr || !dry_.init(longest_latency(rate_hz_) + kVoiceBlock)) {
        free_voice(voice);
        return false;
    }
    begin(voice);
    return true;
}

// ---- any thread ---------------------------------------------------------------------------------

prepared_voice* voice_engine::build(int number) {
    const serving served(&client_);
    prepared_voice* voice = make_voice(rate_hz_, number);
    if (voice != nullptr) settle(voice, voice->unsettled);
    return voice;
}

void voice_engine::hand_over(prepared_voice* voice) {
    // One that was not taken yet is its thread's again.
    const serving served(&client_);
    free_voice(handed_.exchange(voice, std::memory_order_acq_rel));
}

bool voice_engine::prepare(int number) {
    free_used();
    prepared_voice* voice = build(number);
    if (voice == nullptr) return false;
    hand_over(voice);
    return true;
}

bool voice_engine::prepare_begin(int number) {
    free_used();
    const serving served(&client_);
    free_voice(std::exchange(begun_, nullptr));
    begun_ = make_voice(rate_hz_, number);
    return begun_ != nullptr;
}

int voice_engine::prepare_part(int blocks) {
    if (begun_ == nullptr) return 0;
    const serving served(&client_);
    settle(begun_, blocks);
    if (begun_->unsettled > 0) return begun_->unsettled;
    hand_over(std::exchange(begun_, nullptr));
    return 0;
}

void voice_engine::free_used() {
    const serving served(&client_);
    prepared_voice* voice = used_.exchange(nullptr, std::memory_order_acquire);
    while (voice != nullptr) {
        prepared_voice* next = voice->next;
        free_voice(voice);
        voice = next;
    }
}

// ---- the audio thread ---------------------------------------------------------------------------

/// Makes a voice the one that is heard, as if it had been so all the time.
void voice_engine::begin(prepared_voice* voice) {
    current_ = voice;
    std::copy_n(voice->settled, kVoiceBlock, out_);
    dry_delay_ = latency(voice->delay);
    heard_.store(voice->number, std::memory_order_relaxed);
}

void voice_engine::give_back(prepared_voice* voice) {
    voice->next = used_.load(std::memory_order_relaxed);
    // Only this thread adds; another one may take all of them meanwhile, once.
    while (!used_.compare_exchange_weak(voice->next, voice, std::memory_order_release,
                                        std::memory_order_relaxed)) {
    }
}

void voice_engine::take_handed() {
    // A fade that has begun goes on to its end.
    if (faded_ > 0 || handed_.load(std::memory_order_relaxed) == nullptr) return;
    prepared_voice* voice = handed_.exchange(nullptr, std::memory_order_acquire);
    if (!started_) {
        give_back(current_);
        begin(voice);
        return;
    }
    if (coming_ != nullptr) give_back(coming_);
    coming_ = voice;
    unheard_ = unheard_samples(voice->number, rate_hz_);
    ramped_in_ = 0;
}

void voice_engine::begin_fade() {
    dry_before_ = dry_delay_;
    dry_delay_ = latency(coming_->delay);
    dry_faded_ = 0;
    heard_.store(coming_->number, std::memory_order_relaxed);
}

/// From the current voice's block in out_ to the coming one's in in_.
void voice_engine::cross_fade() {
    if (faded_ == 0) begin_fade();
    for (int i = 0; i < kVoiceBlock; ++i, ++faded_) {
        const int share = std::min(faded_, fade_length_);
        out_[i] = static_cast<int16_t>((out_[i] * (fade_length_ - share) + in_[i] * share) /
                                       fade_length_);
    }
    if (faded_ < fade_length_) return;
    give_back(current_);
    current_ = coming_;
    coming_ = nullptr;
    faded_ = 0;
}

/// What the coming voice hears: its first sound must not be a step, which would come out as a
/// click, or as several.
void voice_engine::ramp_in() {
    for (int i = 0; i < kVoiceBlock && ramped_in_ < ramp_length_; ++i, ++ramped_in_)
        in_[i] = static_cast<int16_t>(in_[i] * ramped_in_ / ramp_length_);
}

/// in_ to out_.
void voice_engine::run_block() {
    take_handed();
    std::copy_n(in_, kVoiceBlock, out_);
    run_voice(current_, amplified_, out_);
    if (coming_ == nullptr) return;
    ramp_in();
    run_voice(coming_, amplified_, in_);
    if (unheard_ > 0) {
        unheard_ -= kVoiceBlock;
    } else {
        cross_fade();
    }
}

/// The next output sample on the unit scale, from the voice's and from the input that is as late.
float voice_engine::mixed(float voice, uint32_t ago) {
    const bool bypass = bypass_.load(std::memory_order_relaxed);
    voice_part_ = bypass ? std::max(voice_part_ - 1, 0) : std::min(voice_part_ + 1, ramp_length_);
    const float dry =
            blend(dry_.past(ago + static_cast<uint32_t>(dry_before_)),
                  dry_.past(ago + static_cast<uint32_t>(dry_delay_)), dry_faded_, fade_length_);
    dry_faded_ = std::min(dry_faded_ + 1, fade_length_);
    return blend(dry, voice, voice_part_, ramp_length_);
}

/// Writes `count` samples of the output, of whose input the delay line holds the last one as its
/// newest.
template <typename T>
void voice_engine::give(const int16_t* voice, T* samples, int count) {
    if (voice_part_ == ramp_length_ && !bypass_.load(std::memory_order_relaxed)) {
        for (int i = 0; i < count; ++i) from_s16(voice[i], samples[i]);
        dry_faded_ = std::min(dry_faded_ + count, fade_length_);
        return;
    }
    for (int i = 0; i < count; ++i) {
        from_unit(mixed(unit_from_s16(voice[i]), static_cast<uint32_t>(count - 1 - i)), samples[i]);
    }
}

template <typename T>
void voice_engine::process(T* samples, size_t count) {
    if (count > 0 && !started_) {
        take_handed();
        started_ = true;
    }
    while (count > 0) {
        // Up to the sample that completes a block, and that one by itself: its output is the new
        // block's first.
        const int room = kCollectDelay - filled_;
        const auto run = static_cast<int>(std::min(count, size_t(std::max(room, 1))));
        for (int i = 0; i < run; ++i) {
            in_[filled_ + i] = to_s16(samples[i]);
            dry_.push(to_unit(samples[i]));
        }
        if (room == 0) run_block();
        filled_ = room == 0 ? -1 : filled_;
        give(&out_[filled_ + 1], samples, run);
        filled_ += run;
        samples += run;
        count -= static_cast<size_t>(run);
    }
}

template void voice_engine::process(int16_t*, size_t);
template void voice_engine::process(float*, size_t);

}  // namespace krel
