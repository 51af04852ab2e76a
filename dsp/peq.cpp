// SPDX-License-Identifier: Apache-2.0
#include "dsp/peq.h"

#include <stdlib.h>

#include "base/fixed_point.h"
#include "base/memory.h"

namespace krel {
namespace {

struct coefficients {  // Q28
    int32_t b0, b1, b2, a1, a2;
};

struct history {
    int32_t x0;  // the latest input; nothing reads it
    int32_t x1, x2, y1, y2;
};

struct peq_state {
    int32_t num_bands;
    coefficients bands[KREL_PEQ_BANDS];
    history left[KREL_PEQ_BANDS];  // or mono
    history right[KREL_PEQ_BANDS];
};
static_assert(sizeof(peq_state) == 76 * sizeof(int32_t));

/// One sample through one band; the sum wraps in 64 bits, the result in 32.
int32_t filter(const coefficients& c, history& h, int32_t x) {
    h.x0 = x;
    int64_t sum_q28 = mul_wide(c.b0, x);
    sum_q28 = add_wrap_s64(sum_q28, mul_wide(c.b1, h.x1));
    sum_q28 = add_wrap_s64(sum_q28, mul_wide(c.b2, h.x2));
    sum_q28 = add_wrap_s64(sum_q28, mul_wide(c.a1, h.y1));
    sum_q28 = add_wrap_s64(sum_q28, mul_wide(c.a2, h.y2));
    const int32_t y = wrap_s32(sum_q28 >> 28);
    h.x2 = h.x1;
    h.x1 = x;
    h.y2 = h.y1;
    h.y1 = y;
    return y;
}

/// One sample through bands[0..num_bands-1] in turn.
int32_t filter_bands(const peq_state* s, history* histories, int32_t x) {
    for (int32_t k = 0; k < s->num_bands; ++k) x = filter(s->bands[k], histories[k], x);
    return x;
}

}  // namespace
}  // namespace krel

using namespace krel;

void* peq_init(const peq_stereo_param_t* params) {
    if (params == nullptr) return nullptr;
    auto* s = zeroed_raw<peq_state>(1);
    if (s == nullptr) return nullptr;
    for (int k = 0; k < KREL_PEQ_BANDS; ++k) {
        const peq_band_param_t& band = params->band[k];
        // Deliberate: a disabled band keeps its slot and only lowers the count.
        s->bands[k] = {band.b0, band.b1, band.b2, band.a1, band.a2};
        if (band.enabled >= 1) ++s->num_bands;
    }
    return s;
}

void peq_stereo_process(void* state, int32_t* inL, int32_t* inR, int32_t* outL, int32_t* outR,
                        int n) {
    auto* s = static_cast<peq_state*>(state);
    if (s == nullptr || inL == nullptr || inR == nullptr || outL == nullptr || outR == nullptr) {
        return;
    }
    for (int i = 0; i < n; ++i) {
        const int32_t l = filter_bands(s, s->left, inL[i]);
        const int32_t r = filter_bands(s, s->right, inR[i]);
        outL[i] = l;
        outR[i] = r;
    }
}

void peq_mono_process(void* state, int16_t* in, int16_t* out, int n) {
    auto* s = static_cast<peq_state*>(state);
    if (s == nullptr || in == nullptr || out == nullptr) return;
    for (int i = 0; i < n; ++i) out[i] = sat_s16(filter_bands(s, s->left, in[i]));
}

void peq_deinit(void* state) { free(state); }
