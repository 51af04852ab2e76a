// SPDX-License-Identifier: Apache-2.0
// The resampler of SpeexDSP, fixed-point, with a faster interpolated filter. The package's source
// is compiled as it is, with five of its names bent to functions of this file; every result is the
// same 16-bit integer, at a ratio whose reduced denominator is below 2^27, as all here are.
//
// - An interpolated filter's table is made at its first use, in rows: interpolation multiplies the
//   input with four neighbouring phases, which in the package's order lie `oversample` values apart
//   from tap to tap; as rows they are four plain dot products. The windowed sinc is symmetric: half
//   of the phases are calculated, in loops with a sine of our own.
// - Outputs are made in runs: where they fall, their dot products and how those are blended are a
//   loop each.
// - Input is copied as blocks, not by strides or overlapping sample by sample.
#include <limits.h>
#include <math.h>
#include <speex/speex_resampler.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "base/fast_paths.h"

#define FIXED_POINT
#define VAR_ARRAYS
#define EXPORT

struct FuncDef;
// Inlined into our loop too, which vectorises only then.
__attribute__((always_inline)) static inline double compute_func(float x,
                                                                 const struct FuncDef* window);
static int resampler_basic_interpolate_single(SpeexResamplerState* st, uint32_t channel,
                                              const int16_t* in, uint32_t* in_len, int16_t* out,
                                              uint32_t* out_len);

static int process_chunk(SpeexResamplerState* st, uint32_t channel, uint32_t* in_len, int16_t* out,
                         uint32_t* out_len);

// A table's block of memory has room for the rows in its place: `oversample + 3` phases are at most
// four times what `oversample` take.
#define OVERRIDE_SPEEX_REALLOC
#define speex_realloc(block, bytes) \
    ((bytes) > INT_MAX / 4 ? NULL   \
                           : realloc(block, &(block) == &st->sinc_table ? 4 * (bytes) : (bytes)))

// Where sinc() is called, its first argument is st->cutoff: that becomes `use_direct ?
// package_sinc(st->cutoff, ...) : 0`, so that a table that is to be interpolated costs nothing yet.
// Where it is defined, it is `float cutoff`: that becomes package_sinc(float cutoff, ...).
#define sinc(first, x, taps, window) SINC_OF_##first, x, taps, window)
#define SINC_OF_st !use_direct ? 0 : package_sinc(st
#define SINC_OF_float package_sinc(float

// Only the definition has arguments; where the design picks its filter function, it gets ours.
#define resampler_basic_interpolate_single(a, b, c, d, e, f) package_interpolate(a, b, c, d, e, f)

// Where it is called, its first argument is `st`, where it is defined, `SpeexResamplerState *st`.
#define speex_resampler_process_native(first, b, c, d, e) NATIVE_OF_##first, b, c, d, e)
#define NATIVE_OF_st process_chunk(st
#define NATIVE_OF_SpeexResamplerState package_process_native(SpeexResamplerState

// The package's is for strides and silent input.
#define speex_resampler_process_int package_process_int
static int package_process_int(SpeexResamplerState* st, uint32_t channel, const int16_t* in,
                               uint32_t* in_len, int16_t* out, uint32_t* out_len);

// Here too: the package's own loop.
#define resampler_basic_direct_single(...) KREL_FAST resampler_basic_direct_single(__VA_ARGS__)

#include <libspeexdsp/resample.c>

#undef sinc
#undef speex_resampler_process_int
#undef resampler_basic_interpolate_single
#undef resampler_basic_direct_single

/// Sine of |x| < 10^5 to the last bits of a double, without a branch or a call: loops over it
/// vectorise.
static inline double sine(double x) {
    const double to_integer = 0x1.8p52;  // added, it leaves an integer in a double's low bits
    const union {
        double value;
        uint64_t bits;
    } shifted = {x * (1.0 / M_PI) + to_integer};
    const double half_turns = shifted.value - to_integer;
    const double r = x - half_turns * 0x1.921fb544p1 - half_turns * 0x1.0b4611a626331p-33;
    const double r2 = r * r;
    double s = 1.0 / 51090942171709440000.0;
    s = -1.0 / 121645100408832000.0 + r2 * s;
    s = 1.0 / 355687428096000.0 + r2 * s;
    s = -1.0 / 1307674368000.0 + r2 * s;
    s = 1.0 / 6227020800.0 + r2 * s;
    s = -1.0 / 39916800.0 + r2 * s;
    s = 1.0 / 362880.0 + r2 * s;
    s = -1.0 / 5040.0 + r2 * s;
    s = 1.0 / 120.0 + r2 * s;
    s = -1.0 / 6.0 + r2 * s;
    s = r + r * r2 * s;
    union {
        double value;
        uint64_t bits;
    } signed_sine = {s};
    signed_sine.bits ^= shifted.bits << 63;
    return signed_sine.value;
}

