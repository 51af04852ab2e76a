// SPDX-License-Identifier: Apache-2.0
#include "host/audio/level_meter.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace krel::host {
namespace {

constexpr double kFullScale = 32767.0 / 32768.0;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

}  // namespace

void LevelMeter::add(const double* samples, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        const double magnitude = std::isnan(samples[i]) ? 0.0 : std::fabs(samples[i]);
        peak_ = std::max(peak_, magnitude);
        energy_ += magnitude * magnitude;
        clipped_ += magnitude >= kFullScale ? 1 : 0;
    }
    count_ += static_cast<int64_t>(count);
}

double LevelMeter::peak_dbfs() const { return 20.0 * std::log10(peak_); }

double LevelMeter::rms_dbfs() const {
    return count_ == 0 ? -kInfinity : 10.0 * std::log10(energy_ / static_cast<double>(count_));
}

}  // namespace krel::host
