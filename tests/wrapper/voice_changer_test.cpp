#include "wrapper/voice_changer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <numeric>
#include <thread>
#include <vector>

#include "base/fixed_point.h"
#include "dsp/drc.h"
#include "tests/support/alloc_gate.h"
#include "tests/support/log_capture.h"
#include "tests/support/signals.h"

namespace {

using krel_test::AllocGate;
using krel_test::LogCapture;

constexpr int kPassThrough = 7;  // a preset whose core leaves samples alone
constexpr size_t kFifoDelay = 127;
constexpr size_t kCompressorDelay = 480;

class VoiceChanger {
  public:
    VoiceChanger(unsigned channels, int format_type, int compressor_off)
        : ws_(krel_voice_changer_init(channels, 48000, format_type, compressor_off)) {
        krel_voice_changer_set_mode(ws_, kPassThrough);
    }
    ~VoiceChanger() { krel_voice_changer_deinit(ws_); }
    VoiceChanger(const VoiceChanger&) = delete;
    VoiceChanger& operator=(const VoiceChanger&) = delete;

    /// Processes the block in calls of the given frame counts, again and again, until it is used up.
    template <typename T>
    std::vector<T> run(std::vector<T> block, const std::vector<size_t>& frames, size_t channels) {
        size_t at = 0;
        for (size_t call = 0; at < block.size(); ++call) {
            const size_t samples =
                    std::min(frames[call % frames.size()] * channels, block.size() - at);
            krel_voice_changer_process(ws_, block.data() + at, samples * sizeof(T));
            at += samples;
        }
        return block;
    }
    void* get() { return ws_; }

