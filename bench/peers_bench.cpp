// SPDX-License-Identifier: Apache-2.0
// Pitch changers of other makers, through their public interfaces, where Debian's packages of them
// are installed: what a voice costs elsewhere, in the same run. 48 kHz mono speech in blocks of 128
// floats, as BM_Preset has it.
#include <rubberband/RubberBandStretcher.h>
#include <soundtouch/SoundTouch.h>

#include <vector>

#include "bench/report.h"
#include "tests/support/signals.h"

namespace {

constexpr int kRateHz = 48000;
constexpr size_t kBlock = 128;

/// Times exchange(block) over seconds of speech.
template <typename Exchange>
void run_speech(benchmark::State& state, Exchange exchange) {
    std::vector<float> voice;
    for (const int16_t s : krel_test::voice_s16(4 * kRateHz, kRateHz))
        voice.push_back(static_cast<float>(s) / 32768.0f);
    std::vector<float> block(kBlock);
    size_t at = 0;
    for (auto _ : state) {
        std::copy_n(voice.begin() + static_cast<ptrdiff_t>(at), kBlock, block.begin());
        at = (at + kBlock) % voice.size();
        exchange(block);
        benchmark::DoNotOptimize(block.data());
    }
    krel_bench::report_per_sample(state, kBlock);
}

// Arg: pitch in percent. The settings are those that its documentation gives for speech.
void BM_PeerSoundTouch(benchmark::State& state) {
    soundtouch::SoundTouch changer;
    changer.setSampleRate(kRateHz);
    changer.setChannels(1);
    changer.setPitch(static_cast<double>(state.range(0)) / 100.0);
    changer.setSetting(SETTING_SEQUENCE_MS, 40);
    changer.setSetting(SETTING_SEEKWINDOW_MS, 15);
    changer.setSetting(SETTING_OVERLAP_MS, 8);
    run_speech(state, [&](std::vector<float>& block) {
        changer.putSamples(block.data(), kBlock);
        changer.receiveSamples(block.data(), kBlock);
    });
}
BENCHMARK(BM_PeerSoundTouch)->Arg(80)->Arg(130);

// Arg: pitch in percent. The faster engine, in real time, with formants kept.
void BM_PeerRubberBand(benchmark::State& state) {
    using RubberBand::RubberBandStretcher;
    RubberBandStretcher changer(kRateHz, 1,
                                RubberBandStretcher::OptionProcessRealTime |
                                        RubberBandStretcher::OptionEngineFaster |
                                        RubberBandStretcher::OptionFormantPreserved,
                                1.0, static_cast<double>(state.range(0)) / 100.0);
    run_speech(state, [&](std::vector<float>& block) {
        const float* in = block.data();
        float* out = block.data();
        changer.process(&in, kBlock, false);
        if (changer.available() >= static_cast<int>(kBlock)) changer.retrieve(&out, kBlock);
    });
}
BENCHMARK(BM_PeerRubberBand)->Arg(150);

}  // namespace
