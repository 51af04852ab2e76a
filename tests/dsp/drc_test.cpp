#include "dsp/drc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "tests/support/alloc_gate.h"
#include "tests/support/signals.h"

namespace {

constexpr int kBlock = 128;
constexpr int kDelay = 480;
constexpr drc_params_t kVoiceParams = {2, 240, 0, 7, 30720, 8192, 96};

class Drc {
  public:
    explicit Drc(drc_params_t params = kVoiceParams) { drc_init(&drc_, &params); }
    ~Drc() { drc_deinit(&drc_); }
    Drc(const Drc&) = delete;
    Drc& operator=(const Drc&) = delete;

    std::vector<int16_t> run(std::vector<int32_t> in) {
        std::vector<int16_t> out(in.size(), 77);
        drc_process(&drc_, in.data(), out.data(), static_cast<int>(in.size()));
        return out;
    }
    std::vector<int16_t> constant_block(int32_t level) {
        return run(std::vector<int32_t>(kBlock, level));
    }
    drc_t* operator->() { return &drc_; }
    drc_t* get() { return &drc_; }

  private:
    drc_t drc_{};
};

TEST(Drc, GainOnSilenceDipsThenClimbsAndSettlesJustBelowUnity) {
    Drc drc;
    EXPECT_EQ(drc->current_gain, 65536);
    // The history starts at zero gain, so the first blocks fall.
    const int32_t first[] = {65536, 51083, 39830};
    std::vector<int32_t> seen;
    for (int block = 0; block < 300; ++block) {
        seen.push_back(drc->current_gain);
        const auto out = drc.constant_block(0);
        ASSERT_TRUE(std::ranges::all_of(out, [](int16_t s) { return s == 0; }));
    }
    EXPECT_TRUE(std::equal(std::begin(first), std::end(first), seen.begin()));
    EXPECT_TRUE(std::ranges::is_sorted(seen.begin() + 3, seen.end()));
    EXPECT_EQ(seen.back(), 131056);
}

TEST(Drc, SuddenPeakIsTurnedDownOverFourBlocksAndNeverClips) {
    Drc drc;
    for (int block = 0; block < 300; ++block) drc.constant_block(0);
    const int32_t applied[] = {131056, 119386, 108759, 99085, 90704};
    for (const int32_t gain : applied) {
        EXPECT_EQ(drc->current_gain, gain);
        const auto out = drc.constant_block(43000);
        EXPECT_LT(*std::ranges::max_element(out), 32767);
    }
    // 43000 at the settled gain of 0.96875 * 30720 / 43000.
    EXPECT_NEAR(drc.constant_block(43000).back(), 29760, 10);
}

TEST(Drc, LowGainIsHeldForTheHistoryThenRises) {
    Drc drc;
    for (int block = 0; block < 300; ++block) drc.constant_block(60000);
    const int32_t held = drc->current_gain;
    drc->envelope = 0;  // the loud part is over at once
    for (int block = 0; block < drc->history_len; ++block) {
        drc.constant_block(0);
        EXPECT_LE(std::abs(drc->current_gain - held), 64);
    }
    drc.constant_block(0);
    EXPECT_GT(drc->current_gain, held + 1000);
}

TEST(Drc, OutputLagsByTheDelayLineAndChunkingOnlyMattersForTheGain) {
    Drc drc;
    std::vector<int16_t> out;
    for (int block = 0; block < 8; ++block) {
        const auto more = drc.constant_block(10000);
        out.insert(out.end(), more.begin(), more.end());
    }
    EXPECT_TRUE(std::all_of(out.begin(), out.begin() + kDelay, [](int16_t s) { return s == 0; }));
    EXPECT_GT(out[kDelay], 0);
}

TEST(Drc, CallsLongerThanTheDelayLineEqualSamplewiseProcessing) {
    // One target gain per call: with the history at rest the gain path of one long call is that of its samples in turn.
    const auto noise = krel_test::noise_s16(3000, 5);
    Drc drc;
    drc->current_gain = 90000;
    drc->gain_history[0] = drc->gain_history[1] = drc->gain_history[2] = 1 << 17;
    const auto out = drc.run({noise.begin(), noise.end()});
    EXPECT_TRUE(std::all_of(out.begin(), out.begin() + kDelay, [](int16_t s) { return s == 0; }));
    int32_t previous = 0;
    for (size_t i = kDelay; i < out.size(); ++i) {
        if (std::abs(int{noise[i - kDelay]}) < 2000) continue;
        const auto gain = static_cast<int32_t>(out[i] * 131072.0 / noise[i - kDelay]);
        ASSERT_GE(gain, previous - 140) << i;  // rising, within the rounding of a 2000 sample
        ASSERT_LE(gain, 131072);
        previous = gain;
    }
}

TEST(Drc, ExtremesSaturateExactly) {
    drc_params_t params = kVoiceParams;
    params.threshold = INT32_MAX;
    params.gain = INT32_MAX / 8;
    Drc drc(params);
    std::vector<int16_t> out;
    for (int block = 0; block < 20; ++block) {
        std::vector<int32_t> in(kBlock, block % 2 == 0 ? INT32_MAX : INT32_MIN);
        out = drc.run(in);
        for (const int16_t s : out) ASSERT_TRUE(s == 0 || s == 32767 || s == -32768);
    }
}

TEST(Drc, MeasurementTakesInt32MinIntoTheMeanOnly) {
    std::vector<int32_t> in = {INT32_MIN, 3, -5, 0};
    int32_t mean = -1;
    EXPECT_EQ(find_current_max_drc(in.data(), &mean, 4), 5);
    EXPECT_EQ(mean, static_cast<int32_t>(((int64_t{1} << 31) + 8) / 4));
    EXPECT_EQ(find_current_max_drc(in.data(), &mean, 0), 0);
    EXPECT_EQ(mean, 0);
    EXPECT_EQ(find_current_max_drc(in.data(), &mean, -3), 0);
}

TEST(Drc, EmptyCallMovesTheSmoothedStatesOnly) {
    Drc drc;
    drc->envelope = 20000;
    drc->mean_level = 1000;
    int16_t untouched = 99;
    int32_t sample = 5;
    drc_process(drc.get(), &sample, &untouched, 0);
    EXPECT_EQ(drc->envelope, 20000 + (-20000 >> 7));
    EXPECT_EQ(drc->mean_level, 1000 + (-1000 >> 5));
    EXPECT_EQ(drc->current_gain, 65536);
    EXPECT_EQ(drc->delay_pos, 0);
    EXPECT_NE(drc->gain_history[2], 0);
    EXPECT_EQ(untouched, 99);
}

TEST(Drc, UnusableParametersNeverTouchMemoryOrDivideByZero) {
    const drc_params_t hostile[] = {
            {0, 240, 0, 7, 30720, 8192, 96},
            {2, 0, 0, 7, 30720, 8192, 96},
            {-1, 240, 0, 7, 30720, 8192, 96},
            {2, -240, 0, 7, 30720, 8192, 96},
            {INT32_MAX, INT32_MAX, 0, 0, 1, 1, 1},
            {2, 240, 99, -7, -30720, -8192, INT32_MIN},
            {1, 1, 0, 0, -1, 8192, 0},
            {2, 240, 0, 0, -1, 1, 0},
            {3, 7, 31, 32, INT32_MIN, INT32_MIN, INT32_MAX},
    };
    for (const auto& params : hostile) {
        Drc drc(params);
        for (const int32_t level : {0, 1, -1, INT32_MAX, INT32_MIN}) drc.constant_block(level);
        int16_t out = 0;
        int32_t in = 0;
        drc_process(drc.get(), &in, &out, -5);
    }
}

TEST(Drc, FailedAllocationsAndDoubleReleaseAreHarmless) {
    const int injected = krel_test::fail_each_allocation([] {
        drc_t drc;
        drc_params_t params = kVoiceParams;
        drc_init(&drc, &params);
        int32_t in[kBlock] = {};
        int16_t out[kBlock] = {};
        drc_process(&drc, in, out, kBlock);
        drc_deinit(&drc);
        drc_deinit(&drc);
    });
    EXPECT_EQ(injected, 2);
    drc_init(nullptr, nullptr);
    drc_deinit(nullptr);
    drc_process(nullptr, nullptr, nullptr, 1);
}

}  // namespace
