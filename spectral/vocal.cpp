// SPDX-License-Identifier: Apache-2.0
#include "spectral/vocal.h"

#include <math.h>
#include <speex/speex_resampler.h>

#include <algorithm>
#include <type_traits>

#include "base/fast_paths.h"
#include "base/log.h"
#include "dsp/cubic_interp.h"
#include "spectral/envelope.h"
#include "spectral/frame_loop.h"
#include "spectral/polar.h"
#include "tables/formant_curves.h"

namespace krel {
namespace {

static_assert(std::is_trivial_v<vocal_ctx_t>);

constexpr double kTwoPi = 6.283185307179586;
constexpr float kLowestRatio = 0.4f;
constexpr float kHighestRatio = 2.0f;
constexpr float kUnshifted = 1.0f;  // from this ratio up

// The bins of a frame are filtered and resampled as if they were samples at this rate.
constexpr int kBinRate = 8000;
constexpr int kSmoothingCutoff = 100;
constexpr int kLowPass = 1;
constexpr int kResamplerQuality = 5;
// Deliberate: ten bins at both transform sizes, not envelope_delay: the filter's lag in bins does
// not depend on them.
constexpr int kSmoothingLag = 10;
constexpr int kTowardStart = 1;

constexpr float kUnshiftedLevel = 0.5f;  // of bins above the squeezed envelope
constexpr float kLeastGain = 1.0f / 32.0f;
constexpr float kLargestGain = 32.0f;

constexpr auto kEachBuffer = [](vocal_ctx_t* v, auto visit) {
    const int32_t size = v->fft_size;
    const int32_t half = v->half_size;
    visit(v->in_block, size);
    visit(v->out_block, size);
    visit(v->in_fifo, size);
    visit(v->out_fifo, size);
    visit(v->spare_a, half + 1);
    visit(v->spare_b, half + 1);
    visit(v->output_accum, 2 * size);
    visit(v->phase, half);
    visit(v->magnitude, half);
    visit(v->envelope, half);
    visit(v->syn_phase, half);
    visit(v->syn_magn, half);
    visit(v->shifted_envelope, size);
    visit(v->fft_in, size);
    visit(v->fft_out, size);
    visit(v->eq_gain, half);
};

void release_all(vocal_ctx_t* v) {
    if (v->resampler != nullptr) speex_resampler_destroy(v->resampler);
    v->resampler = nullptr;
    release_buffers(v, kEachBuffer);
}

void set_bin_frequencies(float* hz, int bins, int sample_rate, int fft_size) {
    for (int i = 0; i < bins; ++i) {
        hz[i] = static_cast<float>(sample_rate) * static_cast<float>(i) /
                static_cast<float>(fft_size);
    }
}

/// Gains of the record's curve at its bins; false when memory is short.
bool fill_eq_gains(vocal_ctx_t* v, int sample_rate) {
    formant_curve curve = kFormantCurves[v->fdeq_mode - 1];
    void* interp = cubicinterp_init(curve.hz, curve.gain_db, curve.points);
    if (interp == nullptr) return false;

    float* gain = v->eq_gain;  // Hz, then dB, then linear
    const int bins = v->half_size;
    set_bin_frequencies(gain, bins, sample_rate, v->fft_size);
    for (int i = 0; i < bins; ++i) gain[i] = std::max(gain[i], curve.hz[0]);  // negative rates
    const float* const beyond = std::upper_bound(gain, gain + bins, curve.hz[curve.points - 1]);
    cubicinterp_process(interp, gain, gain, bins);
    cubicinterp_deinit(interp);
    const int inside = static_cast<int>(beyond - gain);
    const float last_db = curve.gain_db[curve.points - 1];
    for (int i = inside; i < bins; ++i) gain[i] = std::min(gain[i], last_db);
    for (int i = 0; i < bins; ++i) gain[i] = static_cast<float>(pow(10.0, gain[i] / 20.0));
    return true;
}

/// Everything that can run short; when something does, nothing is left behind.
void acquire_all(vocal_ctx_t* v, int sample_rate) {
    v->resampler = nullptr;
    if (!acquire_buffers(v, kEachBuffer)) return;
    int error = RESAMPLER_ERR_SUCCESS;
    const auto squeezed_rate = static_cast<spx_uint32_t>(v->formant_ratio * float{kBinRate});
    v->resampler = speex_resampler_init(1, kBinRate, squeezed_rate, kResamplerQuality, &error);
    const bool has_eq = v->fdeq_mode >= 1;
    if (v->resampler == nullptr || (has_eq && !fill_eq_gains(v, sample_rate))) release_all(v);
}

/// The smoothed envelope of the frame's magnitudes, and its squeezed copy. Returns the length of
/// the copy in bins.
int track_envelope(vocal_ctx_t* v) {
    const int half = v->half_size;
    envelope_detect(&v->envelope_filter, v->magnitude, v->envelope, half);
    roll_queue(v->envelope, half, kSmoothingLag, kTowardStart);
    iir_float_reset(&v->envelope_filter);

    // The resampler works on 16-bit integers: the envelope is truncated and saturates at 32767 on
    // its way through.
    auto in_len = static_cast<spx_uint32_t>(half);
    auto out_len = static_cast<spx_uint32_t>(v->formant_ratio * static_cast<float>(half));
    speex_resampler_skip_zeros(v->resampler);
    speex_resampler_process_float(v->resampler, 0, v->envelope, &in_len, v->shifted_envelope,
                                  &out_len);
    speex_resampler_reset_mem(v->resampler);
    return static_cast<int>(out_len);
}

/// Bins below `length` get the gain that turns the envelope into the squeezed one.
void apply_envelope_gain(vocal_ctx_t* v, int length) {
    for (int k = 0; k < length; ++k) {
        const float ratio = v->shifted_envelope[k] / v->envelope[k];
        // Deliberate: the 0/0 of digital silence is a NaN that passes both limits. Frames of
        // silence alone carry it, and the conversion to 16 bits makes it 0.
        const float raised = ratio < kLeastGain ? kLeastGain : ratio;
        v->syn_magn[k] = v->magnitude[k] * (raised > kLargestGain ? kLargestGain : raised);
    }
}

/// Fades from the squeezed range, over its top eighth, to the level above it.
void cross_fade_top(vocal_ctx_t* v, int length) {
    const int start = (7 * length) >> 3;
    if (length <= start) return;
    const float step = 1.0f / static_cast<float>(length - start);
    float g = 1.0f;
    for (int j = start + 1; j <= length; ++j) {
        const float a = g * v->syn_magn[j];
        const float b = (1.0f - g) * v->magnitude[j] * kUnshiftedLevel;
        g = std::max(g - step, 0.0f);
        v->syn_magn[j] = a + b;
    }
}

/// syn_magn from magnitude. The squeezed envelope is at most half_size - 1 bins long: ratios are
/// below 1 here.
void shift_formants(vocal_ctx_t* v) {
    for (int k = 0; k < v->half_size; ++k) v->syn_magn[k] = kUnshiftedLevel * v->magnitude[k];
    const int length = track_envelope(v);
    apply_envelope_gain(v, length);
    cross_fade_top(v, length);
}

/// The Nyquist bin is deliberately neither analysed nor written: it keeps the value of the forward
/// transform.
KREL_FAST void process_frame(vocal_ctx_t* v) {
    const int half = v->half_size;
    analyse_frame(v);
    spectrum_magnitudes(v->fft_out, v->magnitude, half);
    spectrum_phases(v->fft_out, v->phase, half);
    std::copy_n(v->phase, half, v->syn_phase);
    if (v->formant_ratio >= kUnshifted) {
        std::copy_n(v->magnitude, half, v->syn_magn);
    } else {
        shift_formants(v);
    }
    if (v->fdeq_mode >= 1) {
        for (int k = 0; k < half; ++k) v->syn_magn[k] *= v->eq_gain[k];
    }
    spectrum_from_polar(v->syn_magn, v->syn_phase, v->fft_out, half);
    synthesise_frame(v);
}

}  // namespace
}  // namespace krel

