#include "dsp/drc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <vector>

#include "tests/support/alloc_gate.h"
#include "tests/support/signals.h"

namespace {

constexpr int kBlock = 128;
constexpr drc_params_t kVoiceParams = {2, 240, 0, 7, 30720, 8192, 96};

class Drc {
  public:
    explicit Drc(drc_params_t params = kVoiceParams) { drc_init(&drc_, &params); }
    ~Drc() { drc_deinit(&drc_); }
    Drc(const Drc&) = delete;
    Drc& operator=(const Drc&) = delete;

    std::vector<int16_t> run(std::vector<int32_t> in) {
        std::vector<int16_t> out(in.size(), 77);
        drc_process(&drc_, in.data(), out.data(), static_cast<int>(in.size()));
        return out;
    }
    std::vector<int16_t> constant_block(int32_t level) {
        return run(std::vector<int32_t>(kBlock, level));
    }
    drc_t* operator->() { return &drc_; }
    drc_t* get() { return &drc_; }

  private:
    drc_t drc_{};
};

TEST(Drc, GainOnSilenceDipsThenClimbsAndSettlesJustBelowUnity) {
    Drc drc;
    EXPECT_EQ(drc->current_gain, 65536);
    // The history starts at zero gain, so the first blocks fall.
    const int32_t first[] = {65536, 51083, 39830};
    std::vector<int32_t> seen;
    for (int block = 0; block < 300; ++block) {
        seen.push_back(drc->current_gain);
        const auto out = drc.constant_block(0);
        ASSERT_TRUE(std::ranges::all_of(out, [](int16_t s) { return s == 0; }));
    }
    EXPECT_TRUE(std::equal(std::begin(first), std::end(first), seen.begin()));
    EXPECT_TRUE(std::ranges::is_sorted(seen.begin() + 3, seen.end()));
    EXPECT_EQ(seen.back(), 131056);
}

TEST(Drc, SuddenPeakIsTurnedDownOverFourBlocksAndNeverClips) {
    Drc drc;
    for (int block = 0; block < 300; ++block) drc.constant_block(0);
    const int32_t applied[] = {131056, 119386, 108759, 99085, 90704};
    for (const int32_t gain : applied) {
        EXPECT_EQ(drc->current_gain, gain);
        const auto out = drc.constant_block(43000);
        EXPECT_LT(*std::ranges::max_element(out), 32767);
    }
    // 43000 at the settled gain of 0.96875 * 30720 / 43000.
    EXPECT_NEAR(drc.constant_block(43000).back(), 29760, 10);
}

/// The compressor sample by sample, in 64 bits throughout: right for parameters in their intended range.
class Definition {
  public:
    explicit Definition(const drc_params_t& p)
        : p_(p),
          applied_(p.gain * 8),
          history_(static_cast<size_t>(p.history_blocks) + 1),
          line_(static_cast<size_t>(p.history_blocks * p.delay_unit)) {}

    std::vector<int16_t> run(const std::vector<int32_t>& in) {
        int64_t peak = 0, sum = 0;
        for (const int64_t x : in) {
            peak = std::max(peak, std::abs(x));
            sum += std::abs(x);
        }
        const int64_t mean = sum / static_cast<int64_t>(in.size());
        mean_ += (mean - mean_) >> (mean > mean_ ? 4 : 5);
        const int64_t gate_q13 = mean_ < p_.noise_floor
                                         ? std::max<int64_t>((mean_ << 13) / p_.noise_floor, 1536)
                                         : 8192;
        const int64_t level = (peak * p_.gain) >> 13;
        envelope_ +=
                (level - envelope_) >> (level > envelope_ ? p_.attack_shift : p_.release_shift);

        int64_t target = p_.gain;
        if (envelope_ > p_.threshold) {
            target = (int64_t{p_.threshold} * p_.gain / envelope_ * 7936) >> 13;
            envelope_ = p_.threshold;
        } else if (p_.gain > applied_ >> 4) {
            target = (applied_ >> 4) + ((p_.gain - (applied_ >> 4)) >> 1);
        }
        history_.back() = target << 4;
        const int64_t least = *std::ranges::min_element(history_);
        std::shift_left(history_.begin(), history_.end(), 1);
        history_.back() = target << 4;

        std::vector<int16_t> out;
        for (const int32_t x : in) {
            applied_ = glided(applied_, least);
            const int64_t e = (gate_q13 << 4) - gate_;
            gate_ += e <= 0 ? e >> 5 : e < 8 ? e : e >> 3;
            out.push_back(static_cast<int16_t>(
                    std::clamp<int64_t>((applied_ * line_.front()) >> 17, INT16_MIN, INT16_MAX)));
            line_.pop_front();
            line_.push_back(x);
        }
        return out;
    }
    [[nodiscard]] int64_t gate() const { return gate_; }

