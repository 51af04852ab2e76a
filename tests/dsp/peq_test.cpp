#include "dsp/peq.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <random>
#include <vector>

#include "tests/support/alloc_gate.h"
#include "tests/support/signals.h"

namespace {

constexpr int32_t kOneQ28 = 1 << 28;
constexpr peq_band_param_t kFlat = {1, kOneQ28, 0, 0, 0, 0};
constexpr peq_band_param_t kOff = {};

using Wide = std::vector<int32_t>;
using Samples = std::vector<int16_t>;

class Peq {
  public:
    explicit Peq(const peq_stereo_param_t& params) : state_(peq_init(&params)) {}
    ~Peq() { peq_deinit(state_); }
    Peq(const Peq&) = delete;
    Peq& operator=(const Peq&) = delete;

    Samples mono(Samples in, int chunk = 128) {
        const int total = static_cast<int>(in.size());
        for (int at = 0; at < total; at += chunk) {
            peq_mono_process(state_, in.data() + at, in.data() + at, std::min(chunk, total - at));
        }
        return in;
    }
    /// Left and right of the result, one after the other.
    std::array<Wide, 2> stereo(Wide l, Wide r, int chunk = 128) {
        const int total = static_cast<int>(l.size());
        for (int at = 0; at < total; at += chunk) {
            int32_t* pl = l.data() + at;
            int32_t* pr = r.data() + at;
            peq_stereo_process(state_, pl, pr, pl, pr, std::min(chunk, total - at));
        }
        return {l, r};
    }
    void* get() { return state_; }

  private:
    void* state_;
};

/// One band over a whole signal, straight from its difference equation modulo 2^64.
Wide band_by_definition(const peq_band_param_t& c, const Wide& x) {
    Wide y(x.size());
    const auto at = [](const Wide& v, size_t i, size_t back) -> int64_t {
        return i < back ? 0 : v[i - back];
    };
    for (size_t i = 0; i < x.size(); ++i) {
        uint64_t sum = 0;
        sum += static_cast<uint64_t>(c.b0 * at(x, i, 0));
        sum += static_cast<uint64_t>(c.b1 * at(x, i, 1));
        sum += static_cast<uint64_t>(c.b2 * at(x, i, 2));
        sum += static_cast<uint64_t>(c.a1 * at(y, i, 1));
        sum += static_cast<uint64_t>(c.a2 * at(y, i, 2));
        y[i] = static_cast<int32_t>(static_cast<uint32_t>(sum >> 28));
    }
    return y;
}

Wide by_definition(const peq_stereo_param_t& params, int bands, Wide x) {
    for (int k = 0; k < bands; ++k) x = band_by_definition(params.band[k], x);
    return x;
}

Wide wide_noise(int samples, uint32_t seed) {
    std::mt19937 random(seed);
    Wide v(static_cast<size_t>(samples));
    for (auto& s : v) s = static_cast<int32_t>(random());
    std::fill_n(v.begin() + samples / 2, 40, INT32_MIN);
    std::fill_n(v.begin() + samples / 3, 40, INT32_MAX);
    return v;
}

/// `count` enabled bands with coefficients in [-scale, scale], or all INT32_MIN for that scale.
peq_stereo_param_t random_bands(int count, int32_t scale, uint32_t seed) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<int32_t> within(-std::abs(scale + 1), std::abs(scale + 1));
    const auto next = [&] { return scale == INT32_MIN ? scale : within(random); };
    peq_stereo_param_t params{};
    for (auto& band : params.band) {
        band = {count-- > 0 ? 1 : 0, next(), next(), next(), next(), next()};
    }
    return params;
}

TEST(Peq, AnySplitEqualsTheDefinitionAtEveryBandCountAndCoefficient) {
    const Wide in_l = wide_noise(1500, 1);
    const Wide in_r = wide_noise(1500, 2);
    const Samples in = krel_test::noise_s16(1500, 3);
    for (int bands = 0; bands <= KREL_PEQ_BANDS; ++bands) {
        for (const int32_t scale : {kOneQ28 / 4, 2 * kOneQ28, INT32_MAX - 1, INT32_MIN}) {
            const auto params = random_bands(bands, scale, static_cast<uint32_t>(bands));
            const Wide expected_l = by_definition(params, bands, in_l);
            const Wide expected_r = by_definition(params, bands, in_r);
            const Wide wide = by_definition(params, bands, {in.begin(), in.end()});
            Samples expected(wide.size());
            std::ranges::transform(wide, expected.begin(), [](int32_t v) {
                return static_cast<int16_t>(std::clamp(v, INT16_MIN, INT16_MAX));
            });
            for (const int chunk : {1, 5, 128, 1500}) {
                const auto [l, r] = Peq(params).stereo(in_l, in_r, chunk);
                ASSERT_EQ(l, expected_l) << bands << ' ' << scale << ' ' << chunk;
                ASSERT_EQ(r, expected_r) << bands << ' ' << scale << ' ' << chunk;
                ASSERT_EQ(Peq(params).mono(in, chunk), expected) << bands << ' ' << chunk;
            }
        }
    }
}

