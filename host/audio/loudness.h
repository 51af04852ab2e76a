// SPDX-License-Identifier: Apache-2.0
// Loudness and true peak of what passes by, as broadcasters measure them (EBU R 128, ITU-R
// BS.1770).
#ifndef KREL_HOST_AUDIO_LOUDNESS_H
#define KREL_HOST_AUDIO_LOUDNESS_H

#include <ebur128.h>
#include <stddef.h>

#include <memory>

namespace krel::host {

class LoudnessMeter {
  public:
    /// Throws Error when the rate is out of range.
    LoudnessMeter(int rate_hz, int channels);

    /// Interleaved frames, full scale +-1.
    void add(const double* from, size_t frames);

    /// LUFS, gated; minus infinity for silence and for less than 0.4 s.
    [[nodiscard]] double lufs() const;
    /// dBTP, of the oversampled signal; minus infinity for silence.
    [[nodiscard]] double true_peak() const;

  private:
    struct Closer {
        void operator()(ebur128_state* state) const { ebur128_destroy(&state); }
    };
    std::unique_ptr<ebur128_state, Closer> state_;
};

}  // namespace krel::host

#endif
