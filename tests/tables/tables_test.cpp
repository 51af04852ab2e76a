#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <span>

#include "tables/carrier.h"
#include "tables/hann.h"

namespace {

using namespace krel;

TEST(Hann, TablesHoldThePeriodicWindowToSixDecimals) {
    for (const int size : {512, 1024, 2048}) {
        const float* window = hann_window(size);
        for (int n = 0; n < size; ++n) {
            const double exact = 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * n / size);
            ASSERT_EQ(window[n], static_cast<float>(std::round(exact * 1e6) / 1e6))
                    << size << " " << n;
        }
        EXPECT_EQ(window[0], 0.0f);
        EXPECT_EQ(window[size / 2], 1.0f);
        EXPECT_EQ(window[size - 1], window[1]);
    }
}

TEST(Carrier, HasTheStatedLevelsAndMargins) {
    const std::span carrier(kCarrier);
    double power = 0.0;
    for (const float x : carrier) {
        power += double{x} * x;
        ASSERT_EQ(x, static_cast<float>(std::round(double{x} * 1e6) / 1e6));
    }
    EXPECT_NEAR(*std::ranges::max_element(carrier), 0.5285, 0.00005);
    EXPECT_NEAR(*std::ranges::min_element(carrier), -0.4430, 0.00005);
    EXPECT_NEAR(std::sqrt(power / kCarrierLength), 0.1747, 0.00005);
    const auto zero = [](float x) { return x == 0.0f; };
    EXPECT_TRUE(std::ranges::all_of(carrier.first(3), zero));
    EXPECT_TRUE(std::ranges::all_of(carrier.subspan(32294), zero));
    EXPECT_FALSE(zero(kCarrier[3]));
    EXPECT_FALSE(zero(kCarrier[32293]));
}

}  // namespace
