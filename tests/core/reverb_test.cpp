#include "core/reverb.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <vector>

#include "tests/support/alloc_gate.h"
#include "tests/support/signals.h"

namespace {

struct Settings {
    int room, damp, wet, dry, width, gain;
};
constexpr Settings kVoiceLowRate = {128, 128, 64, 2048, 256, 384};
constexpr Settings kVoice = {256, 256, 512, 3072, 2048, 1024};

using Samples = std::vector<int16_t>;

class Reverb {
  public:
    Reverb() { EXPECT_EQ(reverb_init(&rv_), 0); }
    explicit Reverb(const Settings& s) : Reverb() {
        reverb_setroomsize(&rv_, s.room);
        reverb_setdamp(&rv_, s.damp);
        reverb_setwet(&rv_, s.wet);
        reverb_setdry(&rv_, s.dry);
        reverb_setwidth(&rv_, s.width);
        reverb_setgain(&rv_, s.gain);
        reverb_update(&rv_);
    }
    ~Reverb() { reverb_end(&rv_); }
    Reverb(const Reverb&) = delete;
    Reverb& operator=(const Reverb&) = delete;

    Samples mono(Samples in, int chunk = 128, bool in_place = true) {
        const int total = static_cast<int>(in.size());
        Samples separate(in.size());
        int16_t* out = in_place ? in.data() : separate.data();
        for (int at = 0; at < total; at += chunk) {
            reverb_process_mono(&rv_, in.data() + at, out + at, std::min(chunk, total - at));
        }
        return in_place ? in : separate;
    }
    /// Replaces l and r by the output, whether or not it goes through buffers of its own.
    void stereo(Samples& l, Samples& r, unsigned chunk = 128, bool in_place = true) {
        const auto total = static_cast<unsigned>(l.size());
        Samples separate_l(l.size());
        Samples separate_r(r.size());
        int16_t* out_l = in_place ? l.data() : separate_l.data();
        int16_t* out_r = in_place ? r.data() : separate_r.data();
        for (unsigned at = 0; at < total; at += chunk) {
            reverb_process_stereo(&rv_, l.data() + at, r.data() + at, out_l + at, out_r + at,
                                  std::min(chunk, total - at));
        }
        if (in_place) return;
        l = separate_l;
        r = separate_r;
    }
    reverb_t* operator->() { return &rv_; }
    reverb_t* get() { return &rv_; }

