// Double-precision models of the frame-based effects: direct sums, no fast algorithm.
#ifndef KREL_TESTS_SPECTRAL_REFERENCE_H
#define KREL_TESTS_SPECTRAL_REFERENCE_H

#include <stdint.h>

#include <cmath>
#include <complex>
#include <functional>
#include <numbers>
#include <vector>

namespace krel_test {

inline constexpr double kPi = std::numbers::pi;
using Spectrum = std::vector<std::complex<double>>;

/// sum over n of x[n] exp(sign 2 pi i k n / N), unscaled.
Spectrum direct_dft(const Spectrum& x, int sign);

/// Periodic Hann window, rounded to six decimals.
std::vector<double> hann(int size);

/// Analysis and synthesis by overlap-add of windowed frames every size/4 samples; `change` turns bins 0..size/2 of a
/// frame's spectrum into those of the output. Returns as many samples as went in, +-1.
std::vector<double> overlap_add(const std::vector<int16_t>& in, int size,
                                const std::function<void(Spectrum&)>& change);

/// Level of `expected` over that of its difference to `actual`, in dB; 300 when they are equal.
template <typename Expected, typename Actual>
double snr_db(const Expected& expected, const Actual& actual) {
    double signal = 0.0;
    double error = 0.0;
    auto a = std::begin(actual);
    for (const auto& e : expected) {
        signal += std::norm(e);
        error += std::norm(e - *a++);
    }
    return error == 0.0 ? 300.0 : 10.0 * std::log10(signal / error);
}

}  // namespace krel_test

#endif
