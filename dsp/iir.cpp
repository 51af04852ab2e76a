// SPDX-License-Identifier: Apache-2.0
#include "dsp/iir.h"

#include <math.h>

#include <type_traits>

#include "base/pcm.h"

namespace krel {
namespace {

static_assert(std::is_trivial_v<iir_biquad_t> && sizeof(iir_biquad_t) == 13 * sizeof(float));

constexpr double kPi = 3.141592653589793;
constexpr double kSqrt2 = 1.414213562373095;  // 1/Q of a Butterworth section
constexpr int kLowPass = 1;

iir_coeff_gen_t design(int sample_rate, int cutoff, bool low_pass) {
    const double w = kPi * cutoff / sample_rate;
    const double k = sin(w) / cos(w);
    const double k2 = k * k;
    const double d = k2 + kSqrt2 * k + 1.0;
    iir_coeff_gen_t gen;
    gen.b0 = 1.0;
    gen.b1 = low_pass ? 2.0 : -2.0;
    gen.a0 = 1.0;
    gen.a1 = 2.0 * (k2 - 1.0) / d;
    gen.a2 = (k2 - kSqrt2 * k + 1.0) / d;
    gen.gain = (low_pass ? k2 : 1.0) / d;
    return gen;
}

int init_coeffs(iir_coeff_gen_t* gen, int cutoff, int sample_rate, bool low_pass) {
    if (gen == nullptr || cutoff < 1) return -1;
    *gen = design(sample_rate, cutoff, low_pass);
    return 0;
}

struct history {
    float& x1;
    float& x2;
    float& y1;
    float& y2;
};

history left(iir_biquad_t* f) { return {f->x1L, f->x2L, f->y1L, f->y2L}; }
history right(iir_biquad_t* f) { return {f->x1R, f->x2R, f->y1R, f->y2R}; }

void store(float y, float& out) { out = y; }
void store(float y, int16_t& out) { out = s16_from_float_sat(y); }

/// Every `stride`-th of n * stride samples.
template <typename Sample>
void filter_channel(const iir_biquad_t& c, history h, const Sample* in, Sample* out, int n,
                    int stride) {
    float x1 = h.x1;
    float x2 = h.x2;
    float y1 = h.y1;
    float y2 = h.y2;
    for (int i = 0; i < n; ++i, in += stride, out += stride) {
        const auto x = static_cast<float>(*in);
        const float y = c.b0 * x + c.b1 * x1 + c.b2 * x2 - c.a1 * y1 - c.a2 * y2;
        x2 = x1;
        x1 = x;
        y2 = y1;
        y1 = y;
        store(y, *out);
    }
    h.x1 = x1;
    h.x2 = x2;
    h.y1 = y1;
    h.y2 = y2;
}

template <typename Sample>
int filter_mono(void* ctx, const Sample* in, Sample* out, int n) {
    if (ctx == nullptr || in == nullptr || out == nullptr) return -1;
    auto* f = static_cast<iir_biquad_t*>(ctx);
    filter_channel(*f, left(f), in, out, n, 1);
    return n;
}

template <typename Sample>
int filter_stereo(void* ctx, const Sample* in, Sample* out, int n) {
    if (ctx == nullptr || in == nullptr || out == nullptr) return -1;
    auto* f = static_cast<iir_biquad_t*>(ctx);
    if (n < 1) return n;
    filter_channel(*f, left(f), in, out, n, 2);
    filter_channel(*f, right(f), in + 1, out + 1, n, 2);
    return n;
}

}  // namespace
}  // namespace krel

using namespace krel;

int iir_float_init(void* ctx, int sampleRate, int cutoff, int type) {
    if (ctx == nullptr || cutoff < 1) return -1;
    const iir_coeff_gen_t gen = design(sampleRate, cutoff, type == kLowPass);
    iir_biquad_t& f = *static_cast<iir_biquad_t*>(ctx);
    f = {};
    f.a1 = static_cast<float>(gen.a1);
    f.a2 = static_cast<float>(gen.a2);
    f.b0 = static_cast<float>(gen.gain);
    f.b1 = static_cast<float>(gen.b1 * gen.gain);
    f.b2 = f.b0;
    return 0;
}

void iir_float_reset(void* ctx) {
    if (ctx == nullptr) return;
    const history both[] = {left(static_cast<iir_biquad_t*>(ctx)),
                            right(static_cast<iir_biquad_t*>(ctx))};
    for (const history& h : both) h.x1 = h.x2 = h.y1 = h.y2 = 0.0f;
}

int iir_float_process_mono(void* ctx, float* in, float* out, int n) {
    return filter_mono(ctx, in, out, n);
}
int iir_float_process_stereo(void* ctx, float* in, float* out, int n) {
    return filter_stereo(ctx, in, out, n);
}
int iir_short_process_mono(void* ctx, int16_t* in, int16_t* out, int n) {
    return filter_mono(ctx, in, out, n);
}
int iir_short_process_stereo(void* ctx, int16_t* in, int16_t* out, int n) {
    return filter_stereo(ctx, in, out, n);
}

int iir_lpf_init_coeffs(iir_coeff_gen_t* gen, int cutoff, int sampleRate) {
    return init_coeffs(gen, cutoff, sampleRate, true);
}
int iir_hpf_init_coeffs(iir_coeff_gen_t* gen, int cutoff, int sampleRate) {
    return init_coeffs(gen, cutoff, sampleRate, false);
}
