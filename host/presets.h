// SPDX-License-Identifier: Apache-2.0
// What the host knows about the effect's voices: names for people, and how each one behaves.
#ifndef KREL_HOST_PRESETS_H
#define KREL_HOST_PRESETS_H

#include <stddef.h>

#include <span>

namespace krel::host {

enum class Chain { kVocoder, kEcho, kShift, kNone, kStream, kStreamFormant, kRoom };

struct Preset {
    const char* name;  // short, fit for a file name
    const char* description;
    Chain chain;
};

/// All presets; the index is the preset's number.
std::span<const Preset> presets();

inline constexpr size_t kPlainPreset = 7;  // changes nothing but the level

/// Samples by which the preset's output lags its input, from the effect's input buffer to its
/// output buffer. Exact where delay_moves() is false; else the typical figure.
int latency_samples(size_t preset, int rate_hz);

/// The pitch stream's delay moves with the voice.
bool delay_moves(size_t preset);
/// Sounds on after its input has ended: an echo or a room.
bool rings_on(size_t preset);
/// Saturates inside on loud voices, before the compressor that keeps the output in range.
bool saturates(size_t preset);
/// The frequency at which a vocoder's frames hum; 0 for other voices.
double hum_hz(size_t preset, int rate_hz);

}  // namespace krel::host

#endif
