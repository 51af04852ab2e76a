// SPDX-License-Identifier: Apache-2.0
#include "host/render/session.h"

#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "host/effect/cpu_clock.h"
#include "host/error.h"
#include "host/interrupt.h"
#include "host/presets.h"

namespace krel::host {
namespace {

constexpr size_t kStereo = 2;

// Silence fed ahead of the audio, in blocks of one fixed length, so that the result does not depend
// on the block length asked for. The first four blocks hold the fades of enabling and choosing a
// preset. The compressor's gain begins at one half and is settled after 65 blocks; the pitch
// stream's buffers hold some 100 ms.
constexpr size_t kPrimeFrames = 128;
constexpr size_t kPrimeBlocks = 256;

int64_t to_frames(double seconds, int rate_hz) { return std::llround(seconds * rate_hz); }

std::vector<size_t> presets_in_play(const RenderOptions& options) {
    std::vector<size_t> all = {options.preset};
    for (const PresetSwitch& s : options.switches) all.push_back(s.preset);
    return all;
}

/// How late the input's end may come out: as late as the latest preset in play.
int64_t latest_delay(const RenderOptions& options, int rate_hz) {
    int latest = 0;
    for (const size_t p : presets_in_play(options)) {
        latest = std::max(latest, latency_samples(p, rate_hz));
    }
    return latest;
}

TailKind tail_kind(const RenderOptions& options) {
    if (options.tail_seconds) return TailKind::kFixed;
    const size_t last = presets_in_play(options).back();
    return rings_on(last)      ? TailKind::kDecay
           : delay_moves(last) ? TailKind::kStream
                               : TailKind::kFixed;
}

void refuse_switch(const PresetSwitch& s) {
    throw Error("the switch to preset " + std::to_string(s.preset) +
                " lies beyond the end of the input");
}

void check_switches(const RenderOptions& options, const VoiceSource& source) {
    for (const PresetSwitch& s : options.switches) {
        if (s.seconds * source.rate_hz() >= source.expected_frames()) refuse_switch(s);
    }
}

}  // namespace

void DelayLine::process(const double* in, double* out, size_t samples) {
    for (size_t i = 0; i < samples; ++i) {
        out[i] = in[i];
        if (ring_.empty()) continue;
        std::swap(out[i], ring_[position_]);
        if (++position_ == ring_.size()) position_ = 0;
    }
}

Session::Session(const RenderOptions& options, VoiceSource& source, Tail::Sink sink)
    : options_(options),
      source_(source),
      effect_(options.library),
      delay_(options.raw_timing ? 0 : latency_samples(options.preset, source.rate_hz())),
      tail_(tail_kind(options), source.rate_hz(), std::move(sink)),
      dry_(static_cast<size_t>(delay_)),
      stereo_(std::max(options.block_frames, kPrimeFrames) * kStereo),
      original_(stereo_.size()),
      dry_block_(stereo_.size()),
      in_(stereo_.size() * sample_bytes(options.format)),
      out_(in_.size()) {
    check_switches(options, source);
    const auto rate = static_cast<uint32_t>(source.rate_hz());
    // The echo draws its distances from rand() and never seeds it: as in a fresh process, whatever
    // was rendered before.
    srand(1);
    effect_.configure(rate, options.format, options.accumulate);
    effect_.set_preset(static_cast<int32_t>(options.preset));
    effect_.enable();
    if (std::ranges::any_of(presets_in_play(options), saturates)) {
        headroom_.emplace(options.library, rate, options.preset);
    }
}

void Session::run(const Progress& progress) {
    if (!options_.raw_timing) prime();
    const double expected = source_.expected_frames() + static_cast<double>(delay_);
    while (true) {
        throw_if_interrupted();
        read_block();
        if (tail_.done()) break;
        apply_switches();
        process_block(options_.block_frames);
        hand_over();
        fed_ += static_cast<int64_t>(options_.block_frames);
        progress(static_cast<double>(fed_) / expected);
    }
    if (next_switch_ < options_.switches.size()) refuse_switch(options_.switches[next_switch_]);
    std::ranges::fill(in_, std::byte{});
    effect_.run_out(in_.data(), options_.block_frames, static_cast<uint32_t>(source_.rate_hz()));
}

void Session::prime() {
    for (size_t i = 0; i < kPrimeBlocks; ++i) {
        std::fill_n(stereo_.begin(), kPrimeFrames * kStereo, 0.0);
        process_block(kPrimeFrames);
    }
    in_effect_ = 0.0;
    if (headroom_) headroom_->restart();
}

void Session::apply_switches() {
    for (; next_switch_ < options_.switches.size(); ++next_switch_) {
        const PresetSwitch& s = options_.switches[next_switch_];
        if (to_frames(s.seconds, source_.rate_hz()) > fed_) return;
        effect_.set_preset(static_cast<int32_t>(s.preset));
        if (headroom_) headroom_->set_preset(s.preset);
    }
}

/// Fills stereo_ with the next input, then with silence.
void Session::read_block() {
    const size_t frames = options_.block_frames;
    const size_t got = ended_ ? 0 : source_.read(stereo_.data(), original_.data(), frames);
    for (auto* side : {&stereo_, &original_}) {
        std::fill(side->begin() + static_cast<ptrdiff_t>(got * kStereo), side->end(), 0.0);
    }
    input_ += static_cast<int64_t>(got);
    if (got == frames || ended_) return;
    ended_ = true;
    const int rate = source_.rate_hz();
    const int64_t later = latest_delay(options_, rate) - delay_;
    tail_.set_end(input_ + later + to_frames(options_.tail_seconds.value_or(0.0), rate));
}

/// The first `frames` of stereo_ through the effect. The framework gives one buffer for both sides
/// to an effect that writes, two to one that accumulates.
void Session::process_block(size_t frames) {
    const size_t samples = frames * kStereo;
    encode(options_.format, stereo_.data(), samples, in_.data());
    std::byte* out = in_.data();
    if (options_.accumulate) {
        out = out_.data();
        dry_.process(original_.data(), dry_block_.data(), samples);
        encode(options_.format, dry_block_.data(), samples, out);
    }
    if (headroom_) headroom_->process(stereo_.data(), frames);
    const double start = cpu_seconds();
    effect_.process(in_.data(), out, frames);
    in_effect_ += cpu_seconds() - start;
    decode(options_.format, out, samples, stereo_.data());
}

/// What of stereo_ lies after the delay.
void Session::hand_over() {
    const auto frames = static_cast<int64_t>(options_.block_frames);
    const auto first = static_cast<size_t>(std::clamp<int64_t>(delay_ - fed_, 0, frames));
    tail_.write(&stereo_[first * kStereo], options_.block_frames - first);
}

}  // namespace krel::host
