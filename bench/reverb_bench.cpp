#include <algorithm>
#include <vector>

#include "bench/report.h"
#include "core/reverb.h"
#include "tests/support/signals.h"

namespace {

constexpr int kBlock = 128;
constexpr int kRate = 48000;

// Settings of the first reverberating voice at 44.1 kHz and above. Arg: 0 mono, 1 stereo.
void BM_Reverb(benchmark::State& state) {
    const bool stereo = state.range(0) != 0;
    const auto voice = krel_test::voice_s16(kRate, kRate);
    reverb_t rv;
    reverb_init(&rv);
    reverb_setroomsize(&rv, 256);
    reverb_setdamp(&rv, 256);
    reverb_setwet(&rv, 512);
    reverb_setdry(&rv, 3072);
    reverb_setwidth(&rv, 2048);
    reverb_setgain(&rv, 1024);
    reverb_update(&rv);
    std::vector<int16_t> l(kBlock);
    std::vector<int16_t> r(kBlock);
    size_t at = 0;
    for (auto _ : state) {
        std::copy_n(voice.begin() + static_cast<std::ptrdiff_t>(at), kBlock, l.begin());
        at = at + 2 * kBlock <= voice.size() ? at + kBlock : 0;
        if (stereo) {
            r = l;
            reverb_process_stereo(&rv, l.data(), r.data(), l.data(), r.data(), kBlock);
        } else {
            reverb_process_mono(&rv, l.data(), l.data(), kBlock);
        }
        benchmark::DoNotOptimize(l.data());
        benchmark::ClobberMemory();
    }
    krel_bench::report_per_sample(state, kBlock);
    reverb_end(&rv);
}
BENCHMARK(BM_Reverb)->ArgName("stereo")->Arg(0)->Arg(1);

}  // namespace
