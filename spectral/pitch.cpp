// SPDX-License-Identifier: Apache-2.0
#include "spectral/pitch.h"

#include <algorithm>

#include "base/fast_paths.h"
#include "base/log.h"
#include "spectral/frame_loop.h"
#include "spectral/polar.h"
#include "spectral/trig.h"

namespace krel {
namespace {

constexpr double kTwoPi = 6.283185307179586;
constexpr float kWideScale = 1.2f;      // above it the second pass has scales of its own
constexpr float kNarrowScale = 0.8f;    // below it the boosted band starts and ends lower
constexpr double kLargestSum = 0x1p21;  // radians; single precision is a quarter apart there
constexpr double kFineSum = -64.0;      // and 2^-17 here

constexpr auto kEachBuffer = [](pitch_ctx_t* p, auto visit) {
    const int32_t n = p->fft_size;
    const int32_t bins = p->half_size + 1;
    visit(p->in_block, n);
    visit(p->out_block, n);
    visit(p->in_fifo, n);
    visit(p->out_fifo, n);
    visit(p->last_phase, bins);
    visit(p->sum_phase, bins);
    visit(p->output_accum, 2 * n);
    visit(p->ana_freq, n);
    visit(p->ana_magn, n);
    visit(p->syn_freq, n);
    visit(p->syn_magn, n);
    visit(p->fft_in, n);
    visit(p->fft_out, n);
};

float allowed_scale(float scale, int32_t fft_size) {
    if (!(scale >= 0.0f)) return 0.0f;
    return std::min(scale, static_cast<float>(fft_size));
}

constexpr int32_t even_away_from_zero(int32_t q) { return q >= 0 ? q + (q & 1) : q - (q & 1); }

/// Magnitude and true frequency of every bin: the phase's advance since the last frame, less the
/// advance that the bin's centre frequency would have made, wrapped to +-pi, is the deviation from
/// that centre.
void analyse_bins(pitch_ctx_t* p) {
    const int32_t bins = p->half_size + 1;
    const double freq_per_bin = p->freq_per_bin;
    const double expected = p->expected_phase_step;
    float* const last_phase = p->last_phase;
    float* const ana_freq = p->ana_freq;
    spectrum_magnitudes(p->fft_out, p->ana_magn, bins);
    spectrum_phases(p->fft_out, ana_freq, bins);  // turned into Hz in place, below
    for (int32_t k = 0; k < bins; ++k) {
        const float phase = ana_freq[k];
        double d = static_cast<double>(phase - last_phase[k]);
        last_phase[k] = phase;
        d -= k * expected;
        // Divided, not multiplied: after silence d is a whole number of pi, on the edge. |d| < 2 pi
        // + half_size * pi / 2
        const auto q = static_cast<int32_t>(d / kPi);
        d -= kPi * even_away_from_zero(q);
        ana_freq[k] = static_cast<float>(freq_per_bin * (k + kOverlap / kTwoPi * d));
    }
}

/// Adds bins first..last, moved to scale times their index, to the shifted spectrum, their
/// magnitudes times `weight`; what would land above the Nyquist bin is dropped.
void add_shifted(pitch_ctx_t* p, int32_t first, int32_t last, float scale, float weight) {
    const auto end = static_cast<float>(p->half_size + 1);
    for (int32_t k = first; k <= last; ++k) {
        const float target = scale * static_cast<float>(k);
        if (!(target < end)) return;
        const auto t = static_cast<uint32_t>(target);
        p->syn_magn[t] += weight * p->ana_magn[k];
        p->syn_freq[t] = p->ana_freq[k] * scale;
    }
}

/// Two passes over the same arrays, as one where the second repeats the first. Deliberate: up to
/// kWideScale it does, which doubles every magnitude; above, it has its own scales, and its
/// frequencies win where both meet.
void shift_bins(pitch_ctx_t* p) {
    const int32_t h = p->half_size;
    std::fill_n(p->syn_magn, h + 1, 0.0f);
    std::fill_n(p->syn_freq, h + 1, 0.0f);
    if (!(p->scale > kWideScale)) {
        add_shifted(p, 0, h, p->scale, 2.0f);
        return;
    }
    add_shifted(p, 0, h, p->scale, 1.0f);
    add_shifted(p, 0, h / 8 - 1, 1.2f, 1.0f);
    add_shifted(p, h / 8, h / 4, 1.5f, 1.0f);
    add_shifted(p, h / 4 + 1, h, 1.8f, 1.0f);
}

void ramp_low_bins(float* magn) {
    magn[0] *= 0.0f;
    magn[1] *= 0.33333334f;
    magn[2] *= 0.6666667f;
}

/// Fades bins 5h/8..7h/8 out and clears the rest below h. Deliberate: the Nyquist bin h keeps its
/// magnitude.
void fade_high_bins(float* magn, int32_t h) {
    const int32_t from = 5 * h / 8;
    const int32_t to = 7 * h / 8;
    const float step = 1.0f / static_cast<float>(to - from);
    float gain = 1.0f;
    for (int32_t k = from; k < to; ++k) {
        gain -= step;
        magn[k] *= gain;
    }
    std::fill(magn + to, magn + h, 0.0f);
}

/// A trapezoid over lo..hi: a quarter of the width up from 1 to 2, half of it at 2, a quarter down
/// to 1.
void boost_band(float* magn, int32_t lo, int32_t hi) {
    const int32_t ramp = (hi - lo) / 4;
    const float step = 1.0f / static_cast<float>(ramp);
    const int32_t flat = lo + ramp;
    const int32_t fall = flat + 2 * ramp;
    for (int32_t k = 0; k < ramp; ++k) magn[lo + k] *= 1.0f + static_cast<float>(k) * step;
    for (int32_t k = flat; k < fall; ++k) magn[k] *= 2.0f;
    for (int32_t k = 0; k < ramp; ++k) magn[fall + k] *= 2.0f - static_cast<float>(k + 1) * step;
}

void shape_magnitudes(pitch_ctx_t* p) {
    const int32_t h = p->half_size;
    ramp_low_bins(p->syn_magn);
    fade_high_bins(p->syn_magn, h);
    if (p->scale > kWideScale) {
        boost_band(p->syn_magn, h / 16, 9 * h / 16);
    } else if (p->scale < kNarrowScale) {
        boost_band(p->syn_magn, h / 64, 7 * h / 16);
    } else {
        boost_band(p->syn_magn, h / 32, h / 2);
    }
}

/// Takes whole turns off a phase sum that would be coarse: it lands in the turn below kFineSum.
inline double without_turns(double sum) {
    return sum - kTwoPi * (1.0 + __builtin_floor((sum - kFineSum) * (1.0 / kTwoPi)));
}

/// Advances every bin's phase by its frequency and writes the spectrum. Deliberate: the sums are
/// single precision, whose spacing grows with them, up to kLargestSum. One that has passed it is
/// kept fine from then on, and its place tells so: plain sums never fall that far. Only the bins
/// that the two lowest ones move to may: their frequencies can be negative.
void synthesise_bins(pitch_ctx_t* p) {
    const int32_t bins = p->half_size + 1;
    const int32_t last_falling = std::max(1, static_cast<int32_t>(p->scale));
    const double freq_per_bin = p->freq_per_bin;
    const double advance_per_hz = kTwoPi / (kOverlap * freq_per_bin);
    const double expected = p->expected_phase_step;
    const float* const syn_freq = p->syn_freq;
    float* const sum_phase = p->sum_phase;
    for (int32_t k = 0; k < bins; ++k) {
        const double d = syn_freq[k] - k * freq_per_bin;
        const double before = sum_phase[k];
        const double sum = k * expected + d * advance_per_hz + before;
        const double least = k > last_falling ? kFineSum : -kLargestSum;
        const bool coarse = before <= least || sum > kLargestSum;
        sum_phase[k] = static_cast<float>(coarse ? without_turns(sum) : sum);
    }
    spectrum_from_polar(p->syn_magn, sum_phase, p->fft_out, bins);
}

KREL_FAST void process_frame(pitch_ctx_t* p) {
    analyse_frame(p);
    analyse_bins(p);
    shift_bins(p);
    shape_magnitudes(p);
    synthesise_bins(p);
    synthesise_frame(p);
}

}  // namespace
}  // namespace krel

