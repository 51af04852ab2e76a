// SPDX-License-Identifier: Apache-2.0
// What lies between two audio files: the effect, block by block, and the alignment of its output
// with its input.
#ifndef KREL_HOST_RENDER_SESSION_H
#define KREL_HOST_RENDER_SESSION_H

#include <cstddef>
#include <optional>
#include <vector>

#include "host/effect/effect_host.h"
#include "host/render/headroom.h"
#include "host/render/options.h"
#include "host/render/tail.h"
#include "host/render/voice_source.h"

namespace krel::host {

/// Delays interleaved stereo samples by a fixed number of frames.
class DelayLine {
  public:
    explicit DelayLine(size_t frames) : ring_(frames * 2) {}
    void process(const double* in, double* out, size_t samples);

  private:
    std::vector<double> ring_;
    size_t position_ = 0;
};

/// One pass of a file through the effect. Runs once.
class Session {
  public:
    /// `sink` gets the output's stereo frames. Throws Error when the effect refuses the options.
    Session(const RenderOptions& options, VoiceSource& source, Tail::Sink sink);

    /// Throws Error or Interrupted.
    void run(const Progress& progress);

    [[nodiscard]] int64_t output_frames() const { return tail_.frames(); }
    [[nodiscard]] double effect_seconds() const { return in_effect_; }
    [[nodiscard]] double flat_tops() const { return headroom_ ? headroom_->flat_tops() : 0.0; }
    [[nodiscard]] double safe_gain_db() const {
        return headroom_ ? headroom_->safe_gain_db() : 0.0;
    }

  private:
    void prime();
    void apply_switches();
    void read_block();
    void process_block(size_t frames);
    void hand_over();

    const RenderOptions& options_;
    VoiceSource& source_;
    EffectHost effect_;
    std::optional<Headroom> headroom_;
    const int64_t delay_;
    Tail tail_;
    DelayLine dry_;

    std::vector<double> stereo_;  // what the effect gets, then what it gave
    std::vector<double> original_, dry_block_;
    std::vector<std::byte> in_, out_;  // the effect's buffers

    int64_t fed_ = 0;    // frames given to the effect, the flushing silence included
    int64_t input_ = 0;  // frames of the source
    bool ended_ = false;
    size_t next_switch_ = 0;
    double in_effect_ = 0.0;  // seconds
};

}  // namespace krel::host

#endif
