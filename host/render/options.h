// SPDX-License-Identifier: Apache-2.0
// What a rendering is asked to do.
#ifndef KREL_HOST_RENDER_OPTIONS_H
#define KREL_HOST_RENDER_OPTIONS_H

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/audio/sample_format.h"
#include "host/render/voice_source.h"

namespace krel::host {

/// From the first block that begins at or after `seconds` of the input, the voice changes to
/// `preset`.
struct PresetSwitch {
    double seconds = 0.0;
    size_t preset = 0;
};

struct RenderOptions {
    std::filesystem::path library;
    size_t preset = 0;
    size_t block_frames = 960;
    SampleFormat format = SampleFormat::kFloat;
    /// The effect adds to the original, delayed to match, instead of replacing it.
    bool accumulate = false;
    /// What the output has beyond its input's length. Without: as long as the voice needs.
    std::optional<double> tail_seconds;
    /// No silence ahead, no compensation of the delay: the file is what the effect emits from its
    /// first block on.
    bool raw_timing = false;
    std::vector<PresetSwitch> switches;  // in order of time
    Channel channel = Channel::kMix;
    int rate_hz = 0;  // of effect and output; 0: the file's
    double gain_db = 0.0;
    bool auto_gain = false;  // as far below 0 dB as it takes to keep the voice from saturating
    std::optional<double> loudness;  // of the output, LUFS
    double output_gain_db = 0.0;     // after the voice
    std::string type;                // of the output; empty: its name's ending
};

/// Gets the share done, 0 to 1, after every block.
using Progress = std::function<void(double)>;

}  // namespace krel::host

#endif
