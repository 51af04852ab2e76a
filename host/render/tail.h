// SPDX-License-Identifier: Apache-2.0
// Where an output ends: exactly with its input, or once what rings on after it has died away.
#ifndef KREL_HOST_RENDER_TAIL_H
#define KREL_HOST_RENDER_TAIL_H

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <vector>

namespace krel::host {

enum class TailKind {
    kFixed,   // a given time
    kStream,  // until the last of the input is out: the delay has moved
    kDecay,   // until 60 dB below the peak
};

/// Passes stereo frames on until the end.
class Tail {
  public:
    using Sink = std::function<void(const double* stereo, size_t frames)>;

    Tail(TailKind kind, int rate_hz, Sink sink);

    void write(const double* stereo, size_t frames);
    /// The output has at least this many frames; known once the input has ended.
    void set_end(int64_t frames) { end_ = frames; }

    [[nodiscard]] bool done() const;
    /// Passed on so far.
    [[nodiscard]] int64_t frames() const { return frames_; }

  private:
    [[nodiscard]] double threshold() const;
    void hold(const double* stereo, size_t frames);
    void pass(const double* stereo, size_t frames);

    TailKind kind_;
    int64_t patience_;  // frames of silence that end the tail
    int64_t longest_;   // frames beyond the end
    Sink sink_;
    int64_t end_ = INT64_MAX;
    int64_t frames_ = 0;
    double peak_ = 0.0;
    std::vector<double> held_;  // beyond the end and too quiet so far
};

}  // namespace krel::host

#endif
