// SPDX-License-Identifier: Apache-2.0
#include "host/audio/sample_format.h"

#include <system/audio.h>

#include <algorithm>
#include <cmath>

namespace krel::host {
namespace {

struct Row {
    const char* name;
    audio_format_t code;
    size_t bytes;
};

const Row& row(SampleFormat format) {
    static constexpr Row kRows[] = {
            {"float", AUDIO_FORMAT_PCM_FLOAT, sizeof(float)},
            {"s16", AUDIO_FORMAT_PCM_16_BIT, sizeof(int16_t)},
            {"s32", AUDIO_FORMAT_PCM_32_BIT, sizeof(int32_t)},
            {"q8.24", AUDIO_FORMAT_PCM_8_24_BIT, sizeof(int32_t)},
    };
    return kRows[static_cast<size_t>(format)];
}

template <typename T>
void encode_integers(const double* from, size_t samples, T* to, int fraction_bits) {
    constexpr int kBits = 8 * sizeof(T);
    std::transform(from, from + samples, to,
                   [=](double x) { return static_cast<T>(quantise(x, fraction_bits, kBits)); });
}

template <typename T>
void decode_scaled(const T* from, size_t samples, double* to, double scale) {
    std::transform(from, from + samples, to, [=](T x) { return x * scale; });
}

constexpr double two_to_minus(int bits) { return 1.0 / static_cast<double>(int64_t{1} << bits); }

}  // namespace

const char* format_name(SampleFormat format) { return row(format).name; }
uint8_t platform_format(SampleFormat format) { return static_cast<uint8_t>(row(format).code); }
size_t sample_bytes(SampleFormat format) { return row(format).bytes; }

int32_t quantise(double x, int fraction_bits, int total_bits) {
    if (std::isnan(x)) return 0;
    const double limit = static_cast<double>(int64_t{1} << (total_bits - 1));
    const double scaled = std::nearbyint(x * static_cast<double>(int64_t{1} << fraction_bits));
    return static_cast<int32_t>(std::clamp(scaled, -limit, limit - 1.0));
}

void encode(SampleFormat format, const double* from, size_t samples, void* to) {
    switch (format) {
        case SampleFormat::kFloat:
            std::transform(from, from + samples, static_cast<float*>(to),
                           [](double x) { return static_cast<float>(x); });
            break;
        case SampleFormat::kS16:
            encode_integers(from, samples, static_cast<int16_t*>(to), 15);
            break;
        case SampleFormat::kS32:
            encode_integers(from, samples, static_cast<int32_t*>(to), 31);
            break;
        case SampleFormat::kQ8_23:
            encode_integers(from, samples, static_cast<int32_t*>(to), 23);
            break;
    }
}

void decode(SampleFormat format, const void* from, size_t samples, double* to) {
    switch (format) {
        case SampleFormat::kFloat:
            decode_scaled(static_cast<const float*>(from), samples, to, 1.0);
            break;
        case SampleFormat::kS16:
            decode_scaled(static_cast<const int16_t*>(from), samples, to, two_to_minus(15));
            break;
        case SampleFormat::kS32:
            decode_scaled(static_cast<const int32_t*>(from), samples, to, two_to_minus(31));
            break;
        case SampleFormat::kQ8_23:
            decode_scaled(static_cast<const int32_t*>(from), samples, to, two_to_minus(23));
            break;
    }
}

}  // namespace krel::host
