#include "core/echos.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <vector>

#include "tests/support/alloc_gate.h"
#include "tests/support/signals.h"

namespace {

constexpr int kRate = 48000;
using Taps = std::array<int, KREL_ECHO_TAPS>;

Taps delays_of(int variant, int rate = kRate) {
    Taps delays{};
    Taps gains{};
    calculate_echos(rate, delays.data(), gains.data(), variant);
    return delays;
}

class Echos {
  public:
    Echos(Taps delays, Taps gains, int dry) {
        EXPECT_EQ(echos_init(&echos_, delays.data(), gains.data(), dry), 0);
    }
    explicit Echos(int rate) {
        Taps delays{};
        Taps gains{};
        calculate_echos(rate, delays.data(), gains.data(), 2);
        echos_init(&echos_, delays.data(), gains.data(), 45);
    }
    ~Echos() { echos_deinit(&echos_); }
    Echos(const Echos&) = delete;
    Echos& operator=(const Echos&) = delete;

    std::vector<int16_t> run(std::vector<int16_t> in, int chunk, bool in_place) {
        const int total = static_cast<int>(in.size());
        std::vector<int16_t> separate(in.size());
        int16_t* out = in_place ? in.data() : separate.data();
        for (int at = 0; at < total; at += chunk) {
            const int n = std::min(chunk, total - at);
            EXPECT_EQ(echos_process(&echos_, in.data() + at, out + at, n), n);
        }
        return in_place ? in : separate;
    }
    std::vector<int16_t> run(const std::vector<int16_t>& in) {
        return run(in, static_cast<int>(in.size()), false);
    }
    echos_t* operator->() { return &echos_; }
    echos_t* get() { return &echos_; }

