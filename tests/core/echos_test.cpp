#include "core/echos.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <vector>

#include "tests/support/signals.h"

namespace {

using Taps = std::array<int, KREL_ECHO_TAPS>;
using Samples = std::vector<int16_t>;

struct Echos : echos_t {
    Echos(Taps delays, Taps gains, int direct) {
        EXPECT_EQ(echos_init(this, delays.data(), gains.data(), direct), 0);
    }
    ~Echos() { echos_deinit(this); }
    Echos(const Echos&) = delete;
    Echos& operator=(const Echos&) = delete;
};

TEST(CalculateEchos, DelaysTruncateAndTheLaterOnesAreJitteredFromTheOneBefore) {
    struct Jitter {
        int spread;  // 0.1 ms
        double least;
    };
    struct Room {
        int rate, variant;
        std::vector<int> levels, fixed;
        std::vector<Jitter> jittered;
    };
    const std::vector<int> large = {22, 18, 15, 11, 8, 6};
    const std::vector<Jitter> late = {{30, 0.017}, {30, 0.019}, {30, 0.021}};
    for (auto& room : {Room{48000, 0, {24, 18, 13}, {1291, 1665}, {{20, 0.007}}},
                       Room{44100, 1, {24, 18, 13, 8}, {1459, 2015}, {{20, 0.011}, {30, 0.013}}},
                       Room{48000, 2, large, {2068, 2769, 3547}, late},
                       Room{44100, -7, large, {1900, 2544, 3258}, late}}) {
        for (unsigned seed = 1; seed < 200; ++seed) {
            // Each jittered delay draws once, and nobody seeds. The sum in the bracket comes first: 2 ms on top of 19 ms
            // are 1007 samples of 48 kHz, a little less than their exact 1008.
            srand(seed);
            std::vector<int> levels = room.levels, expected = room.fixed;
            for (const auto& [spread, least] : room.jittered)
                expected.push_back(
                        expected.back() +
                        static_cast<int>((rand() % spread / 10000.0 + least) * room.rate));
            const int next = rand();
            // Entries that the room does not use stay.
            levels.resize(KREL_ECHO_TAPS, -9);
            expected.resize(KREL_ECHO_TAPS, -9);
            std::vector<int> delays(KREL_ECHO_TAPS, -9), gains = delays;
            srand(seed);
            calculate_echos(room.rate, delays.data(), gains.data(), room.variant);
            ASSERT_EQ(delays, expected);
            ASSERT_EQ(gains, levels);
            ASSERT_EQ(rand(), next);
        }
    }
}

/// The closed form: no delay lines, only the signal itself. Every echo has a quarter level, whatever its tap's gain;
/// a tap without delay or gain is none.
Samples direct_form(const Samples& in, const Taps& delays, const Taps& gains, int dry) {
    const auto level = [](int gain, int x) {
        return static_cast<int32_t>(static_cast<uint32_t>(int64_t{gain} * x)) >> 7;
    };
    Samples out(in.size());
    for (size_t i = 0; i < in.size(); ++i) {
        int64_t y = level(dry, in[i]);
        for (size_t t = 0; t < delays.size(); ++t) {
            if (delays[t] < 1 || gains[t] < 1) continue;
            const auto delay = static_cast<size_t>(delays[t]);
            y += level(gains[t], in[i]) + (i < delay ? 0 : in[i - delay] >> 2);
        }
        y = static_cast<int32_t>(static_cast<uint64_t>(y));
        out[i] = static_cast<int16_t>(std::clamp<int64_t>(y, INT16_MIN, INT16_MAX));
    }
    return out;
}

TEST(Echos, AnySplitInPlaceOrNotEqualsTheDirectForm) {
    const struct {
        Taps delays, gains;
        int dry;
    } rooms[] = {{{2068, 2769, 3547, 4400, 5400, 6500}, {22, 18, 15, 11, 8, 6}, 45},
                 {{1, 2, 3, 127, 128, 129}, {128, 1, 300, 64, 127, 5}, -128},
                 {{7, 7, 500, 1, 1000, 64}, {INT32_MAX, 65536, INT32_MAX, 99999, 3, 1}, INT32_MIN},
                 {{9, 5, 11, 0, -4, 13}, {10, 64, 32, 10, 10, 0}, 128}};
    auto in = krel_test::noise_s16(9000, 3);
    std::fill(in.begin() + 4000, in.begin() + 4300, INT16_MIN);
    std::fill(in.begin() + 4300, in.begin() + 4600, INT16_MAX);
    for (const auto& room : rooms) {
        const auto expected = direct_form(in, room.delays, room.gains, room.dry);
        for (const int chunk : {1, 7, 128, 1000, 9000}) {
            for (const bool in_place : {false, true}) {
                Echos echos(room.delays, room.gains, room.dry);
                Samples from = in, to(9000);
                Samples& out = in_place ? from : to;
                for (size_t at = 0; at < out.size(); at += static_cast<size_t>(chunk)) {
                    const int n = std::min(chunk, 9000 - static_cast<int>(at));
                    ASSERT_EQ(echos_process(&echos, &from[at], &out[at], n), n);
                }
                ASSERT_EQ(out, expected) << chunk << ' ' << in_place;
                const int32_t* tap = echos.tap_out;  // those of the latest sample
                EXPECT_EQ(tap[1] - (room.gains[1] * int64_t{in[8999]} >> 7),
                          in[8999 - static_cast<size_t>(room.delays[1])] >> 2);
            }
        }
    }
}

TEST(Echos, RejectedTapInFrontIsSkippedAndShortensTheWalk) {
    Echos echos({0, 5, 9, -4, 11, INT32_MAX}, {10, 64, 0, 10, 32, 10}, 128);
    EXPECT_EQ(echos.tap_count, 2);  // taps 1 and 4: positions 0 and 1 are walked
    Samples block = {400, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    echos_process(&echos, block.data(), block.data(), 12);
    EXPECT_EQ(block, (Samples{400 + 200, 0, 0, 0, 0, 100, 0, 0, 0, 0, 0, 0}));
    echos_deinit(&echos);  // the second one is harmless

    int16_t sample = 99;
    EXPECT_EQ(echos_process(&echos, nullptr, &sample, 1), -1);
    EXPECT_EQ(echos_process(&echos, &sample, &sample, -5), -5);
}

TEST(Echos, LinesBeyondTheLimitAreRejected) {
    Taps delays = {(16 << 20) - 2, 3, 2, 0, 0, 0}, gains = {1, 1, 1, 0, 0, 0};
    Echos echos(delays, gains, 0);
    EXPECT_EQ(echos.line[1], nullptr);
    EXPECT_EQ(echos.tap_count, 2);
    EXPECT_FALSE(krel::echos_complete(echos, delays.data(), gains.data()));
    gains[1] = 0;
    EXPECT_TRUE(krel::echos_complete(echos, delays.data(), gains.data()));
}

}  // namespace
