// SPDX-License-Identifier: Apache-2.0
#include <vector>

#include "bench/report.h"
#include "dsp/cubic_interp.h"
#include "dsp/iir.h"
#include "tests/support/signals.h"

namespace {

constexpr int kBlock = 1024;

void BM_IirFloatMono(benchmark::State& state) {
    const auto noise = krel_test::noise_s16(kBlock, 1);
    std::vector<float> in(noise.begin(), noise.end());
    std::vector<float> out(in.size());
    iir_biquad_t filter;
    iir_float_init(&filter, 8000, 100, 1);
    for (auto _ : state) {
        iir_float_process_mono(&filter, in.data(), out.data(), kBlock);
        benchmark::DoNotOptimize(out.data());
    }
    krel_bench::report_per_sample(state, kBlock);
}
BENCHMARK(BM_IirFloatMono);

// After a burst the history decays toward the smallest numbers there are.
void BM_IirFloatMonoSilenceAfterBurst(benchmark::State& state) {
    std::vector<float> io(kBlock);
    iir_biquad_t filter;
    iir_float_init(&filter, 8000, 100, 1);
    for (auto _ : state) {
        io.assign(io.size(), 0.0f);
        io[0] = 1e-30f;
        iir_float_process_mono(&filter, io.data(), io.data(), kBlock);
        benchmark::DoNotOptimize(io.data());
    }
    krel_bench::report_per_sample(state, kBlock);
}
BENCHMARK(BM_IirFloatMonoSilenceAfterBurst);

void BM_IirShortStereo(benchmark::State& state) {
    auto in = krel_test::noise_s16(2 * kBlock, 1);
    std::vector<int16_t> out(in.size());
    iir_biquad_t filter;
    iir_float_init(&filter, 48000, 1000, 1);
    for (auto _ : state) {
        iir_short_process_stereo(&filter, in.data(), out.data(), kBlock);
        benchmark::DoNotOptimize(out.data());
    }
    krel_bench::report_per_sample(state, kBlock);
}
BENCHMARK(BM_IirShortStereo);

// Building an eleven-knot curve and evaluating it at 1024 points, as an EQ does once.
void BM_CubicInterp(benchmark::State& state) {
    std::vector<float> x(11);
    std::vector<float> y(11);
    for (size_t i = 0; i < x.size(); ++i) {
        x[i] = static_cast<float>(i) * 600.0f;
        y[i] = static_cast<float>(i * 7 % 5);
    }
    std::vector<float> query(kBlock);
    std::vector<float> value(kBlock);
    for (size_t i = 0; i < query.size(); ++i) query[i] = static_cast<float>(i) * 7.8f;
    for (auto _ : state) {
        void* curve = cubicinterp_init(x.data(), y.data(), static_cast<int>(x.size()));
        cubicinterp_process(curve, query.data(), value.data(), kBlock);
        cubicinterp_deinit(curve);
        benchmark::DoNotOptimize(value.data());
    }
    krel_bench::report_per_sample(state, kBlock);
}
BENCHMARK(BM_CubicInterp);

}  // namespace
