// Whole presets, driven through AELI as the framework drives them: 960 stereo frames of float at 48 kHz.
#include <hardware/audio_effect.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench/report.h"
#include "effect/effect_library.h"
#include "tests/support/signals.h"
#include "wrapper/voice_changer.h"

namespace {

constexpr int kRateHz = 48000;
constexpr size_t kFrames = 960;
constexpr size_t kVoiceFrames = 4 * kRateHz / kFrames * kFrames;
constexpr int kWarmUpBlocks = 50;

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
    effect_descriptor_t descriptor;
    EffectQueryEffect(0, &descriptor);
    effect_handle_t handle = nullptr;
    AELI.create_effect(&descriptor.uuid, 0, 0, &handle);
    effect_config_t cfg = {};
    for (buffer_config_t* side : {&cfg.inputCfg, &cfg.outputCfg}) {
        side->samplingRate = kRateHz;
        side->channels = AUDIO_CHANNEL_OUT_STEREO;
        side->format = AUDIO_FORMAT_PCM_FLOAT;
        side->accessMode = EFFECT_BUFFER_ACCESS_READ;
    }
    cfg.outputCfg.accessMode = EFFECT_BUFFER_ACCESS_WRITE;
    int32_t param[] = {0, 4, 4, 0, preset};
    send(handle, EFFECT_CMD_SET_CONFIG, sizeof cfg, &cfg);
    send(handle, EFFECT_CMD_SET_PARAM, sizeof param, param);
    send(handle, EFFECT_CMD_ENABLE, 0, nullptr);
    return handle;
}

// Arg: preset.
void BM_Preset(benchmark::State& state) {
    const auto voice = stereo_voice();
    effect_handle_t handle = start(static_cast<int32_t>(state.range(0)));
    std::vector<float> block(2 * kFrames);
    size_t at = 0;
    const auto run = [&] {
        std::copy_n(voice.begin() + static_cast<ptrdiff_t>(at), block.size(), block.begin());
        at = (at + block.size()) % voice.size();
        audio_buffer_t buffer = {};
        buffer.frameCount = kFrames;
        buffer.f32 = block.data();
        (*handle)->process(handle, &buffer, &buffer);
    };
    for (int i = 0; i < kWarmUpBlocks; ++i) run();
    for (auto _ : state) run();
    krel_bench::report_per_sample(state, kFrames);
    AELI.release_effect(handle);
}
BENCHMARK(BM_Preset)->DenseRange(0, 16);

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
