// SPDX-License-Identifier: Apache-2.0
#include "delay/reverb.h"

#include <algorithm>

#include "base/fast_paths.h"
#include "base/fixed_point.h"
#include "base/memory.h"
#include "delay/reverb_runs.h"

namespace krel {
namespace {

// Q13 scales of the settings. Not the roundings of 0.285, 0.705 and 0.403: the voices are tuned to
// these.
constexpr int32_t kRoomScale = 2333;
constexpr int32_t kRoomOffset = 5779;
constexpr int32_t kDampScale = 3301;

constexpr int32_t kThirdQ13 = 2730;
constexpr int32_t kInitialGain = 127;

// Delays in samples.
constexpr int kCombL[KREL_REVERB_COMBS] = {1109, 1399, 1489, 1777, 1973, 2069, 2267, 2549};
constexpr int kCombR[KREL_REVERB_COMBS] = {1151, 1423, 1523, 1801, 1997, 2099, 2293, 2579};
constexpr int kAllpassL[KREL_REVERB_ALLPASSES] = {619, 523, 337, 241};
constexpr int kAllpassR[KREL_REVERB_ALLPASSES] = {643, 547, 367, 269};

/// One channel's filters.
struct bank {
    comber* const* combs;
    allpass* const* allpasses;
    dc_remove* dc;
};
bank left(const reverb_t* rv) { return {rv->combL, rv->allpassL, rv->dcL}; }
bank right(const reverb_t* rv) { return {rv->combR, rv->allpassR, rv->dcR}; }

/// Whether all of it is there: not after a failed init or reverb_end().
bool complete(bank b) {
    for (int k = 0; k < KREL_REVERB_COMBS; ++k) {
        if (b.combs[k] == nullptr || b.combs[k]->buffer == nullptr) return false;
    }
    for (int k = 0; k < KREL_REVERB_ALLPASSES; ++k) {
        if (b.allpasses[k] == nullptr || b.allpasses[k]->buffer == nullptr) return false;
    }
    return b.dc != nullptr;
}

/// A filter with its line; null when memory is short.
template <typename Filter>
Filter* new_filter(void (*init)(Filter*, int), int size) {
    c_record<Filter> filter(zeroed_raw<Filter>(1));
    init(filter.get(), size);
    return filter != nullptr && filter->buffer != nullptr ? filter.release() : nullptr;
}

template <typename Filter>
void delete_filter(void (*end)(Filter*), Filter*& filter) {
    end(filter);
    release(filter);
}

void build(reverb_t* rv) {
    for (int k = 0; k < KREL_REVERB_COMBS; ++k) {
        rv->combL[k] = new_filter(comb_init, kCombL[k]);
        rv->combR[k] = new_filter(comb_init, kCombR[k]);
    }
    for (int k = 0; k < KREL_REVERB_ALLPASSES; ++k) {
        rv->allpassL[k] = new_filter(allpass_init, kAllpassL[k]);
        rv->allpassR[k] = new_filter(allpass_init, kAllpassR[k]);
    }
    rv->dcL = zeroed_raw<dc_remove>(1);
    rv->dcR = zeroed_raw<dc_remove>(1);
}

/// Widens a run of one channel and sends it through combs and all-passes.
void reverberate(const reverb_t* rv, bank b, const int16_t* in, int32_t* x, int32_t* wet, int n) {
    for (int i = 0; i < n; ++i) {
        x[i] = in[i];
        wet[i] = mul_wrap_s32(rv->gain, x[i]) >> 13;
    }
    combs_run(b.combs, wet, n);
    for (int k = 0; k < KREL_REVERB_ALLPASSES; ++k) allpass_run(b.allpasses[k], wet, n);
}

/// Blocks DC in a run of one channel's mix (Q13) and narrows it.
void finish(bank b, int32_t* mix, int16_t* out, int n) {
    for (int i = 0; i < n; ++i) mix[i] >>= 13;
    dc_remove_run(b.dc, mix, n);
    for (int i = 0; i < n; ++i) out[i] = sat_s16(mix[i]);
}

/// n samples, at most kReverbRun. All input is taken before any output is written.
KREL_FAST void mono_run(const reverb_t* rv, const int16_t* in, int16_t* out, int n) {
    int32_t x[kReverbRun];
    int32_t wet[kReverbRun];
    const bank b = left(rv);
    reverberate(rv, b, in, x, wet, n);
    for (int i = 0; i < n; ++i) {
        x[i] = add_wrap_s32(mul_wrap_s32(rv->dry, x[i]), mul_wrap_s32(rv->wet1, wet[i]));
    }
    finish(b, x, out, n);
}

struct stereo_in {
    const int16_t *l, *r;
};
struct stereo_out {
    int16_t *l, *r;
};

KREL_FAST void stereo_run(const reverb_t* rv, stereo_in in, stereo_out out, int n) {
    int32_t xl[kReverbRun];
    int32_t xr[kReverbRun];
    int32_t wet_l[kReverbRun];
    int32_t wet_r[kReverbRun];
    reverberate(rv, left(rv), in.l, xl, wet_l, n);
    reverberate(rv, right(rv), in.r, xr, wet_r, n);
    for (int i = 0; i < n; ++i) {
        const int32_t l =
                add_wrap_s32(mul_wrap_s32(rv->dry, xl[i]), mul_wrap_s32(rv->wet1, wet_l[i]));
        const int32_t r =
                add_wrap_s32(mul_wrap_s32(rv->dry, xr[i]), mul_wrap_s32(rv->wet1, wet_r[i]));
        xl[i] = add_wrap_s32(l, mul_wrap_s32(rv->wet2, wet_r[i]));
        xr[i] = add_wrap_s32(r, mul_wrap_s32(rv->wet2, wet_l[i]));
    }
    finish(left(rv), xl, out.l, n);
    finish(right(rv), xr, out.r, n);
}

/// Audio of a reverberator that could not be built.
void pass_stereo_run(stereo_in in, stereo_out out, int n) {
    int16_t l[kReverbRun];
    std::copy_n(in.l, n, l);
    std::copy_n(in.r, n, out.r);
    std::copy_n(l, n, out.l);
}

}  // namespace
}  // namespace krel