/// Phase 0..oversample-1 of an interpolated filter, its taps in order, as package_sinc() has them.
/// Products stand for its divisions: `oversample` is a power of two, and 2 x / taps either has few
/// binary places or lies too far from the middle between two floats to round to another one.
static void design_phase(const SpeexResamplerState* st, uint32_t phase, int16_t* row) {
    const struct FuncDef* const window = quality_map[st->quality].window_func;
    const int taps = (int)st->filt_len;
    const int oversample = (int)st->oversample;
    const float cutoff = st->cutoff;
    const float middle = (float)(taps / 2);
    for (int tap = 0; tap < taps; ++tap) {
        const float x =
                (float)(tap * oversample + (int)phase) * (1.0f / (float)oversample) - middle;
        const double angle = M_PI * (x * cutoff);
        const double peak = 32768. * cutoff;
        const double sinc = x == 0.0f ? peak : peak * sine(angle) / angle;
        const double value = sinc * compute_func(fabs(x * (2. / taps)), window);
        row[tap] = WORD2INT(value);
    }
}

static int16_t* row_of(const SpeexResamplerState* st, uint32_t row) {
    return st->sinc_table + row * st->filt_len;
}

/// Row 0..oversample+2 holds phase -1..oversample+1: the outer ones are those on the other side,
/// moved by a tap.
KREL_FAST static void design_rows(const SpeexResamplerState* st) {
    const uint32_t end = st->oversample;
    const size_t taps = st->filt_len;
    for (uint32_t phase = 0; phase <= end / 2; ++phase)
        design_phase(st, phase, row_of(st, phase + 1));
    for (uint32_t phase = end / 2 + 1; phase < end; ++phase) {
        const int16_t* const mirrored = row_of(st, end - phase + 1);
        int16_t* const row = row_of(st, phase + 1);
        for (size_t tap = 0; tap < taps; ++tap) row[tap] = mirrored[taps - 1 - tap];
    }
    row_of(st, 0)[0] = 0;
    memcpy(row_of(st, 0) + 1, row_of(st, end), (taps - 1) * sizeof(int16_t));
    for (uint32_t phase = 0; phase < 2; ++phase) {
        int16_t* const row = row_of(st, end + phase + 1);
        memcpy(row, row_of(st, phase + 1) + 1, (taps - 1) * sizeof(int16_t));
        row[taps - 1] = phase == 0 ? *row_of(st, 1) : 0;
    }
}

/// Outputs that are made together, so that all but their dot products is done in vectors.
enum { kRun = 64 };

/// Where the outputs of a run fall.
struct places {
    int32_t at[kRun];    ///< first input sample
    int32_t row[kRun];   ///< first of four rows
    int32_t rest[kRun];  ///< place between two phases, in 1/den_rate
};

/// Steps the channel's position over at most `most` outputs, and at most kRun, none from input
/// sample in_len on. Returns their number. rest[] is in 1/den_rate of an input sample.
static int find_samples(SpeexResamplerState* st, uint32_t channel, int32_t in_len, int32_t most,
                        struct places* places) {
    uint32_t numerator = st->samp_frac_num[channel];
    int32_t at = st->last_sample[channel];
    int n = 0;
    for (; n < kRun && n < most && at < in_len; ++n) {
        places->at[n] = at;
        places->rest[n] = (int32_t)numerator;
        at += st->int_advance;
        numerator += (uint32_t)st->frac_advance;
        if (numerator >= st->den_rate) {
            numerator -= st->den_rate;
            ++at;
        }
    }
    st->last_sample[channel] = at;
    st->samp_frac_num[channel] = numerator;
    return n;
}

// Integers are divided in double below: that vectorises, and a quotient of 32-bit integers
// truncates the same.

/// From rest[] in 1/den_rate of an input sample to row[] and rest[].
static void find_rows(const SpeexResamplerState* st, struct places* places, int n) {
    const int32_t oversample = (int32_t)st->oversample;
    const int32_t den_rate = (int32_t)st->den_rate;
    for (int i = 0; i < n; ++i) {
        const int32_t numerator = places->rest[i] * oversample;
        const int32_t phase = (int32_t)(numerator / (double)den_rate);
        places->row[i] = oversample - 1 - phase;
        places->rest[i] = numerator - phase * den_rate;
    }
}