  private:
    static int64_t glided(int64_t c, int64_t target) {
        const int64_t d = target - c;
        const int64_t far = std::abs(d);
        if (far < 8) return target;
        if (far <= (d > 0 ? 64 : 32)) return d > 0 ? c + (d >> 3) : c - (far >> 3);
        int shift =
                d > 0 ? 6
                      : 5;  // by one more for every doubling beyond 1024, five times up, four times down
        for (int64_t limit = 1024; far > limit && shift < (d > 0 ? 11 : 9); limit *= 2) ++shift;
        const int64_t least_step = d > 0 ? c >> 12 : (c + (c >> 1)) >> 11;
        const int64_t step = std::min(std::max(least_step, far >> shift), far);
        return d > 0 ? c + step : c - step;
    }

    drc_params_t p_;
    int64_t applied_;  // Q17, like the history and the gate
    int64_t envelope_ = 0, gate_ = 8192, mean_ = std::max(p_.noise_floor, 2);
    std::vector<int64_t> history_;
    std::deque<int32_t> line_;
};

TEST(Drc, EqualsItsDefinitionOnEveryKindOfLevel) {
    for (const drc_params_t& params : {kVoiceParams, drc_params_t{3, 50, 1, 4, 9000, 16384, 300},
                                       drc_params_t{1, 7, 2, 1, 500, 4096, 2}}) {
        Drc drc(params);
        Definition definition(params);
        const auto noise = krel_test::noise_s16(400 * 300, 11);
        size_t at = 0;
        for (int call = 0; call < 400; ++call) {
            // Levels from silence to four times full scale, in calls shorter and longer than the delay line.
            const int loud = std::vector<int>{
                    0, 1, 30, 400, 5000, 32768, 131072}[static_cast<size_t>(call / 9 % 7)];
            std::vector<int32_t> in(call % 4 == 3 ? 700 / (1 + static_cast<size_t>(call) % 5)
                                                  : 128);
            for (auto& x : in)
                x = static_cast<int32_t>(int64_t{noise[at++ % noise.size()]} * loud / 32768);
            ASSERT_EQ(drc.run(in), definition.run(in)) << "call " << call;
            ASSERT_EQ(drc->gate_gain, definition.gate())
                    << "deliberate: kept up to date, multiplies nothing";
        }
    }
}

TEST(Drc, MeasurementTakesInt32MinIntoTheMeanOnly) {
    std::vector<int32_t> in = {INT32_MIN, 3, -5, 0};
    int32_t mean = -1;
    EXPECT_EQ(find_current_max_drc(in.data(), &mean, 4), 5);
    EXPECT_EQ(mean, static_cast<int32_t>(((int64_t{1} << 31) + 8) / 4));
    EXPECT_EQ(find_current_max_drc(in.data(), &mean, 0), 0);
    EXPECT_EQ(mean, 0);
    EXPECT_EQ(find_current_max_drc(in.data(), &mean, -3), 0);
}

TEST(Drc, EmptyCallMovesTheSmoothedStatesOnly) {
    Drc drc;
    drc->envelope = 20000;
    drc->mean_level = 1000;
    int16_t untouched = 99;
    int32_t sample = 5;
    drc_process(drc.get(), &sample, &untouched, 0);
    EXPECT_EQ(drc->envelope, 20000 + (-20000 >> 7));
    EXPECT_EQ(drc->mean_level, 1000 + (-1000 >> 5));
    EXPECT_EQ(drc->current_gain, 65536);
    EXPECT_EQ(drc->delay_pos, 0);
    EXPECT_NE(drc->gain_history[2], 0);
    EXPECT_EQ(untouched, 99);
}

TEST(Drc, UnusableParametersNeverTouchMemoryOrDivideByZero) {
    const drc_params_t hostile[] = {
            {0, 240, 0, 7, 30720, 8192, 96},
            {2, 0, 0, 7, 30720, 8192, 96},
            {-1, 240, 0, 7, 30720, 8192, 96},
            {2, -240, 0, 7, 30720, 8192, 96},
            {INT32_MAX, INT32_MAX, 0, 0, 1, 1, 1},
            {2, 240, 99, -7, -30720, -8192, INT32_MIN},
            {1, 1, 0, 0, -1, 8192, 0},
            {2, 240, 0, 0, -1, 1, 0},
            {3, 7, 31, 32, INT32_MIN, INT32_MIN, INT32_MAX},
    };
    for (const auto& params : hostile) {
        Drc drc(params);
        for (const int32_t level : {0, 1, -1, INT32_MAX, INT32_MIN}) {
            const auto out = drc.constant_block(level);
            // Without a line there is no sample to give.
            if (drc->delay_line == nullptr) {
                EXPECT_EQ(out, std::vector<int16_t>(kBlock, 77));
            }
        }
        int16_t out = 0;
        int32_t in = 0;
        drc_process(drc.get(), &in, &out, -5);
    }
}

TEST(Drc, FailedAllocationsAndDoubleReleaseAreHarmless) {
    const int injected = krel_test::fail_each_allocation([] {
        drc_t drc;
        drc_params_t params = kVoiceParams;
        drc_init(&drc, &params);
        int32_t in[kBlock] = {};
        int16_t out[kBlock] = {};
        drc_process(&drc, in, out, kBlock);
        drc_deinit(&drc);
        drc_deinit(&drc);
    });
    EXPECT_EQ(injected, 2);
    drc_init(nullptr, nullptr);
    drc_deinit(nullptr);
    drc_process(nullptr, nullptr, nullptr, 1);
}

}  // namespace
