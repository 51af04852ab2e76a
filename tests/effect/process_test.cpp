#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <fstream>
#include <iterator>
#include <string>

#include "base/fixed_point.h"
#include "effect/instance.h"
#include "tests/effect/instance.h"
#include "tests/effect/platform_calls.h"
#include "tests/support/alloc_gate.h"
#include "tests/support/log_capture.h"
#include "tests/support/signals.h"
#include "wrapper/voice_changer.h"

namespace {

using krel_test::AllocGate;
using krel_test::Config;
using krel_test::Instance;
using krel_test::LogCapture;
using krel_test::platform_calls;

constexpr int kPassThrough = 7;

/// Stereo noise in a sample type: full scale for integers, +-1 for float.
template <typename T>
std::vector<T> noise(size_t frames, uint32_t seed) {
    const auto source = krel_test::noise_s16(static_cast<int>(4 * frames), seed);
    std::vector<T> out(2 * frames);
    for (size_t i = 0; i < out.size(); ++i) {
        const int32_t wide = source[2 * i] * 65536 + (source[2 * i + 1] & 0xFFFF);
        if constexpr (std::is_same_v<T, int16_t>) {
            out[i] = source[2 * i];
        } else if constexpr (std::is_same_v<T, int32_t>) {
            out[i] = wide;
        } else {
            out[i] = static_cast<float>(wide) / 2147483648.0f;
        }
    }
    return out;
}

int32_t to_s32(float x) {
    return krel::sat_s32(std::llround(static_cast<double>(x) * 2147483648.0));
}
float to_float(int32_t s) { return static_cast<float>(s) / 2147483648.0f; }

/// The voice changer alone, with the fades of the test's own, as the yardstick for the block path.
template <typename T>
class Yardstick {
  public:
    explicit Yardstick(int format_type, int mode, unsigned rate_hz = 48000)
        : ws_(krel_voice_changer_init(2, rate_hz, format_type, 0)) {
        krel_voice_changer_set_mode(ws_, mode);
    }
    ~Yardstick() { krel_voice_changer_deinit(ws_); }
    Yardstick(const Yardstick&) = delete;
    Yardstick& operator=(const Yardstick&) = delete;

    std::vector<T> run(std::vector<T> block) {
        krel_voice_changer_process(ws_, block.data(), block.size() * sizeof(T));
        return block;
    }
    void set_mode(int mode) { krel_voice_changer_set_mode(ws_, mode); }

