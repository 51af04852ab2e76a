// SPDX-License-Identifier: Apache-2.0
#include "spectral/envelope.h"

#include <math.h>

#include <algorithm>

#include "dsp/iir.h"

namespace {

constexpr float kEnvelopeScale = 256.0f;
constexpr int kTowardStart = 1;

}  // namespace

int envelope_detect(void* filter, float* in, float* out, int n) {
    if (out == nullptr || (in == nullptr && n > 0)) return -1;
    for (int i = 0; i < n; ++i) out[i] = in[i] * in[i];
    const int result = iir_float_process_mono(filter, out, out, n);
    // The filter rings: a dip behind a peak can come out below zero.
    for (int i = 0; i < n; ++i) out[i] = sqrtf(fabsf(out[i])) * kEnvelopeScale;
    return result;
}

float* roll_queue(float* buf, int len, int shift, int direction) {
    if (buf == nullptr || shift < 1 || len < shift) return buf;
    if (direction == kTowardStart) {
        std::copy(buf + shift, buf + len, buf);
        std::fill(buf + (len - shift), buf + len, 0.0f);
    } else {
        std::copy_backward(buf, buf + (len - shift), buf + len);
        std::fill_n(buf, shift, 0.0f);
    }
    return buf;
}
