// Test signals and measurements. Everything is deterministic: the same arguments give the same samples everywhere.
#ifndef KREL_TESTS_SUPPORT_SIGNALS_H
#define KREL_TESTS_SUPPORT_SIGNALS_H

#include <stdint.h>

#include <vector>

namespace krel_test {

/// Uniform noise in [-amplitude, amplitude].
std::vector<int16_t> noise_s16(int samples, uint32_t seed, int amplitude = 32767);

/// amplitude * sin(2 pi hz t), rounded.
std::vector<int16_t> sine_s16(int samples, double hz, int rate_hz, double amplitude);

/// A voice-like sound: glottal pulses gliding from first_hz to last_hz through three formant resonances, with pauses,
/// peaking near `peak`.
std::vector<int16_t> voice_s16(int samples, int rate_hz, double first_hz = 110.0,
                               double last_hz = 160.0, double peak = 12000.0);

/// Root mean square of a block.
double rms(const std::vector<int16_t>& samples);

/// Largest |x[n] - 2 x[n-1] + x[n-2]|: a click shows as a value that the input does not have.
int largest_second_difference(const std::vector<int16_t>& samples);

}  // namespace krel_test

#endif
