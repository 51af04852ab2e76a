// What the stream's source files share beyond the exported functions.
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
/// Samples that resampleBuffer has room for: it has no recorded size of its own and grows with outputBuffer.
inline int32_t resampleCapacity(int32_t maxRequired, int32_t outputBufferSize) {
    const int32_t initial = 2 * maxRequired;
    return outputBufferSize > initial ? outputBufferSize : initial;
}

/// Output rate that the fixed pitch asks for, Hz.
inline int32_t fixedOutRate(const pitchStreamStruct* s) {
    return trunc_sat_s32(s->speed * static_cast<float>(s->sampleRate));
}

/// Sets the resampler to sampleRate -> outRate, at no cost when it is there already. A refusal leaves the last good
/// rate; false only when that cannot be restored either.
bool setResamplerRate(pitchStreamStruct* s, int32_t outRate);

}  // namespace krel

#endif
