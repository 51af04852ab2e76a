#include "spectral/transform.h"

#include <gtest/gtest.h>

#include <complex>
#include <random>
#include <vector>

#include "tests/spectral/reference.h"

namespace {

using namespace krel;
using krel_test::Spectrum;

std::vector<krel_complex_t> noise(int size) {
    std::minstd_rand random(static_cast<uint32_t>(size));
    std::uniform_real_distribution<float> level(-1.0f, 1.0f);
    std::vector<krel_complex_t> out(static_cast<size_t>(size));
    for (auto& x : out) x = {level(random), level(random)};
    return out;
}

Spectrum widen(const std::vector<krel_complex_t>& x) {
    Spectrum out;
    for (const auto& v : x) out.emplace_back(v.r, v.i);
    return out;
}

class Transform : public testing::TestWithParam<int> {};

TEST_P(Transform, ForwardIsUnscaledInverseDividesByTheSize) {
    const int size = GetParam();
    krel_fft_t* cfg = fft_create(size);
    ASSERT_NE(cfg, nullptr);
    auto time = noise(size);
    auto work = time;
    std::vector<krel_complex_t> spectrum(time.size());
    fft_forward(cfg, work.data(), spectrum.data());
    EXPECT_GT(krel_test::snr_db(krel_test::direct_dft(widen(time), -1), widen(spectrum)), 125.0);

    auto expected = krel_test::direct_dft(widen(spectrum), +1);
    for (auto& x : expected) x /= size;
    std::vector<krel_complex_t> back(time.size());
    fft_inverse(cfg, spectrum.data(), back.data());
    EXPECT_GT(krel_test::snr_db(expected, widen(back)), 125.0);
    EXPECT_GT(krel_test::snr_db(widen(time), widen(back)), 120.0);
    fft_destroy(cfg);
    EXPECT_EQ(cfg, nullptr);
    fft_destroy(cfg);
}

INSTANTIATE_TEST_SUITE_P(Sizes, Transform, testing::Values(512, 1024, 2048));

TEST(TransformSize, FollowsTheSampleRate) {
    struct {
        int rate, size, long_size;
    } const rows[] = {{1, 512, 1024},         {8000, 512, 1024},   {15999, 512, 1024},
                      {16000, 1024, 1024},    {31999, 1024, 1024}, {32000, 2048, 2048},
                      {0, 2048, 1024},        {-1, 2048, 1024},    {INT32_MIN, 2048, 1024},
                      {INT32_MAX, 2048, 2048}};
    for (const auto& row : rows) {
        EXPECT_EQ(fft_size_for_rate(row.rate), row.size) << row.rate;
        EXPECT_EQ(long_fft_size_for_rate(row.rate), row.long_size) << row.rate;
    }
}

}  // namespace
