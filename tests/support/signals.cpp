#include "tests/support/signals.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>
#include <random>

namespace krel_test {
namespace {

constexpr double kTwoPi = 2.0 * std::numbers::pi;

/// Two-pole resonance at hz, `width_hz` wide, unit gain at its peak (roughly).
class Resonance {
  public:
    Resonance(double hz, double width_hz, double rate_hz) {
        const double r = std::exp(-std::numbers::pi * width_hz / rate_hz);
        a1_ = 2.0 * r * std::cos(kTwoPi * hz / rate_hz);
        a2_ = -r * r;
        gain_ = 1.0 - r;
    }
    double operator()(double x) {
        const double y = gain_ * x + a1_ * y1_ + a2_ * y2_;
        y2_ = y1_;
        y1_ = y;
        return y;
    }

  private:
    double a1_, a2_, gain_, y1_ = 0.0, y2_ = 0.0;
};

}  // namespace

std::vector<int16_t> noise_s16(int samples, uint32_t seed, int amplitude) {
    std::minstd_rand random(seed + 1);
    std::vector<int16_t> out(static_cast<size_t>(samples));
    const uint32_t span = 2 * static_cast<uint32_t>(amplitude) + 1;
    for (auto& s : out) {
        s = static_cast<int16_t>(static_cast<int>(static_cast<uint32_t>(random() >> 7) % span) -
                                 amplitude);
    }
    return out;
}

std::vector<int16_t> sine_s16(int samples, double hz, int rate_hz, double amplitude) {
    std::vector<int16_t> out(static_cast<size_t>(samples));
    for (size_t i = 0; i < out.size(); ++i) {
        const double phase = kTwoPi * hz * static_cast<double>(i) / rate_hz;
        out[i] = static_cast<int16_t>(std::lround(amplitude * std::sin(phase)));
    }
    return out;
}

std::vector<int16_t> voice_s16(int samples, int rate_hz, double first_hz, double last_hz,
                               double peak) {
    Resonance formants[] = {{700.0, 90.0, 1.0 * rate_hz},
                            {1200.0, 110.0, 1.0 * rate_hz},
                            {2600.0, 160.0, 1.0 * rate_hz}};
    std::vector<double> raw(static_cast<size_t>(samples));
    double phase = 0.0;
    double loudest = 1e-9;
    for (size_t i = 0; i < raw.size(); ++i) {
        const double t = static_cast<double>(i) / rate_hz;
        const double hz = first_hz + (last_hz - first_hz) * static_cast<double>(i) / samples;
        phase += hz / rate_hz;
        const bool pulse = phase >= 1.0;
        if (pulse) phase -= 1.0;
        // Syllables: 0.6 s of voice, 0.15 s of pause, soft edges.
        const double syllable = std::fmod(t, 0.75);
        const double envelope = syllable < 0.6 ? std::sin(std::numbers::pi * syllable / 0.6) : 0.0;
        double x = (pulse ? 1.0 : 0.0) * envelope;
        double y = 0.0;
        for (auto& formant : formants) y += formant(x);
        raw[i] = y;
        loudest = std::max(loudest, std::fabs(y));
    }
    std::vector<int16_t> out(raw.size());
    std::ranges::transform(raw, out.begin(), [&](double y) {
        return static_cast<int16_t>(std::lround(y / loudest * peak));
    });
    return out;
}

double rms(const std::vector<int16_t>& samples) {
    double sum = 0.0;
    for (const int s : samples) sum += static_cast<double>(s) * s;
    return samples.empty() ? 0.0 : std::sqrt(sum / static_cast<double>(samples.size()));
}

int largest_second_difference(const std::vector<int16_t>& samples) {
    int largest = 0;
    for (size_t i = 2; i < samples.size(); ++i) {
        largest = std::max(largest, std::abs(samples[i] - 2 * samples[i - 1] + samples[i - 2]));
    }
    return largest;
}

}  // namespace krel_test