  private:
    void* ws_;
};

std::vector<int16_t> interleave(const std::vector<int16_t>& left,
                                const std::vector<int16_t>& right) {
    std::vector<int16_t> out;
    for (size_t i = 0; i < left.size(); ++i) {
        out.push_back(left[i]);
        out.push_back(right[i]);
    }
    return out;
}

TEST(VoiceChanger, StereoCarriesTheDelayedLeftChannelOnBothSides) {
    const auto left = krel_test::noise_s16(1000, 1);
    const auto right = krel_test::noise_s16(1000, 2);
    VoiceChanger changer(2, 1, 1);
    const auto out = changer.run(interleave(left, right), {240}, 2);
    for (size_t i = 0; i < left.size(); ++i) {
        const int16_t expected = i < kFifoDelay ? int16_t{0} : left[i - kFifoDelay];
        ASSERT_EQ(out[2 * i], expected) << i;
        ASSERT_EQ(out[2 * i + 1], expected) << i;
    }
}

TEST(VoiceChanger, MakeUpGainAndCompressorDelayTheFirstSoundTo607Samples) {
    VoiceChanger changer(1, 1, 0);
    const auto out = changer.run(std::vector<int16_t>(48000, 1000), {128}, 1);
    const auto first = std::ranges::find_if(out, [](int16_t s) { return s != 0; });
    EXPECT_EQ(static_cast<size_t>(first - out.begin()), kFifoDelay + kCompressorDelay);
    // 1000 * 21/16 = 1312, at the gain the compressor settles near.
    EXPECT_NEAR(out.back(), 1312, 1);
}

TEST(VoiceChanger, GainAndCompressorAreExactOnLoudSignedSound) {
    const auto noise = krel_test::noise_s16(6 * 1024, 8);
    for (const int compressor_off : {0, 1, -3}) {
        VoiceChanger changer(1, 1, compressor_off);
        const auto out = changer.run(noise, {noise.size()}, 1);
        drc_t drc;
        drc_params_t params = {2, 240, 0, 7, 30720, 8192, 96};
        drc_init(&drc, &params);
        std::vector<int16_t> expected(kFifoDelay, 0);
        for (size_t at = 0; at < noise.size(); at += 128) {
            int32_t raised[128];
            int16_t block[128];
            for (size_t i = 0; i < 128; ++i) raised[i] = (noise[at + i] * 21) >> 4;
            drc_process(&drc, raised, block, 128);
            const auto* from = compressor_off == 0 ? block : noise.data() + at;
            expected.insert(expected.end(), from, from + 128);
        }
        drc_deinit(&drc);
        expected.resize(out.size());
        EXPECT_EQ(out, expected) << "compressor_off " << compressor_off;
    }
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
    EXPECT_FALSE(waits_for_lock([&] { ws = krel_voice_changer_init(1, 48000, 1, 0); }, 5000));
    EXPECT_TRUE(waits_for_lock([&] { krel_voice_changer_set_mode(ws, kPassThrough); }));
    EXPECT_TRUE(waits_for_lock([&] { krel_voice_changer_process(ws, &sample, sizeof sample); }));
    EXPECT_FALSE(waits_for_lock(
            [&] { krel_voice_changer_process(nullptr, &sample, sizeof sample); }, 5000));
    EXPECT_TRUE(waits_for_lock([&] { krel_voice_changer_deinit(ws); }));
}

class ChunkSizes : public testing::TestWithParam<std::vector<size_t>> {};

TEST_P(ChunkSizes, SplittingTheStreamDoesNotChangeIt) {
    const auto voice = krel_test::voice_s16(6000, 48000);
    std::vector<int32_t> wide(voice.begin(), voice.end());
    for (auto& s : wide) s *= 60000;
    for (const size_t channels : {size_t{1}, size_t{2}}) {
        for (const int format_type : {2, 3}) {
            VoiceChanger whole(static_cast<unsigned>(channels), format_type, 0);
            VoiceChanger split(static_cast<unsigned>(channels), format_type, 0);
            EXPECT_EQ(split.run(wide, GetParam(), channels),
                      whole.run(wide, {wide.size()}, channels));
        }
        VoiceChanger whole(static_cast<unsigned>(channels), 1, 0);
        VoiceChanger split(static_cast<unsigned>(channels), 1, 0);
        EXPECT_EQ(split.run(voice, GetParam(), channels),
                  whole.run(voice, {voice.size()}, channels));
    }
}
INSTANTIATE_TEST_SUITE_P(VoiceChanger, ChunkSizes,
                         testing::Values(std::vector<size_t>{1}, std::vector<size_t>{64},
                                         std::vector<size_t>{127}, std::vector<size_t>{128},
                                         std::vector<size_t>{240},
                                         std::vector<size_t>{480, 1, 1024}));

TEST(VoiceChanger, WideSamplesKeepSixteenBitsRoundedTwice) {
    // Full scale goes through Q8.23 to 16 bits and back; Q8.23 starts at the second step; unknown formats like Q8.23.
    const std::vector<int32_t> probes = {0,        1,         127,       128,       32767,
                                         32768,    -32768,    -32769,    8388607,   8388608,
                                         -8388608, INT32_MAX, INT32_MIN, 0x12345678};
    for (const int format_type : {2, 3, 0, 9}) {
        VoiceChanger changer(1, format_type, 1);
        std::vector<int32_t> in = probes;
        in.resize(probes.size() + kFifoDelay, 0);
        const auto out = changer.run(in, {in.size()}, 1);
        for (size_t i = 0; i < probes.size(); ++i) {
            const int32_t q8_23 = format_type == 3 ? krel::q8_23_from_s32(probes[i]) : probes[i];
            const int32_t back = krel::s16_from_q8_23_sat(q8_23) * 256;
            ASSERT_EQ(out[i + kFifoDelay], format_type == 3 ? krel::s32_from_q8_23_sat(back) : back)
                    << probes[i] << " format " << format_type;
        }
    }
}

TEST(VoiceChanger, OddChannelCountsAdvanceOneSamplePerFrame) {
    // Deliberate: only two channels have a frame stride of two samples; other counts merely use up their bytes sooner.
    VoiceChanger changer(4, 1, 1);
    std::vector<int16_t> block(4 * 200);
    std::iota(block.begin(), block.end(), int16_t{1});
    const auto before = block;
    krel_voice_changer_process(changer.get(), block.data(), block.size() * sizeof(int16_t));
    for (size_t i = 0; i < 200; ++i)
        ASSERT_EQ(block[i], i < kFifoDelay ? 0 : before[i - kFifoDelay]);
    EXPECT_TRUE(std::equal(block.begin() + 200, block.end(), before.begin() + 200));
}

TEST(VoiceChanger, IncompleteFramesAndNoChannelsLeaveTheRestUntouched) {
    VoiceChanger stereo(2, 3, 1);
    int32_t block[5] = {0x1234567, 2, 0x7654321, 4, 5};
    krel_voice_changer_process(stereo.get(), block, 2 * 8 + 3);
    EXPECT_EQ(block[0], 0);
    EXPECT_EQ(block[3], 0);
    EXPECT_EQ(block[4], 5);
    krel_voice_changer_process(stereo.get(), block + 4, 3);
    EXPECT_EQ(block[4], 5);

    VoiceChanger none(0, 3, 1);
    krel_voice_changer_process(none.get(), block + 4, 4);
    EXPECT_EQ(block[4], 5);
    krel_voice_changer_process(stereo.get(), nullptr, 8);
    krel_voice_changer_process(nullptr, block, 8);
    krel_voice_changer_set_mode(nullptr, 3);
    krel_voice_changer_deinit(nullptr);
}

TEST(VoiceChanger, WithoutACoreTheBufferComesBackBitExact) {
    LogCapture log;
    void* ws = nullptr;
    {
        AllocGate gate(2);  // the work space is the first allocation, the core the second
        ws = krel_voice_changer_init(2, 48000, 3, 0);
    }
    ASSERT_NE(ws, nullptr);
    EXPECT_EQ(log.count("krel_voice_changer_init: vcp_init return NULL!"), 1);
    const std::vector<int32_t> before = {0x01234567, -1, 3, INT32_MIN};
    auto block = before;
    krel_voice_changer_process(ws, block.data(), block.size() * sizeof(int32_t));
    EXPECT_EQ(block, before);
    EXPECT_EQ(log.count("krel_voice_changer_process: vcp_ws is NULL, bypass"), 1);
    {
        AllocGate gate(1);
        krel_voice_changer_set_mode(ws, 3);
    }
    EXPECT_EQ(log.count("krel_voice_changer_set_mode: vcp_init return NULL!"), 1);
    EXPECT_EQ(log.count("krel_voice_changer_set_mode: 3, drc 0"), 1);
    krel_voice_changer_set_mode(ws, kPassThrough);
    krel_voice_changer_process(ws, block.data(), block.size() * sizeof(int32_t));
    EXPECT_EQ(block, std::vector<int32_t>(4, 0)) << "the core came back, the FIFO delay is heard";
    krel_voice_changer_deinit(ws);
}

TEST(VoiceChanger, PresetChangeKeepsTheSoundInTheFifos) {
    const auto voice = krel_test::noise_s16(2000, 3);
    VoiceChanger steady(1, 1, 0);
    VoiceChanger switched(1, 1, 0);
    const auto expected = steady.run(voice, {voice.size()}, 1);
    const std::vector<int16_t> head(voice.begin(), voice.begin() + 700),
            tail(voice.begin() + 700, voice.end());
    auto out = switched.run(head, {head.size()}, 1);
    krel_voice_changer_set_mode(switched.get(), 8);
    const auto rest = switched.run(tail, {tail.size()}, 1);
    out.insert(out.end(), rest.begin(), rest.end());
    EXPECT_EQ(out, expected);
}

TEST(VoiceChanger, LoadIsReportedEvery2048Blocks) {
    VoiceChanger changer(1, 1, 1);
    std::vector<int16_t> block(128);
    const auto run_blocks = [&](int blocks) {
        for (int i = 0; i < blocks; ++i)
            krel_voice_changer_process(changer.get(), block.data(), 256);
    };
    LogCapture log;
    run_blocks(2047);
    EXPECT_TRUE(log.lines().empty());
    for (int report = 0; report < 2; ++report) {
        run_blocks(1);
        ASSERT_EQ(log.lines().size(), 2U);
        EXPECT_EQ(
                log.lines()[0].text.find("krel_voice_changer_process CPU usage: 2048 loops take "),
                0U);
        EXPECT_NE(log.lines()[0].text.find(" msecs, max "), std::string::npos);
        EXPECT_EQ(log.lines()[1].text.find("\t\t mean: "), 0U);
        EXPECT_NE(log.lines()[1].text.find(" msec & 128 frames for each loop"), std::string::npos);
        log.clear();
        run_blocks(2047);
        EXPECT_TRUE(log.lines().empty());
    }
}

}  // namespace
