// The resampler of SpeexDSP, fixed-point, with a faster interpolated filter. The package's source
// is compiled as it is, with three of its names bent to functions of this file; every result is the
// same 16-bit integer, at a ratio whose reduced denominator is below 2^28.
//
// - The windowed sinc is symmetric: the second half of an interpolated filter's table is a copy of
//   the first, which is calculated in one loop with a sine of our own.
// - Interpolation multiplies the input with four neighbouring phases of the table, which lie
//   `oversample` values apart from tap to tap. Before a table's first use each phase is laid out as
//   a row of its own, behind the table: four plain dot products.
// - Which phase an output sample falls on is carried along, not divided out for each.
#include <limits.h>
#include <math.h>
#include <speex/speex_resampler.h>
#include <stdint.h>
#include <stdlib.h>

#define FIXED_POINT
#define VAR_ARRAYS
#define EXPORT

struct FuncDef;
// Inlined into our loop too, which vectorises only then.
__attribute__((always_inline)) static inline double compute_func(float x,
                                                                 const struct FuncDef* window);
static int16_t table_value(const SpeexResamplerState* st, int direct, int32_t i, float cutoff,
                           float x, int taps, const struct FuncDef* window);
static int resampler_basic_interpolate_single(SpeexResamplerState* st, uint32_t channel,
                                              const int16_t* in, uint32_t* in_len, int16_t* out,
                                              uint32_t* out_len);

// A table's block of memory has room for the rows: `oversample + 3` phases are at most four times
// what `oversample` take.
#define OVERRIDE_SPEEX_REALLOC
#define speex_realloc(block, bytes) \
    ((bytes) > INT_MAX / 5 ? NULL   \
                           : realloc(block, &(block) == &st->sinc_table ? 5 * (bytes) : (bytes)))

// Where sinc() is called, its first argument is st->cutoff: that becomes table_value(st,
// use_direct, i, st->cutoff, ...). Where it is defined, it is `float cutoff`: that becomes
// package_sinc(float cutoff, ...).
#define sinc(first, x, taps, window) SINC_OF_##first, x, taps, window)
#define SINC_OF_st table_value(st, use_direct, i, st
#define SINC_OF_float package_sinc(float

// Only the definition has arguments; where the design picks its filter function, it gets ours.
#define resampler_basic_interpolate_single(a, b, c, d, e, f) package_interpolate(a, b, c, d, e, f)

#include <libspeexdsp/resample.c>

#undef sinc
#undef resampler_basic_interpolate_single

/// Sine of |x| < 10^5 to the last bits of a double, without a branch or a call: loops over it
/// vectorise.
static inline double sine(double x) {
    const double half_turns = __builtin_rint(x * (1.0 / M_PI));
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
    const double odd = half_turns - 2.0 * __builtin_floor(half_turns * 0.5);
    return odd == 0.0 ? s : -s;
}

/// Values 0..half-1 of a table, as package_sinc() has them.
static void design_half(const SpeexResamplerState* st, float cutoff, int half,
                        const struct FuncDef* window) {
    const int taps = (int)st->filt_len;
    const float oversample = (float)st->oversample;
    const float middle = (float)(taps / 2);
    for (int i = 0; i < half; ++i) {
        const float x = (float)i / oversample - middle;
        const double angle = M_PI * (x * cutoff);
        const double value =
                32768. * cutoff * sine(angle) / angle * compute_func(fabs(2. * x / taps), window);
        st->sinc_table[i + 4] = WORD2INT(value);
    }
}

/// Value i of a table, -4..oversample * filt_len + 3, asked for in order; x is its place in input
/// samples from the middle.
static int16_t table_value(const SpeexResamplerState* st, int direct, int32_t i, float cutoff,
                           float x, int taps, const struct FuncDef* window) {
    const int32_t half = (int32_t)(st->oversample * st->filt_len) / 2;
    if (direct || i == half) return package_sinc(cutoff, x, taps, window);
    if (i == -4) design_half(st, cutoff, half, window);
    if (i < 0) return 0;
    return st->sinc_table[(i < half ? i : 2 * half - i) + 4];
}

