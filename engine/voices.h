// SPDX-License-Identifier: Apache-2.0
// The voices as people see them: names, and how late each one is.
#ifndef KREL_ENGINE_VOICES_H
#define KREL_ENGINE_VOICES_H

#include "core/presets.h"

namespace krel {

inline constexpr int kLowestRateHz = 8000;
inline constexpr int kHighestRateHz = 192000;

struct voice_name {
    const char* name;
    const char* description;
};

/// One for each preset of the core.
extern const voice_name kVoiceNames[kPresetCount];

constexpr bool is_voice(int number) { return number >= 0 && number < kPresetCount; }
constexpr bool is_rate(int rate_hz) {
    return rate_hz >= kLowestRateHz && rate_hz <= kHighestRateHz;
}

/// Whether a voice's delay depends on the pitch periods that it finds.
constexpr bool has_stream(int number) {
    return kPresets[number].chain == Chain::kStream ||
           kPresets[number].chain == Chain::kStreamFormant;
}

/// Samples by which a voice's block comes out late, core and compressor together, without the
/// collecting of blocks.
int block_delay(int number, int rate_hz);

}  // namespace krel

#endif
