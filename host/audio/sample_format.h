// SPDX-License-Identifier: Apache-2.0
// The sample formats of the effect's buffers, and the conversion between them and the host's own
// samples.
//
// The host holds samples as double, full scale = +-1: every format of every file and buffer fits
// without loss. Rounding happens only where a sample goes into a narrower format: to the nearest
// value, ties to even, clamped to the format's range. So a 16-bit file reaches and leaves every
// buffer format bit for bit, a 24-bit file all but s16.
#ifndef KREL_HOST_AUDIO_SAMPLE_FORMAT_H
#define KREL_HOST_AUDIO_SAMPLE_FORMAT_H

#include <stddef.h>
#include <stdint.h>

namespace krel::host {

enum class SampleFormat {
    kFloat,  // full scale 1.0; carries the 24 highest bits of a sample
    kS16,    // full scale 2^15
    kS32,    // full scale 2^31
    kQ8_23,  // full scale 2^23 in 32 bits, with 8 bits of headroom: the platform's "8.24"
};

/// The name on the command line and in messages.
const char* format_name(SampleFormat format);

/// The platform's code for the format.
uint8_t platform_format(SampleFormat format);

/// Bytes of one sample.
size_t sample_bytes(SampleFormat format);

/// x * 2^fraction_bits to the nearest integer, ties to even, clamped to `total_bits` signed bits;
/// NaN becomes 0.
int32_t quantise(double x, int fraction_bits, int total_bits);

/// Host samples to buffer samples. The buffers do not overlap; `to` is aligned for its format.
void encode(SampleFormat format, const double* from, size_t samples, void* to);

/// Buffer samples to host samples: exact.
void decode(SampleFormat format, const void* from, size_t samples, double* to);

}  // namespace krel::host

#endif
