// SPDX-License-Identifier: Apache-2.0
#include "host/report/pitch_contour.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "host/report/real_fft.h"

namespace krel::host {
namespace {

constexpr float kLowestHz = 60.0F;
constexpr float kHighestHz = 600.0F;
constexpr float kWindowSeconds = 0.04F;
constexpr float kClarity = 0.7F;      // of a period, to count as voiced
constexpr float kFirstPeak = 0.9F;    // of the highest: the first peak this high is the period
constexpr float kQuietRatio = 1e-4F;  // -40 dB of the loudest window's energy: a pause
constexpr size_t kShortestRun = 3;    // fewer voiced points in a row are chance

/// The normalised square difference function of one window at a time.
class Periodicity {
  public:
    Periodicity(std::span<const float> samples, int rate_hz)
        : samples_(samples),
          rate_hz_(static_cast<float>(rate_hz)),
          window_(static_cast<size_t>(kWindowSeconds * rate_hz_)),
          longest_(static_cast<size_t>(rate_hz_ / kLowestHz)),
          fft_(std::bit_ceil(window_ + longest_ + 2)),
          values_(longest_ + 2) {}

    /// The window's energy.
    float measure(int64_t middle);
    /// The period's frequency, or 0.
    [[nodiscard]] float frequency_hz() const;

  private:
    [[nodiscard]] bool peak_at(size_t lag) const {
        return values_[lag] > values_[lag - 1] && values_[lag] >= values_[lag + 1];
    }
    [[nodiscard]] float refined(size_t lag) const;

    std::span<const float> samples_;
    float rate_hz_;
    size_t window_;
    size_t longest_;
    RealFft fft_;
    std::vector<float> values_;  // by lag
};

float Periodicity::measure(int64_t middle) {
    const int64_t first = middle - static_cast<int64_t>(window_ / 2);
    std::ranges::fill(fft_.time, 0.0F);
    double squares = 0.0;
    for (size_t i = 0; i < window_; ++i) {
        const int64_t at = first + static_cast<int64_t>(i);
        if (at < 0 || at >= static_cast<int64_t>(samples_.size())) continue;
        fft_.time[i] = samples_[static_cast<size_t>(at)];
        squares += 2.0 * fft_.time[i] * fft_.time[i];
    }
    const auto energy = static_cast<float>(squares);
    const std::vector<float> window(fft_.time.begin(),
                                    fft_.time.begin() + static_cast<ptrdiff_t>(window_));
    fft_.forward();
    for (size_t bin = 0; bin < fft_.bins.size(); ++bin) fft_.bins[bin] = {fft_.power(bin), 0.0F};
    fft_.inverse();
    const double scale = 2.0 / static_cast<double>(fft_.time.size());
    for (size_t lag = 0; lag < values_.size(); ++lag) {
        values_[lag] = squares > 0.0 ? static_cast<float>(scale * fft_.time[lag] / squares) : 0.0F;
        const double front = window[lag];
        const double back = window[window_ - 1 - lag];
        squares -= front * front + back * back;
    }
    return energy;
}

float Periodicity::frequency_hz() const {
    size_t lag = 1;
    while (lag <= longest_ && values_[lag] > 0.0F) ++lag;  // the peak at lag 0
    lag = std::max(lag, static_cast<size_t>(rate_hz_ / kHighestHz));
    float highest = kClarity;
    for (size_t i = lag; i <= longest_; ++i) {
        if (peak_at(i)) highest = std::max(highest, values_[i] * kFirstPeak);
    }
    for (; lag <= longest_; ++lag) {
        if (peak_at(lag) && values_[lag] >= highest) return rate_hz_ / refined(lag);
    }
    return 0.0F;
}

/// The top of the parabola through a peak and its neighbours.
float Periodicity::refined(size_t lag) const {
    const float before = values_[lag - 1];
    const float after = values_[lag + 1];
    const float curve = before - 2.0F * values_[lag] + after;
    const float shift = curve < 0.0F ? 0.5F * (before - after) / curve : 0.0F;
    return static_cast<float>(lag) + shift;
}

void drop_short_runs(std::vector<float>& contour) {
    for (size_t first = 0; first < contour.size();) {
        size_t end = first;
        while (end < contour.size() && contour[end] > 0.0F) ++end;
        if (end - first < kShortestRun) std::fill(&contour[first], contour.data() + end, 0.0F);
        first = end + 1;
    }
}

}  // namespace

std::vector<float> pitch_contour(std::span<const float> samples, int rate_hz, size_t axis_frames,
                                 size_t points) {
    Periodicity periodicity(samples, rate_hz);
    std::vector<float> contour(points);
    std::vector<float> energy(points);
    const double step = static_cast<double>(axis_frames) / static_cast<double>(points);
    for (size_t i = 0; i < points; ++i) {
        energy[i] =
                periodicity.measure(static_cast<int64_t>((static_cast<double>(i) + 0.5) * step));
        contour[i] = periodicity.frequency_hz();
    }
    const float quiet = points == 0 ? 0.0F : *std::ranges::max_element(energy) * kQuietRatio;
    for (size_t i = 0; i < points; ++i) {
        if (energy[i] <= quiet) contour[i] = 0.0F;
    }
    drop_short_runs(contour);
    return contour;
}

float median_pitch_hz(std::vector<float> contour) {
    std::erase(contour, 0.0F);
    if (contour.empty()) return 0.0F;
    const auto middle = contour.begin() + static_cast<ptrdiff_t>(contour.size() / 2);
    std::ranges::nth_element(contour, middle);
    return *middle;
}

}  // namespace krel::host
