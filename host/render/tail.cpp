// SPDX-License-Identifier: Apache-2.0
#include "host/render/tail.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace krel::host {
namespace {

constexpr double kPatience = 0.5;         // seconds: longer than any pause between two echoes
constexpr double kLongest = 10.0;         // seconds
constexpr double kDecay = 0.001;          // -60 dB
constexpr double kSilence = 1.5 / 32768;  // a tail may rest at one step of 16 bits

double louder_side(const double* frame) {
    return std::max(std::fabs(frame[0]), std::fabs(frame[1]));
}

}  // namespace

Tail::Tail(TailKind kind, int rate_hz, Sink sink)
    : kind_(kind),
      patience_(std::llround(kPatience * rate_hz)),
      longest_(std::llround(kLongest * rate_hz)),
      sink_(std::move(sink)) {}

void Tail::write(const double* stereo, size_t frames) {
    const int64_t before_end = std::clamp<int64_t>(end_ - frames_, 0, static_cast<int64_t>(frames));
    const auto certain = held_.empty() ? static_cast<size_t>(before_end) : 0;
    for (size_t i = 0; i < certain; ++i) peak_ = std::max(peak_, louder_side(stereo + 2 * i));
    pass(stereo, certain);
    if (kind_ != TailKind::kFixed) hold(stereo + 2 * certain, frames - certain);
}

void Tail::hold(const double* stereo, size_t frames) {
    for (size_t i = 0; i < frames && !done(); ++i) {
        const double* frame = stereo + 2 * i;
        held_.insert(held_.end(), frame, frame + 2);
        if (louder_side(frame) <= threshold()) continue;
        pass(held_.data(), held_.size() / 2);
        held_.clear();
    }
}

bool Tail::done() const {
    if (frames_ < end_) return false;
    const auto held = static_cast<int64_t>(held_.size() / 2);
    return kind_ == TailKind::kFixed || held >= patience_ || frames_ + held - end_ >= longest_;
}

double Tail::threshold() const {
    return kind_ == TailKind::kDecay ? std::max(kDecay * peak_, kSilence) : kSilence;
}

void Tail::pass(const double* stereo, size_t frames) {
    if (frames > 0) sink_(stereo, frames);
    frames_ += static_cast<int64_t>(frames);
}

}  // namespace krel::host
