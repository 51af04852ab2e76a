#include "dsp/peq.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "tests/support/signals.h"

namespace {

using Wide = std::vector<int32_t>;

/// One band over a whole signal, straight from its difference equation modulo 2^64.
Wide band_by_definition(const peq_band_param_t& c, const Wide& x) {
    Wide y(x.size());
    const auto product = [](int32_t b, const Wide& v, size_t i, size_t back) {
        return i < back ? 0 : static_cast<uint64_t>(int64_t{b} * v[i - back]);
    };
    for (size_t i = 0; i < x.size(); ++i) {
        const uint64_t sum = product(c.b0, x, i, 0) + product(c.b1, x, i, 1) +
                             product(c.b2, x, i, 2) + product(c.a1, y, i, 1) +
                             product(c.a2, y, i, 2);
        y[i] = static_cast<int32_t>(static_cast<uint32_t>(sum >> 28));
    }
    return y;
}

Wide by_definition(const peq_stereo_param_t& params, int bands, Wide x) {
    for (int k = 0; k < bands; ++k) x = band_by_definition(params.band[k], x);
    return x;
}

/// Full-range noise with runs of both extremes, then what a mono call hands over.
Wide channel(uint32_t seed, const std::vector<int16_t>& mono) {
    std::mt19937 random(seed);
    Wide v(1500);
    for (auto& s : v) s = static_cast<int32_t>(random());
    std::fill_n(v.begin() + 750, 40, INT32_MIN);
    std::fill_n(v.begin() + 500, 40, INT32_MAX);
    v.insert(v.end(), mono.begin(), mono.end());
    return v;
}

TEST(Peq, AnySplitEqualsTheDefinitionAtEveryBandCountAndCoefficient) {
    std::mt19937 random(1);
    const auto mono = krel_test::noise_s16(1500, 3);
    const Wide in_l = channel(1, mono), in_r = channel(2, {});
    for (int bands = 0; bands <= KREL_PEQ_BANDS; ++bands) {
        for (const int32_t scale : {1 << 26, 1 << 29, INT32_MAX, INT32_MIN}) {
            const auto next = [&] {
                if (scale == INT32_MIN) return scale;
                return std::uniform_int_distribution<int32_t>(-scale, scale)(random);
            };
            peq_stereo_param_t params{};
            for (int k = 0; k < KREL_PEQ_BANDS; ++k)
                params.band[k] = {k < bands ? 1 : 0, next(), next(), next(), next(), next()};
            const Wide expected_l = by_definition(params, bands, in_l);
            const Wide expected_r = by_definition(params, bands, in_r);
            for (const int chunk : {1, 5, 128, 1500}) {
                SCOPED_TRACE(testing::Message() << bands << ' ' << scale << ' ' << chunk);
                void* peq = peq_init(&params);
                Wide l = in_l, r = in_r;  // comes back swapped
                auto m = mono;            // goes on with the left history
                for (int at = 0; at < 1500; at += chunk) {
                    int32_t *pl = l.data() + at, *pr = r.data() + at;
                    peq_stereo_process(peq, pl, pr, pr, pl, std::min(chunk, 1500 - at));
                }
                for (int at = 0; at < 1500; at += chunk)
                    peq_mono_process(peq, m.data() + at, m.data() + at, std::min(chunk, 1500 - at));
                peq_deinit(peq);
                for (size_t i = 0; i < 1500; ++i) {
                    ASSERT_EQ(r[i], expected_l[i]) << i;
                    ASSERT_EQ(l[i], expected_r[i]) << i;
                    ASSERT_EQ(m[i], std::clamp(expected_l[1500 + i], INT16_MIN, INT16_MAX)) << i;
                }
            }
        }
    }
}

TEST(Peq, GapsInTheFlagsOnlyLowerTheCount) {
    // Two enabled: bands 0 and 1 run, a half and a third.
    peq_stereo_param_t params = {};
    params.band[0].b0 = (1 << 28) / 2;
    params.band[1].b0 = (1 << 28) / 3;
    params.band[1].enabled = 7;
    params.band[3].enabled = -1;
    params.band[4].enabled = 1;
    void* peq = peq_init(&params);
    int16_t io[] = {6000, -3};
    peq_mono_process(peq, io, io, 2);
    EXPECT_EQ(io[0], 999);
    EXPECT_EQ(io[1], -1);
    peq_deinit(peq);
    EXPECT_EQ(peq_init(nullptr), nullptr);
}

}  // namespace
