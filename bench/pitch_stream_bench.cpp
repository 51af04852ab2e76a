// SPDX-License-Identifier: Apache-2.0
#include <speex/speex_resampler.h>

#include <vector>

#include "bench/voice_blocks.h"
#include "pitch_stream/pitch_stream.h"
#include "tests/support/signals.h"

namespace {

using krel_bench::kRate;
constexpr int kBlock = krel::kVoiceBlock;
constexpr size_t kTwoBlocks = size_t{2} * kBlock;
constexpr int kPeriod = 400;  // 120 Hz

struct Setting {
    float pitch;  // 0: tracking
    int target_hz;
    float max_pitch;
    float min_pitch;
};
constexpr Setting kSettings[] = {
        {0.8f, 0, 0.0f, 0.0f},   {1.3f, 0, 0.0f, 0.0f},   {0.0f, 223, 2.7f, 1.5f},
        {0.0f, 200, 2.4f, 1.3f}, {0.0f, 250, 3.0f, 1.7f},
};

std::vector<int16_t> voice() { return krel_test::voice_s16(20 * kRate, kRate, 100.0, 180.0); }

pitchStreamStruct* create(const Setting& setting) {
    auto* stream =
            pitchCreateStream(kRate, setting.target_hz, setting.max_pitch, setting.min_pitch, 1024);
    if (setting.pitch > 0.0f) pitchSetPitch(stream, setting.pitch);
    return stream;
}

// Arg: index of kSettings. One block written and read per iteration.
void BM_PitchStream(benchmark::State& state) {
    auto samples = voice();
    auto* stream = create(kSettings[state.range(0)]);
    std::vector<int16_t> out(kBlock);
    size_t at = 0;
    for (auto _ : state) {
        pitchWriteShortToStream(stream, samples.data() + at, kBlock);
        benchmark::DoNotOptimize(pitchReadShortFromStream(stream, out.data(), kBlock));
        at = at + kTwoBlocks <= samples.size() ? at + kBlock : 0;
    }
    krel_bench::report_per_sample(state, kBlock);
    pitchDestroyStream(stream);
}
BENCHMARK(BM_PitchStream)->DenseRange(0, 4);

// The resampler's share of the above, for about 128 samples out per iteration at a ratio of 1.3.
// Arg 0: the rate stays; 1: it changes each time, as it does while tracking a moving voice.
void BM_PitchStreamResampler(benchmark::State& state) {
    auto samples = voice();
    auto* resampler = speex_resampler_init(1, kRate, kRate, 5, nullptr);
    speex_resampler_set_rate(resampler, kRate, kRate * 10 / 13);
    std::vector<int16_t> out(kTwoBlocks);
    size_t at = 0;
    uint32_t step = 0;
    for (auto _ : state) {
        if (state.range(0) == 1) {
            step ^= 1;
            speex_resampler_set_rate(resampler, kRate, kRate * 10 / 13 + step);
        }
        uint32_t inLength = kBlock * 13 / 10;
        uint32_t outLength = kTwoBlocks;
        speex_resampler_process_int(resampler, 0, samples.data() + at, &inLength, out.data(),
                                    &outLength);
        benchmark::DoNotOptimize(out.data());
        at = at + 2 * kTwoBlocks <= samples.size() ? at + kBlock : 0;
    }
    krel_bench::report_per_sample(state, kBlock);
    speex_resampler_destroy(resampler);
}
BENCHMARK(BM_PitchStreamResampler)->Arg(0)->Arg(1);

// One whole search; the stream makes one per edited period. Time per call.
void BM_PitchStreamSearch(benchmark::State& state) {
    auto samples = voice();
    auto* stream = create(kSettings[0]);
    size_t at = kRate / 8;
    for (auto _ : state) {
        benchmark::DoNotOptimize(findPitchPeriod(stream, samples.data() + at, 1));
        at = at + 8000 <= samples.size() ? at + 997 : 0;
    }
    pitchDestroyStream(stream);
}
BENCHMARK(BM_PitchStreamSearch);

// The loops alone, time per call.
void BM_PitchStreamDecimate(benchmark::State& state) {
    auto samples = voice();
    auto* stream = create(kSettings[0]);
    for (auto _ : state) {
        downSampleInput(stream, samples.data(), static_cast<int>(state.range(0)));
        benchmark::DoNotOptimize(stream->downSampleBuffer);
    }
    pitchDestroyStream(stream);
}
BENCHMARK(BM_PitchStreamDecimate)->Arg(2)->Arg(11)->Arg(12)->Arg(48);

void BM_PitchStreamDifferences(benchmark::State& state) {
    auto samples = voice();
    const auto low = static_cast<int>(state.range(0));
    const auto high = static_cast<int>(state.range(1));
    int least = 0;
    int greatest = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
                findPitchPeriodInRange(samples.data() + kRate, low, high, &least, &greatest));
    }
}
BENCHMARK(BM_PitchStreamDifferences)->Args({10, 160})->Args({352, 448});

void BM_PitchStreamCrossFade(benchmark::State& state) {
    auto samples = voice();
    std::vector<int16_t> out(kPeriod);
    for (auto _ : state) {
        overlapAdd(kPeriod, out.data(), samples.data() + kRate, samples.data() + kRate + kPeriod);
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_PitchStreamCrossFade);

void BM_PitchStreamBaseFreq(benchmark::State& state) {
    auto samples = voice();
    auto* stream = create(kSettings[2]);
    for (auto _ : state) updateBaseFreq(stream, samples.data() + kRate / 4, kPeriod);
    pitchDestroyStream(stream);
}
BENCHMARK(BM_PitchStreamBaseFreq);

}  // namespace
