// SPDX-License-Identifier: Apache-2.0
// The command line's own small languages: voices, buffer formats, switch times, samples without a
// header.
#ifndef KREL_HOST_COMMANDS_ARGUMENTS_H
#define KREL_HOST_COMMANDS_ARGUMENTS_H

#include <string>
#include <string_view>
#include <vector>

#include "host/render/render.h"

namespace krel::host {

/// "7", "robot", "0,Girl,3" or "all"; each preset once, in the order given. Throws UsageError when
/// one does not exist.
std::vector<size_t> parse_presets(const std::string& text);

/// One of them. Throws UsageError when it does not exist.
size_t parse_preset(std::string_view text);

/// "float", "s16", "s32" or "q8.24". Throws UsageError.
SampleFormat parse_format(const std::string& text);

/// "mix", "left" or "right". Throws UsageError.
Channel parse_channel(const std::string& text);

/// "2.5:11" or "2.5:girl", in any order; sorted by time. Throws UsageError.
std::vector<PresetSwitch> parse_switches(const std::vector<std::string>& texts);

/// "s16le:8000" or "ulaw:8000:2": encoding, rate, channels. Throws UsageError.
RawFormat parse_raw_format(const std::string& text);

/// "-6", "+3.5" (in dB), or "auto". Throws UsageError.
void parse_gain(const std::string& text, RenderOptions& options);

}  // namespace krel::host

#endif
