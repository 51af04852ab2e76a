#include "dsp/iir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <numbers>
#include <vector>

#include "tests/support/signals.h"

namespace {

constexpr int kRate = 48000;
constexpr int kLowPass = 1;
constexpr int kHighPass = 0;
constexpr double kPi = std::numbers::pi;

iir_biquad_t make_filter(int cutoff, int type) {
    iir_biquad_t f;
    std::memset(&f, 0xAB, sizeof f);
    EXPECT_EQ(iir_float_init(&f, kRate, cutoff, type), 0);
    return f;
}

/// Squared magnitude of a section's response at an angle of up to pi.
double power_gain(const iir_coeff_gen_t& c, double angle) {
    const auto z = std::polar(1.0, -angle);
    return std::norm(c.gain * (c.b0 + z * (c.b1 + z)) / (c.a0 + z * (c.a1 + z * c.a2)));
}

TEST(Iir, DesignIsButterworthWithThePrewarpedCutoff) {
    for (const int cutoff : {1, 300, 3000, 12000, 23999}) {
        for (const int type : {kLowPass, kHighPass, 2, -1}) {
            SCOPED_TRACE(testing::Message() << cutoff << ' ' << type);
            const auto design = type == kLowPass ? iir_lpf_init_coeffs : iir_hpf_init_coeffs;
            iir_coeff_gen_t gen{};
            ASSERT_EQ(design(&gen, cutoff, kRate), 0);
            for (const double hz : {100.0, 3000.0, 12000.0, 20000.0}) {
                const double ratio = std::tan(kPi * hz / kRate) / std::tan(kPi * cutoff / kRate);
                const double expected = 1.0 / (1.0 + std::pow(ratio, type == kLowPass ? 4 : -4));
                EXPECT_NEAR(power_gain(gen, 2.0 * kPi * hz / kRate) / expected, 1.0, 1e-8) << hz;
            }
            const iir_biquad_t f = make_filter(cutoff, type);
            EXPECT_EQ(f.b0, static_cast<float>(gen.gain));
            EXPECT_EQ(f.b1, static_cast<float>(gen.gain * gen.b1));
            EXPECT_EQ(f.b2, f.b0);
            EXPECT_EQ(f.a1, static_cast<float>(gen.a1));
            EXPECT_EQ(f.a2, static_cast<float>(gen.a2));
        }
    }
}

/// Interleaved channels by the difference equation, each term added on its own in single precision.
std::vector<float> by_definition(const iir_biquad_t& f, const std::vector<int16_t>& in,
                                 size_t channels) {
    std::vector<float> y(in.size());
    const auto past = [&](const auto& v, size_t i, size_t frames) {
        return i < frames * channels ? 0.0f : static_cast<float>(v[i - frames * channels]);
    };
    for (size_t i = 0; i < in.size(); ++i) {
        y[i] = f.b0 * past(in, i, 0);
        y[i] += f.b1 * past(in, i, 1);
        y[i] += f.b2 * past(in, i, 2);
        y[i] -= f.a1 * past(y, i, 1);
        y[i] -= f.a2 * past(y, i, 2);
    }
    return y;
}

template <typename Sample>
using Process = int (*)(void*, Sample*, Sample*, int);

/// In place, in uneven pieces, twice: the second time after a reset.
template <typename Sample>
void expect_definition(iir_biquad_t f, Process<Sample> process, int channels) {
    const auto in = krel_test::noise_s16(2002, 1);
    const int frames = 2002 / channels;
    for (int pass = 0; pass < 2; ++pass) {
        std::vector<Sample> io(in.begin(), in.end());
        for (int at = 0, n = 1; at < frames; at += n, n = std::min(n + 6, frames - at)) {
            Sample* block = io.data() + at * channels;
            ASSERT_EQ(process(&f, block, block, n), n);
        }
        const auto expected = by_definition(f, in, static_cast<size_t>(channels));
        for (size_t i = 0; i < expected.size(); ++i) {
            const float narrow = std::trunc(std::clamp(expected[i], -32768.0f, 32767.0f));
            ASSERT_EQ(static_cast<float>(io[i]), sizeof(Sample) == 2 ? narrow : expected[i]) << i;
        }
        iir_float_reset(&f);
    }
    Sample none = 0;
    EXPECT_EQ(process(nullptr, &none, &none, 1), -1);
    EXPECT_EQ(process(&f, &none, &none, -3), -3);
}

TEST(Iir, EveryCallEqualsTheRecurrenceInSinglePrecision) {
    iir_biquad_t integrator{};  // beyond 16 bits most of the time
    integrator.b0 = 4.0f;
    integrator.a1 = -1.0f;
    EXPECT_EQ(iir_float_init(&integrator, kRate, 0, kLowPass), -1);  // refused: it stays as it is
    for (const auto& f : {make_filter(3000, kLowPass), make_filter(700, kHighPass), integrator}) {
        expect_definition<float>(f, iir_float_process_mono, 1);
        expect_definition<float>(f, iir_float_process_stereo, 2);
        expect_definition<int16_t>(f, iir_short_process_mono, 1);
        expect_definition<int16_t>(f, iir_short_process_stereo, 2);
    }
}

}  // namespace
