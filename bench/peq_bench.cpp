#include <algorithm>
#include <vector>

#include "bench/report.h"
#include "dsp/peq.h"
#include "tests/support/signals.h"

namespace {

constexpr int kBlock = 128;
constexpr int kRate = 48000;

// A gentle low-pass per band: what the coefficients are does not matter for the time.
peq_stereo_param_t five_bands() {
    peq_stereo_param_t params{};
    for (auto& band : params.band) band = {1, 1 << 25, 1 << 26, 1 << 25, 1 << 27, -(1 << 26)};
    return params;
}

void BM_PeqMono(benchmark::State& state) {
    const auto voice = krel_test::voice_s16(kRate, kRate);
    const auto params = five_bands();
    void* peq = peq_init(&params);
    std::vector<int16_t> block(kBlock);
    size_t at = 0;
    for (auto _ : state) {
        std::copy_n(voice.begin() + static_cast<std::ptrdiff_t>(at), kBlock, block.begin());
        at = at + 2 * kBlock <= voice.size() ? at + kBlock : 0;
        peq_mono_process(peq, block.data(), block.data(), kBlock);
        benchmark::DoNotOptimize(block.data());
        benchmark::ClobberMemory();
    }
    krel_bench::report_per_sample(state, kBlock);
    peq_deinit(peq);
}
BENCHMARK(BM_PeqMono);

void BM_PeqStereo(benchmark::State& state) {
    const auto voice = krel_test::voice_s16(kRate, kRate);
    const auto params = five_bands();
    void* peq = peq_init(&params);
    std::vector<int32_t> l(kBlock);
    std::vector<int32_t> r(kBlock);
    size_t at = 0;
    for (auto _ : state) {
        std::copy_n(voice.begin() + static_cast<std::ptrdiff_t>(at), kBlock, l.begin());
        at = at + 2 * kBlock <= voice.size() ? at + kBlock : 0;
        r = l;
        peq_stereo_process(peq, l.data(), r.data(), l.data(), r.data(), kBlock);
        benchmark::DoNotOptimize(l.data());
        benchmark::ClobberMemory();
    }
    krel_bench::report_per_sample(state, kBlock);
    peq_deinit(peq);
}
BENCHMARK(BM_PeqStereo);

}  // namespace