using namespace krel;

int reverb_init(reverb_t* rv) {
    if (rv == nullptr) return -1;
    *rv = {};
    rv->gain = kInitialGain;
    reverb_setwet(rv, kThirdQ13);
    reverb_setroomsize(rv, kHalfQ13);
    reverb_setdamp(rv, kHalfQ13);
    reverb_setwidth(rv, kOneQ13);
    build(rv);
    const bool built = complete(left(rv)) && complete(right(rv));
    if (!built) reverb_end(rv);
    reverb_update(rv);
    return built ? 0 : -1;
}

void reverb_end(reverb_t* rv) {
    if (rv == nullptr) return;
    for (int k = 0; k < KREL_REVERB_COMBS; ++k) {
        delete_filter(comb_end, rv->combL[k]);
        delete_filter(comb_end, rv->combR[k]);
    }
    for (int k = 0; k < KREL_REVERB_ALLPASSES; ++k) {
        delete_filter(allpass_end, rv->allpassL[k]);
        delete_filter(allpass_end, rv->allpassR[k]);
    }
    delete_filter(dc_remove_end, rv->dcL);
    delete_filter(dc_remove_end, rv->dcR);
}

void reverb_update(reverb_t* rv) {
    if (rv == nullptr) return;
    rv->wet1 = mul_q13_sat(rv->width / 2 + kHalfQ13, rv->wet);
    // Halved toward zero first, then shifted toward minus infinity.
    rv->wet2 = sat_s32(((int64_t{kOneQ13} - rv->width) * rv->wet / 2) >> 13);
    for (int k = 0; k < KREL_REVERB_COMBS; ++k) {
        for (comber* comb : {rv->combL[k], rv->combR[k]}) {
            comb_setsetdamp(comb, rv->damp);
            comb_setfeedback(comb, rv->roomsize);
        }
    }
}

void reverb_setroomsize(reverb_t* rv, int value) {
    if (rv != nullptr) rv->roomsize = sat_s32(kRoomOffset + (mul_wide(value, kRoomScale) >> 13));
}

void reverb_setdamp(reverb_t* rv, int value) {
    if (rv != nullptr) rv->damp = mul_q13_sat(value, kDampScale);
}

void reverb_setwet(reverb_t* rv, int value) {
    if (rv != nullptr) rv->wet = sat_s32(mul_wide(value, 3));
}

void reverb_setdry(reverb_t* rv, int value) {
    if (rv != nullptr) rv->dry = sat_s32(mul_wide(value, 2));
}

void reverb_setwidth(reverb_t* rv, int value) {
    if (rv != nullptr) rv->width = value;
}

void reverb_setgain(reverb_t* rv, int value) {
    if (rv != nullptr) rv->gain = value;
}

void reverb_process_mono(reverb_t* rv, int16_t* in, int16_t* out, int n) {
    if (rv == nullptr || in == nullptr || out == nullptr || n < 1) return;
    if (!complete(left(rv))) {
        std::copy_n(in, n, out);
        return;
    }
    for (int done = 0, run = 0; done < n; done += run) {
        run = std::min(kReverbRun, n - done);
        mono_run(rv, in + done, out + done, run);
    }
}

void reverb_process_stereo(reverb_t* rv, int16_t* inL, int16_t* inR, int16_t* outL, int16_t* outR,
                           unsigned int n) {
    if (rv == nullptr || inL == nullptr || inR == nullptr || outL == nullptr || outR == nullptr) {
        return;
    }
    const bool built = complete(left(rv)) && complete(right(rv));
    for (unsigned int done = 0, run = 0; done < n; done += run) {
        run = std::min<unsigned int>(kReverbRun, n - done);
        const stereo_in in = {inL + done, inR + done};
        const stereo_out out = {outL + done, outR + done};
        if (built) {
            stereo_run(rv, in, out, static_cast<int>(run));
        } else {
            pass_stereo_run(in, out, static_cast<int>(run));
        }
    }
}
