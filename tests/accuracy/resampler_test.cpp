// SPDX-License-Identifier: Apache-2.0
// The library's build of the resampler gives the package's own samples.
#include <gtest/gtest.h>
#include <speex/speex_resampler.h>

#include <random>
#include <vector>

extern "C" {
decltype(speex_resampler_init) package_resampler_init;
decltype(speex_resampler_skip_zeros) package_resampler_skip_zeros;
decltype(speex_resampler_set_rate) package_resampler_set_rate;
decltype(speex_resampler_process_int) package_resampler_process_int;
decltype(speex_resampler_destroy) package_resampler_destroy;
}

namespace {

using Rates = std::vector<spx_uint32_t>;
using Samples = std::vector<int16_t>;

struct Resampler {
    decltype(&speex_resampler_init) init;
    decltype(&speex_resampler_skip_zeros) skip_zeros;
    decltype(&speex_resampler_set_rate) set_rate;
    decltype(&speex_resampler_process_int) process;
    decltype(&speex_resampler_destroy) destroy;
};
constexpr Resampler kOurs = {speex_resampler_init, speex_resampler_skip_zeros,
                             speex_resampler_set_rate, speex_resampler_process_int,
                             speex_resampler_destroy};
constexpr Resampler kPackages = {package_resampler_init, package_resampler_skip_zeros,
                                 package_resampler_set_rate, package_resampler_process_int,
                                 package_resampler_destroy};

/// One stream whose output rate changes from block to block.
Samples render(const Resampler& f, const Samples& in, spx_uint32_t in_rate,
               const Rates& out_rates) {
    constexpr size_t kBlock = 480;
    SpeexResamplerState* state = f.init(1, in_rate, in_rate, 5, nullptr);
    f.skip_zeros(state);
    Samples all;
    for (size_t at = 0; at + kBlock <= in.size(); at += kBlock) {
        EXPECT_EQ(f.set_rate(state, in_rate, out_rates[at / kBlock % out_rates.size()]), 0);
        spx_uint32_t in_len = kBlock;
        Samples out(5 * kBlock);
        auto out_len = static_cast<spx_uint32_t>(out.size());
        f.process(state, 0, in.data() + at, &in_len, out.data(), &out_len);
        all.insert(all.end(), out.begin(), out.begin() + out_len);
    }
    f.destroy(state);
    return all;
}

// Direct and interpolated filters of all oversamplings, ratios from below 1 to 12, and sums that
// wrap.
TEST(Resampler, IsThePackagesBitForBit) {
    std::minstd_rand random(1);
    Samples noise(48000);
    for (int16_t& s : noise) s = static_cast<int16_t>(random());
    Samples square(48000, INT16_MAX);
    for (size_t i = 0; i < square.size(); ++i) square[i] = i / 170 % 2 == 0 ? INT16_MAX : INT16_MIN;
    const struct {
        spx_uint32_t in_rate;
        Rates out_rates;
    } rows[] = {{8000, {4484, 5000}},
                {48000, {36923}},
                {48000, {38400}},
                {48000, {48000}},
                {48000, {24007, 23993}},
                {48000, {12007, 5987, 4001, 95999}},
                {48000, {16001, 47999, 20000, 31111, 60013, 17777}}};
    for (const auto& row : rows) {
        for (const Samples& in : {noise, square}) {
            const Samples expected = render(kPackages, in, row.in_rate, row.out_rates);
            EXPECT_GT(expected.size(), 3000u);
            EXPECT_TRUE(render(kOurs, in, row.in_rate, row.out_rates) == expected)
                    << row.in_rate << " to " << row.out_rates[0];
        }
    }
}

}  // namespace
