// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "bench/voice_blocks.h"
#include "dsp/peq.h"
#include "tests/support/signals.h"

namespace {

using krel_bench::kRate;

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
    krel_bench::run_voice<int16_t>(state, voice, [&](int16_t* block) {
        peq_mono_process(peq, block, block, krel::kVoiceBlock);
    });
    peq_deinit(peq);
}
BENCHMARK(BM_PeqMono);

void BM_PeqStereo(benchmark::State& state) {
    const auto voice = krel_test::voice_s16(kRate, kRate);
    const auto params = five_bands();
    void* peq = peq_init(&params);
    int32_t right[krel::kVoiceBlock];
    krel_bench::run_voice<int32_t>(state, voice, [&](int32_t* left) {
        std::copy_n(left, krel::kVoiceBlock, right);
        peq_stereo_process(peq, left, right, left, right, krel::kVoiceBlock);
    });
    peq_deinit(peq);
}
BENCHMARK(BM_PeqStereo);

}  // namespace
