// Which file format an output gets: the container from its name's ending, the sample format from the input.
#ifndef KREL_HOST_OUTPUT_FORMATS_H
#define KREL_HOST_OUTPUT_FORMATS_H

#include <sndfile.h>
#include <stdint.h>

#include <filesystem>
#include <string>

namespace krel::host {

/// Throws UsageError when the ending of `path` names no format that can be written.
void check_output_ending(const std::filesystem::path& path);

/// libsndfile's code for a file called `path` with the rate and channels of `info`: samples in `input_subtype` where the
/// container has it, else in the nearest that it has. Throws Error when the container takes none.
int output_format(const std::filesystem::path& path, int input_subtype, SF_INFO info);

/// Bits of an integer sample of the format; 0 for floats and for lossy codecs, which take floats.
int integer_bits(int format);

/// The size in bytes at which the format's own length fields end.
int64_t largest_file(int format);

/// The sample format, for people.
std::string format_text(int format);

}  // namespace krel::host

#endif
