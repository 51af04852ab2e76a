#include "dsp/cubic_interp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "tests/support/alloc_gate.h"

namespace {

struct Knots {
    std::vector<float> x, y;
};

class Curve {
  public:
    explicit Curve(Knots knots)
        : handle_(cubicinterp_init(knots.x.data(), knots.y.data(),
                                   static_cast<int>(knots.x.size()))) {}
    ~Curve() { cubicinterp_deinit(handle_); }
    Curve(const Curve&) = delete;
    Curve& operator=(const Curve&) = delete;

    std::vector<float> at(std::vector<float> xq) const {
        cubicinterp_process(handle_, xq.data(), xq.data(), static_cast<int>(xq.size()));
        return xq;
    }
    float at(float x) const { return at(std::vector{x}).front(); }
    const Poly& poly() const { return *static_cast<const Poly*>(handle_); }

  private:
    void* handle_;
};

std::vector<float> slopes(const Knots& k) {
    const Curve curve(k);
    std::vector<float> d(k.x.size(), 0.0f);
    std::vector<float> x = k.x;
    std::vector<float> del;
    for (size_t j = 0; j + 1 < x.size(); ++j)
        del.push_back((k.y[j + 1] - k.y[j]) / (x[j + 1] - x[j]));
    pchipslopes(x.data(), nullptr, del.data(), d.data(), static_cast<int>(x.size()));
    // The curve is built from these: all pieces but the last show their left slope.
    for (size_t j = 0; j + 1 < x.size(); ++j) EXPECT_EQ(curve.poly().coef1[j], d[j]);
    return d;
}

TEST(CubicInterp, SlopesAreThoseWorkedOutByHand) {
    struct {
        const char* name;
        Knots knots;
        std::vector<float> expected;
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
    for (const auto& row : rows) {
        const auto d = slopes(row.knots);
        ASSERT_EQ(d.size(), row.expected.size());
        for (size_t i = 0; i < d.size(); ++i)
            EXPECT_FLOAT_EQ(d[i], row.expected[i]) << row.name << i;
    }
}

TEST(CubicInterp, ValuesBetweenKnotsAreThoseWorkedOutByHand) {
    // Pieces 1.5 t^2 - 0.5 t^3 and 1 + 1.5 t + 2 t^2 - 0.5 t^3; all of it exact in binary.
    const Curve curve({{0, 1, 2}, {0, 1, 4}});
    EXPECT_EQ(curve.at({0.5f, 1.5f, 0.0f, 1.0f, 2.0f}),
              (std::vector<float>{0.3125f, 2.1875f, 0.0f, 1.0f, 4.0f}));
    // Outside, the end cubics go on.
    EXPECT_EQ(curve.at({-1.0f, 4.0f}), (std::vector<float>{2.0f, 1.0f + 4.5f + 18.0f - 13.5f}));
    EXPECT_EQ(curve.poly().coef1[2], 0.0f);
    EXPECT_EQ(curve.poly().coef0[2], 0.0f);
}

TEST(CubicInterp, TwoKnotsMakeACubicThatFlattensAtItsRightEnd) {
    const Curve curve({{1, 3}, {0, 4}});
    EXPECT_EQ(curve.at({1.0f, 3.0f}), (std::vector<float>{0.0f, 4.0f}));
    EXPECT_EQ(curve.at(2.0f), 2.5f);  // 2 t + t^2 - t^3 / 2, not the 2 of a straight line
    EXPECT_LT(curve.at(3.0f) - curve.at(2.99f), 0.001f);
    EXPECT_NEAR(curve.at(1.001f), 0.002f, 1e-5f);
}

TEST(CubicInterp, AnInnerKnotBelongsToThePieceOnItsLeft) {
    // Steps instead of a curve, so that the piece shows.
    float breaks[] = {0, 1, 2, 3};
    float steps[] = {10, 20, 30, 0};
    float none[4] = {};
    Poly pp{4, none, none, none, steps, breaks};
    float xq[] = {-5, 0, 1, 1.5f, 2, 2.5f, 3, 9};
    cubicinterp_process(&pp, xq, xq, 8);
    EXPECT_EQ(std::vector<float>(xq, xq + 8), (std::vector<float>{10, 10, 10, 20, 20, 30, 30, 30}));
}

/// From the knot (x0, y0) to the next one: hits them, never turns back, never leaves their range.
void expect_monotone_piece(const Curve& curve, float x0, float y0, float x1, float y1) {
    EXPECT_NEAR(curve.at(x0), y0, 1e-4f);
    const auto [low, high] = std::minmax(y0, y1);
    float previous = y0;
    for (int i = 0; i <= 32; ++i) {
        const float x = x0 + (x1 - x0) * static_cast<float>(i) / 32.0f;
        const float y = curve.at(x);
        ASSERT_GE(y, low - 1e-4f) << "x " << x;
        ASSERT_LE(y, high + 1e-4f) << "x " << x;
        ASSERT_GE((y - previous) * (y1 - y0), -1e-3f) << "x " << x;
        previous = y;
    }
}

TEST(CubicInterp, StaysBetweenNeighbouringKnotsAndHitsThem) {
    std::minstd_rand random(11);
    std::uniform_real_distribution<float> step(0.05f, 400.0f);
    std::uniform_int_distribution<int> level(-15, 15);
    for (int round = 0; round < 200; ++round) {
        SCOPED_TRACE(round);
        Knots k{{0.0f}, {-6.0f}};
        while (k.x.size() < 11) {
            k.x.push_back(k.x.back() + step(random));
            k.y.push_back(static_cast<float>(level(random)));
        }
        const Curve curve(k);
        for (size_t j = 0; j + 1 < k.x.size(); ++j) {
            expect_monotone_piece(curve, k.x[j], k.y[j], k.x[j + 1], k.y[j + 1]);
        }
    }
}

TEST(CubicInterp, BadArgumentsAreRefusedAndBadKnotsHarmless) {
    float x[] = {0, 1, 2};
    float y[] = {5, 6, 7};
    for (const int n : {1, 0, -1, INT_MIN}) EXPECT_EQ(cubicinterp_init(x, y, n), nullptr) << n;
    EXPECT_EQ(cubicinterp_init(nullptr, y, 3), nullptr);
    EXPECT_EQ(cubicinterp_init(x, nullptr, 3), nullptr);
    cubicinterp_deinit(nullptr);
    cubicinterp_process(nullptr, x, y, 3);
    Poly empty{};
    for (const int m : {0, -1, INT_MIN}) cubicinterp_process(&empty, x, y, m);
    cubicinterp_process(&empty, nullptr, y, 3);
    cubicinterp_process(&empty, x, nullptr, 3);
    pchipslopes(x, y, nullptr, y, 3);
    pchipslopes(x, y, x, y, 1);
    pwch(x, y, x, x, x, 3, nullptr);
    pwch(x, y, x, x, x, 1, &empty);
    EXPECT_EQ(y[0], 5.0f);

    const Curve curve({{0, 0, -1, NAN, INFINITY}, {1, 2, NAN, 3, 4}});
    EXPECT_TRUE(std::isnan(curve.at({-1.0f, 0.0f, INFINITY, NAN})[3]));
}

TEST(CubicInterp, FailedAllocationsReleaseEverything) {
    float x[] = {0, 1, 2};
    float y[] = {0, 1, 4};
    const int injected = krel_test::fail_each_allocation([&] {
        void* handle = cubicinterp_init(x, y, 3);
        if (handle != nullptr) cubicinterp_deinit(handle);
    });
    EXPECT_EQ(injected, 9);  // what leaks, the leak checker reports
}

}  // namespace
