// SPDX-License-Identifier: Apache-2.0
// Which file format an output gets: the container from its name's ending, the sample format from
// the input.
#ifndef KREL_HOST_AUDIO_OUTPUT_FORMATS_H
#define KREL_HOST_AUDIO_OUTPUT_FORMATS_H

#include <sndfile.h>
#include <stdint.h>

#include <filesystem>
#include <string>

namespace krel::host {

/// The container of an output: `type` if it is not empty ("flac"), else the ending of `path`, else
/// WAV for standard output ("-"). Throws UsageError when that is none that can be written.
std::string output_type(const std::filesystem::path& path, const std::string& type);

/// Sets the format for a container of that type and the rate and channels of `info`: samples in
/// `input_subtype` where the container has it, else in the nearest that it has; the rate goes up to
/// the next that the container takes, or down to its highest. Throws Error when the container takes
/// none.
void choose_format(const std::string& type, int input_subtype, SF_INFO& info);

/// Bits of an integer sample of the format; 0 for floats and for lossy codecs, which take floats.
int integer_bits(int format);

/// The size in bytes at which the format's own length fields end.
int64_t largest_file(int format);

/// The sample format, for people.
std::string format_text(int format);

}  // namespace krel::host

#endif
