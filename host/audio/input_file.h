// SPDX-License-Identifier: Apache-2.0
// Where an input's samples come from: the file itself, or an unnamed copy of what a pipe or a
// decoder gave.
#ifndef KREL_HOST_AUDIO_INPUT_FILE_H
#define KREL_HOST_AUDIO_INPUT_FILE_H

#include <sndfile.h>

#include <filesystem>
#include <memory>
#include <optional>

namespace krel::host {

struct SndfileCloser {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using SndfileHandle = std::unique_ptr<SNDFILE, SndfileCloser>;

/// Samples without a header.
struct RawFormat {
    int encoding = 0;  // libsndfile's codes for sample format and byte order
    int rate_hz = 0;
    int channels = 1;
};

/// Can be opened any number of times, one after the other.
class InputFile {
  public:
    /// "-" is standard input. Pipes are read to their end; what libsndfile does not know and ffmpeg
    /// may is decoded by ffmpeg. Throws Error, with the command that converts the file where ffmpeg
    /// is missing.
    InputFile(std::filesystem::path path, std::optional<RawFormat> raw = {});
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    /// What is read is not the file's own encoding.
    [[nodiscard]] bool decoded() const { return decoded_; }
    /// As the user named it.
    [[nodiscard]] const std::filesystem::path& path() const { return path_; }
    /// At its first sample. Throws Error when the file is of no known format.
    [[nodiscard]] SndfileHandle open(SF_INFO& info) const;

  private:
    [[nodiscard]] SndfileHandle try_open(SF_INFO& info) const;

    std::filesystem::path path_;
    std::optional<RawFormat> raw_;
    bool decoded_ = false;
    int copy_ = -1;  // descriptor of the unnamed copy
};

}  // namespace krel::host

#endif
