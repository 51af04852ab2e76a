// Audio files in and out, block by block: memory does not grow with their length.
#ifndef KREL_HOST_AUDIO_FILE_H
#define KREL_HOST_AUDIO_FILE_H

#include <sndfile.h>
#include <stdint.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace krel::host {

struct SndfileCloser {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using SndfileHandle = std::unique_ptr<SNDFILE, SndfileCloser>;

class AudioReader {
  public:
    /// Throws Error when the file is missing, of no known format, or has more than two channels.
    explicit AudioReader(const std::filesystem::path& path);

    [[nodiscard]] int rate_hz() const { return info_.samplerate; }
    [[nodiscard]] int channels() const { return info_.channels; }
    /// As the file's header says.
    [[nodiscard]] int64_t frames() const { return info_.frames; }
    /// libsndfile's code for the file's sample format.
    [[nodiscard]] int subtype() const { return info_.format & SF_FORMAT_SUBMASK; }

    /// The next frames, interleaved, full scale +-1; fewer than asked for at the end. Throws Error when the file is
    /// damaged.
    size_t read(double* to, size_t frames);

  private:
    std::string name_;
    SF_INFO info_ = {};
    SndfileHandle file_;
};

/// Writes to a temporary file in the target's folder, which takes the target's name on commit(). Without commit()
/// nothing is left behind, and a file that stood at the target stays as it was.
class AudioWriter {
  public:
    /// The target's ending names the container. Samples are stored in `input_subtype` where the container has it, else
    /// in the nearest format that it has. Throws Error.
    AudioWriter(const std::filesystem::path& target, int rate_hz, int channels, int input_subtype);
    ~AudioWriter();
    AudioWriter(const AudioWriter&) = delete;
    AudioWriter& operator=(const AudioWriter&) = delete;

    /// Interleaved frames, full scale +-1, rounded to the file's format. Throws Error.
    void write(const double* from, size_t frames);
    void commit();

    /// The sample format chosen, for people.
    [[nodiscard]] std::string format_text() const;

  private:
    struct Sink;

    void write_integers(const double* from, size_t frames);
    void check_written(sf_count_t written, size_t frames);
    [[noreturn]] void fail(const std::string& why) const;

    std::filesystem::path target_;
    SF_INFO info_ = {};
    std::unique_ptr<Sink> sink_;
    SndfileHandle file_;
    std::vector<int> integers_;
};

}  // namespace krel::host

#endif
