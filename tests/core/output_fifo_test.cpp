#include "core/output_fifo.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <numeric>
#include <vector>

#include "tests/support/log_capture.h"

namespace krel {
namespace {

constexpr int kFrames = 128;

class OutputFifo : public testing::Test {
  protected:
    OutputFifo() {
        memset(&core_, 0xA5, sizeof core_);  // a core comes from malloc
        core_.sample_rate = 8000;
        EXPECT_TRUE(output_fifo_init(&core_));
    }
    ~OutputFifo() override { output_fifo_deinit(&core_); }

    /// Hands over the next `received` numbers of 1, 2, 3, ... and returns the block that comes out.
    std::vector<int16_t> exchange(int received) {
        std::vector<int16_t> block(static_cast<size_t>(std::max(received, kFrames)));
        std::iota(block.begin(), block.begin() + received, next_);
        next_ = static_cast<int16_t>(next_ + received);
        output_fifo_exchange(&core_, block.data(), received, kFrames);
        block.resize(kFrames);
        return block;
    }

    vcp_core_t core_;
    int16_t next_ = 1;
};

TEST_F(OutputFifo, UnderrunPutsSilenceFirstAndLogsTheShortRead) {
    krel_test::LogCapture log;
    const std::vector<int16_t> silence(kFrames);
    EXPECT_EQ(exchange(128), silence);
    EXPECT_EQ(exchange(32), silence) << "the block that ends the priming with 20 ms held";
    EXPECT_EQ(exchange(60)[0], 1);  // 220 held, 128 leave, 92 stay
    EXPECT_TRUE(log.lines().empty());
    std::vector<int16_t> expected(kFrames);
    std::iota(expected.begin() + 28, expected.end(), int16_t{129});
    EXPECT_EQ(exchange(8), expected);  // 100 held
    EXPECT_EQ(log.count("vcp_process: underrun 120"), 1);
    EXPECT_EQ(exchange(1)[127], 229) << "an underrun does not prime again";
}

TEST_F(OutputFifo, OverrunKeepsTheNewestFortyMilliseconds) {
    exchange(500);
    EXPECT_EQ(exchange(1)[0], 182);  // 500 - 320 + 1 by now followed by one more
    core_.sample_rate = 24;
    output_fifo_deinit(&core_);
    EXPECT_FALSE(output_fifo_init(&core_)) << "no room for a single sample";
}

}  // namespace
}  // namespace krel
