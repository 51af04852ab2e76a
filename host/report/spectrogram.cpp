// SPDX-License-Identifier: Apache-2.0
#include "host/report/spectrogram.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>

#include "host/report/real_fft.h"

namespace krel::host {
namespace {

constexpr size_t kWidth = 640;
constexpr size_t kHeight = 144;
constexpr double kTopHz = 8000.0;
constexpr double kMelHz = 700.0;
constexpr double kWindowSeconds = 0.025;  // at least; shows a low voice's harmonics one by one
constexpr size_t kWindowsPerColumn = 8;   // at most, where a column stands for a long time
constexpr float kRangeDb = 55.0F;
constexpr float kFloorPower = 1e-9F;

std::vector<float> hann_window(size_t size) {
    std::vector<float> window(size);
    for (size_t i = 0; i < size; ++i) {
        const double turn = (static_cast<double>(i) + 0.5) / static_cast<double>(size);
        window[i] = static_cast<float>(0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * turn));
    }
    return window;
}

/// Short-time power spectra, lifted by 3 dB per octave: half of what speech falls by.
class Analyser {
  public:
    Analyser(std::span<const float> samples, int rate_hz)
        : samples_(samples),
          window_(hann_window(std::bit_ceil(static_cast<size_t>(kWindowSeconds * rate_hz)))),
          fft_(window_.size()),
          power_(fft_.bins.size()) {}

    /// The mean over the windows of one column, which spans [first, first + length).
    const std::vector<float>& column(double first, double length) {
        const auto size = static_cast<double>(window_.size());
        const auto count = static_cast<size_t>(
                std::clamp(2.0 * length / size, 1.0, static_cast<double>(kWindowsPerColumn)));
        std::ranges::fill(power_, 0.0F);
        for (size_t i = 0; i < count; ++i) {
            const double share = (static_cast<double>(i) + 0.5) / static_cast<double>(count);
            add_window(static_cast<int64_t>(first + share * length - size / 2.0));
        }
        for (float& p : power_) p /= static_cast<float>(count);
        return power_;
    }

  private:
    void add_window(int64_t first) {
        for (size_t i = 0; i < window_.size(); ++i) {
            const int64_t at = first + static_cast<int64_t>(i);
            const bool inside = at >= 0 && at < static_cast<int64_t>(samples_.size());
            fft_.time[i] = inside ? samples_[static_cast<size_t>(at)] * window_[i] : 0.0F;
        }
        fft_.forward();
        for (size_t bin = 0; bin < power_.size(); ++bin) {
            power_[bin] += fft_.power(bin) * static_cast<float>(bin);
        }
    }

    std::span<const float> samples_;
    std::vector<float> window_;
    RealFft fft_;
    std::vector<float> power_;
};

/// Between two bins where they are wider than a row, else the loudest bin of the row.
float row_power(const std::vector<float>& power, double low, double high) {
    const double last = static_cast<double>(power.size()) - 1.0;
    const auto from = static_cast<size_t>(std::ceil(std::clamp(low, 0.0, last)));
    const auto to = static_cast<size_t>(std::clamp(high, 0.0, last));
    if (to > from) return *std::max_element(&power[from], &power[to] + 1);
    const double middle = std::clamp((low + high) / 2.0, 0.0, last - 1.0);
    const auto below = static_cast<size_t>(middle);
    return std::lerp(power[below], power[below + 1],
                     static_cast<float>(middle - static_cast<double>(below)));
}

/// Where the rows begin, from the bottom up, in bins.
std::vector<double> row_edges(int rate_hz, size_t bins) {
    const double top_mel = std::log1p(top_frequency_hz(rate_hz) / kMelHz);
    const double bins_per_hz = static_cast<double>(bins - 1) / (rate_hz / 2.0);
    std::vector<double> edges(kHeight + 1);
    for (size_t i = 0; i <= kHeight; ++i) {
        const double share = static_cast<double>(i) / static_cast<double>(kHeight);
        edges[i] = kMelHz * std::expm1(top_mel * share) * bins_per_hz;
    }
    return edges;
}

Picture quantise(const std::vector<float>& power) {
    const float loudest = std::max(*std::ranges::max_element(power), kFloorPower);
    Picture picture{kWidth, kHeight, std::vector<uint8_t>(power.size())};
    std::ranges::transform(power, picture.pixels.begin(), [=](float p) {
        const float below_db = 10.0F * std::log10(std::max(p, kFloorPower) / loudest);
        const float share = std::clamp(1.0F + below_db / kRangeDb, 0.0F, 1.0F);
        return static_cast<uint8_t>(std::lround(share * (Picture::kLevels - 1)));
    });
    return picture;
}

}  // namespace

double top_frequency_hz(int rate_hz) { return std::min(kTopHz, rate_hz / 2.0); }

Picture spectrogram(std::span<const float> samples, int rate_hz, size_t axis_frames) {
    Analyser analyser(samples, rate_hz);
    const double length = static_cast<double>(axis_frames) / static_cast<double>(kWidth);
    std::vector<float> power(kWidth * kHeight);
    std::vector<double> edges;
    for (size_t x = 0; x < kWidth; ++x) {
        const std::vector<float>& column = analyser.column(static_cast<double>(x) * length, length);
        if (edges.empty()) edges = row_edges(rate_hz, column.size());
        for (size_t row = 0; row < kHeight; ++row) {
            power[(kHeight - 1 - row) * kWidth + x] = row_power(column, edges[row], edges[row + 1]);
        }
    }
    return quantise(power);
}

}  // namespace krel::host
