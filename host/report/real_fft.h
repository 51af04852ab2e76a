// SPDX-License-Identifier: Apache-2.0
// The Fourier transform of real signals, as the report's pictures need it.
#ifndef KREL_HOST_REPORT_REAL_FFT_H
#define KREL_HOST_REPORT_REAL_FFT_H

#include <kiss_fftr.h>

#include <memory>
#include <vector>

namespace krel::host {

/// Forward and inverse transforms of one even size, with their own buffers. Neither is scaled:
/// back and forth multiplies by the size.
class RealFft {
  public:
    explicit RealFft(size_t size)
        : time(size),
          bins(size / 2 + 1),
          forward_(kiss_fftr_alloc(static_cast<int>(size), 0, nullptr, nullptr)),
          inverse_(kiss_fftr_alloc(static_cast<int>(size), 1, nullptr, nullptr)) {}

    void forward() { kiss_fftr(forward_.get(), time.data(), bins.data()); }
    void inverse() { kiss_fftri(inverse_.get(), bins.data(), time.data()); }

    [[nodiscard]] float power(size_t bin) const {
        return bins[bin].r * bins[bin].r + bins[bin].i * bins[bin].i;
    }

    std::vector<float> time;
    std::vector<kiss_fft_cpx> bins;

  private:
    struct Free {
        void operator()(kiss_fftr_cfg plan) const { kiss_fftr_free(plan); }
    };
    using Plan = std::unique_ptr<kiss_fftr_state, Free>;
    Plan forward_, inverse_;
};

}  // namespace krel::host

#endif
