// One audio file through the effect into another.
#ifndef KREL_HOST_RENDER_H
#define KREL_HOST_RENDER_H

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "host/level_meter.h"
#include "host/sample_format.h"

namespace krel::host {

/// From the first block that begins at or after `seconds` of the input, the voice changes to `preset`.
struct PresetSwitch {
    double seconds = 0.0;
    size_t preset = 0;
};

struct RenderOptions {
    std::filesystem::path library;
    size_t preset = 0;
    size_t block_frames = 960;
    SampleFormat format = SampleFormat::kFloat;
    bool accumulate =
            false;  // the effect adds to the original, delayed to match, instead of replacing it
    double tail_seconds = 0.0;
    /// No silence ahead, no compensation of the delay: the file is what the effect emits from its first block on.
    bool raw_timing = false;
    std::vector<PresetSwitch> switches;  // in order of time
};

struct RenderResult {
    int rate_hz = 0;
    int channels = 0;
    double input_seconds = 0.0;
    double output_seconds = 0.0;
    double effect_seconds = 0.0;  // spent in the effect's process calls
    LevelMeter input;
    LevelMeter output;
    std::string output_format;

    /// How many times faster than the audio's own duration the effect has worked.
    [[nodiscard]] double speed() const { return output_seconds / effect_seconds; }
};

/// Gets the share done, 0 to 1, after every block.
using Progress = std::function<void(double)>;

/// Throws Error, or Interrupted; then `out` is what it was before.
RenderResult render(const std::filesystem::path& in, const std::filesystem::path& out,
                    const RenderOptions& options, const Progress& progress);

}  // namespace krel::host

#endif
