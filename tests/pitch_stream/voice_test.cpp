// What the stream does to voices, and that nothing upsets it at any rate.
#include <gtest/gtest.h>
#include <speex/speex_resampler.h>

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

/// At the first rates a period may be one sample; at the last two a tracked output rate exceeds 65535 Hz.
TEST(PitchedVoice, EveryRateAndSignalStaysInStepAndFreeOfClicks) {
    for (const int rate : {400, 799, 4000, 7999, 8000, 11025, 44100, 96000, 191999}) {
        const int n = std::max(6 * (2 * rate / 25), 4096);
        const Samples silence(static_cast<size_t>(n));
        Samples impulse = silence;
        impulse[impulse.size() / 2] = -32768;
        Samples square = sine_s16(n, 150.0, rate, 32767.0);
        for (auto& x : square) x = x < 0 ? -32768 : 32767;
        const auto tone = sine_s16(n, rate / 300.0, rate, 20000.0);
        for (const auto& setting : kVoices) {
            for (const auto& in : {silence, Samples(silence.size(), -32768), impulse, square,
                                   noise_s16(n, 3), tone}) {
                Stream s = make_stream(rate, setting);
                const auto out = run(s, in, 211);
                const int delay = n - length(out);
                // Below 4 kHz the lengths of the edits are coarse steps of a few samples.
                const double drift = (rate < 4000 ? 0.25 : 0.03) * n;
                EXPECT_LE(delay, s->maxRequired + drift + 100) << rate;
                EXPECT_GE(delay, -drift) << rate;
                EXPECT_TRUE(in != silence || rms(out) == 0.0);
                if (in != tone || rate < 8000) continue;
                const Samples settled(out.begin() + 300, out.end());
                EXPECT_GT(rms(settled), 5000.0) << rate;
                EXPECT_LT(largest_second_difference(settled), 1000) << rate;  // the tone's own: 9
            }
        }
    }
}

TEST(PitchedVoice, ContradictoryBoundsAreTakenAsTheNearestRatio) {
    const float bounds[][3] = {// maxPitch, minPitch, the ratio
                               {0.0f, 0.0f, 0.5f},
                               {-3.0f, 1.0f, 0.5f},
                               {0.1f, NAN, 0.5f},
                               {NAN, 40.0f, 3.0f}};
    const auto in = voice_s16(20000, kRate);
    for (const auto& [most, least, ratio] : bounds) {
        Stream bounded = make_stream(kRate, {0.0f, 200, most, least});
        Stream fixed = make_stream(kRate, {ratio});
        EXPECT_NEAR(length(run(bounded, in)), length(run(fixed, in)), 100);
    }
}

TEST(PitchedVoice, OnceRunningOnlyAGrowingBufferOrANewRatioAllocates) {
    auto voice = voice_s16(20 * kRate, kRate);
    for (const auto& setting : kVoices) {
        const Stream s = make_stream(kRate, setting);
        auto growing = [&] {
            uint32_t in = 0, out = 0;
            speex_resampler_get_rate(s->resampler, &in, &out);
            return std::tuple(s->inputBufferSize, s->outputBufferSize, out);
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