using namespace krel;

int pitch_init(void* ctx, int sample_rate, float scale) {
    auto* p = static_cast<pitch_ctx_t*>(ctx);
    if (p == nullptr) return 0;
    set_frame_size(p, fft_size_for_rate(sample_rate));
    p->scale = allowed_scale(scale, p->fft_size);
    p->freq_per_bin = static_cast<double>(sample_rate) / p->fft_size;
    p->expected_phase_step = p->hop * kTwoPi / p->fft_size;
    if (sample_rate == 0) {
        clear_buffers(p, kEachBuffer);
    } else {
        acquire_buffers(p, kEachBuffer);
    }
    KREL_LOGD(kCoreTag, "pitch_init: scale %f, fftsize %d", static_cast<double>(scale),
              p->fft_size);
    return 0;
}

int pitch_process(void* ctx, int16_t* in, int16_t* out, int frames) {
    return run_frames(static_cast<pitch_ctx_t*>(ctx), in, out, frames, process_frame,
                      s16_from_unit_sat);
}

void pitch_deinit(void* ctx) {
    auto* p = static_cast<pitch_ctx_t*>(ctx);
    if (p == nullptr) return;
    release_buffers(p, kEachBuffer);
    KREL_LOGD(kCoreTag, "pitch_deinit");
}
