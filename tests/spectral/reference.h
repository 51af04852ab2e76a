// Double-precision models for the tests of the frame-based effects: direct sums, no fast algorithm.
#ifndef KREL_TESTS_SPECTRAL_REFERENCE_H
#define KREL_TESTS_SPECTRAL_REFERENCE_H

#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

namespace krel_test {

using Spectrum = std::vector<std::complex<double>>;

/// sum over n of x[n] exp(sign 2 pi i k n / N), unscaled.
inline Spectrum direct_dft(const Spectrum& x, int sign) {
    const size_t size = x.size();
    Spectrum turn(size);
    for (size_t n = 0; n < size; ++n) {
        const double angle =
                sign * 2.0 * std::numbers::pi * static_cast<double>(n) / static_cast<double>(size);
        turn[n] = {std::cos(angle), std::sin(angle)};
    }
    Spectrum out(size);
    for (size_t k = 0; k < size; ++k) {
        for (size_t n = 0; n < size; ++n) out[k] += x[n] * turn[k * n % size];
    }
    return out;
}

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
