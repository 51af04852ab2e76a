#include <algorithm>
#include <vector>

#include "bench/report.h"
#include "core/echos.h"
#include "tests/support/signals.h"

namespace {

constexpr int kBlock = 128;
constexpr int kRate = 48000;

// The six echoes of the voice preset, in place.
void BM_Echos(benchmark::State& state) {
    const auto voice = krel_test::voice_s16(kRate, kRate);
    int delays[KREL_ECHO_TAPS] = {};
    int gains[KREL_ECHO_TAPS] = {};
    calculate_echos(kRate, delays, gains, 2);
    echos_t echos;
    echos_init(&echos, delays, gains, 45);
    std::vector<int16_t> block(kBlock);
    size_t at = 0;
    for (auto _ : state) {
        std::copy_n(voice.begin() + static_cast<std::ptrdiff_t>(at), kBlock, block.begin());
        at = at + 2 * kBlock <= voice.size() ? at + kBlock : 0;
        echos_process(&echos, block.data(), block.data(), kBlock);
        benchmark::DoNotOptimize(block.data());
        benchmark::ClobberMemory();
    }
    krel_bench::report_per_sample(state, kBlock);
    echos_deinit(&echos);
}
BENCHMARK(BM_Echos);

}  // namespace