  private:
    echos_t echos_{};
};

TEST(CalculateEchos, JitterSpansItsRangeAndIsAddedToTheDelayBefore) {
    const struct {
        int variant, tap, least, most;
    } steps[] = {{0, 2, 336, 427}, {1, 2, 528, 619},  {1, 3, 624, 763},
                 {2, 3, 816, 955}, {2, 4, 912, 1051}, {2, 5, 1008, 1147}};
    for (const auto& step : steps) {
        int least = INT32_MAX;
        int most = 0;
        for (int i = 0; i < 2000; ++i) {
            const Taps d = delays_of(step.variant);
            const auto tap = static_cast<size_t>(step.tap);
            least = std::min(least, d[tap] - d[tap - 1]);
            most = std::max(most, d[tap] - d[tap - 1]);
        }
        EXPECT_EQ(least, step.least) << step.variant << ' ' << step.tap;
        EXPECT_EQ(most, step.most) << step.variant << ' ' << step.tap;
    }
}

TEST(CalculateEchos, FixedDelaysTruncateAndUnusedEntriesStay) {
    const struct {
        int rate, variant, used;
        std::vector<int> fixed;
        std::vector<int> levels;
    } rooms[] = {{48000, 0, 3, {1291, 1665}, {24, 18, 13}},
                 {44100, 1, 4, {1459, 2015}, {24, 18, 13, 8}},
                 {48000, 2, 6, {2068, 2769, 3547}, {22, 18, 15, 11, 8, 6}},
                 {44100, -7, 6, {1900, 2544, 3258}, {22, 18, 15, 11, 8, 6}}};
    for (const auto& room : rooms) {
        Taps delays;
        Taps gains;
        delays.fill(-9);
        gains.fill(-9);
        calculate_echos(room.rate, delays.data(), gains.data(), room.variant);
        EXPECT_TRUE(std::equal(room.fixed.begin(), room.fixed.end(), delays.begin()));
        EXPECT_TRUE(std::equal(room.levels.begin(), room.levels.end(), gains.begin()));
        EXPECT_EQ(std::ranges::count(delays, -9), KREL_ECHO_TAPS - room.used);
        EXPECT_EQ(std::ranges::count(gains, -9), KREL_ECHO_TAPS - room.used);
    }
}

TEST(CalculateEchos, DrawsOncePerJitteredDelayAndNeverSeeds) {
    srand(7);
    int draws[7];
    for (int& draw : draws) draw = rand();
    srand(7);
    const Taps first = delays_of(2);
    const Taps second = delays_of(2);
    EXPECT_EQ(rand(), draws[6]);
    EXPECT_EQ(first[3] - first[2], static_cast<int>((draws[0] % 30 / 10000.0 + 0.017) * kRate));
    EXPECT_EQ(second[3] - second[2], static_cast<int>((draws[3] % 30 / 10000.0 + 0.017) * kRate));
    EXPECT_NE(first, second);
}

TEST(CalculateEchos, JitterIsAddedBeforeTheProductIsRounded) {
    // Exactly 21 ms, 1008 samples; as doubles 0.002 + 0.019 is a little less.
    unsigned seed = 1;
    for (;; ++seed) {
        srand(seed);
        rand();
        if (rand() % 30 == 20) break;
    }
    srand(seed);
    const Taps d = delays_of(2);
    EXPECT_EQ(d[4] - d[3], 1007);
}

TEST(Echos, ImpulseComesBackAtAQuarterFromEveryTap) {
    Echos echos(kRate);
    const echos_t before = *echos.get();
    std::vector<int16_t> in(8000);
    in[0] = 1000;
    in[10] = -1;
    const auto out = echos.run(in);
    std::vector<int16_t> expected(8000);
    expected[0] = 351 + 171 + 140 + 117 + 85 + 62 + 46;
    expected[10] = -7;  // each of the seven terms rounds toward minus infinity
    for (const int32_t delay : before.len) {
        expected[static_cast<size_t>(delay)] = 250;
        expected[static_cast<size_t>(delay) + 10] = -1;
    }
    EXPECT_EQ(expected[0], 972);
    EXPECT_EQ(out, expected);
}

/// The closed form: no delay lines, only the signal itself.
std::vector<int16_t> direct_form(const std::vector<int16_t>& in, const Taps& delays,
                                 const Taps& gains, int dry) {
    const auto level = [](int gain, int x) {
        return static_cast<int32_t>(static_cast<uint32_t>(int64_t{gain} * x)) >> 7;
    };
    std::vector<int16_t> out(in.size());
    for (size_t i = 0; i < in.size(); ++i) {
        int64_t y = level(dry, in[i]);
        for (size_t t = 0; t < delays.size(); ++t) {
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
                 {{7, 7, 500, 1, 1000, 64}, {INT32_MAX, 65536, INT32_MAX, 99999, 3, 1}, INT32_MIN}};
    auto in = krel_test::noise_s16(9000, 3);
    std::fill(in.begin() + 4000, in.begin() + 4300, INT16_MIN);
    std::fill(in.begin() + 4300, in.begin() + 4600, INT16_MAX);
    for (const auto& room : rooms) {
        const auto expected = direct_form(in, room.delays, room.gains, room.dry);
        for (const int chunk : {1, 7, 128, 1000, 9000}) {
            for (const bool in_place : {false, true}) {
                Echos echos(room.delays, room.gains, room.dry);
                ASSERT_EQ(echos.run(in, chunk, in_place), expected) << chunk << ' ' << in_place;
            }
        }
    }
}

TEST(Echos, TapOutputsAreThoseOfTheLatestSample) {
    Echos echos({3, 50, 200, 0, 0, 0}, {40, 30, 20, 0, 0, 0}, 10);
    const auto out = echos.run(krel_test::noise_s16(700, 1, 8000));
    const auto in = krel_test::noise_s16(700, 1, 8000);
    EXPECT_EQ(echos->tap_out[1], (30 * in[699] >> 7) + (in[649] >> 2));
    EXPECT_EQ((10 * in[699] >> 7) + echos->tap_out[0] + echos->tap_out[1] + echos->tap_out[2],
              out.back());
}

TEST(Echos, RejectedTapInFrontIsSkippedAndShortensTheWalk) {
    echos_t echos;
    std::fill_n(reinterpret_cast<unsigned char*>(&echos), sizeof echos, 0xA5);
    Taps delays = {0, 5, 9, -4, 11, INT32_MAX};
    Taps gains = {10, 64, 0, 10, 32, 10};
    echos_init(&echos, delays.data(), gains.data(), 128);
    EXPECT_EQ(echos.tap_count, 2);  // taps 1 and 4: positions 0 and 1 are walked
    int16_t block[12] = {400};
    echos_process(&echos, block, block, 12);
    const int16_t expected[12] = {400 + 200, 0, 0, 0, 0, 100};
    EXPECT_TRUE(std::equal(block, block + 12, expected));
    echos_deinit(&echos);
    echos_deinit(&echos);
}

TEST(Echos, AnyRateIsSafe) {
    for (const int rate : {0, 1, 20, 30, -1, -48000, INT32_MIN, 400000, 60000000, INT32_MAX}) {
        Echos echos(rate);
        int64_t samples = 0;
        for (const int32_t len : echos->len) samples += len;
        EXPECT_LE(samples, 16 << 20);
        if (rate <= 0) {
            EXPECT_EQ(echos.run({1280, -1}), (std::vector<int16_t>{450, -1}));
        }
        EXPECT_EQ(echos.run(std::vector<int16_t>(300, -32768)).size(), 300U);
    }
}

TEST(Echos, LinesBeyondTheLimitAreRejected) {
    Taps gains = {1, 1, 1, 0, 0, 0};
    Taps delays = {(16 << 20) - 2, 3, 2, 0, 0, 0};
    Echos echos(delays, gains, 0);
    EXPECT_NE(echos->line[0], nullptr);
    EXPECT_EQ(echos->line[1], nullptr);
    EXPECT_NE(echos->line[2], nullptr);
    EXPECT_EQ(echos->tap_count, 2);
    EXPECT_FALSE(krel::echos_complete(*echos.get(), delays.data(), gains.data()));
    gains[1] = 0;
    EXPECT_TRUE(krel::echos_complete(*echos.get(), delays.data(), gains.data()));
}

TEST(Echos, FailedAllocationLeavesTheTapOut) {
    Taps delays = {10, 20, 30, 40, 50, 60};
    Taps gains = {1, 1, 1, 1, 1, 1};
    const int injected = krel_test::fail_each_allocation([&] {
        echos_t echos;
        echos_init(&echos, delays.data(), gains.data(), 128);
        EXPECT_EQ(krel::echos_complete(echos, delays.data(), gains.data()), echos.tap_count == 6);
        int16_t block[200] = {};
        EXPECT_EQ(echos_process(&echos, block, block, 200), 200);
        echos_deinit(&echos);
        echos_deinit(&echos);
    });
    EXPECT_EQ(injected, 6);
}

TEST(Echos, ArgumentsAreChecked) {
    Echos echos(8000);
    int16_t sample = 99;
    Taps some{};
    EXPECT_EQ(echos_process(nullptr, &sample, &sample, 1), -1);
    EXPECT_EQ(echos_process(echos.get(), nullptr, &sample, 1), -1);
    EXPECT_EQ(echos_process(echos.get(), &sample, nullptr, 1), -1);
    EXPECT_EQ(echos_process(echos.get(), &sample, &sample, 0), 0);
    EXPECT_EQ(echos_process(echos.get(), &sample, &sample, -5), -5);
    EXPECT_EQ(sample, 99);
    calculate_echos(8000, nullptr, some.data(), 2);
    calculate_echos(8000, some.data(), nullptr, 2);
    EXPECT_EQ(some, Taps{});
    echos_init(nullptr, some.data(), some.data(), 1);
    echos_deinit(nullptr);
}

}  // namespace
