#include "wrapper/voice_changer.h"

#include <gtest/gtest.h>
#include <stdio.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "dsp/drc.h"
#include "tests/support/alloc_gate.h"
#include "tests/support/log_capture.h"
#include "tests/support/signals.h"

namespace {

using krel_test::AllocGate;
using krel_test::LogCapture;

constexpr int kPassThrough = 7;  // a preset whose core leaves samples alone

class VoiceChanger {
  public:
    VoiceChanger(unsigned channels, int format_type, int compressor_off)
        : ws_(krel_voice_changer_init(channels, 48000, format_type, compressor_off)) {
        krel_voice_changer_set_mode(ws_, kPassThrough);
    }
    ~VoiceChanger() { krel_voice_changer_deinit(ws_); }
    VoiceChanger(const VoiceChanger&) = delete;
    VoiceChanger& operator=(const VoiceChanger&) = delete;

    template <typename T>
    void process(T* samples, size_t count) {
        krel_voice_changer_process(ws_, samples, count * sizeof(T));
    }
    void* get() { return ws_; }

  private:
    void* ws_;
};

/// What becomes of the first channel: 16 bits, in blocks of 128 through gain and compressor, 127 samples late.
std::vector<int16_t> voice_by_definition(const std::vector<int16_t>& in, int compressor_off) {
    drc_t drc;
    drc_params_t params = {2, 240, 0, 7, 30720, 8192, 96};
    drc_init(&drc, &params);
    std::vector<int16_t> out(127);
    for (size_t at = 0; at + 128 <= in.size(); at += 128) {
        int32_t raised[128];
        int16_t block[128];
        for (size_t i = 0; i < 128; ++i) raised[i] = (in[at + i] * 21) >> 4;
        drc_process(&drc, raised, block, 128);
        const auto* from = compressor_off == 0 ? block : in.data() + at;
        out.insert(out.end(), from, from + 128);
    }
    drc_deinit(&drc);
    return out;
}

/// To `bits` fewer bits, rounded half up, pinned to [-limit, limit - 1].
int32_t narrowed(int64_t s, int bits, int64_t limit) {
    const int64_t half = int64_t{1} << bits >> 1;
    return static_cast<int32_t>(std::clamp((s + half) >> bits, -limit, limit - 1));
}
int32_t q8_23(int32_t s, int format_type) { return format_type == 3 ? narrowed(s, 8, 1 << 23) : s; }

/// A stream in calls of the given numbers of frames against the voice above, in every format.
template <typename T>
void expect_definition(int format_type, size_t channels, int compressor_off,
                       const std::vector<T>& in, const std::vector<size_t>& calls) {
    std::vector<int16_t> voice;
    for (size_t i = 0; i < in.size(); i += channels)
        voice.push_back(static_cast<int16_t>(
                sizeof(T) == 2 ? in[i] : narrowed(q8_23(in[i], format_type), 8, 1 << 15)));
    voice = voice_by_definition(voice, compressor_off);
    VoiceChanger changer(static_cast<unsigned>(channels), format_type, compressor_off);
    auto out = in;
    for (size_t at = 0, call = 0; at < out.size(); ++call) {
        const size_t count = std::min(calls[call % calls.size()] * channels, out.size() - at);
        changer.process(&out[at], count);
        at += count;
    }
    const int32_t scale = format_type == 1 ? 1 : format_type == 3 ? 65536 : 256;
    for (size_t i = 0; i < out.size(); ++i) ASSERT_EQ(out[i], voice[i / channels] * scale) << i;
}

TEST(VoiceChanger, AnySplitEqualsTheDefinitionInEveryFormat) {
    // The right channel is ignored; wide samples keep 16 bits, rounded twice at full scale; unknown formats are Q8.23.
    auto narrow = krel_test::noise_s16(2048, 1);
    std::vector<int32_t> wide(narrow.begin(), narrow.end());
    for (size_t i = 0; i < wide.size(); ++i)
        wide[i] = static_cast<int32_t>(wide[i] * 65537LL >> (i % 19)) + static_cast<int32_t>(i);
    std::ranges::copy(std::vector<int32_t>{INT32_MAX, 127, INT32_MIN, -32769, 32768, 128, 8388607},
                      wide.begin() + 300);
    for (const auto& calls :
         std::vector<std::vector<size_t>>{{1}, {64}, {127}, {128}, {240}, {480, 1, 1024}}) {
        for (const size_t channels : {size_t{1}, size_t{2}}) {
            for (const int compressor_off : {0, 1, -3}) {
                SCOPED_TRACE(testing::Message()
                             << calls[0] << ' ' << channels << ' ' << compressor_off);
                expect_definition(1, channels, compressor_off, narrow, calls);
                for (const int format_type : {2, 3, 0, 9})
                    expect_definition(format_type, channels, compressor_off, wide, calls);
            }
        }
    }
}

TEST(VoiceChanger, MakeUpGainAndCompressorDelayTheFirstSoundTo607Samples) {
    VoiceChanger changer(1, 1, 0);
    std::vector<int16_t> io(48000, 1000);
    changer.process(io.data(), io.size());
    EXPECT_EQ(std::ranges::find_if(io, [](int16_t s) { return s != 0; }) - io.begin(), 127 + 480);
    // 1000 * 21/16 = 1312, at the gain the compressor settles near.
    EXPECT_NEAR(io.back(), 1312, 1);
}

TEST(VoiceChanger, OddChannelCountsAdvanceOneSamplePerFrame) {
    // Deliberate: only two channels have a frame stride of two samples; other counts merely use up their bytes sooner.
    VoiceChanger changer(4, 1, 1);
    auto block = krel_test::noise_s16(4 * 200, 2);
    auto expected = block;
    std::shift_right(expected.begin(), expected.begin() + 200, 127);
    std::fill_n(expected.begin(), 127, int16_t{0});
    krel_voice_changer_process(changer.get(), block.data(),
                               1600 + 7);  // the last frame is not whole
    EXPECT_EQ(block, expected);
}

TEST(VoiceChanger, TheLockKeepsEveryCallThatTouchesACoreWaiting) {
    // A call that does wait is watched for 40 ms; one that does not may take its time on a busy machine.
    const auto waits_for_lock = [](auto call, int patience = 20) {
        std::atomic<bool> done{false};
        pthread_mutex_lock(&mVcpLock);
        std::thread thread([&] {
            call();
            done = true;
        });
        for (int i = 0; i < patience && !done; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        const bool waited = !done;
        pthread_mutex_unlock(&mVcpLock);
        thread.join();
        return waited;
    };
    void* ws = nullptr;
    int16_t sample = 0;
    const auto process = [&](void* to) { krel_voice_changer_process(to, &sample, sizeof sample); };
    EXPECT_FALSE(waits_for_lock([&] { ws = krel_voice_changer_init(1, 48000, 1, 0); }, 5000));
    EXPECT_TRUE(waits_for_lock([&] { krel_voice_changer_set_mode(ws, kPassThrough); }));
    EXPECT_TRUE(waits_for_lock([&] { process(ws); }));
    EXPECT_FALSE(waits_for_lock([&] { process(nullptr); }, 5000));
    EXPECT_TRUE(waits_for_lock([&] { krel_voice_changer_deinit(ws); }));
}

TEST(VoiceChanger, WithoutACoreTheBufferComesBackBitExact) {
    LogCapture log;
    void* ws = nullptr;
    {
        AllocGate gate(2);  // the work space is the first allocation, the core the second
        ws = krel_voice_changer_init(2, 48000, 3, 0);
    }
    EXPECT_EQ(log.count("krel_voice_changer_init: vcp_init return NULL!"), 1);
    const std::vector<int32_t> before = {0x01234567, -1, 3, INT32_MIN};
    auto block = before;
    krel_voice_changer_process(ws, block.data(), 16);
    EXPECT_EQ(block, before);
    EXPECT_EQ(log.count("krel_voice_changer_process: vcp_ws is NULL, bypass"), 1);
    {
        AllocGate gate(1);
        krel_voice_changer_set_mode(ws, 3);
    }
    EXPECT_EQ(log.count("krel_voice_changer_set_mode: vcp_init return NULL!"), 1);
    EXPECT_EQ(log.count("krel_voice_changer_set_mode: 3, drc 0"), 1);
    krel_voice_changer_set_mode(ws, kPassThrough);
    krel_voice_changer_process(ws, block.data(), 16);
    EXPECT_EQ(block, std::vector<int32_t>(4)) << "the core came back, the FIFO delay is heard";
    krel_voice_changer_deinit(ws);
}

TEST(VoiceChanger, PresetChangeKeepsTheSoundInTheFifos) {
    const auto in = krel_test::noise_s16(2048, 3);
    auto expected = voice_by_definition(in, 0);
    expected.resize(in.size());
    for (const int preset : {8, 2}) {
        auto io = in;
        VoiceChanger changer(1, 1, 0);
        changer.process(io.data(), 700);
        krel_voice_changer_set_mode(changer.get(), preset);
        changer.process(&io[700], 1348);
        // Preset 8 changes nothing. Preset 2 works from the first block on that was not full yet, at 640; the compressor
        // knows before it is heard.
        const auto same = std::ranges::mismatch(io, expected).in1 - io.begin();
        EXPECT_GE(same, preset == 8 ? 2048 : 640 + 127);
        EXPECT_LE(same, preset == 8 ? 2048 : 640 + 127 + 480);
    }
}

TEST(VoiceChanger, LoadIsReportedEvery2048Blocks) {
    VoiceChanger changer(1, 1, 1);
    std::vector<int16_t> block(128);
    LogCapture log;
    for (int blocks = 1; blocks <= 2 * 2048; ++blocks) {
        changer.process(block.data(), block.size());
        if (blocks % 2048 != 0) {
            ASSERT_TRUE(log.lines().empty()) << blocks;
            continue;
        }
        ASSERT_EQ(log.lines().size(), 2U);
        long total_ms = -1;
        double most_ms = -1.0, mean_ms = -1.0;
        int frames = 0;
        EXPECT_EQ(sscanf(log.lines()[0].text.c_str(),
                         "krel_voice_changer_process CPU usage: 2048 loops take %ld msecs, max %lf "
                         "msecs",
                         &total_ms, &most_ms),
                  2);
        EXPECT_EQ(sscanf(log.lines()[1].text.c_str(),
                         "\t\t mean: %lf msec & %d frames for each loop", &mean_ms, &frames),
                  2);
        EXPECT_EQ(frames, 128);
        EXPECT_NEAR(mean_ms * 2048.0, static_cast<double>(total_ms), 1.01);
        EXPECT_GE(most_ms, mean_ms - 1e-6);
        EXPECT_LE(most_ms, static_cast<double>(total_ms) + 1.01);
        log.clear();
    }
}

}  // namespace
