/* SPDX-License-Identifier: Apache-2.0 */
/**
 * Pitch stream: changes the pitch of one channel of 16-bit speech in the time domain, keeping its
 * duration.
 *
 * For a ratio r (output frequency / input frequency) the signal is first made r times as long at
 * unchanged pitch, by repeating or dropping whole pitch periods with a cross-fade, and then
 * resampled to the sample rate divided by r. The ratio is fixed (pitchSetPitch()), or it follows a
 * tracked estimate of the speaker's base frequency so that every voice moves towards one target
 * frequency.
 *
 * Use: pitchCreateStream(), then pitchWriteShortToStream() and pitchReadShortFromStream() in turn,
 * then pitchDestroyStream(). Output starts once two longest pitch periods (2 * rate / 25 samples)
 * have been written; from then on input and output nearly balance, but not block by block: reads
 * may come up short. Edits are whole samples long: in the long run up to 120 samples per second too
 * many or too few come out. There is no flush.
 * The other functions are the stream's own stages, for callers that build a chain of their own.
 * They trust their pointers.
 *
 * A buffer that cannot grow is released and its pointer cleared; the stream is then dead: writes
 * return 0, reads return what is still held, nothing touches the missing buffer, and only
 * pitchDestroyStream() is left to do.
 * One stream belongs to one thread at a time; nothing here locks or logs.
 * Real time: only the growth of the buffers allocates (rare: they grow to size + need + size / 2
 * and never shrink), and the resampler when a tracked ratio needs a larger filter table than any
 * before.
 */
#ifndef KREL_PITCH_STREAM_PITCH_STREAM_H
#define KREL_PITCH_STREAM_PITCH_STREAM_H

#include <stdint.h>

#include "base/export.h"

KREL_C_BEGIN

struct SpeexResamplerState_;

/** State. Created and destroyed by this family only; sizes, counts and periods are in samples. */
typedef struct pitchStreamStruct {
    int16_t* inputBuffer;      /**< written, not yet consumed */
    int16_t* resampleBuffer;   /**< scratch; room for max(2 * maxRequired, outputBufferSize) */
    int16_t* outputBuffer;     /**< finished, not yet read */
    int16_t* downSampleBuffer; /**< scratch of the period search; room for maxRequired */
    float speed;        /**< time-scale factor of a fixed pitch, input duration / output duration */
    float pitch;        /**< fixed pitch ratio */
    int32_t fixedPitch; /**< 1: speed and pitch apply; 0: the ratio follows baseFreq */
    int32_t inputBufferSize; /**< room in inputBuffer */
    /** recorded room in outputBuffer; until its first growth twice that is there */
    int32_t outputBufferSize;
    int32_t numInputSamples;      /**< held in inputBuffer */
    int32_t numOutputSamples;     /**< held in outputBuffer */
    int32_t minPeriod;            /**< shortest pitch period searched: rate / 400 */
    int32_t maxPeriod;            /**< longest pitch period searched: rate / 25 */
    int32_t maxRequired;          /**< input needed before a period is processed: 2 * maxPeriod */
    int32_t remainingInputToCopy; /**< input still to be copied unchanged after an edit */
    int32_t sampleRate;           /**< Hz */
    int32_t prevPeriod;           /**< period found by the last search; 0: none yet */
    int32_t prevMinDiff;          /**< its mean difference per sample */
    int32_t targetBaseFreq;       /**< Hz, as given at creation */
    int32_t vocalThreshold;       /**< peak that a period must exceed to count as voiced */
    int32_t baseFreqCount;        /**< updates of baseFreq so far, at most 100 */
    float maxPitch;               /**< upper bound of the tracked ratio */
    float minPitch;               /**< lower bound of the tracked ratio */
    double baseFreq;              /**< tracked base frequency, Hz */
    int32_t tenMsSamples;         /**< samples in 10 ms; for information */
    int32_t vocalMs;              /**< voiced time counted by findVocals(), ms */
    struct SpeexResamplerState_* resampler; /**< owned */
} pitchStreamStruct;

/**
 * ---- the stream ---------------------------------------------------------------------------------
 * -----------------
 */

