// SPDX-License-Identifier: Apache-2.0
// What only shows in calls of minutes: the pitch streams' balance, the pitch shifter's phase sums.
#include <gtest/gtest.h>

#include <algorithm>

#include "core/core_record.h"
#include "core/vcp.h"
#include "tests/support/platform.h"
#include "tests/support/signals.h"

namespace {

// A minute at 8 kHz, where drift has the least room. More than 100 ms wait only just after an edit,
// of 40 ms / (ratio - 1) at most. The start of preset 10 falls short on purpose, until the reserve
// covers the periods that it skips.
TEST(LongCalls, PitchStreamsNeitherFallShortNorFallBehind) {
    constexpr int kRate = 8000;
    constexpr int kFrames = 128;
    const krel_test::LogCapture no_log;
    const std::vector<int16_t> sounds[] = {krel_test::voice_s16(18 * kRate, kRate, 190.0, 260.0),
                                           krel_test::voice_s16(15 * kRate, kRate, 200.0, 200.0),
                                           std::vector<int16_t>(kRate)};
    const struct {
        int preset, edit_ms;
    } rows[] = {{10, 200}, {11, 80}, {12, 133}, {13, 133}, {14, 57}};
    for (const auto& [preset, edit_ms] : rows) {
        for (const auto& sound : sounds) {
            auto* core = static_cast<vcp_core_t*>(vcp_init(kRate));
            vcp_set_mode(core, preset);
            int gaps = 0;
            int most_waiting = 0;
            for (size_t at = 0; at < size_t{60} * kRate; at += kFrames) {
                int16_t block[kFrames];
                for (size_t i = 0; i < kFrames; ++i) block[i] = sound[(at + i) % sound.size()];
                const bool running = core->fifo_state == krel::kRunning;
                const int32_t before = core->fifo_read;
                vcp_process(core, block, block, kFrames);
                const int32_t moved = core->fifo_read - before + core->fifo_capacity;
                gaps += running && moved % core->fifo_capacity < kFrames ? 1 : 0;
                most_waiting =
                        std::max(most_waiting, core->fifo_count + core->stream->numOutputSamples);
            }
            EXPECT_LE(gaps, preset == 10 ? 9 : 0) << preset;
            EXPECT_LE(most_waiting, kRate / 1000 * (100 + edit_ms)) << preset;
            vcp_deinit(core);
        }
    }
}

TEST(LongCalls, PhaseSumsAreTurnedBackOnlyWhereTheyAreCoarseOrWereTurnedBefore) {
    const struct {
        // 8: no bin moves there, so that its phase rests; 1: may fall, and rests in silence.
        int bin;
        float sum, after;
    } rows[] = {{8, 0x1p21f, 0x1p21f},   {8, 0x1p21f + 0.25f, -68.19139f}, {8, -63.99f, -63.99f},
                {8, -64.0f, -70.28319f}, {1, 0x1p21f + 0.25f, -68.19139f}, {1, -1000.0f, -1000.0f}};
    for (const auto& row : rows) {
        pitch_ctx_t pitch;
        ASSERT_EQ(pitch_init(&pitch, 8000, 1.14f), 0);
        pitch.sum_phase[row.bin] = row.sum;
        int16_t block[128] = {};
        pitch_process(&pitch, block, block, 128);
        EXPECT_FLOAT_EQ(pitch.sum_phase[row.bin], row.after) << row.bin << ' ' << row.sum;
        pitch_deinit(&pitch);
    }
}

}  // namespace
