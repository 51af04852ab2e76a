// SPDX-License-Identifier: Apache-2.0
// Peak, RMS and clipping of what passes by.
#ifndef KREL_HOST_AUDIO_LEVEL_METER_H
#define KREL_HOST_AUDIO_LEVEL_METER_H

#include <stddef.h>
#include <stdint.h>

namespace krel::host {

class LevelMeter {
  public:
    void add(const double* samples, size_t count);

    /// dB below a full-scale square wave; minus infinity for digital silence.
    [[nodiscard]] double peak_dbfs() const;
    [[nodiscard]] double rms_dbfs() const;
    /// Samples that reach the largest 16-bit value or lie beyond it.
    [[nodiscard]] int64_t clipped() const { return clipped_; }

  private:
    double peak_ = 0.0;
    double energy_ = 0.0;
    int64_t count_ = 0;
    int64_t clipped_ = 0;
};

}  // namespace krel::host

#endif
