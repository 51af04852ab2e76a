// SPDX-License-Identifier: Apache-2.0
#include "bench/voice_blocks.h"
#include "delay/echos.h"
#include "tests/support/signals.h"

namespace {

using krel_bench::kRate;

// The six echoes of the voice preset, in place.
void BM_Echos(benchmark::State& state) {
    const auto voice = krel_test::voice_s16(kRate, kRate);
    int delays[KREL_ECHO_TAPS] = {};
    int gains[KREL_ECHO_TAPS] = {};
    calculate_echos(kRate, delays, gains, 2);
    echos_t echos;
    echos_init(&echos, delays, gains, 45);
    krel_bench::run_voice<int16_t>(state, voice, [&](int16_t* block) {
        echos_process(&echos, block, block, krel::kVoiceBlock);
    });
    echos_deinit(&echos);
}
BENCHMARK(BM_Echos);

}  // namespace
