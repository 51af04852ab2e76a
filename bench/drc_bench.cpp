#include <vector>

#include "bench/report.h"
#include "dsp/drc.h"
#include "tests/support/signals.h"

namespace {

constexpr int kBlock = 128;

// Arg: peak of the voice on the 16-bit scale; above 31000 the limiter works.
void BM_Drc(benchmark::State& state) {
    const auto voice =
            krel_test::voice_s16(48000, 48000, 110.0, 160.0, static_cast<double>(state.range(0)));
    drc_t drc;
    drc_params_t params = {2, 240, 0, 7, 30720, 8192, 96};
    drc_init(&drc, &params);
    std::vector<int32_t> in(kBlock);
    std::vector<int16_t> out(kBlock);
    size_t at = 0;
    for (auto _ : state) {
        for (int i = 0; i < kBlock; ++i)
            in[static_cast<size_t>(i)] = voice[at + static_cast<size_t>(i)] * 21 / 16;
        at = at + 2 * kBlock <= voice.size() ? at + kBlock : 0;
        drc_process(&drc, in.data(), out.data(), kBlock);
        benchmark::DoNotOptimize(out.data());
    }
    krel_bench::report_per_sample(state, kBlock);
    drc_deinit(&drc);
}
BENCHMARK(BM_Drc)->Arg(12000)->Arg(32000);

}  // namespace
