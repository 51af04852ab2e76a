// SPDX-License-Identifier: Apache-2.0
// Formats that libsndfile does not read, through the ffmpeg program where it is installed.
#ifndef KREL_HOST_AUDIO_DECODER_H
#define KREL_HOST_AUDIO_DECODER_H

#include <filesystem>

namespace krel::host {

/// A descriptor of an unnamed file with the first audio stream of `path` as floating-point WAV; the
/// caller closes it. Throws Error, with the command to type where ffmpeg is not installed, or
/// Interrupted.
int decode_with_ffmpeg(const std::filesystem::path& path);

}  // namespace krel::host

#endif
