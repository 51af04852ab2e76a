// SPDX-License-Identifier: Apache-2.0
// Another sample rate, block by block.
#ifndef KREL_HOST_AUDIO_RESAMPLER_H
#define KREL_HOST_AUDIO_RESAMPLER_H

#include <samplerate.h>
#include <stddef.h>
#include <stdint.h>

#include <memory>
#include <vector>

namespace krel::host {

/// Band-limited, without delay: sample n of the output lies where sample n * from_hz / to_hz of the
/// input does.
class Resampler {
  public:
    /// Throws Error when the rates are more than a factor of 256 apart.
    Resampler(int channels, int from_hz, int to_hz);

    /// Takes interleaved frames and appends what they yield to `out`; `last` also what was held
    /// back. In all as many frames come out as fit the input's duration, rounded.
    void process(const double* in, size_t frames, bool last, std::vector<double>& out);

  private:
    struct Closer {
        void operator()(SRC_STATE* state) const { src_delete(state); }
    };
    void append(int64_t frames, bool last, std::vector<double>& out);
    /// Frames that all of the input so far is worth.
    [[nodiscard]] int64_t whole() const;

    int channels_;
    double ratio_;
    std::unique_ptr<SRC_STATE, Closer> state_;
    std::vector<float> in_, out_;
    int64_t taken_ = 0;
    int64_t given_ = 0;
};

}  // namespace krel::host

#endif
