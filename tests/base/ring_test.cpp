#include "base/ring.h"

#include <gtest/gtest.h>

#include <array>

namespace krel {
namespace {

struct Ring {
    int32_t count = 0, read = 0, write = 0;
    std::array<int16_t, 4> data{};
    ring_view view() { return {4, count, read, write}; }
    void push(int16_t s) { ring_push(view(), data.data(), s); }
    int16_t pop() { return ring_pop(view(), data.data()); }
};

TEST(Ring, ReturnsSamplesInOrderAcrossTheWrap) {
    Ring ring;
    int16_t next_in = 1, next_out = 1;
    for (int round = 0; round < 10; ++round) {
        for (int i = 0; i < 3; ++i) ring.push(next_in++);
        for (int i = 0; i < 3; ++i) ASSERT_EQ(ring.pop(), next_out++);
    }
}

TEST(Ring, OverrunDropsTheOldestSample) {
    Ring ring;
    for (int16_t s = 1; s <= 6; ++s) ring.push(s);
    EXPECT_EQ(ring.count, 4);
    for (int16_t s = 3; s <= 6; ++s) EXPECT_EQ(ring.pop(), s);
}

TEST(Ring, UnderrunYieldsSilenceAndRealignsTheIndices) {
    Ring ring;
    ring.push(5);
    EXPECT_EQ(ring.pop(), 5);
    ring.write = 3;
    EXPECT_EQ(ring.pop(), 0);
    EXPECT_EQ(ring.write, ring.read);
    EXPECT_EQ(ring.count, 0);
}

TEST(Ring, ManyAtOnceEqualsOneByOne) {
    Ring one, many;
    int16_t next = 1;
    for (const int n : {3, 1, 4, 0, 2, 7, 5, 1, 9}) {
        std::array<int16_t, 18> in{}, out_one{}, out_many{};
        for (int i = 0; i < n; ++i) {
            in[static_cast<size_t>(2 * i)] = next;
            one.push(next++);
        }
        ring_push_n(many.view(), many.data.data(), in.data(), 2, static_cast<size_t>(n));
        ASSERT_EQ(many.count, one.count);
        const int pops = (n * 2) / 3 + 1;
        for (int i = 0; i < pops; ++i) out_one[static_cast<size_t>(2 * i)] = one.pop();
        ring_pop_n(many.view(), many.data.data(), out_many.data(), 2, static_cast<size_t>(pops));
        ASSERT_EQ(out_many, out_one);
        ASSERT_EQ(many.count, one.count);
    }
}

TEST(Ring, NegativeCountEqualsOneByOneToo) {
    Ring one, many;
    one.count = many.count = -2;
    one.write = many.write = 3;
    const std::array<int16_t, 6> in = {1, 2, 3, 4, 5, 6};
    for (const int16_t s : in) one.push(s);
    ring_push_n(many.view(), many.data.data(), in.data(), 1, in.size());
    EXPECT_EQ(many.data, one.data);
    EXPECT_EQ(many.count, one.count);
    EXPECT_EQ(many.write, one.write);

    many.count = -1;
    std::array<int16_t, 3> out = {9, 9, 9};
    ring_pop_n(many.view(), many.data.data(), out.data(), 1, out.size());
    EXPECT_EQ(out, (std::array<int16_t, 3>{}));
    EXPECT_EQ(many.count, 0);
    EXPECT_EQ(many.write, many.read);
}

TEST(Ring, RunsVisitTheSlotsThatSingleStepsVisit) {
    for (const int32_t size : {1, 2, 7}) {
        for (int32_t start = 0; start < size; ++start) {
            int32_t stepped = start;
            int32_t index = start;
            for (int32_t wanted = 20; wanted > 0;) {
                const int32_t run = ring_run(index, size, wanted);
                ASSERT_GE(run, 1);
                ASSERT_LE(index + run, size);
                for (int32_t i = 0; i < run; ++i) stepped = ring_next(stepped, size);
                index = ring_advance(index, run, size);
                ASSERT_EQ(index, stepped);
                wanted -= run;
            }
        }
    }
}

}  // namespace
}  // namespace krel
