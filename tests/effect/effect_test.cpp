// SPDX-License-Identifier: Apache-2.0
// What holds for blocks of any kind through AELI; log lines; debug dumps.
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>

#include "spectral/vocal.h"
#include "tests/support/instance.h"
#include "tests/support/platform.h"
#include "tests/support/signals.h"

namespace {

using namespace krel_test;

/// A voice and then silence through a preset at 16 kHz, in calls of the given frame counts, again
/// and again.
std::vector<int16_t> render(int32_t preset, const std::vector<size_t>& sizes) {
    srand(1);  // the echo draws its delays
    std::vector<int16_t> audio;
    for (const int16_t s : voice_s16(12000, 16000)) audio.insert(audio.end(), 2, s);
    audio.resize(audio.size() + 2 * 64000);
    Instance instance(Config{.rate_hz = 16000}, preset);
    instance.enable();
    for (int i = 0; i < 2; ++i) instance.run(std::vector<int16_t>(256));  // the fade-in, on silence
    size_t call = 0;
    for (size_t at = 0; at < audio.size();) {
        const size_t frames = std::min(sizes[call++ % sizes.size()], (audio.size() - at) / 2);
        EXPECT_EQ(instance.process(&audio[at], &audio[at], frames), 0);
        at += 2 * frames;
    }
    return audio;
}

TEST(Effect, BlocksOfAnyLengthGiveOneAndTheSameAudibleStreamAndTailsEnd) {
    // In silence, but for the -1 that arithmetic shifts leave behind in the reverberator: -2 with
    // the make-up gain.
    const auto silent = [](int16_t s) { return s <= 0 && s >= -2; };
    for (int32_t preset = 0; preset <= 16; ++preset) {
        const auto expected = render(preset, {128});
        EXPECT_GT(std::ranges::max(expected), 1000) << preset;
        EXPECT_TRUE(std::all_of(expected.end() - 3200, expected.end(), silent)) << preset;
        for (const auto& sizes : {std::vector<size_t>{1}, {127}, {240}, {1, 960, 64, 2000}})
            EXPECT_EQ(render(preset, sizes), expected) << preset << ' ' << sizes[0];
    }
}

TEST(Effect, LogsItsLife) {
    LogCapture log;
    {
        Instance instance(Config{.rate_hz = 44100}, 0);
        instance.enable();
        EXPECT_EQ(instance.set_preset(0), 0) << "the current one: not a word";
        EXPECT_EQ(instance.set_preset(16), 0);
        for (int i = 0; i < 4; ++i) instance.run(std::vector<int16_t>(480));
        EXPECT_EQ(instance.configure({.access = 3}), -EINVAL);
    }
    vocal_init(nullptr, 48000, 2.01f, 1);
    std::string lines;
    for (const auto& line : log.lines) lines += line + '\n';
    EXPECT_EQ(lines, R"(3 _K_krel_vcp_sfx: EffectCreate
3 _K_krel_vcp_sfx: configure format:1, channels:3, samplingRate:44100
3 _K_krel_vcp_sfx: configure: samplingRate configure 44100
3 _K_krel_vcp_sfx: init
3 _K_vcp_wrapper: krel_voice_changer_init: chn_num 2, sample_rate 44100, format_type 1, mode 0
3 _K_vcp_core: vcp_init: sample_rate 44100
3 _K_vcp_core: vcp_init: sample_rate 44100
3 _K_vcp_wrapper: krel_voice_changer_set_mode: 0, drc 0
3 _K_vcp_core: vcp_set_mode: mode 0
3 _K_vcp_core: vocoder_init: fftsize 2048
3 _K_krel_vcp_sfx: set fx preset 16
3 _K_krel_vcp_sfx: numFrames change to 240, dump 0
3 _K_vcp_core: vocoder_deinit
3 _K_vcp_core: vcp_deinit: mMode 0
3 _K_vcp_core: vcp_init: sample_rate 44100
3 _K_vcp_wrapper: krel_voice_changer_set_mode: 16, drc 0
3 _K_vcp_core: vcp_set_mode: mode 16
3 _K_vcp_core: vocal_init formant ratio 1.000000, fdeq_mode 5
3 _K_krel_vcp_sfx: configure format:1, channels:3, samplingRate:48000
5 _K_krel_vcp_sfx: configure: accessMode configure error
3 _K_krel_vcp_sfx: EffectRelease
3 _K_vcp_wrapper: krel_voice_changer_deinit
3 _K_vcp_core: vocal_deinit
3 _K_vcp_core: vcp_deinit: mMode 16
6 _K_vcp_core: fratio can't support 2.010000
)");
}

template <typename T>
std::string bytes_of(const std::vector<T>& block) {
    return {reinterpret_cast<const char*>(block.data()), block.size() * sizeof(T)};
}

TEST(Effect, DumpsInputProcessedAndMixedBlocks) {
    const Config config = {AUDIO_FORMAT_PCM_FLOAT, 16000, 3, EFFECT_BUFFER_ACCESS_ACCUMULATE};
    setenv("AUDIO_KREL_VCP_DUMP", "true", 1);
    Instance instance(config);
    EXPECT_EQ(instance.record().dumpEnabled, 0);
    setenv("AUDIO_KREL_VCP_DUMP", "2", 1);
    EXPECT_EQ(instance.configure(config), 0);
    unsetenv("AUDIO_KREL_VCP_DUMP");
    EXPECT_EQ(instance.record().dumpEnabled, 2);

    std::vector<float> in(400, 0.25f);
    std::vector<float> out(400);
    char name[3][100];
    const void* self = instance.handle();
    const void* mix = out.data();
    snprintf(name[0], 100, "/data/vendor/audio_dump/krel_vcp_%p_in_16000_3.pcm", self);
    snprintf(name[1], 100, "/data/vendor/audio_dump/krel_vcp_%p_out_16000_3.pcm", self);
    snprintf(name[2], 100, "/data/vendor/audio_dump/krel_hp_%p_out2_16000_3.pcm", mix);
    instance.enable();
    const Gate gate;
    auto expected = gate.dumps;
    for (int call = 0; call < 8; ++call) {
        if (call == 7) instance.set_preset(8);  // this block fades out
        std::ranges::fill(out, 0.0f);
        instance.process(in.data(), out.data(), 200);
        expected.emplace_back(name[0], bytes_of(std::vector<int32_t>(400, 1 << 29)));
        std::vector<int32_t> wide;
        for (const float x : out) wide.push_back(static_cast<int32_t>(x * 0x1p31f));
        expected.emplace_back(name[1], bytes_of(wide));
        expected.emplace_back(name[2], bytes_of(out));
    }
    EXPECT_TRUE(out[0] > 0.1f && out[399] < 0.01f);
    // Inactive: only the mixed output is kept. Written, not added: not even that.
    instance.disable();
    instance.process(in.data(), out.data(), 200);
    expected.emplace_back(name[2], bytes_of(out));
    instance.process(in.data(), in.data(), 200);
    EXPECT_TRUE(gate.dumps == expected);
}

}  // namespace