/// Four dot products with rows that follow each other, into sums[0], [kRun], [2 kRun] and [3 kRun].
/// The sums wrap.
static void multiply_rows(const int16_t* in, const int16_t* rows, int taps, int32_t* sums) {
    taps &= ~7;  // as every filter's length: no vector loop needs an end of single steps
    const int16_t* const row1 = rows + taps;
    const int16_t* const row2 = row1 + taps;
    const int16_t* const row3 = row2 + taps;
    int32_t sum0 = 0;
    int32_t sum1 = 0;
    int32_t sum2 = 0;
    int32_t sum3 = 0;
#pragma GCC unroll 2  // steps of vectors
    for (int tap = 0; tap < taps; ++tap) {
        sum0 += in[tap] * rows[tap];
        sum1 += in[tap] * row1[tap];
        sum2 += in[tap] * row2[tap];
        sum3 += in[tap] * row3[tap];
    }
    sums[0] = sum0;
    sums[kRun] = sum1;
    sums[2 * kRun] = sum2;
    sums[3 * kRun] = sum3;
}

/// out[i] = the cubic blend of sums[0..3][i].
static void blend_rows(const int32_t* rest, uint32_t den_rate, int32_t (*sums)[kRun], int n,
                       int16_t* out) {
    const int32_t half = (int16_t)den_rate >> 1;  // rounds, as PDIV32
    for (int i = 0; i < n; ++i) {
        int16_t blend[4];
        cubic_coef((int16_t)(int32_t)(((rest[i] << 15) + half) / (double)(int32_t)den_rate), blend);
        const int32_t sum =
                MULT16_32_Q15(blend[0], sums[0][i]) + MULT16_32_Q15(blend[1], sums[1][i]) +
                MULT16_32_Q15(blend[2], sums[2][i]) + MULT16_32_Q15(blend[3], sums[3][i]);
        out[i] = SATURATE32PSHR(sum, 15, 32767);
    }
}

KREL_FAST
static int interpolate_rows(SpeexResamplerState* st, uint32_t channel, const int16_t* in,
                            uint32_t* in_len, int16_t* out, uint32_t* out_len) {
    const int taps = (int)st->filt_len;
    struct places places;
    int32_t sums[4][kRun];
    int16_t blended[kRun];
    int made = 0;
    for (;;) {
        const int most = (int)*out_len - made;
        const int n = find_samples(st, channel, (int32_t)*in_len, most, &places);
        if (n == 0) return made;
        find_rows(st, &places, n);
        for (int i = 0; i < n; ++i) {
            multiply_rows(in + places.at[i], st->sinc_table + places.row[i] * taps, taps,
                          &sums[0][i]);
        }
        blend_rows(places.rest, st->den_rate, sums, n, blended);
        for (int i = 0; i < n; ++i) out[st->out_stride * made++] = blended[i];
    }
}

/// The first use of a design.
static int resampler_basic_interpolate_single(SpeexResamplerState* st, uint32_t channel,
                                              const int16_t* in, uint32_t* in_len, int16_t* out,
                                              uint32_t* out_len) {
    design_rows(st);
    st->resampler_ptr = interpolate_rows;
    return interpolate_rows(st, channel, in, in_len, out, out_len);
}

/// One fill of st->mem, behind its first filt_len - 1 samples.
static int process_chunk(SpeexResamplerState* st, uint32_t channel, uint32_t* in_len, int16_t* out,
                         uint32_t* out_len) {
    int16_t* const memory = st->mem + channel * st->mem_alloc_size;
    int32_t* const last_sample = st->last_sample + channel;
    st->started = 1;
    *out_len = (uint32_t)st->resampler_ptr(st, channel, memory, in_len, out, out_len);
    if (*last_sample < (int32_t)*in_len) *in_len = (uint32_t)*last_sample;
    *last_sample -= (int32_t)*in_len;
    memmove(memory, memory + *in_len, (st->filt_len - 1) * sizeof(int16_t));
    return RESAMPLER_ERR_SUCCESS;
}

int speex_resampler_process_int(SpeexResamplerState* st, uint32_t channel, const int16_t* in,
                                uint32_t* in_len, int16_t* out, uint32_t* out_len) {
    if (in == NULL || st->in_stride != 1) {
        return package_process_int(st, channel, in, in_len, out, out_len);
    }
    uint32_t in_left = *in_len;
    uint32_t out_left = *out_len;
    if (st->magic_samples[channel] != 0)
        out_left -= (uint32_t)speex_resampler_magic(st, channel, &out, out_left);
    int16_t* const memory = st->mem + channel * st->mem_alloc_size + st->filt_len - 1;
    const uint32_t room = st->mem_alloc_size - (st->filt_len - 1);
    while (st->magic_samples[channel] == 0 && in_left > 0 && out_left > 0) {
        uint32_t taken = in_left < room ? in_left : room;
        uint32_t made = out_left;
        memcpy(memory, in, taken * sizeof(int16_t));
        process_chunk(st, channel, &taken, out, &made);
        in += taken;
        in_left -= taken;
        out += made * st->out_stride;
        out_left -= made;
    }
    *in_len -= in_left;
    *out_len -= out_left;
    return st->resampler_ptr == resampler_basic_zero ? RESAMPLER_ERR_ALLOC_FAILED
                                                     : RESAMPLER_ERR_SUCCESS;
}
