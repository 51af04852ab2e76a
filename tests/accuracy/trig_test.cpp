// SPDX-License-Identifier: Apache-2.0
// The trigonometry of spectra is as accurate as its header says.
#include "spectral/trig.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace {

/// Distance from the exact value in units of its last place in single precision.
double ulps(float value, double exact) {
    const auto nearest = std::fabs(static_cast<float>(exact));
    return std::fabs(value - exact) / (std::nextafterf(nearest, INFINITY) - nearest);
}

TEST(Trig, Atan2IsWithinThreeUlpInEveryDirection) {
    std::minstd_rand random(1);
    std::uniform_real_distribution<float> level(-1.0f, 1.0f);
    for (int i = 0; i < 200000; ++i) {
        const float y = std::ldexp(level(random), static_cast<int>(random() % 60) - 30);
        const float x = level(random);
        ASSERT_LT(ulps(krel::bin_atan2(y, x), std::atan2(double{y}, double{x})), 3.0)
                << y << " " << x;
    }
    for (const float y : {0.0f, -0.0f, 1e-38f, -1.0f, 1.0f}) {
        for (const float x : {0.0f, -0.0f, 1e-38f, -1.0f, 1.0f}) {
            const float expected = std::atan2(y, x);
            ASSERT_NEAR(krel::bin_atan2(y, x), expected, 3e-7f) << y << " " << x;
            ASSERT_EQ(std::signbit(krel::bin_atan2(y, x)), std::signbit(expected));
        }
    }
}

TEST(Trig, SineAndCosineAreWithinTwoUlpUpToTheLargestPhase) {
    std::minstd_rand random(2);
    std::uniform_real_distribution<float> level(-1.0f, 1.0f);
    for (int i = 0; i < 200000; ++i) {
        const float phase = krel::kLargestPhase * std::ldexp(level(random), -(i % 48));
        float sine = 0.0f;
        float cosine = 0.0f;
        krel::bin_sincos(phase, &sine, &cosine);
        ASSERT_LT(ulps(sine, std::sin(double{phase})), 2.0) << phase;
        ASSERT_LT(ulps(cosine, std::cos(double{phase})), 2.0) << phase;
    }
}

}  // namespace
