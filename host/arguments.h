// The command line's own small languages: preset lists, buffer formats, switch times.
#ifndef KREL_HOST_ARGUMENTS_H
#define KREL_HOST_ARGUMENTS_H

#include <string>
#include <vector>

#include "host/render.h"

namespace krel::host {

/// "7", "0,1,3" or "all"; each preset once, in the order given. Throws Error when one does not exist.
std::vector<size_t> parse_presets(const std::string& text);

/// "float", "s16", "s32" or "q8.24". Throws UsageError.
SampleFormat parse_format(const std::string& text);

/// "2.5:11", in any order; sorted by time. Throws UsageError, or Error when a preset does not exist.
std::vector<PresetSwitch> parse_switches(const std::vector<std::string>& texts);

}  // namespace krel::host

#endif
