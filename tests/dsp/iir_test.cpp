#include "dsp/iir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <vector>

#include "tests/support/signals.h"

namespace {

constexpr int kRate = 48000;
constexpr int kLowPass = 1;
constexpr int kHighPass = 0;

iir_biquad_t make_filter(int rate, int cutoff, int type) {
    iir_biquad_t f;
    std::memset(&f, 0xAB, sizeof f);
    EXPECT_EQ(iir_float_init(&f, rate, cutoff, type), 0);
    return f;
}

std::vector<float> to_float(const std::vector<int16_t>& in) { return {in.begin(), in.end()}; }

std::vector<float> run_mono(iir_biquad_t f, std::vector<float> in) {
    std::vector<float> out(in.size(), -7.0f);
    const int n = static_cast<int>(in.size());
    EXPECT_EQ(iir_float_process_mono(&f, in.data(), out.data(), n), n);
    return out;
}

/// Gain of the filter for a sine, from its settled output.
double gain_db(int type, int cutoff, double hz) {
    const auto in = krel_test::sine_s16(kRate, hz, kRate, 16384.0);
    const auto out = run_mono(make_filter(kRate, cutoff, type), to_float(in));
    double passed = 0.0;
    double fed = 0.0;
    for (size_t i = out.size() / 2; i < out.size(); ++i) {
        passed += std::pow(out[i], 2.0);
        fed += std::pow(in[i], 2.0);
    }
    return 10.0 * std::log10(passed / fed);
}

TEST(Iir, QuarterRateDesignHasTheTextbookCoefficients) {
    // cutoff = rate / 4: K = tan(pi / 4) = 1, D = 2 + sqrt(2).
    const double d = 2.0 + std::sqrt(2.0);
    for (const int type : {kLowPass, kHighPass, 2, -1}) {
        iir_coeff_gen_t gen{};
        ASSERT_EQ((type == kLowPass ? iir_lpf_init_coeffs : iir_hpf_init_coeffs)(&gen, 2000, 8000),
                  0);
        EXPECT_NEAR(gen.gain, 1.0 / d, 1e-15);
        EXPECT_NEAR(gen.a1, 0.0, 1e-15);
        EXPECT_NEAR(gen.a2, (2.0 - std::sqrt(2.0)) / d, 1e-15);
        EXPECT_EQ(gen.b0, 1.0);
        EXPECT_EQ(gen.b1, type == kLowPass ? 2.0 : -2.0);
        EXPECT_EQ(gen.a0, 1.0);
        const iir_biquad_t f = make_filter(8000, 2000, type);
        EXPECT_EQ(f.b0, static_cast<float>(gen.gain));
        EXPECT_EQ(f.b1, static_cast<float>(gen.gain * gen.b1));
        EXPECT_EQ(f.b2, f.b0);
        EXPECT_EQ(f.a2, static_cast<float>(gen.a2));
    }
}

TEST(Iir, ResponseIsButterworth) {
    for (const int cutoff : {300, 3000}) {
        EXPECT_NEAR(gain_db(kLowPass, cutoff, cutoff), -3.01, 0.05);
        EXPECT_NEAR(gain_db(kHighPass, cutoff, cutoff), -3.01, 0.05);
        EXPECT_NEAR(gain_db(kLowPass, cutoff, cutoff * 0.1), 0.0, 0.01);
        EXPECT_NEAR(gain_db(kHighPass, cutoff, cutoff * 0.1), -40.0, 0.3);
    }
    EXPECT_NEAR(gain_db(kLowPass, 300, 3000.0), -40.0, 0.5);
    EXPECT_NEAR(gain_db(kHighPass, 300, 3000.0), 0.0, 0.01);
}

TEST(Iir, ConstantInputConvergesToItselfOrToZero) {
    const std::vector<float> dc(kRate, 1234.0f);
    EXPECT_NEAR(run_mono(make_filter(kRate, 1000, kLowPass), dc).back(), 1234.0f, 0.05f);
    EXPECT_NEAR(run_mono(make_filter(kRate, 1000, kHighPass), dc).back(), 0.0f, 0.05f);
}

TEST(Iir, TermsAreSummedInSinglePrecisionFromLeftToRight) {
    // 2^24 + 1 rounds to 2^24, so each of the five terms is lost or kept by its place in the sum.
    constexpr float kBig = 16777216.0f;
    iir_biquad_t f{};
    f.b0 = kBig, f.b1 = 1.0f, f.b2 = 1.0f, f.a1 = 1.0f, f.a2 = kBig - 4.0f;
    f.x1L = f.x2L = f.y2L = 1.0f;
    f.y1L = -1.0f;
    float sample = 1.0f;
    iir_float_process_mono(&f, &sample, &sample, 1);
    EXPECT_EQ(sample, 4.0f);  // exactly it would be 7
}

TEST(Iir, InPlaceStereoAndChunkedRunsEqualPlainMono) {
    const auto left = to_float(krel_test::noise_s16(1001, 1));
    const auto right = to_float(krel_test::noise_s16(1001, 2));
    const iir_biquad_t f = make_filter(kRate, 700, kHighPass);
    const auto expected_left = run_mono(f, left);
    const auto expected_right = run_mono(f, right);

    std::vector<float> stereo;
    for (size_t i = 0; i < left.size(); ++i) stereo.insert(stereo.end(), {left[i], right[i]});
    iir_biquad_t s = f;
    float* at = stereo.data();
    for (int left_over = 1001, n = 1; left_over > 0;
         left_over -= n, n = std::min(n + 6, left_over)) {
        ASSERT_EQ(iir_float_process_stereo(&s, at, at, n), n);
        at += ptrdiff_t{2} * n;
    }
    for (size_t i = 0; i < left.size(); ++i) {
        ASSERT_EQ(stereo[2 * i], expected_left[i]) << i;
        ASSERT_EQ(stereo[2 * i + 1], expected_right[i]) << i;
    }
}

TEST(Iir, SixteenBitSaturatesWhileTheHistoryDoesNot) {
    iir_biquad_t f{};
    f.b0 = 4.0f;
    f.a1 = -1.0f;  // integrates
    std::vector<int16_t> io = {30000, -1, -30000, -30000, -30000, 7500};
    ASSERT_EQ(iir_short_process_mono(&f, io.data(), io.data(), 6), 6);
    // 120000, 119996, -4, -120004, -240004, -210004
    EXPECT_EQ(io, (std::vector<int16_t>{32767, 32767, -4, -32768, -32768, -32768}));
    EXPECT_EQ(f.y1L, -210004.0f);
}

TEST(Iir, SixteenBitStereoIsTheTruncatedFloatFilter) {
    const auto noise = krel_test::noise_s16(2000, 9, 8000);
    iir_biquad_t s = make_filter(kRate, 3000, kLowPass);
    iir_biquad_t f = s;
    auto wide = to_float(noise);
    std::vector<int16_t> out(noise.size());
    auto in = noise;
    ASSERT_EQ(iir_short_process_stereo(&s, in.data(), out.data(), 1000), 1000);
    iir_float_process_stereo(&f, wide.data(), wide.data(), 1000);
    for (size_t i = 0; i < out.size(); ++i) ASSERT_EQ(out[i], static_cast<int16_t>(wide[i])) << i;
}

TEST(Iir, ResetClearsTheHistoryOnly) {
    iir_biquad_t f = make_filter(kRate, 500, kLowPass);
    const auto fresh = run_mono(f, {1, 2, 3});
    float io[] = {5e9f, INFINITY, NAN, 1.0f};
    iir_float_process_stereo(&f, io, io, 2);
    iir_float_reset(&f);
    EXPECT_EQ(run_mono(f, {1, 2, 3}), fresh);
    EXPECT_EQ(f.x1R, 0.0f);
    EXPECT_EQ(f.y1R, 0.0f);
}

TEST(Iir, BadArgumentsAreRefusedAndTouchNothing) {
    iir_biquad_t f{};
    f.a1 = f.y2R = 42.0f;
    for (const int cutoff : {0, -1, INT_MIN}) {
        EXPECT_EQ(iir_float_init(&f, kRate, cutoff, kLowPass), -1);
        iir_coeff_gen_t gen{};
        gen.a1 = 42.0;
        EXPECT_EQ(iir_lpf_init_coeffs(&gen, cutoff, kRate), -1);
        EXPECT_EQ(iir_hpf_init_coeffs(&gen, cutoff, kRate), -1);
        EXPECT_EQ(gen.a1, 42.0);
    }
    EXPECT_EQ(f.a1, 42.0f);
    EXPECT_EQ(f.y2R, 42.0f);
    EXPECT_EQ(iir_float_init(nullptr, kRate, 100, kLowPass), -1);
    iir_float_reset(nullptr);
    float x = 3.0f;
    int16_t s = 3;
    EXPECT_EQ(iir_float_process_mono(nullptr, &x, &x, 1), -1);
    EXPECT_EQ(iir_float_process_stereo(&f, nullptr, &x, 1), -1);
    EXPECT_EQ(iir_short_process_mono(&f, &s, nullptr, 1), -1);
    EXPECT_EQ(iir_short_process_stereo(&f, nullptr, nullptr, -1), -1);
    for (const int n : {0, -1, INT_MIN}) {
        EXPECT_EQ(iir_float_process_mono(&f, &x, &x, n), n);
        EXPECT_EQ(iir_float_process_stereo(&f, &x, &x, n), n);
        EXPECT_EQ(iir_short_process_mono(&f, &s, &s, n), n);
        EXPECT_EQ(iir_short_process_stereo(&f, &s, &s, n), n);
    }
    EXPECT_EQ(x, 3.0f);
    EXPECT_EQ(s, 3);
}

TEST(Iir, UselessDesignsStayHarmless) {
    struct {
        int rate, cutoff;
    } const rows[] = {{0, 100},   {-8000, 100}, {200, 100},   {200, 150},
                      {100, 100}, {INT_MAX, 1}, {1, INT_MAX}, {INT_MIN, INT_MAX}};
    for (const auto& row : rows) {
        for (const int type : {kLowPass, kHighPass}) {
            iir_biquad_t f = make_filter(row.rate, row.cutoff, type);
            int16_t io[] = {32767, -32768, 0, 1};
            EXPECT_EQ(iir_short_process_mono(&f, io, io, 4), 4);
            EXPECT_TRUE(row.rate != 0 || io[0] == 0);  // NaN coefficients
        }
    }
}

}  // namespace