static int16_t* rows_of(const SpeexResamplerState* st) {
    return st->sinc_table + st->filt_len * st->oversample + 8;
}

static void lay_out_rows(const SpeexResamplerState* st) {
    int16_t* to = rows_of(st);
    for (uint32_t row = 0; row < st->oversample + 3; ++row) {
        const int16_t* from = st->sinc_table + 3 + row;
        for (uint32_t tap = 0; tap < st->filt_len; ++tap) *to++ = from[tap * st->oversample];
    }
}

/// Four dot products with rows that follow each other, blended. The sums wrap.
static int16_t interpolated(const int16_t* in, const int16_t* rows, int taps,
                            const int16_t* blend) {
    taps &= ~7;  // as every filter's length: no vector loop needs an end of single steps
    const int16_t* const row1 = rows + taps;
    const int16_t* const row2 = row1 + taps;
    const int16_t* const row3 = row2 + taps;
    int32_t sum0 = 0;
    int32_t sum1 = 0;
    int32_t sum2 = 0;
    int32_t sum3 = 0;
    for (int tap = 0; tap < taps; ++tap) {
        sum0 += in[tap] * rows[tap];
        sum1 += in[tap] * row1[tap];
        sum2 += in[tap] * row2[tap];
        sum3 += in[tap] * row3[tap];
    }
    const int32_t sum = MULT16_32_Q15(blend[0], sum0) + MULT16_32_Q15(blend[1], sum1) +
                        MULT16_32_Q15(blend[2], sum2) + MULT16_32_Q15(blend[3], sum3);
    return SATURATE32PSHR(sum, 15, 32767);
}

static int interpolate_rows(SpeexResamplerState* st, uint32_t channel, const int16_t* in,
                            uint32_t* in_len, int16_t* out, uint32_t* out_len) {
    const uint32_t oversample = st->oversample;
    const uint32_t den_rate = st->den_rate;
    const int taps = (int)st->filt_len;
    const int16_t* const last_rows = rows_of(st) + (oversample - 1) * st->filt_len;
    // The place between two input samples, as numerator over den_rate, and as phase and rest /
    // den_rate of a phase.
    uint32_t numerator = st->samp_frac_num[channel];
    int phase = (int)(numerator * oversample / den_rate);
    uint32_t rest = numerator * oversample % den_rate;
    const uint32_t advance = (uint32_t)st->frac_advance;
    const int phase_advance = (int)(advance * oversample / den_rate);
    const uint32_t rest_advance = advance * oversample % den_rate;
    int32_t at = st->last_sample[channel];
    int made = 0;
    while (at < (int32_t)*in_len && made < (int32_t)*out_len) {
        int16_t blend[4];
        cubic_coef(PDIV32(SHL32(rest, 15), den_rate), blend);
        out[st->out_stride * made++] = interpolated(in + at, last_rows - phase * taps, taps, blend);
        at += st->int_advance;
        numerator += advance;
        phase += phase_advance;
        rest += rest_advance;
        if (rest >= den_rate) {
            rest -= den_rate;
            ++phase;
        }
        if (numerator >= den_rate) {
            numerator -= den_rate;
            phase -= (int)oversample;
            ++at;
        }
    }
    st->last_sample[channel] = at;
    st->samp_frac_num[channel] = numerator;
    return made;
}

/// The first use of a design.
static int resampler_basic_interpolate_single(SpeexResamplerState* st, uint32_t channel,
                                              const int16_t* in, uint32_t* in_len, int16_t* out,
                                              uint32_t* out_len) {
    lay_out_rows(st);
    st->resampler_ptr = interpolate_rows;
    return interpolate_rows(st, channel, in, in_len, out, out_len);
}
