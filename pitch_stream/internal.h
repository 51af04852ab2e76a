// SPDX-License-Identifier: Apache-2.0
// What the library's own files share of the stream beyond the exported functions.
#ifndef KREL_PITCH_STREAM_INTERNAL_H
#define KREL_PITCH_STREAM_INTERNAL_H

#include <type_traits>

#include "base/fixed_point.h"
#include "pitch_stream/pitch_stream.h"

namespace krel {

static_assert(std::is_trivial_v<pitchStreamStruct>);

inline constexpr float kLeastRatio = 0.5f;
inline constexpr float kGreatestRatio = 3.0f;

/// The allowed ratio nearest to r; NaN gives the least.
constexpr float clampRatio(float r) {
    if (r > kGreatestRatio) return kGreatestRatio;
    return r >= kLeastRatio ? r : kLeastRatio;
}

/// Whether no growth has failed so far.
inline bool isAlive(const pitchStreamStruct* s) {
    return s->inputBuffer != nullptr && s->resampleBuffer != nullptr &&
           s->outputBuffer != nullptr && s->downSampleBuffer != nullptr;
}

/// Samples that outputBuffer really has room for.
inline int32_t outputCapacity(const pitchStreamStruct* s) {
    return s->outputBufferSize == s->maxRequired ? 2 * s->maxRequired : s->outputBufferSize;
}
/// Samples that resampleBuffer has room for: it has no recorded size of its own and grows with
/// outputBuffer.
inline int32_t resampleCapacity(int32_t maxRequired, int32_t outputBufferSize) {
    const int32_t initial = 2 * maxRequired;
    return outputBufferSize > initial ? outputBufferSize : initial;
}

/// Output rate that the fixed pitch asks for, Hz.
inline int32_t fixedOutRate(const pitchStreamStruct* s) {
    return trunc_sat_s32(s->speed * static_cast<float>(s->sampleRate));
}

/// changeSpeed() with edits that each yield about `surplus` samples more than they consume.
int changeSpeedSteered(pitchStreamStruct* s, float speed, int surplus);

/// Sets the resampler to sampleRate -> outRate, at no cost when it is there already. A refusal
/// leaves the last good rate; false only when that cannot be restored either.
bool setResamplerRate(pitchStreamStruct* s, int32_t outRate);

/// Whether the resampler runs at the rate that the stream's fixed pitch asks for: false when
/// pitchSetPitch() found no memory for its filter.
bool pitchTookEffect(pitchStreamStruct* stream);

/// pitchWriteShortToStream() with edits of the time scale that each yield about `surplus` samples
/// (-1, 0 or 1) more than they consume: a cross-faded period's share in the result gets a little
/// smaller or larger, nothing else. 0: the same samples.
int pitchWriteSteered(pitchStreamStruct* stream, int16_t* samples, int n, int surplus);

/// Has the resampler of a fresh tracking stream make room for every filter that its ratios may ask
/// for. It never gives room back: its memory is longest at the greatest ratio, its table largest
/// just below 2, from where on it has half as many steps. False when memory is short.
bool reserveFilter(pitchStreamStruct* s);

/// Sizes the buffers and the resampler's filter of a fresh stream: it then allocates nothing as
/// long as writes are at most n samples long and no more than a quarter of a second waits to be
/// read. Its samples stay the same. False when memory is short.
bool pitchReserve(pitchStreamStruct* stream, int n);

}  // namespace krel

#endif
