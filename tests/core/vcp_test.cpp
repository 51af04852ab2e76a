#include "core/vcp.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/log_capture.h"
#include "tests/support/signals.h"

namespace {

using krel_test::LogCapture;
using krel_test::LogLine;

constexpr int kFrames = 128;

TEST(Vcp, PresetIsChosenOncePerCore) {
    LogCapture log;
    void* core = vcp_init(48000);
    ASSERT_NE(core, nullptr);
    EXPECT_EQ(vcp_set_mode(core, 8), 0);
    EXPECT_EQ(vcp_set_mode(core, 9), 0);
    EXPECT_EQ(vcp_deinit(core), 0);
    const std::vector<LogLine> expected = {{3, "_K_vcp_core", "vcp_init: sample_rate 48000"},
                                           {3, "_K_vcp_core", "vcp_set_mode: mode 8"},
                                           {3, "_K_vcp_core", "vcp_deinit: mMode 8"}};
    EXPECT_EQ(log.lines(), expected);
}

TEST(Vcp, CoreThatWasNeverConfiguredPassesThroughAndLeavesSilently) {
    void* core = vcp_init(48000);
    auto block = krel_test::noise_s16(kFrames, 1);
    const auto before = block;
    EXPECT_EQ(vcp_process(core, block.data(), block.data(), kFrames), kFrames);
    EXPECT_EQ(block, before);
    LogCapture log;
    EXPECT_EQ(vcp_deinit(core), 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST(Vcp, PassThroughPresetsTouchNoBuffer) {
    for (const int mode : {7, 8, 9, 17, 1000, -1, INT32_MIN}) {
        void* core = vcp_init(48000);
        vcp_set_mode(core, mode);
        const auto in = krel_test::noise_s16(kFrames, 2);
        auto in_copy = in;
        auto out = krel_test::noise_s16(kFrames, 3);
        const auto out_before = out;
        EXPECT_EQ(vcp_process(core, in_copy.data(), out.data(), kFrames), kFrames) << mode;
        EXPECT_EQ(in_copy, in) << mode;
        EXPECT_EQ(out, out_before) << mode;
        vcp_deinit(core);
    }
}

TEST(Vcp, UnusableArgumentsAreRefused) {
    EXPECT_EQ(vcp_set_mode(nullptr, 3), -1);
    EXPECT_EQ(vcp_deinit(nullptr), -1);
    void* core = vcp_init(48000);
    int16_t sample = 1;
    EXPECT_EQ(vcp_process(nullptr, &sample, &sample, 1), -1);
    EXPECT_EQ(vcp_process(core, nullptr, &sample, 1), -1);
    EXPECT_EQ(vcp_process(core, &sample, nullptr, 1), -1);
    EXPECT_EQ(vcp_process(core, &sample, &sample, 0), -1);
    EXPECT_EQ(vcp_process(core, &sample, &sample, -1), -1);
    vcp_deinit(core);
}

}  // namespace
