// SPDX-License-Identifier: Apache-2.0
// Audio files in and out, block by block: memory does not grow with their length.
#ifndef KREL_HOST_AUDIO_AUDIO_FILE_H
#define KREL_HOST_AUDIO_AUDIO_FILE_H

#include <sndfile.h>
#include <stdint.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/audio/input_file.h"
#include "host/audio/resampler.h"

namespace krel::host {

/// Title, artist and the like, by libsndfile's code.
using Tags = std::vector<std::pair<int, std::string>>;

class AudioReader {
  public:
    /// Throws Error when the file is missing, of no known format, or holds no audio.
    explicit AudioReader(const InputFile& input);

    [[nodiscard]] int rate_hz() const { return info_.samplerate; }
    [[nodiscard]] int channels() const { return info_.channels; }
    /// As the file's header says; kUnknownLength where it does not.
    [[nodiscard]] int64_t frames() const { return info_.frames; }
    /// libsndfile's code for the file's sample format; 0 for what ffmpeg has decoded.
    [[nodiscard]] int subtype() const { return info_.format & SF_FORMAT_SUBMASK; }
    [[nodiscard]] Tags tags() const;

    static constexpr int64_t kUnknownLength = SF_COUNT_MAX;

    /// The next frames, interleaved, full scale +-1; fewer than asked for at the end, or where the
    /// file is damaged. Throws Error when not even the first can be read.
    size_t read(double* to, size_t frames);

    /// After the end: whether the file is damaged there, or was cut off before the end that its
    /// header names.
    [[nodiscard]] bool truncated() const;

  private:
    std::string name_;
    SF_INFO info_ = {};
    SndfileHandle file_;
    int64_t done_ = 0;
    bool damaged_ = false;
};

/// Writes to a temporary file in the target's folder, which takes the target's name on commit().
/// Without commit() nothing is left behind, and a file that stood at the target stays as it was.
class AudioWriter {
  public:
    /// `type` or else the target's ending names the container; the target "-" is standard output.
    /// Samples are stored in `input_subtype` where the container has it, else in the nearest format
    /// that it has; at `rate_hz` where the container takes it, else resampled to the next rate that
    /// it takes. Throws Error.
    AudioWriter(const std::filesystem::path& target, int rate_hz, int channels, int input_subtype,
                const std::string& type = "", const Tags& tags = {});
    ~AudioWriter();
    AudioWriter(const AudioWriter&) = delete;
    AudioWriter& operator=(const AudioWriter&) = delete;

    /// Interleaved frames, full scale +-1, rounded to the file's format. Throws Error.
    void write(const double* from, size_t frames);
    /// All that can fail but the name itself: the file's last samples and its header.
    void finish();
    /// Gives the file its name, or its bytes to standard output.
    void commit();

    /// The sample format chosen, for people.
    [[nodiscard]] std::string format_text() const;

  private:
    struct Sink;

    void open(const Tags& tags);
    void write_pieces(const double* from, size_t frames);
    void write_integers(const double* from, size_t frames);
    void check_written(sf_count_t written, size_t frames);
    [[noreturn]] void fail(const std::string& why) const;

    std::filesystem::path target_;
    SF_INFO info_ = {};
    std::unique_ptr<Sink> sink_;
    SndfileHandle file_;
    std::optional<Resampler> resampler_;
    std::vector<double> resampled_;
    std::vector<int> integers_;
};

}  // namespace krel::host

#endif