  private:
    void* ws_;
};

/// Gain first + i * step in 1/8192 for frame i.
template <typename T>
std::vector<T> ramped(std::vector<T> block, int64_t first, int64_t step) {
    for (size_t i = 0; i < block.size(); ++i) {
        const int64_t gain = first + static_cast<int64_t>(i / 2) * step;
        block[i] = static_cast<T>((int64_t{block[i]} * gain) >> 13);
    }
    return block;
}

/// Drives enable and a preset change through one integer format and holds every block against the stated timeline.
template <typename T>
void expect_timeline(audio_format_t format, int format_type, size_t frames) {
    SCOPED_TRACE(testing::Message() << "format " << format << ", " << frames << " frames");
    Instance instance(Config{.format = format}, kPassThrough);
    Yardstick<T> wrapper(format_type, kPassThrough);
    const std::vector<T> silence(2 * frames, 0);
    const auto step = static_cast<int64_t>(8192 / frames);
    uint32_t seed = 100;
    const auto next = [&] { return noise<T>(frames, ++seed); };

    instance.enable();
    auto block = next();
    EXPECT_EQ(instance.run(block), wrapper.run(silence)) << "first block after enabling";
    block = next();
    EXPECT_EQ(instance.run(block), wrapper.run(ramped(block, 0, step))) << "fade in";
    for (int i = 0; i < 10; ++i) {
        block = next();
        EXPECT_EQ(instance.run(block), wrapper.run(block)) << "steady " << i;
    }
    instance.set_preset(8);
    block = next();
    EXPECT_EQ(instance.run(block), ramped(wrapper.run(block), 8192, -step)) << "switch, call 1";
    block = next();
    wrapper.run(block);
    LogCapture log;
    EXPECT_EQ(instance.run(block), silence) << "switch, call 2";
    EXPECT_EQ(log.count("vcp_set_mode: mode 8"), 1);
    wrapper.set_mode(8);
    log.clear();
    wrapper.run(silence);
    EXPECT_EQ(instance.run(next()), silence) << "switch, call 3";
    EXPECT_EQ(log.count("vcp_set_mode: mode 8"), 0) << "once only";
    block = next();
    EXPECT_EQ(instance.run(block), wrapper.run(ramped(block, 0, step))) << "switch, call 4";
    block = next();
    EXPECT_EQ(instance.run(block), wrapper.run(block)) << "after the switch";
}

TEST(Process, FadesAndSwitchFollowTheTimelineSampleBySample) {
    for (const size_t frames :
         {size_t{1}, size_t{127}, size_t{128}, size_t{960}, size_t{1200}, size_t{9000}}) {
        expect_timeline<int16_t>(AUDIO_FORMAT_PCM_16_BIT, 1, frames);
        expect_timeline<int32_t>(AUDIO_FORMAT_PCM_32_BIT, 3, frames);
        expect_timeline<int32_t>(AUDIO_FORMAT_PCM_8_24_BIT, 2, frames);
    }
}

TEST(Process, FloatBuffersEqualThirtyTwoBitOnesConverted) {
    Instance wide(Config{.format = AUDIO_FORMAT_PCM_32_BIT}, kPassThrough);
    Instance floating(Config{.format = AUDIO_FORMAT_PCM_FLOAT}, kPassThrough);
    wide.enable();
    floating.enable();
    for (uint32_t call = 0; call < 16; ++call) {
        if (call == 8) {
            wide.set_preset(9);
            floating.set_preset(9);
        }
        const auto block = noise<float>(240, call);
        std::vector<int32_t> integers(block.size());
        std::ranges::transform(block, integers.begin(), to_s32);
        std::vector<float> expected(block.size());
        std::ranges::transform(wide.run(integers), expected.begin(), to_float);
        EXPECT_EQ(floating.run(block), expected) << call;
    }
}

class BlockSizes : public testing::TestWithParam<std::vector<size_t>> {};

/// 16-bit stereo audio through a preset at 16 kHz, in calls of the given frame counts, again and again.
std::vector<int16_t> render(const std::vector<int16_t>& audio, int preset,
                            const std::vector<size_t>& sizes) {
    srand(1);  // the echo draws its delays
    Instance instance(Config{.rate_hz = 16000}, preset);
    instance.enable();
    for (int i = 0; i < 2; ++i)
        instance.run(std::vector<int16_t>(2 * 128));  // the fade-in, on silence
    std::vector<int16_t> out;
    const size_t total = audio.size() / 2;
    for (size_t at = 0, call = 0; at < total; ++call) {
        const size_t frames = std::min(sizes[call % sizes.size()], total - at);
        const auto first = audio.begin() + static_cast<ptrdiff_t>(2 * at);
        const auto block = instance.run(
                std::vector<int16_t>(first, first + static_cast<ptrdiff_t>(2 * frames)));
        out.insert(out.end(), block.begin(), block.end());
        at += frames;
    }
    return out;
}

TEST_P(BlockSizes, GiveOneAndTheSameStream) {
    std::vector<int16_t> voice;
    for (const int16_t s : krel_test::voice_s16(12000, 16000)) voice.insert(voice.end(), 2, s);
    for (int preset = 0; preset <= 16; ++preset) {
        EXPECT_EQ(render(voice, preset, GetParam()), render(voice, preset, {128}))
                << "preset " << preset;
    }
}
INSTANTIATE_TEST_SUITE_P(Process, BlockSizes,
                         testing::Values(std::vector<size_t>{1}, std::vector<size_t>{64},
                                         std::vector<size_t>{127}, std::vector<size_t>{240},
                                         std::vector<size_t>{480}, std::vector<size_t>{1024},
                                         std::vector<size_t>{1, 960, 127, 2000}));

TEST(Process, InactiveInstancesCopyExactlyAndAnswerNoData) {
    const auto integers = noise<int32_t>(100, 4);
    for (const auto format : {AUDIO_FORMAT_PCM_32_BIT, AUDIO_FORMAT_PCM_8_24_BIT}) {
        Instance instance(Config{.format = format});
        EXPECT_EQ(instance.run(integers, -ENODATA), integers);
    }
    Instance narrow(Config{});
    EXPECT_EQ(narrow.run(noise<int16_t>(100, 5), -ENODATA), (noise<int16_t>(100, 5)));

    Instance floating(Config{.format = AUDIO_FORMAT_PCM_FLOAT});
    const std::vector<float> in = {0.5f, -0.1f, 2.0f, -3.0f, INFINITY, -INFINITY, NAN, 1e-12f};
    const std::vector<float> out = {0.5f, -0.1f, 1.0f, -1.0f, 1.0f, -1.0f, 0.0f, 0.0f};
    EXPECT_EQ(floating.run(in, -ENODATA), out);
}

TEST(Process, PresetOffPassesThroughAtOnceButStaysActive) {
    Instance instance(Config{}, kPassThrough);
    instance.enable();
    for (uint32_t i = 0; i < 4; ++i) instance.run(noise<int16_t>(128, i));
    instance.set_preset(-1);
    EXPECT_EQ(instance.run(noise<int16_t>(128, 8)), (noise<int16_t>(128, 8)));
}

TEST(Process, PresetChosenBeforeEnablingFadesTheOldOneOutFirst) {
    Instance instance(Config{}, kPassThrough);
    instance.set_preset(8);
    instance.enable();
    Yardstick<int16_t> wrapper(1, kPassThrough);
    const auto first = noise<int16_t>(256, 1);
    EXPECT_EQ(instance.run(first), ramped(wrapper.run(first), 8192, -32))
            << "not silenced by the enable fade";
    LogCapture log;
    instance.configure({});
    EXPECT_EQ(log.count("vcp_set_mode: mode 8"), 1);
    instance.run(noise<int16_t>(256, 2));
    EXPECT_EQ(log.count("vcp_set_mode: mode 8"), 2)
            << "the pending switch applies the preset once more";
}

TEST(Process, AccumulateAddsWithSaturation) {
    const Config narrow = {.access = EFFECT_BUFFER_ACCESS_ACCUMULATE};
    Instance instance(narrow);
    std::vector<int16_t> in = {100, -100, 32767, -32768}, out = {1, 2, 32767, -32768};
    EXPECT_EQ(instance.process(in.data(), out.data(), 2), -ENODATA)
            << "a disabled instance adds its input too";
    EXPECT_EQ(out, (std::vector<int16_t>{101, -98, 32767, -32768}));
    EXPECT_EQ(instance.run(in, -ENODATA), in) << "one buffer: written, not added";

    for (const auto format : {AUDIO_FORMAT_PCM_32_BIT, AUDIO_FORMAT_PCM_8_24_BIT}) {
        Instance wide(Config{.format = format, .access = EFFECT_BUFFER_ACCESS_ACCUMULATE});
        std::vector<int32_t> a = {1, INT32_MAX, INT32_MIN, -5}, b = {2, 1, -1, 5};
        wide.process(a.data(), b.data(), 2);
        EXPECT_EQ(b, (std::vector<int32_t>{3, INT32_MAX, INT32_MIN, 0}));
    }

    Instance floating(
            Config{.format = AUDIO_FORMAT_PCM_FLOAT, .access = EFFECT_BUFFER_ACCESS_ACCUMULATE});
    std::vector<float> a = {0.25f, 0.75f, -0.75f, 9.0f}, b = {0.5f, 0.5f, -0.5f, -0.25f};
    floating.process(a.data(), b.data(), 2);
    EXPECT_EQ(b, (std::vector<float>{0.75f, 1.0f, -1.0f, 0.75f}));
}

TEST(Process, UnusableArgumentsChangeNothing) {
    Instance instance(Config{});
    int16_t block[4] = {1, 2, 3, 4};
    EXPECT_EQ(instance.process(nullptr, block, 2), -EINVAL);
    EXPECT_EQ(instance.process(block, nullptr, 2), -EINVAL);
    EXPECT_EQ(instance.process(block, block, 0), -EINVAL);
    audio_buffer_t two = {}, one = {};
    two.frameCount = 2;
    two.raw = block;
    one.frameCount = 1;
    one.raw = block;
    EXPECT_EQ((*instance.handle())->process(instance.handle(), &two, &one), -EINVAL);
    EXPECT_EQ((*instance.handle())->process(instance.handle(), nullptr, &one), -EINVAL);
    EXPECT_EQ((*instance.handle())->process(instance.handle(), &one, nullptr), -EINVAL);
    EXPECT_EQ(krel::process(nullptr, &one, &one), -EINVAL);
}

TEST(Process, UnconfiguredButEnabledInstancePassesThroughWithItsFade) {
    Instance instance;
    instance.enable();
    EXPECT_EQ(instance.run(noise<int16_t>(64, 1)), std::vector<int16_t>(128, 0));
    EXPECT_EQ(instance.run(noise<int16_t>(64, 2)), ramped(noise<int16_t>(64, 2), 0, 128));
    EXPECT_EQ(instance.run(noise<int16_t>(64, 3)), (noise<int16_t>(64, 3)));
}

TEST(Process, FrameCountChangesAreLoggedOnceAndAllocateOnce) {
    Instance instance(Config{}, kPassThrough);
    instance.enable();
    LogCapture log;
    instance.run(noise<int16_t>(240, 1));
    EXPECT_EQ(log.count("numFrames change to 240, dump 0"), 1);
    instance.configure({.format = AUDIO_FORMAT_PCM_32_BIT});
    log.clear();
    {
        // Wider samples at the same frame count: neither a line nor an allocation, and no overrun under the sanitizer.
        AllocGate gate;
        int32_t block[480] = {};
        instance.process(block, block, 240);
        EXPECT_EQ(gate.allocations(), 0);
    }
    instance.run(noise<int32_t>(240, 3));
    EXPECT_TRUE(log.lines().empty());
    instance.run(noise<int32_t>(480, 4));
    EXPECT_EQ(log.count("numFrames change to 480, dump 0"), 1);
}

TEST(Process, FormatsWithoutArithmeticAreCarriedByteByByte) {
    struct Row {
        int format;
        size_t sample_bytes;
    };
    for (const auto& row : {Row{AUDIO_FORMAT_PCM_8_BIT, 1}, Row{AUDIO_FORMAT_PCM_24_BIT_PACKED, 3},
                            Row{0, 0}, Row{7, 0}, Row{0xFF, 0}}) {
        Instance instance(Config{.format = static_cast<audio_format_t>(row.format),
                                 .access = EFFECT_BUFFER_ACCESS_ACCUMULATE});
        instance.enable();
        instance.set_preset(8);
        for (int call = 0; call < 6; ++call) {
            constexpr size_t kFrames = 33;
            const size_t bytes = 2 * kFrames * row.sample_bytes;
            // Exactly as long as the block, so that the sanitizer sees one byte too many.
            std::vector<uint8_t> in(std::max<size_t>(bytes, 1)), out(in.size(), 0x11);
            for (size_t i = 0; i < in.size(); ++i)
                in[i] = static_cast<uint8_t>(37 * i + static_cast<size_t>(call));
            EXPECT_EQ(instance.process(in.data(), out.data(), kFrames), 0);
            if (bytes > 0) {
                EXPECT_EQ(out, in) << "format " << row.format << " call " << call;
            } else {
                EXPECT_EQ(out[0], 0x11);
            }
        }
    }
}

// ---- Dumps: the device's folder becomes one of our own. --------------------------------------------------------------

std::vector<char> contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

template <typename T>
void append(std::vector<char>& bytes, const std::vector<T>& block) {
    const auto* first = reinterpret_cast<const char*>(block.data());
    bytes.insert(bytes.end(), first, first + block.size() * sizeof(T));
}

TEST(Dump, CarriesInputProcessedAndMixedBlocks) {
    char folder[] = "/tmp/krel-dump-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    platform_calls.dump_folder = folder;
    setenv("AUDIO_KREL_VCP_DUMP", "1", 1);
    Instance instance(Config{.format = AUDIO_FORMAT_PCM_FLOAT,
                             .rate_hz = 16000,
                             .access = EFFECT_BUFFER_ACCESS_ACCUMULATE},
                      kPassThrough);
    unsetenv("AUDIO_KREL_VCP_DUMP");
    instance.enable();

    std::vector<char> input, processed, mixed;
    Yardstick<int32_t> wrapper(3, kPassThrough, 16000);
    auto in = noise<float>(200, 3);
    std::vector<float> out(in.size(), 0.125f);
    for (int call = 0; call < 2; ++call) {
        platform_calls.opened.clear();
        if (call == 1) instance.set_preset(8);  // this block fades out
        platform_calls.files = 0;
        platform_calls.counting = true;
        instance.process(in.data(), out.data(), 200);
        platform_calls.counting = false;
        EXPECT_EQ(platform_calls.files, 6) << "three files opened and written";
        std::vector<int32_t> converted(in.size());
        std::ranges::transform(in, converted.begin(), to_s32);
        append(input, converted);
        append(mixed, out);
        // The first block after enabling is silent; the second is the fade-out of a preset switch.
        append(processed, call == 0 ? wrapper.run(std::vector<int32_t>(in.size()))
                                    : ramped(wrapper.run(converted), 8192, -40));
    }
    char address[2][40];
    snprintf(address[0], sizeof address[0], "%p", static_cast<void*>(instance.handle()));
    snprintf(address[1], sizeof address[1], "%p", static_cast<void*>(out.data()));
    const std::string base = "/data/vendor/audio_dump/";
    const std::vector<std::string> expected = {
            base + "krel_vcp_" + address[0] + "_in_16000_3.pcm",
            base + "krel_vcp_" + address[0] + "_out_16000_3.pcm",
            base + "krel_hp_" + address[1] + "_out2_16000_3.pcm"};
    EXPECT_EQ(platform_calls.opened, expected);
    const auto moved = [&](const std::string& path) {
        return platform_calls.dump_folder + path.substr(base.size() - 1);
    };
    EXPECT_EQ(contents(moved(expected[0])), input);
    EXPECT_EQ(contents(moved(expected[1])), processed);
    EXPECT_EQ(contents(moved(expected[2])), mixed);

    // Inactive: only the mixed output is kept. Written, not added: not even that.
    instance.disable();
    platform_calls.opened.clear();
    instance.process(in.data(), out.data(), 200);
    EXPECT_EQ(platform_calls.opened, std::vector<std::string>{expected[2]});
    platform_calls.opened.clear();
    instance.process(in.data(), in.data(), 200);
    EXPECT_TRUE(platform_calls.opened.empty());
    instance.enable();

    // Without a folder to write to, nothing changes but the files.
    for (const auto& path : expected) unlink(moved(path).c_str());
    rmdir(folder);
    EXPECT_EQ(instance.process(in.data(), out.data(), 200), 0);
    platform_calls.dump_folder.clear();
}

}  // namespace
