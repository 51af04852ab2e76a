#include "base/ring.h"

#include <gtest/gtest.h>

#include <array>
#include <deque>
#include <random>

namespace krel {
namespace {

struct Ring {
    int32_t capacity;
    int32_t count = 0, read = 0, write = 0;
    std::array<int16_t, 6> data{};
    ring_view view() { return {capacity, count, read, write}; }
};

TEST(Ring, EqualsAQueueThatDropsItsOldestAndYieldsSilence) {
    std::minstd_rand random(1);
    for (const int32_t capacity : {1, 2, 6}) {
        Ring ring{capacity};
        std::deque<int16_t> queue;
        int16_t next = 0;
        for (int round = 0; round < 500; ++round) {
            const size_t stride = 1 + random() % 2;
            const size_t pushes = random() % 9;
            const size_t pops = random() % 9;
            std::array<int16_t, 18> in{}, out{}, expected{};
            for (size_t i = 0; i < pushes; ++i) {
                in[i * stride] = ++next;
                queue.push_back(next);
                if (queue.size() > static_cast<size_t>(capacity)) queue.pop_front();
            }
            ring_push_n(ring.view(), ring.data.data(), in.data(), stride, pushes);
            ASSERT_EQ(ring.count, static_cast<int32_t>(queue.size()));
            for (size_t i = 0; i < pops && !queue.empty(); ++i) {
                expected[i * stride] = queue.front();
                queue.pop_front();
            }
            ring_pop_n(ring.view(), ring.data.data(), out.data(), stride, pops);
            ASSERT_EQ(out, expected);
            ASSERT_EQ(ring.count, static_cast<int32_t>(queue.size()));
        }
    }
}

}  // namespace
}  // namespace krel
