// SPDX-License-Identifier: Apache-2.0
// Where the result of each input and preset goes.
#ifndef KREL_HOST_COMMANDS_OUTPUT_NAMES_H
#define KREL_HOST_COMMANDS_OUTPUT_NAMES_H

#include <stddef.h>

#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace krel::host {

/// "07-plain"
std::string preset_label(size_t preset);

struct Job {
    std::filesystem::path in;
    size_t preset = 0;
    std::filesystem::path out;
};

struct OutputRequest {
    std::vector<std::filesystem::path> inputs;
    std::vector<size_t> presets;
    /// A file name, a pattern with {in}, {number} and {name}, or a folder: one that exists, or any
    /// name that ends in a slash.
    std::filesystem::path out;
    std::string type;    // of the files, else their endings'
    bool force = false;  // an output may replace its input
};

/// One job for each input and preset, input by input. Folders get {number}-{name}.wav, or
/// {in}-{number}-{name}.wav from several inputs. Throws UsageError when two results would share a
/// file, when an ending names no output format, or when an output would replace an input without
/// `force` or before the others have read it.
std::vector<Job> plan_jobs(const OutputRequest& request);

}  // namespace krel::host

#endif
