// SPDX-License-Identifier: Apache-2.0
// Test signals, for tests and benchmarks: the same arguments give the same samples everywhere.
#ifndef KREL_TESTS_SUPPORT_SIGNALS_H
#define KREL_TESTS_SUPPORT_SIGNALS_H

#include <stdint.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>
#include <vector>

namespace krel_test {

/// Uniform noise in [-amplitude, amplitude].
inline std::vector<int16_t> noise_s16(int samples, uint32_t seed, int amplitude = 32767) {
    std::minstd_rand random(seed + 1);
    std::vector<int16_t> out(static_cast<size_t>(samples));
    const auto draw = [&] {
        return static_cast<int>(random() >> 7) % (2 * amplitude + 1) - amplitude;
    };
    for (auto& s : out) s = static_cast<int16_t>(draw());
    return out;
}

/// amplitude * sin(2 pi hz t), rounded.
inline std::vector<int16_t> sine_s16(int samples, double hz, int rate_hz, double amplitude) {
    std::vector<int16_t> out(static_cast<size_t>(samples));
    for (int i = 0; i < samples; ++i) {
        out[static_cast<size_t>(i)] = static_cast<int16_t>(
                std::lround(amplitude * std::sin(6.283185307179586 * hz * i / rate_hz)));
    }
    return out;
}

/// Largest |x[n] - 2 x[n-1] + x[n-2]|: a click shows as a value that the input does not have.
inline int largest_second_difference(const std::vector<int16_t>& x) {
    int largest = 0;
    for (size_t i = 2; i < x.size(); ++i)
        largest = std::max(largest, std::abs(x[i] - 2 * x[i - 1] + x[i - 2]));
    return largest;
}

/// A voice-like sound: pulses that ring at two formants and glide from first_hz to last_hz, peaking
/// near `peak`; 0.6 s of it, 0.15 s of pause, and so on.
inline std::vector<int16_t> voice_s16(int samples, int rate_hz, double first_hz = 110.0,
                                      double last_hz = 160.0, double peak = 12000.0) {
    std::vector<int16_t> out(static_cast<size_t>(samples));
    double period = 0.0;  // how much of the pulse's period is over, 0..1
    for (int i = 0; i < samples; ++i) {
        const double hz = first_hz + (last_hz - first_hz) * i / samples;
        period = std::fmod(period + hz / rate_hz, 1.0);
        const double t = period / hz;
        const double syllable = std::fmod(1.0 * i / rate_hz, 0.75);
        const double ring = 0.7 * std::sin(4400.0 * t) + 0.3 * std::sin(7500.0 * t);
        const double envelope = syllable < 0.6 ? std::sin(5.236 * syllable) : 0.0;
        out[static_cast<size_t>(i)] =
                static_cast<int16_t>(peak * envelope * std::exp(-280.0 * t) * ring);
    }
    return out;
}

}  // namespace krel_test

#endif
