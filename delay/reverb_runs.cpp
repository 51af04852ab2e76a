// SPDX-License-Identifier: Apache-2.0
#include "delay/reverb_runs.h"

#include <algorithm>

#include "base/fast_paths.h"
#include "base/fixed_point.h"
#include "base/ring.h"
#include "delay/dc_blocker.h"

namespace krel {
namespace {

// The inner loops stay out of line: inlined, gcc forgets that their arrays do not overlap and no
// longer vectorises well.

// Combs whose low-passes run side by side. Each sample of one waits for the sample before: alone it
// would idle.
constexpr int kLanes = 4;
static_assert(KREL_REVERB_COMBS % kLanes == 0);

/// With loop gain and damping within 0..1.0 neither the low-pass nor the loop product leaves 32
/// bits. The sum with the input may: it wraps.
bool never_saturates(const comber* c) {
    return c->damp1 >= 0 && c->damp1 <= kOneQ13 && c->damp2 == kOneQ13 - c->damp1 &&
           c->feedback >= 0 && c->feedback <= kOneQ13;
}

/// sum[0..n-1] += the samples line[0..n-1], which are times 2^13.
[[gnu::noinline]] KREL_FAST void add_delayed(const int32_t* __restrict line,
                                             int32_t* __restrict sum, int n) {
    for (int i = 0; i < n; ++i) sum[i] = add_wrap_s32(sum[i], line[i] >> 13);
}

/// Replaces the next n samples of combs[0..kLanes-1] by their low-passed values.
[[gnu::noinline]] void low_pass_lines(comber* const* combs, int n) {
    int32_t* line[kLanes];
    int64_t state[kLanes];
    int64_t damp[kLanes];
    for (int k = 0; k < kLanes; ++k) {
        line[k] = combs[k]->buffer + combs[k]->bufidx;
        state[k] = combs[k]->filterstore;
        damp[k] = combs[k]->damp1;
    }
    for (int i = 0; i < n; ++i) {
        for (int k = 0; k < kLanes; ++k) {
            // The weights add up to 1.0, which leaves one product to wait for.
            const int64_t delayed = line[k][i];
            state[k] = delayed + ((damp[k] * (state[k] - delayed)) >> 13);
            line[k][i] = wrap_s32(state[k]);
        }
    }
    for (int k = 0; k < kLanes; ++k) combs[k]->filterstore = wrap_s32(state[k]);
}

/// Turns the low-passed values line[0..n-1] into what the line keeps.
[[gnu::noinline]] KREL_FAST void close_loop(int32_t* __restrict line, int32_t feedback,
                                            const int32_t* __restrict input, int n) {
    for (int i = 0; i < n; ++i) {
        line[i] = add_wrap_s32(mul_q13_wrap(line[i], feedback), shl_wrap_s32(input[i], 13));
    }
}

/// n samples through all combs; no line wraps before the end.
void combs_between_wraps(comber* const* combs, int32_t* samples, int n) {
    int32_t sum[kReverbRun] = {};
    for (int k = 0; k < KREL_REVERB_COMBS; ++k)
        add_delayed(combs[k]->buffer + combs[k]->bufidx, sum, n);
    for (int k = 0; k < KREL_REVERB_COMBS; k += kLanes) low_pass_lines(combs + k, n);
    for (int k = 0; k < KREL_REVERB_COMBS; ++k) {
        comber* comb = combs[k];
        close_loop(comb->buffer + comb->bufidx, comb->feedback, samples, n);
        comb->bufidx = ring_advance(comb->bufidx, n, comb->bufsize);
    }
    std::copy_n(sum, n, samples);
}

/// For settings that may saturate.
void combs_by_sample(comber* const* combs, int32_t* samples, int n) {
    for (int i = 0; i < n; ++i) {
        int32_t sum = 0;
        for (int k = 0; k < KREL_REVERB_COMBS; ++k) {
            sum = add_wrap_s32(sum, comb_process(samples[i], combs[k]));
        }
        samples[i] = sum;
    }
}

/// n samples of a half-gain all-pass; the line does not wrap before the end.
[[gnu::noinline]] KREL_FAST void half_allpass(int32_t* __restrict line, int32_t* __restrict samples,
                                              int n) {
    for (int i = 0; i < n; ++i) {
        const int32_t direct = samples[i] >> 1;
        const int32_t delayed = line[i];
        line[i] = sub_wrap_s32(samples[i], mean_s32(delayed, direct));
        samples[i] = add_wrap_s32(delayed, direct);
    }
}

}  // namespace

void combs_run(comber* const* combs, int32_t* samples, int n) {
    if (!std::all_of(combs, combs + KREL_REVERB_COMBS, never_saturates)) {
        combs_by_sample(combs, samples, n);
        return;
    }
    for (int done = 0, run = 0; done < n; done += run) {
        run = n - done;
        for (int k = 0; k < KREL_REVERB_COMBS; ++k) {
            run = ring_run(combs[k]->bufidx, combs[k]->bufsize, run);
        }
        combs_between_wraps(combs, samples + done, run);
    }
}

void allpass_run(allpass* ap, int32_t* samples, int n) {
    if (ap->feedback != kHalfQ13) {
        for (int i = 0; i < n; ++i) samples[i] = allpass_process(samples[i], ap);
        return;
    }
    for (int done = 0, run = 0; done < n; done += run) {
        run = ring_run(ap->bufidx, ap->bufsize, n - done);
        half_allpass(ap->buffer + ap->bufidx, samples + done, run);
        ap->bufidx = ring_advance(ap->bufidx, run, ap->bufsize);
    }
}

void dc_remove_run(dc_remove* dc, int32_t* samples, int n) {
    dc_remove state = *dc;
    for (int i = 0; i < n; ++i) samples[i] = dc_blocker_step(state.y, state.x_prev, samples[i]);
    *dc = state;
}

}  // namespace krel
