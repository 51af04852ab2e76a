// SPDX-License-Identifier: Apache-2.0
#include "audio_utils/format.h"

#include <android/log.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "base/fast_paths.h"

namespace {

int32_t s32_from_float(float x) {
    if (x <= -1.0f) return INT32_MIN;
    if (x >= 1.0f) return INT32_MAX;
    if (!(x == x)) return 0;
    // Exact in double; the half is added there as well, so the cast rounds halves away from zero.
    const double scaled = static_cast<double>(x) * 2147483648.0;
    const double rounded = scaled + (scaled < 0.0 ? -0.5 : 0.5);
    return static_cast<int32_t>(rounded);  // at most 2^31 - 128: floats are that far apart here
}

// In place both directions are fine: a sample is read before its own four bytes are written.

KREL_FAST void s32_from_floats(const float* in, int32_t* out, size_t count) {
    for (size_t i = 0; i < count; ++i) out[i] = s32_from_float(in[i]);
}

KREL_FAST void floats_from_s32(const int32_t* in, float* out, size_t count) {
    for (size_t i = 0; i < count; ++i) out[i] = static_cast<float>(in[i]) * 0x1p-31f;
}

bool is_linear_pcm(audio_format_t format) {
    return format >= AUDIO_FORMAT_PCM_16_BIT && format <= AUDIO_FORMAT_PCM_24_BIT_PACKED;
}

}  // namespace

extern "C" void memcpy_by_audio_format(void* dst, audio_format_t dst_format, const void* src,
                                       audio_format_t src_format, size_t count) {
    if (dst_format == src_format && is_linear_pcm(dst_format)) {
        if (dst != src) memcpy(dst, src, count * audio_bytes_per_sample(dst_format));
        return;
    }
    if (dst_format == AUDIO_FORMAT_PCM_32_BIT && src_format == AUDIO_FORMAT_PCM_FLOAT) {
        auto* out = static_cast<int32_t*>(dst);
        const auto* in = static_cast<const float*>(src);
        return s32_from_floats(in, out, count);
    }
    if (dst_format == AUDIO_FORMAT_PCM_FLOAT && src_format == AUDIO_FORMAT_PCM_32_BIT) {
        auto* out = static_cast<float*>(dst);
        const auto* in = static_cast<const int32_t*>(src);
        return floats_from_s32(in, out, count);
    }
    __android_log_print(ANDROID_LOG_FATAL, "memcpy_by_audio_format",
                        "invalid src format %#x for dst format %#x",
                        static_cast<unsigned>(src_format), static_cast<unsigned>(dst_format));
    abort();
}
