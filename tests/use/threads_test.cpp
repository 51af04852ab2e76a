// SPDX-License-Identifier: Apache-2.0
// Several instances on several threads at once. Calls for one instance never overlap, but come from
// whichever thread is free, as on the platform. What an instance renders must not depend on the
// others. The thread sanitizer looks for more.
#include <chrono>
#include <deque>
#include <future>
#include <thread>

#include "tests/use/player.h"
#include "wrapper/voice_changer.h"

namespace {

using namespace krel_test;

constexpr int kThreads = 4, kSlots = 6, kSteps = 250;

struct Slot {
    explicit Slot(uint32_t seed) : player(seed) {}
    std::mutex mutex;  // what keeps calls for one instance apart
    Player player;
    int steps = 0;
};

void expect_independent_instances(std::mutex* library) {
    std::deque<Slot> slots;
    for (uint32_t seed = 0; seed < kSlots; ++seed) slots.emplace_back(seed);
    std::vector<std::thread> threads;
    for (size_t first = 0; first < kThreads; ++first) {
        threads.emplace_back([&, first] {
            size_t finished = 0;
            for (size_t i = first; finished < kSlots; ++i) {
                Slot& slot = slots[i % kSlots];
                const std::lock_guard lock(slot.mutex);
                finished = slot.steps < kSteps ? 0 : finished + 1;
                if (slot.steps++ < kSteps) slot.player.step(library);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    for (uint32_t seed = 0; seed < kSlots; ++seed) {
        Player alone(seed);
        for (int i = 0; i < kSteps; ++i) alone.step();
        EXPECT_EQ(slots[seed].player.digest, alone.digest) << "seed " << seed;
    }
}

TEST(Threads, InstancesDoNotDisturbEachOther) {
    expect_independent_instances(nullptr);
    std::mutex library;  // behind one lock, with creation beside it
    expect_independent_instances(&library);
}

TEST(Threads, OneVoiceChangerSwitchesWhileItProcesses) {
    void* ws = krel_voice_changer_init(2, 16000, KREL_FORMAT_S16, 0);
    auto control = std::async(std::launch::async, [ws] {
        for (int i = 0; i < 60; ++i) krel_voice_changer_set_mode(ws, i % krel::kPresetCount);
    });
    for (int i = 0; i < 300; ++i) {
        auto block = noise_s16(320, 1, 12000);
        krel_voice_changer_process(ws, block.data(), 2 * block.size());
        for (size_t at = 0; at < block.size(); at += 2) EXPECT_EQ(block[at], block[at + 1]);
    }
    control.wait();
    krel_voice_changer_deinit(ws);
}

TEST(Threads, TheLockKeepsEveryCallThatTouchesACoreWaiting) {
    // A call that does wait is watched for 40 ms; one that does not may take its time on a busy
    // machine.
    const auto waits_for_lock = [](auto call, int ms = 40) {
        pthread_mutex_lock(&mVcpLock);
        const auto done = std::async(std::launch::async, call);
        const auto status = done.wait_for(std::chrono::milliseconds(ms));
        pthread_mutex_unlock(&mVcpLock);
        return status == std::future_status::timeout;
    };
    void* ws = nullptr;
    const auto process = [](void* to) { krel_voice_changer_process(to, nullptr, 0); };
    EXPECT_FALSE(waits_for_lock([&] { ws = krel_voice_changer_init(1, 48000, 1, 0); }, 10000));
    EXPECT_TRUE(waits_for_lock([&] { krel_voice_changer_set_mode(ws, kPlain); }));
    EXPECT_TRUE(waits_for_lock([&] { process(ws); }));
    EXPECT_FALSE(waits_for_lock([&] { process(nullptr); }, 10000));
    EXPECT_TRUE(waits_for_lock([&] { krel_voice_changer_deinit(ws); }));
}

}  // namespace