/**
 * Returns a new stream, or null: no memory, or a rate outside 400..1638399 Hz (below, the shortest
 * period is no sample; above, a cross-fade of the longest one exceeds 32 bits).
 *
 * sampleRate      Hz
 * targetBaseFreq  25..260 Hz: the ratio follows the voice towards it; else the pitch is fixed, at
 *                 1.0 to begin with
 * maxPitch        upper bound of a tracked ratio, taken as 3.0 if above (or NaN)
 * minPitch        lower bound of a tracked ratio, taken as 0.5 if below (or NaN)
 * vocalThreshold  peak on the 16-bit scale that a period must exceed to move the base-frequency
 *                 estimate
 */
KREL_EXPORT pitchStreamStruct* pitchCreateStream(int sampleRate, int targetBaseFreq, float maxPitch,
                                                 float minPitch, int vocalThreshold);

/**
 * Fixes the pitch ratio, clamped to [0.5, 3.0]; a tracking stream stops tracking for good. Sets the
 * resampler's rate: may allocate. NaN or a null stream: no change.
 */
KREL_EXPORT void pitchSetPitch(pitchStreamStruct* stream, float pitch);

/** Releases the stream with all it owns; what it still holds is dropped. Null is harmless. */
KREL_EXPORT void pitchDestroyStream(pitchStreamStruct* stream);

/**
 * Appends n samples and processes as much input as possible. n = 0 only processes; n < 0 does
 * nothing and returns 0. Returns 1; 0 for null samples, or when a buffer could not grow: the stream
 * is then dead.
 */
KREL_EXPORT int pitchWriteShortToStream(pitchStreamStruct* stream, int16_t* samples, int n);

/**
 * Moves up to maxSamples finished samples to `samples`; returns how many, 0 for none or for a
 * negative maxSamples.
 */
KREL_EXPORT int pitchReadShortFromStream(pitchStreamStruct* stream, int16_t* samples,
                                         int maxSamples);

/**
 * Runs the pending input through speed change and resampling with the ratio of this moment. Returns
 * 1, or 0 when a buffer could not grow. A tracked ratio outside [0.5, 3.0], which only
 * contradictory bounds give, is taken as the nearer of the two.
 */
KREL_EXPORT int processStreamInput(pitchStreamStruct* stream);

/**
 * ---- buffers ------------------------------------------------------------------------------------
 * -----------------
 */

/**
 * Sets the rate, periods and sizes of a zeroed record made with calloc() and allocates its four
 * buffers, zeroed. Returns 1. On failure (as for pitchCreateStream()) it returns 0 and has released
 * the record itself too.
 */
KREL_EXPORT int allocateStreamBuffers(pitchStreamStruct* stream, int sampleRate);

/** Frees the four buffers and clears their pointers. Null, and a second call, are harmless. */
KREL_EXPORT void freeStreamBuffers(pitchStreamStruct* stream);

/**
 * Make room for n more samples: a recorded size that is short becomes size + n + size / 2. Return
 * 1, or 0: dead.
 */
KREL_EXPORT int enlargeInputBufferIfNeeded(pitchStreamStruct* stream, int n);
KREL_EXPORT int enlargeOutputBufferIfNeeded(pitchStreamStruct* stream, int n);

/**
 * Append n samples to inputBuffer or outputBuffer, growing it. Return 1, or 0 when that failed or n
 * < 0.
 */
KREL_EXPORT int addShortSamplesToInputBuffer(pitchStreamStruct* stream, int16_t* samples, int n);
KREL_EXPORT int copyToOutput(pitchStreamStruct* stream, int16_t* samples, int n);

/**
 * Drops the first `position` input samples, position >= 0. Beyond the held ones it leaves a
 * negative count, which the next append takes as 0.
 */
KREL_EXPORT void removeInputSamples(pitchStreamStruct* stream, int position);

/**
 * Copies min(remainingInputToCopy, maxRequired) input samples from `position` on to the output and
 * counts them off. Returns that number, 0 when the output could not grow.
 */
KREL_EXPORT int copyInputToOutput(pitchStreamStruct* stream, int position);

/**
 * ---- period search
 * -----------------------------------------------------------------------------------------------
 */

/**
 * Returns the pitch period at samples[0 .. maxRequired - 1], minPeriod..maxPeriod: the lag of the
 * least mean magnitude difference, found on a copy decimated to about 4 kHz and refined at the full
 * rate; or the previous search's period if prevPeriodBetter() prefers it. Remembers what it found
 * either way.
 */
