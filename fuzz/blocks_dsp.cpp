// SPDX-License-Identifier: Apache-2.0
#include "core/voice_block.h"
#include "dsp/cubic_interp.h"
#include "dsp/drc.h"
#include "dsp/iir.h"
#include "dsp/peq.h"
#include "fuzz/blocks.h"

namespace krel_fuzz {
namespace {

template <typename T>
void run_iir(Draw& d, iir_biquad_t* filter, int (*process)(void*, T*, T*, int), int channels,
             int n) {
    in_one_block<T>(d, n * channels, [&](T* in, T* out) {
        require(process(filter, in, out, n) == n, "iir: returns n");
    });
}

/// Increasing, `n` of them.
Buffer<float> draw_knots(Draw& d, int32_t n) {
    Buffer<float> x(static_cast<size_t>(std::max(n, 0)));
    float at = d.one_in(8) ? -1e30f : -100.0f;
    const float spacing = d.one_in(8) ? 1e-30f : 10.0f;
    for (float& knot : x.all()) {
        knot = at;
        at = nextafterf(at + spacing * static_cast<float>(d.any<uint8_t>()), INFINITY);
    }
    return x;
}

}  // namespace

void fuzz_compressor(Draw& d) {
    drc_params_t params = krel::kVoiceCompressor;
    if (d.one_in(2)) params.history_blocks = d.range(-2, 60);
    if (d.one_in(2)) params.delay_unit = d.range(-2, 1000);
    if (d.one_in(16)) params.history_blocks = INT32_MAX, params.delay_unit = 2;  // wraps
    if (d.one_in(2)) params.attack_shift = d.hostile(0, 31);
    if (d.one_in(2)) params.release_shift = d.hostile(0, 31);
    if (d.one_in(2)) params.threshold = d.hostile(-5, 40000);
    if (d.one_in(2)) params.gain = d.hostile(0, 70000);
    if (d.one_in(2)) params.noise_floor = d.hostile(-5, 2000);
    drc_t drc;
    drc_init(&drc, &params);
    in_drawn_lengths(d, kMostSamples, [&](int32_t n) {
        auto in = signal_buffer<int32_t>(d, static_cast<size_t>(std::max(n, 0)));
        if (!d.one_in(2)) {
            for (int32_t& sample : in.all()) sample >>= 15;
        }
        Buffer<int16_t> out(in.all().size());
        drc_process(&drc, in.data(), out.data(), n);
        int32_t mean = 0;
        require(find_current_max_drc(in.data(), &mean, n) >= 0, "drc: a peak is not negative");
    });
    drc_deinit(&drc);
    drc_deinit(&drc);
}

void fuzz_equaliser(Draw& d) {
    peq_stereo_param_t params;
    for (peq_band_param_t& band : params.band) {
        const auto coefficient = [&d] { return d.one_in(2) ? 1 << 28 : d.any<int32_t>(); };
        band = {d.range(-1, 2), coefficient(), coefficient(),
                coefficient(),  coefficient(), coefficient()};
    }
    void* peq = peq_init(&params);
    in_drawn_lengths(d, kMostSamples, [&](int32_t n) {
        if (d.one_in(2)) {
            return in_one_block<int16_t>(d, n, [&](int16_t* in, int16_t* out) {
                peq_mono_process(peq, or_null(d, in), out, n);
            });
        }
        in_stereo_block<int32_t>(d, static_cast<size_t>(std::max(n, 0)),
                                 [&](auto... buffers) { peq_stereo_process(peq, buffers..., n); });
    });
    peq_deinit(peq);
}

void fuzz_iir(Draw& d) {
    iir_biquad_t filter;
    const auto rate = static_cast<int32_t>(d.rate());
    const int32_t cutoff = d.hostile(-1, 24000);
    const int32_t type = d.range(0, 2);
    iir_coeff_gen_t gen;
    const int expected = cutoff < 1 ? -1 : 0;
    require(iir_lpf_init_coeffs(&gen, cutoff, rate) == expected, "iir: refuses cutoffs below 1");
    require(iir_hpf_init_coeffs(&gen, cutoff, rate) == expected, "iir: refuses cutoffs below 1");
    if (iir_float_init(&filter, rate, cutoff, type) != 0) return;
    in_drawn_lengths(d, kMostSamples, [&](int32_t n) {
        switch (d.range(0, 4)) {
            case 0:
                return run_iir(d, &filter, iir_float_process_mono, 1, n);
            case 1:
                return run_iir(d, &filter, iir_float_process_stereo, 2, n);
            case 2:
                return run_iir(d, &filter, iir_short_process_mono, 1, n);
            case 3:
                return run_iir(d, &filter, iir_short_process_stereo, 2, n);
            default:
                return iir_float_reset(&filter);
        }
    });
}

void fuzz_interpolation(Draw& d) {
    const int32_t n = d.range(-1, 20);
    auto x = draw_knots(d, n);
    auto y = signal_buffer<float>(d, x.all().size());
    for (float& value : y.all()) {
        if (d.one_in(4)) value = d.any<float>();
    }
    void* curve = cubicinterp_init(x.data(), y.data(), n);
    require((curve != nullptr) == (n >= 2), "interpolation: two knots or more make a curve");
    const int32_t queries = d.range(-1, 300);
    auto at = signal_buffer<float>(d, static_cast<size_t>(std::max(queries, 0)));
    for (float& value : at.all()) value *= 100.0f;
    Buffer<float> out(at.all().size());
    cubicinterp_process(curve, at.data(), out.data(), queries);
    cubicinterp_process(curve, at.data(), at.data(), queries);
    cubicinterp_deinit(curve);

    // The two stages with widths and slopes of their own.
    const auto size = x.all().size();
    auto h = signal_buffer<float>(d, size);
    auto del = signal_buffer<float>(d, size);
    Buffer<float> slopes(size);
    Buffer<float> coef[4] = {Buffer<float>(size), Buffer<float>(size), Buffer<float>(size),
                             Buffer<float>(size)};
    Poly poly = {n, coef[3].data(), coef[2].data(), coef[1].data(), coef[0].data(), nullptr};
    pchipslopes(x.data(), y.data(), del.data(), slopes.data(), n);
    pwch(x.data(), y.data(), slopes.data(), h.data(), del.data(), n, &poly);
}

}  // namespace krel_fuzz
