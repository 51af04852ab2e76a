// Where the result of each preset goes.
#ifndef KREL_HOST_OUTPUT_NAMES_H
#define KREL_HOST_OUTPUT_NAMES_H

#include <stddef.h>

#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace krel::host {

/// "07-plain"
std::string preset_label(size_t preset);

/// One path for each preset. `out` is a file name, a pattern with {number} and {name}, or an existing folder, which stands
/// for FOLDER/{number}-{name}.wav. Throws UsageError when two presets would share a file, when an ending names no output
/// format, or when one of several results would replace `in` before the others have read it.
std::vector<std::filesystem::path> output_paths(const std::filesystem::path& in,
                                                const std::filesystem::path& out,
                                                std::span<const size_t> presets);

}  // namespace krel::host

#endif
