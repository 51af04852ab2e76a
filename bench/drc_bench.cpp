// SPDX-License-Identifier: Apache-2.0
#include "bench/voice_blocks.h"
#include "tests/support/signals.h"

namespace {

using krel_bench::kRate;

// Make-up gain and compressor. Arg: peak of the voice on the 16-bit scale; above 24000 the limiter
// works.
void BM_Compress(benchmark::State& state) {
    const auto peak = static_cast<double>(state.range(0));
    const auto voice = krel_test::voice_s16(kRate, kRate, 110.0, 160.0, peak);
    drc_t compressor;
    krel::voice_compressor_init(&compressor);
    int32_t amplified[krel::kVoiceBlock];
    krel_bench::run_voice<int16_t>(state, voice, [&](int16_t* block) {
        krel::voice_compress(&compressor, amplified, block);
    });
    drc_deinit(&compressor);
}
BENCHMARK(BM_Compress)->Arg(12000)->Arg(32000);

}  // namespace
