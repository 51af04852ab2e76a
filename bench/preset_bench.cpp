// SPDX-License-Identifier: Apache-2.0
// Whole presets, driven through AELI as the framework drives them: stereo float at 48 kHz, 960, 192
// or 128 frames a block.
#include <hardware/audio_effect.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench/report.h"
#include "core/presets.h"
#include "effect/effect_library.h"
#include "effect/interface.h"
#include "tests/support/signals.h"
#include "wrapper/voice_changer.h"

namespace {

constexpr int kRateHz = 48000;
constexpr size_t kFrames = 960;
constexpr size_t kVoiceFrames = size_t{4} * kRateHz;
constexpr size_t kWarmUpFrames = kRateHz;

std::vector<float> stereo_voice() {
    const auto mono = krel_test::voice_s16(static_cast<int>(kVoiceFrames), kRateHz);
    std::vector<float> out;
    for (const int16_t s : mono) out.insert(out.end(), 2, static_cast<float>(s) / 32768.0f);
    return out;
}

void send(effect_handle_t handle, uint32_t code, uint32_t size, void* data) {
    int32_t status = -1;
    uint32_t reply_size = sizeof status;
    if ((*handle)->command(handle, code, size, data, &reply_size, &status) != 0 || status != 0) {
        std::fprintf(stderr, "command %u refused\n", code);
        std::abort();
    }
}

effect_handle_t start(int32_t preset) {
    constexpr effect_uuid_t kUuid = KREL_VCP_UUID;
    effect_handle_t handle = nullptr;
    AELI.create_effect(&kUuid, 0, 0, &handle);
    effect_config_t cfg = {};
    for (buffer_config_t* side : {&cfg.inputCfg, &cfg.outputCfg}) {
        side->samplingRate = kRateHz;
        side->channels = AUDIO_CHANNEL_OUT_STEREO;
        side->format = AUDIO_FORMAT_PCM_FLOAT;
        side->accessMode = EFFECT_BUFFER_ACCESS_READ;
    }
    cfg.outputCfg.accessMode = EFFECT_BUFFER_ACCESS_WRITE;
    krel_vcp_param_t param = KREL_VCP_PARAM(preset);
    send(handle, EFFECT_CMD_SET_CONFIG, sizeof cfg, &cfg);
    send(handle, EFFECT_CMD_SET_PARAM, sizeof param, &param);
    send(handle, EFFECT_CMD_ENABLE, 0, nullptr);
    return handle;
}

/// Processor time of this thread: what the block costs, whatever else the machine does meanwhile.
double thread_seconds() {
    timespec t = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

/// Median, 99.9th percentile and maximum, in multiples of the block's duration: at 1 the audio
/// stops. "12.3m" is 0.0123.
void report_blocks(benchmark::State& state, std::vector<double>& seconds, size_t frames) {
    std::sort(seconds.begin(), seconds.end());
    const double duration = static_cast<double>(frames) / kRateHz;
    const auto last = static_cast<double>(seconds.size() - 1);
    const auto quantile = [&](double q) {
        return seconds[static_cast<size_t>(q * last)] / duration;
    };
    state.counters["median"] = quantile(0.5);
    state.counters["p99.9"] = quantile(0.999);
    state.counters["max"] = quantile(1.0);
}

// Args: preset, frames per block. Only the block itself is timed.
void BM_Preset(benchmark::State& state) {
    const auto voice = stereo_voice();
    const auto frames = static_cast<size_t>(state.range(1));
    effect_handle_t handle = start(static_cast<int32_t>(state.range(0)));
    std::vector<float> block(2 * frames);
    size_t at = 0;
    const auto run = [&] {
        std::copy_n(voice.begin() + static_cast<ptrdiff_t>(at), block.size(), block.begin());
        at = (at + block.size()) % voice.size();
        audio_buffer_t buffer = {};
        buffer.frameCount = frames;
        buffer.f32 = block.data();
        const double begin = thread_seconds();
        (*handle)->process(handle, &buffer, &buffer);
        return thread_seconds() - begin;
    };
    for (size_t i = 0; i < kWarmUpFrames / frames; ++i) run();
    std::vector<double> seconds;
    seconds.reserve(static_cast<size_t>(state.max_iterations));
    for (auto _ : state) {
        seconds.push_back(run());
        state.SetIterationTime(seconds.back());
    }
    krel_bench::report_per_sample(state, static_cast<int64_t>(frames));
    report_blocks(state, seconds, frames);
    AELI.release_effect(handle);
}
BENCHMARK(BM_Preset)
        ->ArgsProduct({benchmark::CreateDenseRange(0, krel::kPresetCount - 1, 1), {960, 192, 128}})
        ->UseManualTime();

// The wrapper around an idle core, 16-bit stereo. Arg: 1 leaves gain and compressor out.
void BM_Wrapper(benchmark::State& state) {
    void* ws = krel_voice_changer_init(2, kRateHz, 1, static_cast<int>(state.range(0)));
    krel_voice_changer_set_mode(ws, 7);
    auto block = krel_test::noise_s16(2 * kFrames, 1, 8000);
    for (auto _ : state)
        krel_voice_changer_process(ws, block.data(), block.size() * sizeof(int16_t));
    krel_bench::report_per_sample(state, kFrames);
    krel_voice_changer_deinit(ws);
}
BENCHMARK(BM_Wrapper)->Arg(0)->Arg(1);

}  // namespace