using namespace krel;

int vocal_init(void* ctx, int sample_rate, float formant_ratio, int fdeq_mode) {
    if (formant_ratio > kHighestRatio || formant_ratio < kLowestRatio) {
        KREL_LOGE(kCoreTag, "fratio can't support %f", static_cast<double>(formant_ratio));
        return -1;
    }
    if (ctx == nullptr) return -1;
    auto* v = static_cast<vocal_ctx_t*>(ctx);
    set_frame_size(v, long_fft_size_for_rate(sample_rate));
    v->freq_per_bin = static_cast<double>(sample_rate) / v->fft_size;
    v->expected_phase_step = v->hop * kTwoPi / v->fft_size;
    v->envelope_delay = static_cast<int32_t>(static_cast<float>(v->half_size) * 0.02f);
    iir_float_init(&v->envelope_filter, kBinRate, kSmoothingCutoff, kLowPass);
    v->formant_ratio = isnan(formant_ratio) ? kUnshifted : formant_ratio;
    v->fdeq_mode = fdeq_mode > kFormantCurveCount ? 0 : fdeq_mode;
    acquire_all(v, sample_rate);
    KREL_LOGD(kCoreTag, "vocal_init formant ratio %f, fdeq_mode %d",
              static_cast<double>(formant_ratio), fdeq_mode);
    return 0;
}

int vocal_process(void* ctx, int16_t* in, int16_t* out, int frames) {
    return run_frames(static_cast<vocal_ctx_t*>(ctx), in, out, frames, process_frame,
                      s16_from_unit_sat);
}

void vocal_deinit(void* ctx) {
    if (ctx == nullptr) return;
    release_all(static_cast<vocal_ctx_t*>(ctx));
    KREL_LOGD(kCoreTag, "vocal_deinit");
}
