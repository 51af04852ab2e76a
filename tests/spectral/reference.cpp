#include "tests/spectral/reference.h"

namespace krel_test {

Spectrum direct_dft(const Spectrum& x, int sign) {
    const size_t size = x.size();
    Spectrum turn(size);
    for (size_t n = 0; n < size; ++n) {
        const double angle = sign * 2.0 * kPi * static_cast<double>(n) / static_cast<double>(size);
        turn[n] = {std::cos(angle), std::sin(angle)};
    }
    Spectrum out(size);
    for (size_t k = 0; k < size; ++k) {
        for (size_t n = 0; n < size; ++n) out[k] += x[n] * turn[k * n % size];
    }
    return out;
}

std::vector<double> hann(int size) {
    std::vector<double> window;
    for (int n = 0; n < size; ++n) {
        window.push_back(std::round(1e6 * (0.5 - 0.5 * std::cos(2.0 * kPi * n / size))) / 1e6);
    }
    return window;
}

std::vector<double> overlap_add(const std::vector<int16_t>& in, int size,
                                const std::function<void(Spectrum&)>& change) {
    const auto n = static_cast<size_t>(size);
    const auto window = hann(size);
    const size_t hop = n / 4;
    std::vector<double> padded(n - hop, 0.0);  // what the first frame sees before the input
    for (const int s : in) padded.push_back(s / 32768.0);
    std::vector<double> out(in.size() + n, 0.0);
    for (size_t start = 0; start + hop <= in.size(); start += hop) {
        Spectrum frame(n);
        for (size_t k = 0; k < n; ++k) frame[k] = padded[start + k] * window[k];
        Spectrum spectrum = direct_dft(frame, -1);
        change(spectrum);
        for (size_t k = n / 2 + 1; k < n; ++k) spectrum[k] = 0.0;
        frame = direct_dft(spectrum, +1);
        for (size_t k = 0; k < n && start + hop + k < out.size(); ++k) {
            out[start + hop + k] += 2.0 * window[k] * frame[k].real() / static_cast<double>(n) / 4;
        }
    }
    out.resize(in.size());
    return out;
}

}  // namespace krel_test
