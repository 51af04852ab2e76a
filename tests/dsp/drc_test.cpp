#include "dsp/drc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <random>
#include <vector>

#include "tests/support/signals.h"

namespace {

constexpr drc_params_t kVoiceParams = {2, 240, 0, 7, 30720, 8192, 96};

struct Drc : drc_t {
    explicit Drc(drc_params_t params = kVoiceParams) { drc_init(this, &params); }
    ~Drc() { drc_deinit(this); }
    Drc(const Drc&) = delete;
    Drc& operator=(const Drc&) = delete;

    std::vector<int16_t> run(std::vector<int32_t> in) {
        std::vector<int16_t> out(in.size());
        drc_process(this, in.data(), out.data(), static_cast<int>(in.size()));
        return out;
    }
};

TEST(Drc, GainOnSilenceDipsThenClimbsAndSettlesJustBelowUnity) {
    Drc drc;
    // The history starts at zero gain, so the first blocks fall.
    for (const int32_t gain : {65536, 51083, 39830}) {
        EXPECT_EQ(drc.current_gain, gain);
        drc.run(std::vector<int32_t>(128));
    }
    for (int block = 3; block < 300; ++block) drc.run(std::vector<int32_t>(128));
    // A sudden peak is turned down over four blocks and never clips.
    for (const int32_t gain : {131056, 119386, 108759, 99085, 90704}) {
        EXPECT_EQ(drc.current_gain, gain);
        EXPECT_LT(std::ranges::max(drc.run(std::vector<int32_t>(128, 43000))), 32767);
    }
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
        const int64_t mean = in.empty() ? 0 : sum / static_cast<int64_t>(in.size());
        mean_ += (mean - mean_) >> (mean > mean_ ? 4 : 5);
        const int64_t gate_q13 = std::clamp<int64_t>((mean_ << 13) / floor_, 1536, 8192);
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
        // By one more for every doubling beyond 1024, five times up, four times down.
        int shift = d > 0 ? 6 : 5;
        for (int64_t limit = 1024; far > limit && shift < (d > 0 ? 11 : 9); limit *= 2) ++shift;
        const int64_t least_step = d > 0 ? c >> 12 : (c + (c >> 1)) >> 11;
        const int64_t step = std::min(std::max(least_step, far >> shift), far);
        return d > 0 ? c + step : c - step;
    }

    drc_params_t p_;
    int64_t applied_;  // Q17, like the history and the gate
    int64_t envelope_ = 0, gate_ = 8192, floor_ = std::max(p_.noise_floor, 2), mean_ = floor_;
    std::vector<int64_t> history_;
    std::deque<int32_t> line_;
};

TEST(Drc, EqualsItsDefinitionOnEveryKindOfLevel) {
    std::minstd_rand random(5);
    const auto draw = [&](int least, int most) {
        return std::uniform_int_distribution(least, most)(random);
    };
    const auto noise = krel_test::noise_s16(1 << 17, 11);
    for (int set = 0; set < 40; ++set) {
        drc_params_t params = kVoiceParams;
        if (set > 0) {
            params = {draw(1, 4),       draw(1, 300),      draw(0, 3),  draw(0, 7),
                      draw(100, 31000), draw(1000, 16384), draw(0, 400)};
        }
        Drc drc(params);
        Definition definition(params);
        size_t at = 0;
        for (int call = 0; call < 200; ++call) {
            // Levels from silence to four times full scale, in empty calls and calls shorter and longer than the delay.
            constexpr int kLoud[] = {0, 1, 30, 400, 5000, 32768, 131072};
            constexpr size_t kSizes[] = {128, 0, 128, 700, 128, 350, 128, 233, 128, 175, 128, 140};
            const int loud = kLoud[call / 9 % 7];
            std::vector<int32_t> in(kSizes[call % 12]);
            for (auto& x : in)
                x = static_cast<int32_t>(int64_t{noise[at++ % noise.size()]} * loud / 32768);
            ASSERT_EQ(drc.run(in), definition.run(in)) << set << " call " << call;
            ASSERT_EQ(drc.gate_gain, definition.gate()) << "kept up to date, multiplies nothing";
        }
    }
}

TEST(Drc, MeasurementTakesInt32MinIntoTheMeanOnly) {
    int32_t in[] = {INT32_MIN, 3, -5, 0}, mean = -1;
    EXPECT_EQ(find_current_max_drc(in, &mean, 4), 5);
    EXPECT_EQ(mean, (1 << 29) + 2);
}

}  // namespace
