// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "base/fixed_point.h"
#include "base/memory.h"
#include "pitch_stream/internal.h"

namespace krel {
namespace {

constexpr int kLowestPitchHz = 25;
constexpr int kHighestPitchHz = 400;
constexpr int kLowestRate = kHighestPitchHz;
// A cross-fade sums to at most 32768 * period: with periods of at most 65535 samples that fits in
// 32 bits.
constexpr int kHighestRate = 65536 * kLowestPitchHz - 1;

/// Makes room for `size` samples and keeps those that are there. On failure the buffer is released
/// and null.
bool resize(int16_t*& buffer, int64_t size) {
    void* moved = size > INT32_MAX ? nullptr
                                   : realloc(buffer, static_cast<size_t>(size) * sizeof(*buffer));
    if (moved == nullptr) release(buffer);
    buffer = static_cast<int16_t*>(moved);
    return buffer != nullptr;
}

/// The growth rule of both buffers. After a failure the buffer holds nothing.
bool grow(int16_t*& buffer, int32_t& size, int32_t& held, int64_t n) {
    if (buffer == nullptr) return false;
    if (n < 0 || held + n <= size) return true;

    // Resampled output may reach into the unrecorded half of outputBuffer: what is held then
    // exceeds the recorded size, and the usual step could be too short for it.
    const int64_t larger = std::max(size + n + (size >> 1), held + n);
    const bool resized = resize(buffer, larger);
    size = resized ? static_cast<int32_t>(larger) : 0;
    if (!resized) held = 0;
    return resized;
}

/// Follows a growth of outputBuffer.
bool growResampleBuffer(pitchStreamStruct* s, int32_t oldOutputSize) {
    if (s->resampleBuffer == nullptr) return false;
    const int32_t needed = resampleCapacity(s->maxRequired, s->outputBufferSize);
    return needed <= resampleCapacity(s->maxRequired, oldOutputSize) ||
           resize(s->resampleBuffer, needed);
}

}  // namespace
}  // namespace krel

using namespace krel;

int allocateStreamBuffers(pitchStreamStruct* stream, int sampleRate) {
    const bool carried = sampleRate >= kLowestRate && sampleRate <= kHighestRate;
    const int maxPeriod = carried ? sampleRate / kLowestPitchHz : 0;
    const int maxRequired = 2 * maxPeriod;
    auto input = zeroed<int16_t>(maxRequired);
    auto resampled = zeroed<int16_t>(2 * int64_t{maxRequired});
    // Deliberate: twice its recorded size, room for what ratios down to a half make of one longest
    // edit.
    auto output = zeroed<int16_t>(2 * int64_t{maxRequired});
    auto decimated = zeroed<int16_t>(maxRequired);
    if (!input || !resampled || !output || !decimated) {
        pitchDestroyStream(stream);
        return 0;
    }

    stream->sampleRate = sampleRate;
    stream->minPeriod = sampleRate / kHighestPitchHz;
    stream->maxPeriod = maxPeriod;
    stream->maxRequired = maxRequired;
    stream->inputBufferSize = maxRequired;
    stream->outputBufferSize = maxRequired;
    stream->inputBuffer = input.release();
    stream->resampleBuffer = resampled.release();
    stream->outputBuffer = output.release();
    stream->downSampleBuffer = decimated.release();
    return 1;
}

void freeStreamBuffers(pitchStreamStruct* stream) {
    if (stream == nullptr) return;
    release(stream->inputBuffer);
    release(stream->resampleBuffer);
    release(stream->outputBuffer);
    release(stream->downSampleBuffer);
}

int enlargeInputBufferIfNeeded(pitchStreamStruct* stream, int n) {
    return grow(stream->inputBuffer, stream->inputBufferSize, stream->numInputSamples, n) ? 1 : 0;
}

int enlargeOutputBufferIfNeeded(pitchStreamStruct* stream, int n) {
    const int32_t oldSize = stream->outputBufferSize;
    const bool grown =
            grow(stream->outputBuffer, stream->outputBufferSize, stream->numOutputSamples, n);
    return grown && growResampleBuffer(stream, oldSize) ? 1 : 0;
}

int addShortSamplesToInputBuffer(pitchStreamStruct* stream, int16_t* samples, int n) {
    if (n == 0) return 1;
    if (n < 0 || samples == nullptr) return 0;
    stream->numInputSamples = std::max(stream->numInputSamples, 0);
    if (enlargeInputBufferIfNeeded(stream, n) == 0) return 0;
    std::copy_n(samples, n, stream->inputBuffer + stream->numInputSamples);
    stream->numInputSamples += n;
    return 1;
}

int copyToOutput(pitchStreamStruct* stream, int16_t* samples, int n) {
    if (n < 0 || enlargeOutputBufferIfNeeded(stream, n) == 0) return 0;
    std::copy_n(samples, n, stream->outputBuffer + stream->numOutputSamples);
    stream->numOutputSamples += n;
    return 1;
}

void removeInputSamples(pitchStreamStruct* stream, int position) {
    if (position < 0 || stream->inputBuffer == nullptr) return;
    const int32_t rest = sat_s32(int64_t{stream->numInputSamples} - position);
    if (rest > 0) std::copy_n(stream->inputBuffer + position, rest, stream->inputBuffer);
    stream->numInputSamples = rest;
}

int copyInputToOutput(pitchStreamStruct* stream, int position) {
    if (!isAlive(stream)) return 0;
    const int32_t count = std::min(stream->remainingInputToCopy, stream->maxRequired);
    if (copyToOutput(stream, stream->inputBuffer + position, count) == 0) return 0;
    stream->remainingInputToCopy -= count;
    return count;
}

bool krel::pitchReserve(pitchStreamStruct* stream, int n) {
    // What is left of the input is shorter than maxRequired. The last edit of a write yields at
    // most maxRequired samples, those before it up to the ratio times n; resampling makes twice as
    // many of them at most.
    const int32_t made = 2 * (stream->maxRequired + trunc_sat_s32(kGreatestRatio) * n);
    return enlargeInputBufferIfNeeded(stream, stream->maxRequired + n) != 0 &&
           enlargeOutputBufferIfNeeded(stream, stream->sampleRate / 4 + made) != 0 &&
           (stream->fixedPitch != 0 || reserveFilter(stream));
}
