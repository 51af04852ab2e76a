// SPDX-License-Identifier: Apache-2.0
// An audio file as the effect takes it: one channel chosen or mixed, at the effect's rate, with a
// gain.
#ifndef KREL_HOST_RENDER_VOICE_SOURCE_H
#define KREL_HOST_RENDER_VOICE_SOURCE_H

#include <optional>
#include <string>
#include <vector>

#include "host/audio/audio_file.h"
#include "host/audio/level_meter.h"
#include "host/audio/resampler.h"

namespace krel::host {

enum class Channel { kMix, kLeft, kRight };

struct SourceOptions {
    Channel channel = Channel::kMix;
    int rate_hz = 0;    // 0: the file's
    double gain = 1.0;  // of what the effect hears
};

class VoiceSource {
  public:
    VoiceSource(const InputFile& input, const SourceOptions& options);

    [[nodiscard]] const AudioReader& file() const { return reader_; }
    [[nodiscard]] int rate_hz() const { return rate_hz_; }
    /// Of the output: mono stays mono.
    [[nodiscard]] int channels() const { return reader_.channels() == 1 ? 1 : 2; }
    /// What the file's header says, at the effect's rate.
    [[nodiscard]] double expected_frames() const;

    /// The next stereo frames: `heard` is what the effect gets, the chosen channel on its left,
    /// `original` the file's own two sides. Both have room for `frames`; fewer come at the end,
    /// then none.
    size_t read(double* heard, double* original, size_t frames);

    /// Of the file's samples.
    [[nodiscard]] const LevelMeter& level() const { return level_; }
    [[nodiscard]] double input_seconds() const;
    /// What is wrong with the file as far as it has been read, in one line each.
    [[nodiscard]] std::vector<std::string> warnings() const;

  private:
    void fill();
    void spread(size_t frames, double* to);
    [[nodiscard]] std::string silence_warning() const;

    SourceOptions options_;
    std::string name_;
    AudioReader reader_;
    int rate_hz_;
    std::optional<Resampler> resampler_;
    std::vector<double> file_block_;
    std::vector<double> spread_;
    std::vector<double> ready_;  // heard and original, four samples a frame
    size_t ready_from_ = 0;
    int64_t done_ = 0;  // frames of the file
    bool ended_ = false;
    LevelMeter level_;
    std::vector<double> channel_peaks_;
    double voice_peak_ = 0.0;
};

}  // namespace krel::host

#endif
