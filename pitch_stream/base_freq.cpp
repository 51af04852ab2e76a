// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "base/fixed_point.h"
#include "pitch_stream/internal.h"

namespace krel {
namespace {

constexpr int kLeastVoiceHz = 26;
constexpr int kGreatestVoiceHz = 259;
constexpr float kVoicedCrossingRate = 0.2f;  // zero crossings per sample
constexpr int kFarHz = 100;                  // a candidate this far off does not count
constexpr int kLongestMean = 100;            // updates

/// Largest sample, at least 0.
int peakOf(const int16_t* samples, int n) {
    int16_t peak = 0;
    for (int i = 0; i < n; ++i) peak = std::max(peak, samples[i]);
    return peak;
}

/// Adjacent pairs whose product is 0 or negative.
int zeroCrossings(const int16_t* samples, int n) {
    int crossings = 0;
    for (int i = 1; i < n; ++i) crossings += samples[i - 1] * samples[i] <= 0 ? 1 : 0;
    return crossings;
}

bool isVoiced(const int16_t* samples, int period, int threshold) {
    if (peakOf(samples, period) <= threshold) return false;
    const auto crossings = static_cast<float>(zeroCrossings(samples, period));
    return crossings / static_cast<float>(period) < kVoicedCrossingRate;
}

/// The estimate drawn towards the candidate: almost fully when they are close, not at all when they
/// are far apart.
float blend(double estimate, int candidateHz) {
    const int64_t distance = std::abs(int64_t{trunc_sat_s32(estimate)} - candidateHz);
    // A true division: 0.01f times the distance gives other weights.
    const float keep =
            sqrtf(static_cast<float>(std::min<int64_t>(distance, kFarHz)) / float{kFarHz});
    const float drawn = (1.0f - keep) * static_cast<float>(candidateHz);
    return static_cast<float>(estimate * keep + drawn);
}

}  // namespace
}  // namespace krel

using namespace krel;

void updateBaseFreq(pitchStreamStruct* stream, int16_t* samples, int period) {
    if (period < 1 || !isVoiced(samples, period, stream->vocalThreshold)) return;
    const int candidateHz = stream->sampleRate / period;
    if (candidateHz < kLeastVoiceHz || candidateHz > kGreatestVoiceHz) return;

    const float blended = blend(stream->baseFreq, candidateHz);
    const double n = stream->baseFreqCount;
    stream->baseFreq = (stream->baseFreq * n + blended) / (n + 1.0);
    stream->baseFreqCount = std::min(stream->baseFreqCount + 1, kLongestMean);
}

int findVocals(pitchStreamStruct* stream, [[maybe_unused]] int16_t* samples, int period) {
    if (stream->sampleRate > 0) {
        const int32_t ms = mul_wrap_s32(period, 1000) / stream->sampleRate;
        stream->vocalMs = add_wrap_s32(stream->vocalMs, ms);
    }
    return 1;
}
