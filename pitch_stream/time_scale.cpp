// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>

#include "base/fixed_point.h"
#include "pitch_stream/internal.h"

namespace krel {
namespace {

/// The speed at which an edit of this period yields about `surplus` samples more than it consumes,
/// counted after resampling: a plain sample more consumes 1 and yields `speed`.
float steeredSpeed(float speed, int period, int surplus) {
    if (surplus == 0) return speed;
    const auto length = static_cast<float>(period);
    const float balanced = length * std::min(speed, 1.0f) / std::fabs(speed - 1.0f);
    const float steered = std::max(balanced + static_cast<float>(surplus) / (speed - 1.0f), 1.0f);
    return speed > 1.0f ? 1.0f + length / steered : steered / (steered + length);
}

/// One step of the speed changer at `position` of the input. Returns by how much the position
/// advances, 0 on failure.
int changeSpeedOnce(pitchStreamStruct* s, float speed, int position, int surplus) {
    if (s->remainingInputToCopy > 0) return copyInputToOutput(s, position);

    int16_t* samples = s->inputBuffer + position;
    const int period = findPitchPeriod(s, samples, /*preferNewPeriod=*/1);
    updateBaseFreq(s, samples, period);
    const float steered = steeredSpeed(speed, period, surplus);
    if (speed > 1.0f) {
        const int newSamples = skipPitchPeriod(s, samples, steered, period);
        return newSamples == 0 ? 0 : period + newSamples;
    }
    return insertPitchPeriod(s, samples, steered, period);
}

}  // namespace

int changeSpeedSteered(pitchStreamStruct* stream, float speed, int surplus) {
    if (!isAlive(stream)) return 0;
    if (stream->numInputSamples < stream->maxRequired) return 1;

    int position = 0;
    do {
        const int advance = changeSpeedOnce(stream, speed, position, surplus);
        if (advance == 0) return 0;
        position += advance;
    } while (position + stream->maxRequired <= stream->numInputSamples);
    removeInputSamples(stream, position);
    return 1;
}

}  // namespace krel

using namespace krel;

void overlapAdd(int numSamples, int16_t* out, int16_t* rampDown, int16_t* rampUp) {
    // The division, as a product with the reciprocal: a sum of at most 2^31, moved by half a unit
    // away from zero, is never nearer than 0.5 / numSamples to a whole quotient; the product is off
    // by less than 2^-20 / numSamples.
    const double reciprocal = 1.0 / numSamples;
    for (int i = 0; i < numSamples; ++i) {
        const int32_t sum =
                add_wrap_s32(mul_wrap_s32(rampDown[i], numSamples - i), mul_wrap_s32(rampUp[i], i));
        const double moved = sum + (sum < 0 ? -0.5 : 0.5);
        out[i] = wrap_s16(static_cast<int32_t>(moved * reciprocal));
    }
}

int skipPitchPeriod(pitchStreamStruct* stream, int16_t* samples, float speed, int period) {
    const auto length = static_cast<float>(period);
    int newSamples = period;
    if (speed >= 2.0f) {
        newSamples = trunc_sat_s32(length / (speed - 1.0f));
    } else {
        stream->remainingInputToCopy = trunc_sat_s32((2.0f - speed) * length / (speed - 1.0f));
    }
    if (newSamples < 1 || enlargeOutputBufferIfNeeded(stream, newSamples) == 0) return 0;

    overlapAdd(newSamples, stream->outputBuffer + stream->numOutputSamples, samples,
               samples + period);
    stream->numOutputSamples += newSamples;
    return newSamples;
}

int insertPitchPeriod(pitchStreamStruct* stream, int16_t* samples, float speed, int period) {
    const auto length = static_cast<float>(period);
    int newSamples = period;
    if (speed < 0.5f) {
        newSamples = trunc_sat_s32(
                roundf(length * speed / (1.0f - speed)));  // deliberate: rounded here only
    } else {
        stream->remainingInputToCopy =
                trunc_sat_s32((2.0f * speed - 1.0f) * length / (1.0f - speed));
    }
    if (period < 1 || newSamples < 0 ||
        enlargeOutputBufferIfNeeded(stream, sat_s32(int64_t{period} + newSamples)) == 0)
        return 0;
    copyToOutput(stream, samples, period);
    overlapAdd(newSamples, stream->outputBuffer + stream->numOutputSamples, samples + period,
               samples);
    stream->numOutputSamples += newSamples;
    return newSamples;
}

int changeSpeed(pitchStreamStruct* stream, float speed) {
    return changeSpeedSteered(stream, speed, 0);
}
