#include "spectral/transform.h"

#include <NE10_dsp.h>
#include <stddef.h>

namespace krel {
namespace {

static_assert(sizeof(krel_complex_t) == sizeof(ne10_fft_cpx_float32_t));
static_assert(offsetof(krel_complex_t, r) == offsetof(ne10_fft_cpx_float32_t, r));
static_assert(offsetof(krel_complex_t, i) == offsetof(ne10_fft_cpx_float32_t, i));

ne10_fft_cfg_float32_t native(krel_fft_t* cfg) {
    return reinterpret_cast<ne10_fft_cfg_float32_t>(cfg);
}
ne10_fft_cpx_float32_t* native(krel_complex_t* values) {
    return reinterpret_cast<ne10_fft_cpx_float32_t*>(values);
}

}  // namespace

krel_fft_t* fft_create(int32_t size) {
    return reinterpret_cast<krel_fft_t*>(ne10_fft_alloc_c2c_float32_neon(size));
}

void fft_destroy(krel_fft_t*& cfg) {
    if (cfg != nullptr) ne10_fft_destroy_c2c_float32(native(cfg));
    cfg = nullptr;
}

void fft_forward(krel_fft_t* cfg, krel_complex_t* in, krel_complex_t* out) {
    ne10_fft_c2c_1d_float32_neon(native(out), native(in), native(cfg), 0);
}

void fft_inverse(krel_fft_t* cfg, krel_complex_t* in, krel_complex_t* out) {
    ne10_fft_c2c_1d_float32_neon(native(out), native(in), native(cfg), 1);
}

}  // namespace krel
