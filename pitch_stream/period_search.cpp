// SPDX-License-Identifier: Apache-2.0
#include <string.h>

#include <algorithm>

#include "base/fast_paths.h"
#include "base/fixed_point.h"
#include "pitch_stream/internal.h"

namespace krel {
namespace {

constexpr int kDecimatedRate = 4000;  // Hz, of the coarse pass, or a little more
constexpr int kFineSteps = 4;         // coarse steps on either side that the fine pass looks at
constexpr int kFirstWorstPeriod = 255;

/// Sum over n samples of |a - b|, low 32 bits.
KREL_FAST int32_t magnitudeDifference(const int16_t* a, const int16_t* b, int n) {
    uint32_t sum = 0;
    for (int i = 0; i < n; ++i) {
        // Greater minus lesser fits in 16 bits unsigned: twice the lanes of a 32-bit difference.
        const int16_t x = a[i];
        const int16_t y = b[i];
        const int16_t greater = x > y ? x : y;
        const int16_t lesser = x > y ? y : x;
        sum += static_cast<uint16_t>(greater - lesser);
    }
    return static_cast<int32_t>(sum);
}

int32_t differenceAtPeriod(const int16_t* samples, int period) {
    return magnitudeDifference(samples, samples + period, period);
}

/// diff / period < otherDiff / otherPeriod by 32-bit cross products. Deliberate: they wrap, which
/// decides over a few per cent of the periods of loud voices at 48 kHz; wider ones would give those
/// voices other samples.
constexpr bool meanIsLess(int32_t diff, int period, int32_t otherDiff, int otherPeriod) {
    return mul_wrap_s32(diff, otherPeriod) < mul_wrap_s32(otherDiff, period);
}

/// The period of the least mean difference; the shorter one of equals.
class Best {
  public:
    void offer(int candidate, int32_t difference) {
        if (!meanIsLess(difference, candidate, diff_, period_)) return;
        period_ = candidate;
        diff_ = difference;
    }
    [[nodiscard]] int period() const { return period_; }
    [[nodiscard]] int32_t mean() const { return period_ == 0 ? diff_ : diff_ / period_; }

  private:
    int period_ = 0;  // the first candidate is always taken
    int32_t diff_ = 1;
};

class Worst {
  public:
    void offer(int candidate, int32_t difference) {
        if (!meanIsLess(diff_, period_, difference, candidate)) return;
        period_ = candidate;
        diff_ = difference;
    }
    [[nodiscard]] int32_t mean() const { return diff_ / period_; }

  private:
    int period_ = kFirstWorstPeriod;  // deliberate: with 0 no candidate would ever be taken
    int32_t diff_ = 0;
};

int bestPeriodInRange(const int16_t* samples, int minPeriod, int maxPeriod) {
    Best best;
    for (int period = minPeriod; period <= maxPeriod; ++period)
        best.offer(period, differenceAtPeriod(samples, period));
    return best.period();
}

/// Means of `skip` samples each, skip >= 1. Inlined, so that a constant skip unrolls the sum and
/// needs no division.
[[gnu::always_inline]] inline void decimate(const int16_t* samples, int16_t* out, int n, int skip) {
    for (int i = 0; i < n; ++i) {
        int32_t sum = 0;
        for (int j = 0; j < skip; ++j) sum = add_wrap_s32(sum, samples[i * skip + j]);
        out[i] = wrap_s16(sum / skip);
    }
}

bool isSilent(const int16_t* samples, int n) {
    return samples[0] == 0 &&
           memcmp(samples, samples + 1, static_cast<size_t>(n - 1) * sizeof(int16_t)) == 0;
}

/// What a search through silence comes to: no period differs, the first is taken, none is kept from
/// before.
int periodOfSilence(pitchStreamStruct* s, int skip) {
    if (skip > 1) std::fill_n(s->downSampleBuffer, s->maxRequired / skip, int16_t{0});
    s->prevPeriod = s->minPeriod;
    s->prevMinDiff = 0;
    return s->minPeriod;
}

}  // namespace
}  // namespace krel

using namespace krel;

void downSampleInput(pitchStreamStruct* stream, int16_t* samples, int skip) {
    int16_t* out = stream->downSampleBuffer;
    if (skip == 0 || out == nullptr) return;
    const int n = stream->maxRequired / skip;
    switch (skip) {
        case 2:  // 8 kHz
            return decimate(samples, out, n, 2);
        case 4:  // 16 kHz
            return decimate(samples, out, n, 4);
        case 11:  // 44.1 kHz
            return decimate(samples, out, n, 11);
        case 12:  // 48 kHz
            return decimate(samples, out, n, 12);
        default:
            if (skip > 0) return decimate(samples, out, n, skip);
            std::fill_n(out, -n, int16_t{0});
    }
}

int findPitchPeriodInRange(int16_t* samples, int minPeriod, int maxPeriod, int* retMinDiff,
                           int* retMaxDiff) {
    if (minPeriod > maxPeriod) {
        *retMinDiff = 1;
        *retMaxDiff = 0;
        return 0;
    }
    Best best;
    Worst worst;
    // Periods below 1 compare nothing and are never taken.
    for (int period = std::max(minPeriod, 1); period <= maxPeriod; ++period) {
        const int32_t diff = differenceAtPeriod(samples, period);
        best.offer(period, diff);
        worst.offer(period, diff);
    }
    *retMinDiff = best.mean();
    *retMaxDiff = worst.mean();
    return best.period();
}

int prevPeriodBetter(pitchStreamStruct* stream, int minDiff, int maxDiff, int preferNewPeriod) {
    if (minDiff == 0 || stream->prevPeriod == 0) return 0;
    if (preferNewPeriod == 0) return stream->prevMinDiff < minDiff ? 1 : 0;
    const bool notClearlyPeriodic = mul_wrap_s32(minDiff, 3) >= maxDiff;
    const bool wasClearlyBetter = mul_wrap_s32(stream->prevMinDiff, 3) < mul_wrap_s32(minDiff, 2);
    return notClearlyPeriodic && wasClearlyBetter ? 1 : 0;
}

int findPitchPeriod(pitchStreamStruct* stream, int16_t* samples, int preferNewPeriod) {
    if (stream->downSampleBuffer == nullptr) return 0;
    int low = stream->minPeriod;
    int high = stream->maxPeriod;
    const int skip = stream->sampleRate / kDecimatedRate;
    if (isSilent(samples, stream->maxRequired)) return periodOfSilence(stream, skip);
    if (skip > 1) {
        downSampleInput(stream, samples, skip);
        const int coarse = bestPeriodInRange(stream->downSampleBuffer, low / skip, high / skip);
        low = std::max((coarse - kFineSteps) * skip, low);
        high = std::min((coarse + kFineSteps) * skip, high);
    }
    int minDiff = 0;
    int maxDiff = 0;
    const int period = findPitchPeriodInRange(samples, low, high, &minDiff, &maxDiff);

    const bool keep = prevPeriodBetter(stream, minDiff, maxDiff, preferNewPeriod) != 0;
    const int chosen = keep ? stream->prevPeriod : period;
    stream->prevPeriod = period;
    stream->prevMinDiff = minDiff;
    return chosen;
}
