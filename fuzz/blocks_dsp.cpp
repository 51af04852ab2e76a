#include "dsp/cubic_interp.h"
#include "dsp/drc.h"
#include "dsp/iir.h"
#include "dsp/peq.h"
#include "fuzz/blocks.h"
#include "fuzz/signal.h"

namespace krel_fuzz {
namespace {

constexpr int32_t kMostSamples = 8192;

template <typename T>
void run_iir(Draw& d, iir_biquad_t* filter, int (*process)(void*, T*, T*, int), int channels,
             int n) {
    const auto samples = static_cast<size_t>(std::max(n, 0) * channels);
    auto in = signal_buffer<T>(d, samples);
    Buffer<T> out(samples);
    const bool in_place = d.one_in(2);
    require(process(filter, in.data(), in_place ? in.data() : out.data(), n) == n,
            "iir: returns n");
    require(process(nullptr, in.data(), out.data(), n) == -1, "iir: refuses null");
    require(process(filter, nullptr, out.data(), n) == -1, "iir: refuses null");
    require(process(filter, in.data(), nullptr, n) == -1, "iir: refuses null");
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
    drc_params_t params = {2, 240, 0, 7, 30720, 8192, 96};
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
    drc_init(nullptr, &params);
    in_drawn_lengths(d, kMostSamples, [&](int32_t n) {
        auto in = signal_buffer<int32_t>(d, static_cast<size_t>(std::max(n, 0)));
        if (!d.one_in(2)) {
            for (int32_t& sample : in.all()) sample >>= 15;
        }
        Buffer<int16_t> out(in.all().size());
        drc_process(&drc, in.data(), out.data(), n);
        int32_t mean = 0;
        require(find_current_max_drc(in.data(), &mean, n) >= 0, "drc: a peak is not negative");
        drc_process(&drc, n < 1 ? nullptr : in.data(), nullptr, n);
    });
    drc_deinit(&drc);
    drc_deinit(&drc);
    drc_deinit(nullptr);
}

void fuzz_equaliser(Draw& d) {
    peq_stereo_param_t params;
    for (peq_band_param_t& band : params.band) {
        const auto coefficient = [&d] { return d.one_in(2) ? 1 << 28 : d.any<int32_t>(); };
        band = {d.range(-1, 2), coefficient(), coefficient(),
                coefficient(),  coefficient(), coefficient()};
    }
    require(peq_init(nullptr) == nullptr, "peq: needs parameters");
    void* peq = peq_init(&params);
    in_drawn_lengths(d, kMostSamples, [&](int32_t n) {
        const auto samples = static_cast<size_t>(std::max(n, 0));
        if (d.one_in(2)) {
            auto in = signal_buffer<int16_t>(d, samples);
            Buffer<int16_t> out(samples);
            int16_t* to = d.one_in(2) ? in.data() : out.data();
            peq_mono_process(peq, or_null(d, in.data()), to, n);
            return;
        }
        auto left = signal_buffer<int32_t>(d, samples);
        auto right = signal_buffer<int32_t>(d, samples);
        Buffer<int32_t> out(samples);
        // Into itself, into the other channel, or elsewhere.
        const int32_t to = d.range(0, 2);
        int32_t* const to_left = to == 0 ? left.data() : to == 1 ? right.data() : out.data();
        int32_t* const to_right = to == 0 ? right.data() : left.data();
        const int32_t no = d.range(0, 63);  // 0..3: a null buffer
        peq_stereo_process(peq, no == 0 ? nullptr : left.data(), no == 1 ? nullptr : right.data(),
                           no == 2 ? nullptr : to_left, no == 3 ? nullptr : to_right, n);
    });
    peq_deinit(peq);
    peq_deinit(nullptr);
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
    cubicinterp_process(nullptr, at.data(), out.data(), queries);
    cubicinterp_deinit(curve);
    cubicinterp_deinit(nullptr);

    // The two stages with widths and slopes of their own.
    const auto size = x.all().size();
    auto h = signal_buffer<float>(d, size);
    auto del = signal_buffer<float>(d, size);
    Buffer<float> slopes(size), coef3(size), coef2(size), coef1(size), coef0(size);
    Poly poly = {n, coef3.data(), coef2.data(), coef1.data(), coef0.data(), nullptr};
    pchipslopes(x.data(), y.data(), del.data(), slopes.data(), n);
    pwch(x.data(), y.data(), slopes.data(), h.data(), del.data(), n, &poly);
}

}  // namespace krel_fuzz
