#include "core/output_fifo.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <numeric>
#include <vector>

#include "core/gain.h"
#include "tests/support/log_capture.h"

namespace krel {
namespace {

constexpr int kFrames = 128;

class OutputFifo : public testing::Test {
  protected:
    explicit OutputFifo(int rate = 8000) {
        memset(&core_, 0xA5, sizeof core_);  // a core comes from malloc
        core_.sample_rate = rate;
        ready_ = output_fifo_init(&core_);
    }
    ~OutputFifo() override { output_fifo_deinit(&core_); }

    /// Hands over the next `received` numbers of 1, 2, 3, ... and returns the block that comes out.
    std::vector<int16_t> exchange(int received, int frames = kFrames) {
        std::vector<int16_t> block(static_cast<size_t>(std::max(received, frames)));
        std::iota(block.begin(), block.begin() + received, next_);
        next_ = static_cast<int16_t>(next_ + received);
        output_fifo_exchange(&core_, block.data(), received, frames);
        block.resize(static_cast<size_t>(frames));
        return block;
    }

    vcp_core_t core_;
    bool ready_ = false;
    int16_t next_ = 1;
};

TEST_F(OutputFifo, SizesAreTwentyAndFortyMilliseconds) {
    ASSERT_TRUE(ready_);
    EXPECT_EQ(core_.fifo_capacity, 320);
    EXPECT_EQ(core_.fifo_prime_level, 160);
    EXPECT_EQ(core_.fifo_bits, 16);
    vcp_core_t other{};
    other.sample_rate = 48000;
    ASSERT_TRUE(output_fifo_init(&other));
    EXPECT_EQ(other.fifo_capacity, 1920);
    EXPECT_EQ(other.fifo_prime_level, 960);
    output_fifo_deinit(&other);
    for (const int rate : {24, 0, -48000}) {
        other.sample_rate = rate;
        EXPECT_FALSE(output_fifo_init(&other)) << rate;
    }
}

TEST_F(OutputFifo, BlockThatEndsPrimingIsStillSilent) {
    const std::vector<int16_t> silence(kFrames, 0);
    EXPECT_EQ(exchange(128), silence);
    EXPECT_EQ(core_.fifo_state, kPriming);
    EXPECT_EQ(exchange(128), silence);
    EXPECT_EQ(core_.fifo_state, kRunning);
    std::vector<int16_t> first(kFrames);
    std::iota(first.begin(), first.end(), int16_t{1});
    EXPECT_EQ(exchange(32), first);
}

TEST_F(OutputFifo, UnderrunPutsSilenceFirstAndLogsTheShortRead) {
    exchange(128);
    exchange(32);  // 160 held: running
    krel_test::LogCapture log;
    exchange(60);  // 220 held, 128 leave, 92 stay
    EXPECT_TRUE(log.lines().empty());
    const auto block = exchange(8);  // 100 held
    EXPECT_TRUE(std::all_of(block.begin(), block.begin() + 28, [](int16_t s) { return s == 0; }));
    EXPECT_EQ(block[28], 129);
    EXPECT_EQ(block.back(), 228);
    EXPECT_EQ(log.count("vcp_process: underrun 120"), 1);
    EXPECT_EQ(core_.fifo_state, kRunning) << "an underrun does not prime again";
    EXPECT_EQ(exchange(1)[127], 229);
}

TEST_F(OutputFifo, OverrunKeepsTheNewestSamples) {
    exchange(500);
    ASSERT_EQ(core_.fifo_count, 320);
    EXPECT_EQ(exchange(1)[0], 182);  // 500 - 320 + 1 by now followed by one more
}

TEST(Gain, SaturatesAndRoundsTowardMinusInfinity) {
    struct Row {
        int16_t in;
        int32_t eighths;
        int16_t out;
    };
    const Row rows[] = {{5826, 45, 32767},   {-5826, 45, -32768}, {5825, 45, 32765},
                        {-1, 7, -1},         {-1, 13, -2},        {1, 7, 0},
                        {20164, 13, 32766},  {32767, 7, 28671},   {-32768, 7, -28672},
                        {-32768, 19, -32768}};
    for (const auto& row : rows) {
        // In the middle of a block as well as in its tail, so that vector code and remainder are both used.
        std::vector<int16_t> block(37, row.in);
        gain_eighths(block.data(), static_cast<int>(block.size()), row.eighths);
        EXPECT_EQ(block, std::vector<int16_t>(37, row.out))
                << row.in << " * " << row.eighths << "/8";
    }
}

}  // namespace
}  // namespace krel
