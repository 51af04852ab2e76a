// SPDX-License-Identifier: Apache-2.0
// Whether a voice saturates inside, where its output does not show it.
#ifndef KREL_HOST_RENDER_HEADROOM_H
#define KREL_HOST_RENDER_HEADROOM_H

#include <stdint.h>

#include <vector>

#include "host/effect/effect_host.h"

namespace krel::host {

/// A second instance of the effect, which hears the same at a sixteenth of the level. Nothing
/// saturates there, and its output tells how far the loud one would have gone.
class Headroom {
  public:
    Headroom(const std::filesystem::path& library, uint32_t rate_hz, size_t preset);

    void set_preset(size_t preset);
    /// Stereo frames, of which the left side is heard.
    void process(const double* heard, size_t frames);
    /// Forgets what came so far, not the sound.
    void restart();

    /// The share of samples beyond full scale.
    [[nodiscard]] double flat_tops() const;
    /// The gain in dB, at most 0 and rounded down to tenths, at which there would be none.
    [[nodiscard]] double safe_gain_db() const;

  private:
    EffectHost effect_;
    std::vector<float> block_;
    bool counts_ = false;  // the present voice is one of those that saturate
    double peak_ = 0.0;
    int64_t flat_ = 0;
    int64_t samples_ = 0;
};

}  // namespace krel::host

#endif
