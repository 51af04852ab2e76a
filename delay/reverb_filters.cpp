// SPDX-License-Identifier: Apache-2.0
#include "delay/reverb_filters.h"

#include "base/fixed_point.h"
#include "base/memory.h"
#include "base/ring.h"
#include "delay/dc_blocker.h"

namespace krel {
namespace {

/// a * b with b in Q13 for a sum of two int32; rounds toward minus infinity, saturates to int32.
/// Only the product of the two extremes, -2^32 and -2^31, wraps.
int32_t mul_sum_q13_sat(int64_t a, int32_t b) { return sat_s32(mul_wrap_s64(a, b) >> 13); }

}  // namespace
}  // namespace krel

using namespace krel;

void comb_init(comber* comb, int size) {
    if (comb == nullptr) return;
    *comb = {};
    comb->feedback = kHalfQ13;
    comb->damp1 = kOneQ13;
    comb->buffer = zeroed_raw<int32_t>(size);
    comb->bufsize = comb->buffer == nullptr ? 0 : size;
}

void comb_end(comber* comb) {
    if (comb != nullptr) release(comb->buffer);
}

void comb_setfeedback(comber* comb, int feedback) {
    if (comb != nullptr) comb->feedback = feedback;
}

void comb_setsetdamp(comber* comb, int damp) {
    if (comb == nullptr) return;
    comb->damp1 = damp;
    comb->damp2 = sub_wrap_s32(kOneQ13, damp);
}

int comb_process(int input, comber* comb) {
    if (comb == nullptr || comb->buffer == nullptr) return 0;
    int32_t& slot = comb->buffer[comb->bufidx];
    const int32_t delayed = slot;
    const int64_t low_passed_q13 =
            add_wrap_s64(mul_wide(delayed, comb->damp2), mul_wide(comb->filterstore, comb->damp1));
    comb->filterstore = sat_s32(low_passed_q13 >> 13);
    // The product saturates, the sum with the input wraps.
    slot = add_wrap_s32(mul_q13_sat(comb->filterstore, comb->feedback), shl_wrap_s32(input, 13));
    comb->bufidx = ring_next(comb->bufidx, comb->bufsize);
    return delayed >> 13;
}

void allpass_init(allpass* ap, int size) {
    if (ap == nullptr) return;
    *ap = {};
    ap->feedback = kHalfQ13;
    ap->buffer = zeroed_raw<int32_t>(size);
    ap->bufsize = ap->buffer == nullptr ? 0 : size;
}

void allpass_end(allpass* ap) {
    if (ap != nullptr) release(ap->buffer);
}

void allpass_setfeedback(allpass* ap, int feedback) {
    if (ap != nullptr) ap->feedback = feedback;
}

int allpass_process(int input, allpass* ap) {
    if (ap == nullptr || ap->buffer == nullptr) return input;
    int32_t& slot = ap->buffer[ap->bufidx];
    const int64_t output = int64_t{slot} + mul_q13_sat(input, ap->feedback);
    slot = sub_wrap_s32(input, mul_sum_q13_sat(output, ap->feedback));
    ap->bufidx = ring_next(ap->bufidx, ap->bufsize);
    return wrap_s32(output);
}

void dc_remove_init(dc_remove* dc) {
    if (dc != nullptr) *dc = {};
}

void dc_remove_end(dc_remove* dc) {
    if (dc != nullptr) *dc = {};
}

void dc_remove_process(dc_remove* dc, int32_t* in, int32_t* out) {
    if (dc == nullptr || in == nullptr || out == nullptr) return;
    *out = dc_blocker_step(dc->y, dc->x_prev, *in);
}
