#include "core/reverb.h"

#include <algorithm>

#include "base/fixed_point.h"
#include "base/memory.h"

namespace krel {
namespace {

// Q13 scales of the settings. Not the roundings of 0.285, 0.705 and 0.403: the voices are tuned to these.
constexpr int32_t kRoomScale = 2333;
constexpr int32_t kRoomOffset = 5779;
constexpr int32_t kDampScale = 3301;

constexpr int32_t kHalfQ13 = kOneQ13 / 2;
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

comber* new_comb(int size) {
    c_record<comber> comb(zeroed_raw<comber>(1));
    comb_init(comb.get(), size);
    return comb != nullptr && comb->buffer != nullptr ? comb.release() : nullptr;
}

allpass* new_allpass(int size) {
    c_record<allpass> ap(zeroed_raw<allpass>(1));
    allpass_init(ap.get(), size);
    return ap != nullptr && ap->buffer != nullptr ? ap.release() : nullptr;
}

void delete_comb(comber*& comb) {
    comb_end(comb);
    release(comb);
}

void delete_allpass(allpass*& ap) {
    allpass_end(ap);
    release(ap);
}

void delete_dc(dc_remove*& dc) {
    dc_remove_end(dc);
    release(dc);
}

void build(reverb_t* rv) {
    for (int k = 0; k < KREL_REVERB_COMBS; ++k) {
        rv->combL[k] = new_comb(kCombL[k]);
        rv->combR[k] = new_comb(kCombR[k]);
    }
    for (int k = 0; k < KREL_REVERB_ALLPASSES; ++k) {
        rv->allpassL[k] = new_allpass(kAllpassL[k]);
        rv->allpassR[k] = new_allpass(kAllpassR[k]);
    }
    rv->dcL = zeroed_raw<dc_remove>(1);
    rv->dcR = zeroed_raw<dc_remove>(1);
}

int32_t process_combs(bank b, int32_t x) {
    int32_t sum = 0;
    for (int k = 0; k < KREL_REVERB_COMBS; ++k)
        sum = add_wrap_s32(sum, comb_process(x, b.combs[k]));
    return sum;
}

int32_t process_allpasses(bank b, int32_t x) {
    for (int k = 0; k < KREL_REVERB_ALLPASSES; ++k) x = allpass_process(x, b.allpasses[k]);
    return x;
}

int32_t reverberate(const reverb_t* rv, bank b, int32_t x) {
    const int32_t scaled = mul_wrap_s32(rv->gain, x) >> 13;
    return process_allpasses(b, process_combs(b, scaled));
}

int16_t finish(bank b, int32_t mix_q13) {
    int32_t y = mix_q13 >> 13;
    dc_remove_process(b.dc, &y, &y);
    return sat_s16(y);
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
        delete_comb(rv->combL[k]);
        delete_comb(rv->combR[k]);
    }
    for (int k = 0; k < KREL_REVERB_ALLPASSES; ++k) {
        delete_allpass(rv->allpassL[k]);
        delete_allpass(rv->allpassR[k]);
    }
    delete_dc(rv->dcL);
    delete_dc(rv->dcR);
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
    if (rv == nullptr || in == nullptr || out == nullptr) return;
    const bank b = left(rv);
    if (!complete(b)) {
        if (n > 0) std::copy_n(in, n, out);
        return;
    }
    for (int i = 0; i < n; ++i) {
        const int32_t x = in[i];
        const int32_t wet = reverberate(rv, b, x);
        out[i] = finish(b, add_wrap_s32(mul_wrap_s32(rv->dry, x), mul_wrap_s32(rv->wet1, wet)));
    }
}

void reverb_process_stereo(reverb_t* rv, int16_t* inL, int16_t* inR, int16_t* outL, int16_t* outR,
                           unsigned int n) {
    if (rv == nullptr || inL == nullptr || inR == nullptr || outL == nullptr || outR == nullptr) {
        return;
    }
    const bank bl = left(rv);
    const bank br = right(rv);
    const bool built = complete(bl) && complete(br);
    for (unsigned int i = 0; i < n; ++i) {
        const int32_t xl = inL[i];
        const int32_t xr = inR[i];
        if (!built) {
            outL[i] = wrap_s16(xl);
            outR[i] = wrap_s16(xr);
            continue;
        }
        const int32_t wl = reverberate(rv, bl, xl);
        const int32_t wr = reverberate(rv, br, xr);
        const int32_t own_l = add_wrap_s32(mul_wrap_s32(rv->dry, xl), mul_wrap_s32(rv->wet1, wl));
        const int32_t own_r = add_wrap_s32(mul_wrap_s32(rv->dry, xr), mul_wrap_s32(rv->wet1, wr));
        outL[i] = finish(bl, add_wrap_s32(own_l, mul_wrap_s32(rv->wet2, wr)));
        outR[i] = finish(br, add_wrap_s32(own_r, mul_wrap_s32(rv->wet2, wl)));
    }
}
