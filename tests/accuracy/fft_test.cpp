// SPDX-License-Identifier: Apache-2.0
// What the library relies on in its FFT at the edge of the numbers.
#include <NE10_dsp.h>
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

// 32-bit ARM's vector unit takes numbers below 2^-126 for zero, whatever the process asks for. Such
// numbers never matter to a sample of 2^-15: all that is asked is that the rest of the spectrum
// stays what it is.
TEST(Fft, NumbersTooSmallToBeNormalAreKeptOrTakenForZero) {
    constexpr size_t kSize = 512;
    ne10_fft_cfg_float32_t cfg = ne10_fft_alloc_c2c_float32_neon(kSize);
    ASSERT_NE(cfg, nullptr);
    std::vector<ne10_fft_cpx_float32_t> x(kSize, {0x1p-140f, 0.0f});
    std::vector<ne10_fft_cpx_float32_t> y(kSize);
    x[0].r += 0.5f;
    ne10_fft_c2c_1d_float32_neon(y.data(), x.data(), cfg, 0);
    for (const auto& bin : y) EXPECT_TRUE(bin.r == 0.5f && std::fabs(bin.i) < 0x1p-126f);
    x[0].r = 0x1p-140f;
    ne10_fft_c2c_1d_float32_neon(y.data(), x.data(), cfg, 0);
#if defined(__arm__)
    EXPECT_EQ(y[0].r, 0.0f);
#else
    EXPECT_EQ(y[0].r, std::ldexp(static_cast<float>(kSize), -140));
#endif
    ne10_fft_destroy_c2c_float32(cfg);
}

}  // namespace
