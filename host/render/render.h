// SPDX-License-Identifier: Apache-2.0
// One audio file through the effect into another.
#ifndef KREL_HOST_RENDER_RENDER_H
#define KREL_HOST_RENDER_RENDER_H

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/audio/input_file.h"
#include "host/audio/level_meter.h"
#include "host/render/options.h"

namespace krel::host {

struct RenderResult {
    int rate_hz = 0;
    int channels = 0;  // of the output
    int input_channels = 0;
    double input_seconds = 0.0;
    double output_seconds = 0.0;
    double effect_seconds = 0.0;  // spent in the effect's process calls
    double gain_db = 0.0;         // before the voice
    LevelMeter input;
    LevelMeter output;
    double lufs = 0.0;       // of the output; minus infinity for silence
    double true_peak = 0.0;  // dBTP
    /// The share of samples that saturate inside the voice, and the gain that would just avoid it
    /// (at most 0 dB).
    double flat_tops = 0.0;
    double safe_gain_db = 0.0;
    std::string output_format;
    std::vector<std::string> warnings;

    /// How many times faster than the audio's own duration the effect has worked.
    [[nodiscard]] double speed() const { return output_seconds / effect_seconds; }
};

/// Gets the result when all is done but the file's name; what it throws leaves no file.
using Report = std::function<void(const RenderResult&)>;

/// Gets interleaved samples of the output's channels.
using Samples = std::function<void(const double* samples, size_t frames)>;

/// One pass through the effect, with no file written: `gain_db` is applied, `auto_gain`, `loudness`
/// and `type` are not. What `samples` gets lines up with the input. Throws Error or Interrupted.
RenderResult run_voice(const InputFile& in, const RenderOptions& options, const Progress& progress,
                       const Samples& samples);

/// `out` may be "-", standard output. Throws Error, or Interrupted; then `out` is what it was
/// before.
RenderResult render(const InputFile& in, const std::filesystem::path& out,
                    const RenderOptions& options, const Progress& progress,
                    const Report& report = {});

}  // namespace krel::host

#endif
