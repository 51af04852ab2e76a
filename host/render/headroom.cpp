// SPDX-License-Identifier: Apache-2.0
#include "host/render/headroom.h"

#include <algorithm>
#include <cmath>

#include "host/presets.h"

namespace krel::host {
namespace {

constexpr double kQuiet = 1.0 / 16.0;
// A spectral voice never repeats its waveform exactly: peaks differ by up to a decibel from one
// level to another.
constexpr double kMargin = 1.0;
constexpr double kFullScale = 32767.0 / 32768.0;
// Between the voice and the effect's output: make-up gain, and the settled gain of the compressor.
constexpr double kAfterVoice = 21.0 / 16.0 * 131056.0 / 131072.0;

/// The echo among the voices draws random numbers, which the rendering's own instance must get:
/// while it plays, and wherever nothing saturates, the plain voice stands in.
size_t stand_in(size_t preset) { return saturates(preset) ? preset : kPlainPreset; }

}  // namespace

Headroom::Headroom(const std::filesystem::path& library, uint32_t rate_hz, size_t preset)
    : effect_(library) {
    effect_.configure(rate_hz, SampleFormat::kFloat, false);
    set_preset(preset);
    effect_.enable();
}

void Headroom::set_preset(size_t preset) {
    counts_ = saturates(preset);
    effect_.set_preset(static_cast<int32_t>(stand_in(preset)));
}

void Headroom::process(const double* heard, size_t frames) {
    block_.resize(2 * frames);
    std::transform(heard, heard + block_.size(), block_.begin(),
                   [](double x) { return static_cast<float>(kQuiet * x); });
    effect_.process(block_.data(), block_.data(), frames);
    samples_ += static_cast<int64_t>(frames);
    if (!counts_) return;
    for (size_t i = 0; i < block_.size(); i += 2) {
        const double inside = std::fabs(block_[i]) / (kQuiet * kAfterVoice);
        peak_ = std::max(peak_, inside);
        flat_ += inside > kFullScale ? 1 : 0;
    }
}

void Headroom::restart() {
    peak_ = 0.0;
    flat_ = samples_ = 0;
}

double Headroom::flat_tops() const {
    return samples_ == 0 ? 0.0 : static_cast<double>(flat_) / static_cast<double>(samples_);
}

double Headroom::safe_gain_db() const {
    if (peak_ <= kFullScale) return 0.0;
    return std::floor(10.0 * (20.0 * std::log10(kFullScale / peak_) - kMargin)) / 10.0;
}

}  // namespace krel::host
