#include "spectral/polar.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

using namespace krel;

TEST(Polar, PhasesAreAccurateInEveryDirectionAndSignedZerosCount) {
    std::minstd_rand random(3);
    std::uniform_real_distribution<float> level(-1.0f, 1.0f);
    std::vector<krel_complex_t> x = {{0.0f, 0.0f},  {-0.0f, 0.0f},  {0.0f, -0.0f},  {-0.0f, -0.0f},
                                     {1.0f, 0.0f},  {-1.0f, 0.0f},  {-1.0f, -0.0f}, {0.0f, 2.0f},
                                     {0.0f, -2.0f}, {1e-30f, 1.0f}, {1.0f, 1e-30f}, {3e3f, 3e3f}};
    while (x.size() < 5000) {
        const float size = std::ldexp(1.0f, static_cast<int>(random() % 40) - 30);
        x.push_back({size * level(random), level(random)});
    }
    std::vector<float> phase(x.size());
    spectrum_phases(x.data(), phase.data(), static_cast<int>(x.size()));
    for (size_t k = 0; k < x.size(); ++k) {
        const double expected = std::atan2(double{x[k].i}, double{x[k].r});
        ASSERT_NEAR(phase[k], expected, 2e-7 * std::fabs(expected)) << x[k].r << " " << x[k].i;
        ASSERT_EQ(std::signbit(phase[k]), std::signbit(expected));
    }
}

TEST(Polar, BackFromPolarIsAccurateAtThePhasesOfAnyUptime) {
    std::minstd_rand random(4);
    std::uniform_real_distribution<float> level(-1.0f, 1.0f);
    std::vector<float> phase = {0.0f,        -0.0f, 1.5707964f, 3.1415927f,
                                -3.1415927f, 1e9f,  -1e9f,      3e12f};
    // A synthesis phase that has been summed for days.
    for (float range = 1.0f; range < 0x1p36f; range *= 1.5f) {
        for (int i = 0; i < 200; ++i) phase.push_back(range * level(random));
    }
    const std::vector<float> magnitude(phase.size(), 3.0f);
    std::vector<krel_complex_t> x(phase.size());
    spectrum_from_polar(magnitude.data(), phase.data(), x.data(), static_cast<int>(x.size()));
    for (size_t k = 0; k < x.size(); ++k) {
        ASSERT_NEAR(x[k].r, 3.0 * std::cos(double{phase[k]}), 4e-7) << phase[k];
        ASSERT_NEAR(x[k].i, 3.0 * std::sin(double{phase[k]}), 4e-7) << phase[k];
    }
}

}  // namespace