KREL_EXPORT int findPitchPeriod(pitchStreamStruct* stream, int16_t* samples, int preferNewPeriod);

/**
 * Fills downSampleBuffer with maxRequired / skip means of `skip` samples each, truncated toward
 * zero. A negative skip writes as many zeros; 0 writes nothing.
 */
KREL_EXPORT void downSampleInput(pitchStreamStruct* stream, int16_t* samples, int skip);

/**
 * Compares samples[0 .. p - 1] with samples[p .. 2p - 1] for each period p in [minPeriod,
 * maxPeriod] and returns the best one, 0 for an empty range. *retMinDiff and *retMaxDiff get the
 * mean differences of the best and worst period. Candidates are compared by 32-bit cross products,
 * which wrap on loud input at high rates: that is part of the result.
 */
KREL_EXPORT int findPitchPeriodInRange(int16_t* samples, int minPeriod, int maxPeriod,
                                       int* retMinDiff, int* retMaxDiff);

/**
 * Returns 1 when the period of the previous search is to be kept over one with these mean
 * differences, else 0.
 */
KREL_EXPORT int prevPeriodBetter(pitchStreamStruct* stream, int minDiff, int maxDiff,
                                 int preferNewPeriod);

/**
 * ---- speed change
 * ------------------------------------------------------------------------------------------------
 */

/**
 * Consumes pending input, while at least maxRequired samples are held, and appends it to the output
 * with its duration divided by `speed`, which is positive and not 1. Returns 1; 0 on a failed
 * growth, or on an edit of no samples (the input then stays).
 */
KREL_EXPORT int changeSpeed(pitchStreamStruct* stream, float speed);

/**
 * Speeds up, speed > 1: appends the cross-fade from one period into the next and schedules the
 * plain copy that follows. samples holds 2 * period. Returns the number of samples appended, 0 on
 * failure.
 */
KREL_EXPORT int skipPitchPeriod(pitchStreamStruct* stream, int16_t* samples, float speed,
                                int period);

/**
 * Slows down, speed < 1: appends one period and then the cross-fade from the second period back
 * into the first. samples holds 2 * period. Returns the number of cross-faded samples, 0 on
 * failure.
 */
KREL_EXPORT int insertPitchPeriod(pitchStreamStruct* stream, int16_t* samples, float speed,
                                  int period);

/**
 * Linear cross-fade: out[i] = (rampDown[i] * (numSamples - i) + rampUp[i] * i) / numSamples,
 * truncated toward zero. out may be one of the inputs, but not overlap it otherwise.
 */
KREL_EXPORT void overlapAdd(int numSamples, int16_t* out, int16_t* rampDown, int16_t* rampUp);

/**
 * ---- base frequency and resampling
 * -------------------------------------------------------------------------------
 */

/**
 * Moves baseFreq towards sampleRate / period when samples[0 .. period - 1] are voiced: positive
 * peak above vocalThreshold, fewer than one zero crossing in five samples, frequency of 26..259 Hz.
 */
KREL_EXPORT void updateBaseFreq(pitchStreamStruct* stream, int16_t* samples, int period);

/**
 * Resamples outputBuffer[start .. numOutputSamples - 1] in place, to sampleRate / pitch in a
 * tracking stream and to the rate set by pitchSetPitch() in a fixed one. Returns 1, or 0 when a
 * buffer could not grow or start < 0. A pitch outside [0.5, 3.0] is taken as the nearer of the two.
 *
 * The output rate is a whole number of Hz. Above 65535 Hz (a pitch below 0.67 at 44.1 kHz, 0.73 at
 * 48 kHz, 1.46 at 96 kHz) the reduced ratio of the rates may be beyond the resampler's arithmetic:
 * it is then approximated within 1e-4. When memory for another ratio's filter is short, the last
 * one stays.
 */
KREL_EXPORT int adjustRate(pitchStreamStruct* stream, float pitch, int start);

/** Adds the period's length to vocalMs, in whole ms. Returns 1. `samples` is not read. */
KREL_EXPORT int findVocals(pitchStreamStruct* stream, int16_t* samples, int period);

KREL_C_END

#endif
