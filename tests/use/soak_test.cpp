// SPDX-License-Identifier: Apache-2.0
// Long random use: memory stays flat, output sane. SOAK_SECONDS of wall time, SOAK_SEED to repeat a
// run.
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

#include <chrono>

#include "tests/support/platform.h"
#include "tests/use/player.h"

namespace {

using namespace krel_test;
int setting(const char* name, int otherwise) {
    const char* text = getenv(name);
    return text == nullptr ? otherwise : std::max(1, atoi(text));
}

TEST(Soak, RandomUseLeavesMemoryFlatAndOutputInRange) {
    const int seconds = setting("SOAK_SECONDS", 5);
    const int seed = setting("SOAK_SEED", 1);
    srand(static_cast<unsigned>(seed));
    {
        const auto first_seed = static_cast<uint32_t>(3 * seed);
        Player players[] = {Player(first_seed), Player(first_seed + 1), Player(first_seed + 2)};
        for (auto& player : players) player.settle();
        const Live first = live();
        using Clock = std::chrono::steady_clock;
        for (const auto start = Clock::now();
             Clock::now() - start < std::chrono::seconds(seconds);) {
            for (int i = 0; i < 900; ++i) players[i % 3].step();
            for (auto& player : players) player.settle();
            const Live now = live();
            printf("soak: seed %d, %ld blocks, %" PRId64 " bytes at rest\n", seed,
                   players[0].blocks + players[1].blocks + players[2].blocks, now.bytes);
            ASSERT_TRUE(!HasFailure() && now.blocks == first.blocks);
            // The allocator may hand out 16 bytes more than last time for the same request.
            ASSERT_LE(std::abs(now.bytes - first.bytes), 16 * first.blocks);
        }
    }
    EXPECT_EQ(live().blocks, 0);
}

}  // namespace
