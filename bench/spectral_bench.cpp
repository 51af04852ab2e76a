// SPDX-License-Identifier: Apache-2.0
#include <vector>

#include "bench/voice_blocks.h"
#include "spectral/pitch.h"
#include "spectral/transform.h"
#include "spectral/vocal.h"
#include "spectral/vocoder.h"
#include "tables/carrier.h"
#include "tests/support/signals.h"

namespace {

using krel::kVoiceBlock;
using krel_bench::kRate;

/// Feeds a voice in blocks through process(ctx, in, out, frames).
template <typename Context>
void run_effect(benchmark::State& state, Context* ctx,
                int (*process)(void*, int16_t*, int16_t*, int)) {
    krel_bench::run_voice<int16_t>(state, krel_test::voice_s16(kRate, kRate), [&](int16_t* block) {
        process(ctx, block, block, kVoiceBlock);
    });
}

// One forward and one inverse transform per hop: the floor under every effect of this family.
void BM_FftPair(benchmark::State& state) {
    const auto size = static_cast<int32_t>(state.range(0));
    krel_fft_t* cfg = krel::fft_create(size);
    std::vector<krel_complex_t> time(static_cast<size_t>(size), {0.1f, 0.0f});
    auto spectrum = time;
    for (auto _ : state) {
        krel::fft_forward(cfg, time.data(), spectrum.data());
        krel::fft_inverse(cfg, spectrum.data(), time.data());
        benchmark::DoNotOptimize(time.data());
    }
    krel_bench::report_per_sample(state, size / 4);
    krel::fft_destroy(cfg);
}
BENCHMARK(BM_FftPair)->Arg(512)->Arg(1024)->Arg(2048);

// Arg: scale in percent.
void BM_Pitch(benchmark::State& state) {
    pitch_ctx_t pitch;
    pitch_init(&pitch, kRate, static_cast<float>(state.range(0)) / 100.0f);
    run_effect(state, &pitch, pitch_process);
    pitch_deinit(&pitch);
}
BENCHMARK(BM_Pitch)->Arg(78)->Arg(136);

void BM_Vocoder(benchmark::State& state) {
    vocoder_ctx_t vocoder;
    vocoder_init(&vocoder, kRate, krel::kCarrier);
    run_effect(state, &vocoder, vocoder_process);
    vocoder_deinit(&vocoder);
}
BENCHMARK(BM_Vocoder);

// Args: formant ratio in ten millionths, EQ curve.
void BM_Vocal(benchmark::State& state) {
    vocal_ctx_t vocal;
    vocal_init(&vocal, kRate, static_cast<float>(static_cast<double>(state.range(0)) * 1e-7),
               static_cast<int>(state.range(1)));
    run_effect(state, &vocal, vocal_process);
    vocal_deinit(&vocal);
}
BENCHMARK(BM_Vocal)
        ->ArgNames({"ratio", "eq"})
        ->Args({5605381, 2})
        ->Args({6250000, 0})
        ->Args({5000000, 1})
        ->Args({10000000, 4})
        ->Args({10000000, 5});

// Silent frames below ratio 1 are full of NaN, fading voices of small numbers: neither may cost
// more.
void BM_VocalSilence(benchmark::State& state) {
    vocal_ctx_t vocal;
    vocal_init(&vocal, kRate, static_cast<float>(static_cast<double>(state.range(0)) * 1e-7), 0);
    std::vector<int16_t> block(kVoiceBlock);
    for (auto _ : state) {
        vocal_process(&vocal, block.data(), block.data(), kVoiceBlock);
        benchmark::DoNotOptimize(block.data());
    }
    krel_bench::report_per_sample(state, kVoiceBlock);
    vocal_deinit(&vocal);
}
BENCHMARK(BM_VocalSilence)->ArgName("ratio")->Arg(6250000)->Arg(10000000);

}  // namespace
