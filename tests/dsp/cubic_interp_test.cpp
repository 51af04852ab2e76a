#include "dsp/cubic_interp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

using Floats = std::vector<float>;

struct Knots {
    Floats x, y;
};

class Curve {
  public:
    explicit Curve(Knots k)
        : handle_(cubicinterp_init(k.x.data(), k.y.data(), static_cast<int>(k.x.size()))) {}
    ~Curve() { cubicinterp_deinit(handle_); }
    Curve(const Curve&) = delete;
    Curve& operator=(const Curve&) = delete;

    Floats at(Floats xq) const {
        cubicinterp_process(handle_, xq.data(), xq.data(), static_cast<int>(xq.size()));
        return xq;
    }

  private:
    void* handle_;
};

TEST(CubicInterp, SlopesAreThoseWorkedOutByHand) {
    struct {
        const char* name;
        Knots knots;
        Floats expected;
    } const rows[] = {
            // 1 / (1/2 (1/3) + 1/2 (3/3)); left end (3*1 - 3) / 2 = 0; right end (3*3 - 1) / 2
            {"equal widths", {{0, 1, 2}, {0, 1, 4}}, {0.0f, 1.5f, 4.0f}},
            // weights 4/9 and 5/9; right end (5 * 0.5 - 2 * 2) / 3 has the wrong sign
            {"unequal widths", {{0, 1, 3}, {0, 2, 3}}, {2.5f, 6.0f / 7.0f, 0.0f}},
            // (3*1 + 10) / 2 = 6.5 is more than three times the slope of 1
            {"left end limited", {{0, 1, 2}, {0, 1, -9}}, {3.0f, 0.0f, -15.5f}},
            {"right end limited", {{0, 1, 2}, {-9, 1, 0}}, {15.5f, 0.0f, -3.0f}},
            {"flat beside a slope", {{0, 1, 2, 3}, {0, 0, 1, 3}}, {0.0f, 0.0f, 4.0f / 3.0f, 2.5f}},
            {"straight line", {{0, 1, 5, 6}, {0, 2, 10, 12}}, {2.0f, 2.0f, 2.0f, 2.0f}},
            {"two knots", {{1, 3}, {0, 4}}, {2.0f, 0.0f}},
    };
    for (auto [name, knots, expected] : rows) {
        Floats del, d(knots.x.size());
        for (size_t j = 1; j < knots.x.size(); ++j)
            del.push_back((knots.y[j] - knots.y[j - 1]) / (knots.x[j] - knots.x[j - 1]));
        pchipslopes(knots.x.data(), nullptr, del.data(), d.data(), static_cast<int>(d.size()));
        for (size_t i = 0; i < d.size(); ++i) EXPECT_FLOAT_EQ(d[i], expected[i]) << name << i;
    }
}

TEST(CubicInterp, ValuesAreThoseWorkedOutByHandAndTheEndsGoOn) {
    // Pieces 1.5 t^2 - 0.5 t^3 and 1 + 1.5 t + 2 t^2 - 0.5 t^3; all of it exact in binary.
    EXPECT_EQ(Curve({{0, 1, 2}, {0, 1, 4}}).at({0.5f, 1.5f, 0.0f, 1.0f, 2.0f, -1.0f, 4.0f}),
              (Floats{0.3125f, 2.1875f, 0.0f, 1.0f, 4.0f, 2.0f, 1.0f + 4.5f + 18.0f - 13.5f}));
}

TEST(CubicInterp, TwoKnotsMakeACubicThatFlattensAtItsRightEnd) {
    // 2 t + t^2 - t^3 / 2, not a straight line.
    EXPECT_EQ(Curve({{1, 3}, {0, 4}}).at({1.0f, 2.0f, 3.0f}), (Floats{0.0f, 2.5f, 4.0f}));
}

TEST(CubicInterp, AnInnerKnotBelongsToThePieceOnItsLeft) {
    // Steps instead of a curve, so that the piece shows.
    float breaks[] = {0, 1, 2, 3}, steps[] = {10, 20, 30, 0}, none[4] = {};
    Poly pp{4, none, none, none, steps, breaks};
    float xq[] = {-5, 0, 1, 1.5f, 2, 2.5f, 3, 9};
    cubicinterp_process(&pp, xq, xq, 8);
    EXPECT_EQ(Floats(xq, xq + 8), (Floats{10, 10, 10, 20, 20, 30, 30, 30}));
}

TEST(CubicInterp, HitsEveryKnotAndStaysMonotoneBetweenNeighbours) {
    std::minstd_rand random(11);
    std::uniform_real_distribution<float> step(0.05f, 400.0f);
    std::uniform_int_distribution<int> level(-15, 15);
    for (int round = 0; round < 200; ++round) {
        Knots k{{0.0f}, {-6.0f}};
        while (k.x.size() < 11) {
            k.x.push_back(k.x.back() + step(random));
            k.y.push_back(static_cast<float>(level(random)));
        }
        const Curve curve(k);
        for (size_t j = 0; j + 1 < k.x.size(); ++j) {
            Floats y;
            for (int i = 0; i <= 32; ++i)
                y.push_back(k.x[j] + (k.x[j + 1] - k.x[j]) * static_cast<float>(i) / 32.0f);
            y = curve.at(y);
            ASSERT_NEAR(y.front(), k.y[j], 1e-4f);
            ASSERT_NEAR(y.back(), k.y[j + 1], 1e-3f);
            if (k.y[j + 1] < k.y[j]) std::ranges::reverse(y);
            for (size_t i = 1; i < y.size(); ++i) ASSERT_GE(y[i] - y[i - 1], -1e-4f) << round;
        }
    }
}

}  // namespace
