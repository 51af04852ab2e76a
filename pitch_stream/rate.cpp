// SPDX-License-Identifier: Apache-2.0
#include <speex/speex_resampler.h>

#include <algorithm>
#include <numeric>

#include "base/fixed_point.h"
#include "pitch_stream/internal.h"

namespace krel {
namespace {

// A shorter filter after a rate change leaves input inside the resampler: half of what the longer
// one had more. The filter has 80 taps, times the ratio where that is above 1: 80 samples at the
// greatest ratio, and room for rounding.
constexpr int kHeldByResampler = 96;

// The resampler's interpolation and its change of rates multiply with the denominator of the ratio
// in 32 bits. Beyond 16 bits they overflow: that sounds as full-scale clicks, and a change of rates
// may be refused half-way.
constexpr uint32_t kGreatestDenominator = 65535;

/// Sets sampleRate -> outRate, as a ratio that the resampler can carry: beyond its limit both rates
/// lose low bits (a few parts in 100000).
bool setRate(pitchStreamStruct* s, uint32_t outRate) {
    const auto inRate = static_cast<uint32_t>(s->sampleRate);
    uint32_t numerator = inRate;
    uint32_t denominator = outRate;
    if (outRate / std::gcd(inRate, outRate) > kGreatestDenominator) {
        for (; denominator > kGreatestDenominator; denominator >>= 1) numerator >>= 1;
    }
    return speex_resampler_set_rate_frac(s->resampler, numerator, denominator, inRate, outRate) ==
           RESAMPLER_ERR_SUCCESS;
}

/// The most that the resampler can make of n samples.
int64_t mostResampled(pitchStreamStruct* s, int n) {
    uint32_t inRate = 0;
    uint32_t outRate = 0;
    speex_resampler_get_rate(s->resampler, &inRate, &outRate);
    return (int64_t{n} + kHeldByResampler) * outRate / inRate + 2;
}

/// Resamples outputBuffer[start .. start + remaining - 1] into resampleBuffer. Returns the number
/// of samples made.
int resample(pitchStreamStruct* s, int start, int remaining) {
    const auto capacity =
            static_cast<uint32_t>(resampleCapacity(s->maxRequired, s->outputBufferSize));
    const int16_t* in = s->outputBuffer + start;
    uint32_t total = 0;
    auto left = static_cast<uint32_t>(remaining);
    uint32_t outLength = left;  // then what the last call made
    while (left > 0) {
        uint32_t inLength = left;
        outLength = std::min(outLength, capacity - total);
        speex_resampler_process_int(s->resampler, 0, in, &inLength, s->resampleBuffer + total,
                                    &outLength);
        if (inLength == 0 && outLength == 0) break;
        in += inLength;
        left -= inLength;
        total += outLength;
    }
    return static_cast<int>(total);
}

/// A start beyond the output, which no stage here asks for: the gap becomes silence.
int extendOutput(pitchStreamStruct* s, int start) {
    const int gap = start - s->numOutputSamples;
    if (s->outputBufferSize < start && enlargeOutputBufferIfNeeded(s, gap) == 0) return 0;
    std::fill_n(s->outputBuffer + s->numOutputSamples, gap, int16_t{0});
    s->numOutputSamples = start;
    return 1;
}

}  // namespace

bool setResamplerRate(pitchStreamStruct* s, int32_t outRate) {
    uint32_t inRate = 0;
    uint32_t lastGood = 0;
    speex_resampler_get_rate(s->resampler, &inRate, &lastGood);
    const auto wanted = static_cast<uint32_t>(outRate);
    // Setting the same rate again would rebuild the filter, at the cost of many blocks, to the same
    // coefficients.
    if (wanted == lastGood || setRate(s, wanted)) return true;
    // No memory for a longer filter. The last one still fits in what there is.
    return setRate(s, lastGood);
}

bool reserveFilter(pitchStreamStruct* s) {
    const auto rate = static_cast<uint32_t>(s->sampleRate);
    const float leastRate = static_cast<float>(s->sampleRate) / clampRatio(s->maxPitch);
    return setRate(s, static_cast<uint32_t>(leastRate)) && setRate(s, rate / 2 + 1) &&
           setRate(s, rate);
}

}  // namespace krel

using namespace krel;

int adjustRate(pitchStreamStruct* stream, float pitch, int start) {
    if (start < 0 || !isAlive(stream) || stream->resampler == nullptr) return 0;
    if (stream->numOutputSamples == start) return 1;
    if (stream->numOutputSamples < start) return extendOutput(stream, start);

    // A fixed pitch is set already, unless there was no memory for its filter then.
    const float trackedRate = static_cast<float>(stream->sampleRate) / clampRatio(pitch);
    const int32_t outRate =
            stream->fixedPitch == 0 ? trunc_sat_s32(trackedRate) : fixedOutRate(stream);
    if (!setResamplerRate(stream, outRate)) {
        stream->numOutputSamples = start;
        return 1;
    }
    const int remaining = stream->numOutputSamples - start;
    const int64_t most = mostResampled(stream, remaining);
    if (most > resampleCapacity(stream->maxRequired, stream->outputBufferSize) &&
        enlargeOutputBufferIfNeeded(stream, sat_s32(most - stream->numOutputSamples)) == 0) {
        return 0;
    }
    const int total = resample(stream, start, remaining);
    stream->numOutputSamples = start;
    if (start + total > outputCapacity(stream) && enlargeOutputBufferIfNeeded(stream, total) == 0)
        return 0;
    std::copy_n(stream->resampleBuffer, total, stream->outputBuffer + start);
    stream->numOutputSamples = start + total;
    return 1;
}
