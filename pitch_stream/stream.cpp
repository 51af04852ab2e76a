// SPDX-License-Identifier: Apache-2.0
#include <speex/speex_resampler.h>

#include <algorithm>

#include "base/fixed_point.h"
#include "base/memory.h"
#include "pitch_stream/internal.h"

namespace krel {
namespace {

constexpr int kLeastTargetHz = 25;
constexpr int kGreatestTargetHz = 260;
constexpr double kFirstBaseFreqHz = 100.0;
constexpr int kResamplerQuality = 5;
// A time scale this close to 1 changes nothing that can be heard.
constexpr double kLeastUnitSpeed = 0.99999;
constexpr double kGreatestUnitSpeed = 1.00001;

bool isTrackable(int targetHz) {
    return targetHz >= kLeastTargetHz && targetHz <= kGreatestTargetHz;
}

bool createResampler(pitchStreamStruct* s) {
    const auto rate = static_cast<uint32_t>(s->sampleRate);
    s->resampler = speex_resampler_init(1, rate, rate, kResamplerQuality, nullptr);
    return s->resampler != nullptr &&
           speex_resampler_skip_zeros(s->resampler) == RESAMPLER_ERR_SUCCESS;
}

/// The ratio that moves the present estimate of the base frequency to the target, within the
/// stream's bounds.
float trackedRatio(const pitchStreamStruct* s) {
    const auto wanted = static_cast<float>(s->targetBaseFreq / s->baseFreq);
    const float bounded = wanted > s->maxPitch   ? s->maxPitch
                          : wanted < s->minPitch ? s->minPitch
                                                 : wanted;
    return clampRatio(bounded);
}

bool passInputThrough(pitchStreamStruct* s) {
    if (copyToOutput(s, s->inputBuffer, std::max(s->numInputSamples, 0)) == 0) return false;
    s->numInputSamples = 0;
    return true;
}

int processInput(pitchStreamStruct* stream, int surplus) {
    if (!isAlive(stream)) return 0;
    const int32_t start = stream->numOutputSamples;
    float speed = stream->speed;
    float ratio = stream->pitch;
    if (stream->fixedPitch == 0) {
        ratio = trackedRatio(stream);
        speed = 1.0f / ratio;
    }

    if (speed >= kLeastUnitSpeed && speed <= kGreatestUnitSpeed) {
        if (!passInputThrough(stream)) return 0;
    } else {
        // An edit of no samples is no error of the call: it only leaves the input where it is.
        changeSpeedSteered(stream, speed, surplus);
        if (!isAlive(stream)) return 0;
    }
    return ratio == 1.0f ? 1 : adjustRate(stream, ratio, start);
}

}  // namespace
}  // namespace krel

using namespace krel;

pitchStreamStruct* pitchCreateStream(int sampleRate, int targetBaseFreq, float maxPitch,
                                     float minPitch, int vocalThreshold) {
    auto* stream = zeroed_raw<pitchStreamStruct>(1);
    if (stream == nullptr || allocateStreamBuffers(stream, sampleRate) == 0) return nullptr;

    stream->speed = 1.0f;
    stream->pitch = 1.0f;
    stream->baseFreq = kFirstBaseFreqHz;
    stream->targetBaseFreq = targetBaseFreq;
    stream->vocalThreshold = vocalThreshold;
    stream->maxPitch = maxPitch < kGreatestRatio ? maxPitch : kGreatestRatio;
    stream->minPitch = minPitch > kLeastRatio ? minPitch : kLeastRatio;
    stream->fixedPitch = isTrackable(targetBaseFreq) ? 0 : 1;
    stream->tenMsSamples = trunc_sat_s32(static_cast<float>(sampleRate) * 10.0f / 1000.0f);
    if (!createResampler(stream)) {
        pitchDestroyStream(stream);
        return nullptr;
    }
    return stream;
}

void pitchSetPitch(pitchStreamStruct* stream, float pitch) {
    if (stream == nullptr || !(pitch == pitch)) return;
    stream->pitch = clampRatio(pitch);
    stream->speed = 1.0f / stream->pitch;
    stream->fixedPitch = 1;
    if (stream->resampler != nullptr) setResamplerRate(stream, fixedOutRate(stream));
}

bool krel::pitchTookEffect(pitchStreamStruct* stream) {
    uint32_t inRate = 0;
    uint32_t outRate = 0;
    speex_resampler_get_rate(stream->resampler, &inRate, &outRate);
    return outRate == static_cast<uint32_t>(fixedOutRate(stream));
}

void pitchDestroyStream(pitchStreamStruct* stream) {
    if (stream == nullptr) return;
    if (stream->resampler != nullptr) speex_resampler_destroy(stream->resampler);
    freeStreamBuffers(stream);
    free(stream);
}

int krel::pitchWriteSteered(pitchStreamStruct* stream, int16_t* samples, int n, int surplus) {
    if (stream == nullptr || n < 0 || (n > 0 && samples == nullptr)) return 0;
    if (addShortSamplesToInputBuffer(stream, samples, n) == 0) return 0;
    return processInput(stream, surplus);
}

int pitchWriteShortToStream(pitchStreamStruct* stream, int16_t* samples, int n) {
    return pitchWriteSteered(stream, samples, n, 0);
}

int pitchReadShortFromStream(pitchStreamStruct* stream, int16_t* samples, int maxSamples) {
    if (stream == nullptr || samples == nullptr || stream->outputBuffer == nullptr) return 0;
    const int count = std::min(stream->numOutputSamples, maxSamples);
    if (count <= 0) return 0;
    std::copy_n(stream->outputBuffer, count, samples);
    const int32_t rest = stream->numOutputSamples - count;
    std::copy_n(stream->outputBuffer + count, rest, stream->outputBuffer);
    stream->numOutputSamples = rest;
    return count;
}

int processStreamInput(pitchStreamStruct* stream) { return processInput(stream, 0); }
