// What the host knows about the effect's 17 voices: names for people, and how late each one is.
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
    bool complete = true;  // false while the effect passes the voice through instead
};

/// All presets; the index is the preset's number.
std::span<const Preset> presets();

/// Samples by which the preset's output lags its input, from the effect's input buffer to its output buffer. Exact but
/// for the pitch stream (10 to 14), whose delay moves with the voice: there it is the typical figure.
int latency_samples(size_t preset, int rate_hz);

}  // namespace krel::host

#endif
