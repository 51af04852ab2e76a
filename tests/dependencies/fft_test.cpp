// What this library relies on in its FFT: size, direction and scaling of the calls it makes.
#include <NE10_dsp.h>
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

class Ne10Fft : public testing::TestWithParam<int> {};

TEST_P(Ne10Fft, ForwardIsUnscaledInverseIsOneOverNAndTheyUndoEachOther) {
    const int size = GetParam();
    const auto n = static_cast<size_t>(size);
    ne10_fft_cfg_float32_t cfg = ne10_fft_alloc_c2c_float32_neon(size);
    ASSERT_NE(cfg, nullptr);
    std::vector<ne10_fft_cpx_float32_t> x(n), y(n), z(n);
    // A cosine of five periods: half of N in bins 5 and N-5, exactly.
    for (size_t i = 0; i < n; ++i) {
        x[i] = {static_cast<float>(std::cos(2.0 * M_PI * 5.0 * static_cast<double>(i) / size)),
                0.0f};
    }
    auto in = x;
    ne10_fft_c2c_1d_float32_neon(y.data(), in.data(), cfg, 0);
    for (size_t k = 0; k < n; ++k) {
        ASSERT_NEAR(y[k].r, k == 5 || k == n - 5 ? size / 2.0 : 0.0, 1e-6 * size) << k;
        ASSERT_NEAR(y[k].i, 0.0, 1e-6 * size) << k;
    }
    ne10_fft_c2c_1d_float32_neon(z.data(), y.data(), cfg, 1);
    for (size_t i = 0; i < n; ++i) {
        ASSERT_NEAR(z[i].r, x[i].r, 1e-6);
        ASSERT_NEAR(z[i].i, 0.0f, 1e-6);
    }
    ne10_fft_destroy_c2c_float32(cfg);
}

INSTANTIATE_TEST_SUITE_P(Sizes, Ne10Fft, testing::Values(512, 1024, 2048));

}  // namespace