  private:
    reverb_t rv_{};
};

int32_t wrap(int64_t v) { return static_cast<int32_t>(static_cast<uint64_t>(v)); }

/// One channel up to the all-passes, from the exported filters.
int32_t tail_of(const reverb_t* rv, comber* const* combs, allpass* const* allpasses, int32_t x) {
    const int32_t scaled = wrap(int64_t{rv->gain} * x) >> 13;
    int64_t sum = 0;
    for (int k = 0; k < 8; ++k) sum += comb_process(scaled, combs[k]);
    int32_t wet = wrap(sum);
    for (int k = 0; k < 4; ++k) wet = allpass_process(wet, allpasses[k]);
    return wet;
}

int16_t finish(dc_remove* dc, int64_t mix) {
    int32_t y = wrap(mix) >> 13;
    dc_remove_process(dc, &y, &y);
    return static_cast<int16_t>(std::clamp(y, INT16_MIN, INT16_MAX));
}

/// What both process functions mean, one sample at a time.
void stereo_by_definition(reverb_t* rv, Samples& l, Samples& r) {
    for (size_t i = 0; i < l.size(); ++i) {
        const int64_t xl = l[i];
        const int64_t xr = r[i];
        const int64_t wl = tail_of(rv, rv->combL, rv->allpassL, l[i]);
        const int64_t wr = tail_of(rv, rv->combR, rv->allpassR, r[i]);
        const auto term = [](int64_t a, int64_t b) { return int64_t{wrap(a * b)}; };
        l[i] = finish(rv->dcL, term(rv->dry, xl) + term(rv->wet1, wl) + term(rv->wet2, wr));
        r[i] = finish(rv->dcR, term(rv->dry, xr) + term(rv->wet1, wr) + term(rv->wet2, wl));
    }
}

/// Full-scale noise with two runs of the extremes.
Samples loud(int samples, uint32_t seed) {
    Samples s = krel_test::noise_s16(samples, seed);
    std::fill_n(s.begin() + samples / 3, samples / 10, INT16_MIN);
    std::fill_n(s.begin() + samples / 2, samples / 10, INT16_MAX);
    return s;
}

TEST(Comb, InitSetsEveryField) {
    comber comb = {1, 2, 3, 4, nullptr, 5, 6};
    comb_init(&comb, 7);
    EXPECT_EQ(comb.feedback, 4096);
    EXPECT_EQ(comb.filterstore, 0);
    EXPECT_EQ(comb.damp1, 8192);
    EXPECT_EQ(comb.damp2, 0);
    EXPECT_EQ(comb.bufsize, 7);
    EXPECT_EQ(comb.bufidx, 0);
    comb_end(&comb);
}

TEST(Comb, LoopsThroughItsLowPass) {
    comber comb;
    comb_init(&comb, 3);
    comb_setsetdamp(&comb, 0);
    std::vector<int> out;
    for (int i = 0; i < 10; ++i) out.push_back(comb_process(i == 0 ? -1001 : 0, &comb));
    // The line keeps 13 fractional bits; only what is returned rounds toward minus infinity.
    EXPECT_EQ(out, (std::vector<int>{0, 0, 0, -1001, 0, 0, -501, 0, 0, -251}));
    comb_setsetdamp(&comb, 2048);
    EXPECT_EQ(comb.damp2, 6144);
    comb_setsetdamp(&comb, INT32_MIN);
    EXPECT_EQ(comb.damp2, INT32_MIN + 8192);
    comb_end(&comb);
    comb_end(&comb);
}

TEST(Comb, InputWrapsAndLoopSaturates) {
    comber comb;
    comb_init(&comb, 1);
    comb_setsetdamp(&comb, 0);
    comb_setfeedback(&comb, 2 * 8192);
    comb_process(1 << 18, &comb);  // 2^31 in the line's scale
    EXPECT_EQ(comb_process(0, &comb), -(1 << 18));
    EXPECT_EQ(comb.buffer[0], INT32_MIN);  // twice as much is pinned
    comb_process(-1, &comb);               // pinned, then the sum wraps
    EXPECT_EQ(comb.buffer[0], INT32_MAX - 8191);
    comb.buffer[0] = INT32_MAX;
    comb_process(0, &comb);
    EXPECT_EQ(comb.buffer[0], INT32_MAX);
    comb_end(&comb);
}

TEST(Comb, LowPassSaturates) {
    comber comb;
    comb_init(&comb, 1);
    comb_setsetdamp(&comb, -8192);  // weighs the delayed sample twice
    for (const int32_t extreme : {INT32_MAX, INT32_MIN}) {
        comb.filterstore = 0;
        comb.buffer[0] = extreme;
        comb_process(0, &comb);
        EXPECT_EQ(comb.filterstore, extreme);
    }
    comb_end(&comb);
}

TEST(Allpass, IsTheExactFormAndKeepsTheEnergy) {
    allpass ap;
    allpass_init(&ap, 2);
    double energy = 0.0;
    std::vector<int> out;
    for (int i = 0; i < 60; ++i) {
        const int y = allpass_process(i == 0 ? 1 << 16 : 0, &ap);
        out.push_back(y);
        energy += static_cast<double>(y) * y;
    }
    EXPECT_EQ(std::vector<int>(out.begin(), out.begin() + 5),
              (std::vector<int>{32768, 0, 49152, 0, -24576}));
    EXPECT_NEAR(energy / 65536.0 / 65536.0, 1.0, 1e-4);
    allpass_end(&ap);
    allpass_end(&ap);
}

TEST(Allpass, SumIsWideInTheLoopAndWrapsInTheResult) {
    allpass ap;
    allpass_init(&ap, 1);
    ap.buffer[0] = INT32_MAX;
    EXPECT_EQ(allpass_process(INT32_MAX, &ap), INT32_MIN + 0x3FFFFFFE);
    EXPECT_EQ(ap.buffer[0], INT32_MAX - 0x5FFFFFFF);  // half of the sum before it wrapped
    ap.buffer[0] = INT32_MIN;
    EXPECT_EQ(allpass_process(INT32_MIN, &ap), 0x40000000);
    EXPECT_EQ(ap.buffer[0], INT32_MIN + 0x60000000);
    allpass_end(&ap);
}

TEST(Allpass, ProductsSaturate) {
    allpass ap;
    allpass_init(&ap, 1);
    allpass_setfeedback(&ap, 4 * 8192);
    EXPECT_EQ(allpass_process(INT32_MAX, &ap), INT32_MAX);
    EXPECT_EQ(ap.buffer[0], 0);
    // The one product that leaves 64 bits: it wraps to the negative side, then saturates.
    allpass_setfeedback(&ap, INT32_MIN);
    ap.buffer[0] = INT32_MIN;
    EXPECT_EQ(allpass_process(INT32_MAX, &ap), 0);
    EXPECT_EQ(ap.buffer[0], -1);
    allpass_end(&ap);
}

TEST(DcRemove, ForgetsAConstantWithinItsTimeConstant) {
    for (const int32_t level : {10000, -10000}) {
        dc_remove dc;
        dc_remove_init(&dc);
        const auto after = [&](int samples) {
            int32_t y = 0;
            while (samples-- > 0) dc_remove_process(&dc, &(y = level), &y);
            return y;
        };
        EXPECT_EQ(after(250), level > 0 ? 3671 : -3672);
        EXPECT_EQ(after(4000), level > 0 ? 0 : -1);  // rounds toward minus infinity
        dc_remove_end(&dc);
        EXPECT_EQ(dc.y | dc.x_prev, 0);
    }
}

TEST(DcRemove, ExtremesKeepTheLow64Bits) {
    dc_remove dc;
    dc_remove_init(&dc);
    const int32_t in[] = {INT32_MAX, INT32_MIN, INT32_MAX, 5, 0};
    const int32_t expected[] = {-8589953, 8624311, -8590091, 34227, 34086};
    for (int i = 0; i < 5; ++i) {
        int32_t x = in[i];
        int32_t y = 0;
        dc_remove_process(&dc, &x, &y);
        EXPECT_EQ(y, expected[i]) << i;
    }
}

TEST(ReverbFilters, WithoutALineNothingIsTouched) {
    for (const int size : {0, -1, INT32_MIN}) {
        comber comb;
        comb_init(&comb, size);
        EXPECT_EQ(comb_process(5, &comb), 0);
        comb_end(&comb);
        allpass ap;
        allpass_init(&ap, size);
        EXPECT_EQ(allpass_process(5, &ap), 5);
        allpass_end(&ap);
    }
    comb_init(nullptr, 5);
    comb_end(nullptr);
    comb_setfeedback(nullptr, 1);
    comb_setsetdamp(nullptr, 1);
    EXPECT_EQ(comb_process(5, nullptr), 0);
    allpass_init(nullptr, 5);
    allpass_end(nullptr);
    allpass_setfeedback(nullptr, 1);
    EXPECT_EQ(allpass_process(5, nullptr), 5);
    dc_remove_init(nullptr);
    dc_remove_end(nullptr);
    dc_remove_process(nullptr, nullptr, nullptr);
}

TEST(Reverb, SettingsScaleAsTuned) {
    Reverb fresh;
    EXPECT_EQ(fresh->wet1, 8190);
    EXPECT_EQ(fresh->wet2, 0);
    EXPECT_EQ(fresh->roomsize, 6945);
    EXPECT_EQ(fresh->damp, 1650);
    EXPECT_EQ(fresh->gain, 127);
    EXPECT_EQ(fresh->dry, 0);
    EXPECT_EQ(fresh->combR[7]->feedback, 6945);

    Reverb low(kVoiceLowRate);
    EXPECT_EQ(low->roomsize, 5815);
    EXPECT_EQ(low->damp, 51);
    EXPECT_EQ(low->wet, 192);
    EXPECT_EQ(low->dry, 4096);
    EXPECT_EQ(low->wet1, 99);  // 192 * (128 + 4096) / 8192
    EXPECT_EQ(low->wet2, 93);  // 192 * 7936 / 16384
    EXPECT_EQ(low->combL[0]->damp2, 8192 - 51);
}

TEST(Reverb, ExtremeSettingsClampAndRoundAsStated) {
    Reverb rv({INT32_MIN, INT32_MIN, INT32_MAX, INT32_MIN, INT32_MIN, INT32_MAX});
    EXPECT_EQ(rv->roomsize, 5779 - 2333 * (1 << 18));
    EXPECT_EQ(rv->damp, -3301 * (1 << 18));
    EXPECT_EQ(rv->wet, INT32_MAX);
    EXPECT_EQ(rv->dry, INT32_MIN);
    EXPECT_EQ(rv->wet1, INT32_MIN);
    EXPECT_EQ(rv->wet2, INT32_MAX);
    // Halving rounds toward zero, the shift toward minus infinity.
    rv->wet = 1;
    rv->width = 8192 + 16385;
    reverb_update(rv.get());
    EXPECT_EQ(rv->wet2, -1);
    rv->wet = 8192;
    rv->width = -1;
    reverb_update(rv.get());
    EXPECT_EQ(rv->wet1, 4096);
}

TEST(Reverb, FirstReflectionComesFromTheShortestComb) {
    Reverb rv({4096, 0, 8192, 0, 8192, 8192});
    Samples l(2000);
    Samples r(2000);
    l[0] = r[0] = 16000;
    rv.stereo(l, r);
    const auto onset = [](const Samples& s) {
        return std::ranges::find_if(s, [](int16_t v) { return v != 0; }) - s.begin();
    };
    EXPECT_EQ(onset(l), 1109);
    EXPECT_EQ(onset(r), 1151);
    EXPECT_GT(l[1109],
              2000);  // through four all-passes of 0.5: 3 * 16000 / 16, less the DC blocker's 0.4 %
}

TEST(Reverb, LineLengthsArePrimeAndOrderedAndAddUp) {
    Reverb rv;
    std::vector<int> combs;
    std::vector<int> allpasses;
    for (int k = 0; k < 8; ++k) {
        combs.insert(combs.end(), {rv->combL[k]->bufsize, rv->combR[k]->bufsize});
    }
    for (int k = 0; k < 4; ++k) {
        allpasses.insert(allpasses.end(), {rv->allpassR[k]->bufsize, rv->allpassL[k]->bufsize});
    }
    EXPECT_TRUE(std::ranges::is_sorted(combs));
    EXPECT_TRUE(std::ranges::is_sorted(allpasses, std::greater()));
    int total = 0;
    for (const auto* lengths : {&combs, &allpasses}) {
        for (const int length : *lengths) {
            for (int d = 2; d * d <= length; ++d) EXPECT_NE(length % d, 0) << length;
            total += length;
        }
    }
    EXPECT_EQ(total, 33044);
}

struct Case {
    Settings settings;
    int allpass_feedback;
};
const Case kCases[] = {
        {kVoice, 4096},
        {kVoiceLowRate, 4096},
        {{8192, 8192, 2730, 4096, 0, 8192}, 4096},  // long tail, the mix wraps
        {{8475, 0, 8192, 0, -8192, 65536}, 4096},   // loop gain at and above 1.0, no damping
        {{-30000, 25000, -4000, -100, 20000, -9000},
         5000},  // negative loop gain, damping above 1.0
        {{INT32_MAX, INT32_MIN, INT32_MAX, INT32_MIN, 1, INT32_MAX}, INT32_MIN},
        {{INT32_MIN, INT32_MAX, 1, INT32_MAX, INT32_MAX, INT32_MIN}, INT32_MAX},
};

struct Split {
    int chunk;
    bool in_place;
};
const Split kSplits[] = {{1, true},  {7, true},  {128, true},  {1000, true},  {9000, true},
                         {1, false}, {7, false}, {128, false}, {1000, false}, {9000, false}};

void set_allpasses(reverb_t* rv, int feedback) {
    for (int k = 0; k < 4; ++k) {
        allpass_setfeedback(rv->allpassL[k], feedback);
        allpass_setfeedback(rv->allpassR[k], feedback);
    }
}

TEST(Reverb, AnySplitInPlaceOrNotEqualsTheDefinition) {
    const Samples in_l = loud(9000, 11);
    const Samples in_r = loud(9000, 12);
    for (const Case& c : kCases) {
        Reverb model(c.settings);
        set_allpasses(model.get(), c.allpass_feedback);
        Samples expected_l = in_l;
        Samples expected_r = in_r;
        stereo_by_definition(model.get(), expected_l, expected_r);

        // The mono path is the left channel without the cross feed.
        Reverb alone(c.settings);
        set_allpasses(alone.get(), c.allpass_feedback);
        alone->wet2 = 0;
        Samples expected = in_l;
        Samples unused(in_l.size());
        stereo_by_definition(alone.get(), expected, unused);

        for (const Split& split : kSplits) {
            SCOPED_TRACE(testing::Message() << &c - kCases << ' ' << split.chunk << ' '
                                            << (split.in_place ? "in place" : "separate"));
            Reverb rv(c.settings);
            set_allpasses(rv.get(), c.allpass_feedback);
            Samples l = in_l;
            Samples r = in_r;
            rv.stereo(l, r, static_cast<unsigned>(split.chunk), split.in_place);
            ASSERT_EQ(l, expected_l);
            ASSERT_EQ(r, expected_r);

            Reverb mono(c.settings);
            set_allpasses(mono.get(), c.allpass_feedback);
            ASSERT_EQ(mono.mono(in_l, split.chunk, split.in_place), expected);
        }
    }
}

/// Fills every line of the left channel with full-range values and gives each comb its own settings within 0 to 1.0.
void scramble(reverb_t* rv) {
    std::mt19937 random(3);
    const auto fill = [&](int32_t* line, int size) {
        for (int i = 0; i < size; ++i) line[i] = static_cast<int32_t>(random());
        std::fill_n(line + size / 2, size / 4, INT32_MIN);
        std::fill_n(line + size / 4, size / 4, INT32_MAX);
    };
    for (int k = 0; k < 8; ++k) {
        comber* comb = rv->combL[k];
        fill(comb->buffer, comb->bufsize);
        comb->bufidx = comb->bufsize - 1 - k;
        comb->filterstore = k % 2 == 0 ? INT32_MIN : INT32_MAX;
        comb_setsetdamp(comb, 8192 * k / 7);
        comb_setfeedback(comb, 8192 - 8192 * k / 7);
    }
    for (int k = 0; k < 4; ++k) fill(rv->allpassL[k]->buffer, rv->allpassL[k]->bufsize);
}

TEST(Reverb, AnyStateIsExactAndSoIsEachFilterSetOnItsOwn) {
    void (*const tinkers[])(reverb_t*) = {
            [](reverb_t*) {},
            [](reverb_t* rv) { comb_setfeedback(rv->combL[2], 12000); },
            [](reverb_t* rv) { comb_setfeedback(rv->combL[1], 8193); },
            [](reverb_t* rv) { comb_setfeedback(rv->combL[7], -1); },
            [](reverb_t* rv) { comb_setfeedback(rv->combL[7], INT32_MIN); },
            [](reverb_t* rv) { comb_setsetdamp(rv->combL[3], 9000); },
            [](reverb_t* rv) { comb_setsetdamp(rv->combL[5], 8193); },
            [](reverb_t* rv) { comb_setsetdamp(rv->combL[0], -9000); },
            [](reverb_t* rv) { rv->combL[6]->damp2 = 100; },
            [](reverb_t* rv) { allpass_setfeedback(rv->allpassL[1], 3000); },
    };
    const auto line = [](const auto* filter) {
        return std::vector<int32_t>(filter->buffer, filter->buffer + filter->bufsize);
    };
    for (const auto& tinker : tinkers) {
        SCOPED_TRACE(&tinker - tinkers);
        Reverb model({256, 256, 1, 0, 8192, INT32_MAX});
        Reverb rv({256, 256, 1, 0, 8192, INT32_MAX});
        for (reverb_t* r : {model.get(), rv.get()}) {
            scramble(r);
            tinker(r);
        }
        Samples expected = loud(3000, 6);
        Samples unused(expected.size());
        stereo_by_definition(model.get(), expected, unused);
        EXPECT_EQ(rv.mono(loud(3000, 6)), expected);
        for (int k = 0; k < 8; ++k) {
            EXPECT_EQ(line(rv->combL[k]), line(model->combL[k])) << k;
            EXPECT_EQ(rv->combL[k]->filterstore, model->combL[k]->filterstore) << k;
        }
        for (int k = 0; k < 4; ++k) EXPECT_EQ(line(rv->allpassL[k]), line(model->allpassL[k])) << k;
        EXPECT_EQ(rv->dcL->y, model->dcL->y);
    }
}

TEST(Reverb, TailDecaysToZeroOrMinusOne) {
    // The loops round toward minus infinity: a slot that was negative last rests at -1.
    for (const Settings& settings : {kVoice, kVoiceLowRate}) {
        Reverb rv(settings);
        Samples in = krel_test::noise_s16(4800, 9);
        in.resize(96000);
        const Samples out = rv.mono(in);
        EXPECT_GT(krel_test::rms({out.begin() + 4800, out.begin() + 9600}), 1.0);
        for (size_t i = 90000; i < out.size(); ++i) {
            ASSERT_TRUE(out[i] == 0 || out[i] == -1) << i;
        }
    }
}

TEST(Reverb, FullScaleSaturatesInsteadOfWrapping) {
    Reverb rv({256, 256, 512, 8192, 2048, 1024});
    Samples in(2400);
    for (size_t i = 0; i < in.size(); ++i) in[i] = i / 20 % 2 == 0 ? INT16_MAX : INT16_MIN;
    EXPECT_EQ(rv.mono(in), in);  // twice the input, clipped: itself
}

TEST(Reverb, FailedInitLeavesAPassThrough) {
    const Samples in = loud(300, 2);
    const Samples other = loud(300, 3);
    const auto check_pass_through = [&](reverb_t* rv) {
        Samples l(300, 77);
        Samples r = other;
        reverb_process_mono(rv, const_cast<int16_t*>(in.data()), l.data(), 300);
        EXPECT_EQ(l, in);
        reverb_process_stereo(rv, l.data(), r.data(), r.data(), l.data(), 300);
        EXPECT_EQ(l, other);  // swapped outputs
        EXPECT_EQ(r, in);
    };
    int failed = 0;
    const int injected = krel_test::fail_each_allocation([&] {
        reverb_t rv;
        const int result = reverb_init(&rv);
        EXPECT_EQ(result, rv.combL[0] != nullptr ? 0 : -1);
        EXPECT_EQ(rv.wet1, 8190);
        if (result != 0) {
            ++failed;
            check_pass_through(&rv);
        }
        reverb_end(&rv);
        reverb_end(&rv);
        reverb_update(&rv);
        check_pass_through(&rv);
    });
    EXPECT_EQ(injected, 50);  // 24 records with a line each, two without
    EXPECT_EQ(failed, injected);
}

TEST(Reverb, ArgumentsAreChecked) {
    Reverb rv;
    int16_t sample = 99;
    reverb_process_mono(rv.get(), &sample, &sample, 0);
    reverb_process_mono(rv.get(), &sample, &sample, -3);
    reverb_process_mono(rv.get(), nullptr, &sample, 1);
    reverb_process_mono(rv.get(), &sample, nullptr, 1);
    reverb_process_mono(nullptr, &sample, &sample, 1);
    reverb_process_stereo(rv.get(), &sample, &sample, &sample, &sample, 0);
    for (int missing = 0; missing < 4; ++missing) {
        int16_t* p[] = {&sample, &sample, &sample, &sample};
        p[missing] = nullptr;
        reverb_process_stereo(rv.get(), p[0], p[1], p[2], p[3], 1);
    }
    reverb_process_stereo(nullptr, &sample, &sample, &sample, &sample, 1);
    EXPECT_EQ(sample, 99);
    EXPECT_EQ(reverb_init(nullptr), -1);
    reverb_end(nullptr);
    reverb_update(nullptr);
    for (auto* set : {reverb_setroomsize, reverb_setdamp, reverb_setwet, reverb_setdry,
                      reverb_setwidth, reverb_setgain}) {
        set(nullptr, 1);
    }
}

}  // namespace
