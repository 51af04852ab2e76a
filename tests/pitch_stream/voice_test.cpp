// What the stream does to voices, and that nothing upsets it at any rate.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <numeric>
#include <tuple>

#include "tests/pitch_stream/stream_support.h"
#include "tests/support/alloc_gate.h"

namespace {

using namespace krel_test;

constexpr int kRate = 16000;

/// Decaying 600 Hz pulses gliding from first_hz to last_hz, on a sine: quiet gaps would look periodic.
Samples pulses(double seconds, double first_hz, double last_hz) {
    constexpr double kTwoPi = 2.0 * std::numbers::pi;
    Samples out;
    double phase = 0.0;
    for (double at = 0.0; at < 1.0; at += 1.0 / (seconds * kRate)) {
        const double hz = first_hz + (last_hz - first_hz) * at;
        phase = std::fmod(phase + hz / kRate, 1.0);
        const double pulse = std::exp(-phase / hz * 500.0) * std::sin(kTwoPi * 600.0 * phase / hz);
        out.push_back(static_cast<int16_t>(14000.0 * pulse + 3000.0 * std::sin(kTwoPi * phase)));
    }
    return out;
}

/// Samples between the starts of successive pulses.
std::vector<int> intervals(const Samples& in) {
    std::vector<int> out;
    int last = -1;
    for (int i = 0; i < length(in); ++i) {
        if (in.data()[i] < 9500 || (last >= 0 && i - last < kRate / 900)) continue;
        if (last >= 0) out.push_back(i - last);
        last = i;
    }
    return out;
}
double mean_hz(const std::vector<int>& gaps) {
    return static_cast<double>(gaps.size()) * kRate / std::accumulate(gaps.begin(), gaps.end(), 0);
}

TEST(PitchedVoice, FixedRatiosScaleTheBaseFrequencyAndLoseNoPulse) {
    for (const auto& [first, last] : {std::pair{90.0, 300.0}, {300.0, 90.0}, {150.0, 150.0}}) {
        const auto in = pulses(6.0, first, last);
        for (const float ratio : {0.8f, 1.3f}) {
            Stream s = make_stream(kRate, {ratio});
            const auto out = run(s, in);
            EXPECT_GT(length(out), 5.8 * kRate);
            const auto gaps = intervals(out);
            // What stays in the buffers at the end shifts the mean of a glide a little.
            EXPECT_NEAR(mean_hz(gaps) / (ratio * (first + last) / 2.0), 1.0, 0.02) << ratio;
            // Neighbours stay alike: a lost or doubled pulse would be a factor of 2.
            for (size_t i = 1; i < gaps.size(); ++i)
                ASSERT_NEAR(1.0 * gaps[i] / gaps[i - 1], 1.0, 0.08) << ratio << ' ' << i;
            EXPECT_LE(largest_second_difference(out),
                      std::max(1.0f, ratio * ratio) * 1.1 * largest_second_difference(in));
        }
    }
}

TEST(PitchedVoice, TrackingSteersTowardsTheTargetWithinItsLimits) {
    const struct {
        int voice;       // of kVoices
        double from_hz;  // periods of whole decimated samples: others may lock on to a multiple
        double ratio;
    } cases[] = {{2, 100.0, 2.23}, {2, 125.0, 1.784}, {2, 62.5, 2.7},  {2, 160.0, 1.5},
                 {3, 125.0, 1.6},  {3, 160.0, 1.3},   {4, 125.0, 2.0}, {4, 160.0, 1.7}};
    for (const auto& c : cases) {
        Stream s = make_stream(kRate, kVoices[c.voice]);
        const auto out = run(s, pulses(10.0, c.from_hz, c.from_hz));
        EXPECT_NEAR(s->baseFreq, c.from_hz, 0.02 * c.from_hz);
        EXPECT_NEAR(mean_hz(intervals({out.end() - 3 * kRate, out.end()})), c.ratio * c.from_hz,
                    0.02 * c.ratio * c.from_hz);
    }
}

TEST(PitchedVoice, TonesStayInStepAndFreeOfClicksUpToRatesBeyond16Bits) {
    for (const int rate :
         {7999, 44100, 191999}) {  // at the last a tracked output rate is beyond, too
        const int n = rate / 2;
        const auto tone = sine_s16(n, rate / 300.0, rate, 20000.0);
        for (const auto& setting : kVoices) {
            Stream s = make_stream(rate, setting);
            const auto out = run(s, tone, 211);
            EXPECT_NEAR(length(out), n - s->maxRequired / 2, s->maxRequired) << rate;
            const Samples settled(out.begin() + 300, out.end());
            EXPECT_GT(rms(settled), 5000.0) << rate;
            EXPECT_LT(largest_second_difference(settled), 1000) << rate;  // the tone's own: 9
        }
    }
}

TEST(PitchedVoice, OnceRunningOnlyAGrowingBufferOrANewRatioAllocates) {
    auto voice = voice_s16(10 * kRate, kRate);
    for (const auto& setting : kVoices) {
        const Stream s = make_stream(kRate, setting);
        const auto growing = [&] {
            return std::tuple(s->inputBufferSize, s->outputBufferSize, output_rate(s));
        };
        int allocations = 0;
        for (int at = 0; at < length(voice); at += 128) {
            const auto before = growing();
            const AllocGate gate;
            int16_t out[160];
            pitchWriteShortToStream(s.get(), voice.data() + at, 128);
            pitchReadShortFromStream(s.get(), out, 160);
            ASSERT_TRUE(gate.allocations() == 0 || growing() != before) << at;
            allocations += gate.allocations();
        }
        EXPECT_LE(allocations, setting.pitch > 0.0f ? 4 : 12);
    }
}

}  // namespace