TEST(Peq, GapsInTheFlagsOnlyLowerTheCount) {
    const peq_band_param_t half = {0, kOneQ28 / 2, 0, 0, 0, 0};
    const peq_band_param_t third = {7, kOneQ28 / 3, 0, 0, 0, 0};
    const peq_stereo_param_t params = {{half, third, kOff, {-1, 0, 0, 0, 0, 0}, kOff}};
    EXPECT_EQ(Peq(params).mono({1000, -3}), (Samples{500, -2}));
}

TEST(Peq, MonoSaturatesAtTheEndOnlyAndStereoNowhere) {
    const peq_band_param_t times4 = {1, 0x40000000, 0, 0, 0, 0};
    const peq_band_param_t quarter = {1, kOneQ28 / 4, 0, 0, 0, 0};
    const peq_stereo_param_t gain = {{times4, kFlat, kOff, kOff, kOff}};
    EXPECT_EQ(Peq(gain).mono({8191, 8192, -8192, -8193}), (Samples{32764, 32767, -32768, -32768}));
    EXPECT_EQ(Peq(gain).stereo({100000}, {-100000}), (std::array<Wide, 2>{{{400000}, {-400000}}}));
    const peq_stereo_param_t there_and_back = {{times4, quarter, kOff, kOff, kOff}};
    EXPECT_EQ(Peq(there_and_back).mono({30000, -32768}), (Samples{30000, -32768}));
}

TEST(Peq, ChannelsHaveTheirOwnHistoryAndMayBeSwapped) {
    const auto params = random_bands(3, kOneQ28 / 4, 8);
    const Wide in_l = wide_noise(300, 4);
    const Wide in_r = wide_noise(300, 5);
    Wide a = in_l;
    Wide b = in_r;
    Peq peq(params);
    peq_stereo_process(peq.get(), a.data(), b.data(), b.data(), a.data(), 300);
    EXPECT_EQ(b, by_definition(params, 3, in_l));
    EXPECT_EQ(a, by_definition(params, 3, in_r));

    // Mono goes on with the left history.
    const Samples more = krel_test::noise_s16(100, 6, 3000);
    Wide whole = in_l;
    whole.insert(whole.end(), more.begin(), more.end());
    const Wide expected = by_definition(params, 3, whole);
    const Samples out = peq.mono(more);
    for (size_t i = 0; i < out.size(); ++i) {
        ASSERT_EQ(out[i], std::clamp(expected[300 + i], INT16_MIN, INT16_MAX)) << i;
    }
}

TEST(Peq, MissingArgumentsAndMemoryAreHarmless) {
    const peq_stereo_param_t params = {{kFlat, kOff, kOff, kOff, kOff}};
    const int injected = krel_test::fail_each_allocation([&] {
        void* peq = peq_init(&params);
        int16_t s = 5;
        peq_mono_process(peq, &s, &s, 1);
        EXPECT_EQ(s, 5);
        peq_deinit(peq);
    });
    EXPECT_EQ(injected, 1);
    EXPECT_EQ(peq_init(nullptr), nullptr);

    const peq_stereo_param_t silent = {{{1, 0, 0, 0, 0, 0}, kOff, kOff, kOff, kOff}};
    Peq peq(silent);
    int32_t w = 7;
    int16_t s = 7;
    peq_stereo_process(nullptr, &w, &w, &w, &w, 1);
    for (int missing = 0; missing < 4; ++missing) {
        int32_t* p[] = {&w, &w, &w, &w};
        p[missing] = nullptr;
        peq_stereo_process(peq.get(), p[0], p[1], p[2], p[3], 1);
    }
    peq_stereo_process(peq.get(), &w, &w, &w, &w, 0);
    peq_mono_process(nullptr, &s, &s, 1);
    peq_mono_process(peq.get(), nullptr, &s, 1);
    peq_mono_process(peq.get(), &s, nullptr, 1);
    peq_mono_process(peq.get(), &s, &s, -1);
    EXPECT_EQ(w, 7);
    EXPECT_EQ(s, 7);
    peq_deinit(nullptr);
}

}  // namespace
