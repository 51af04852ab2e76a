#include "core/reverb.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <utility>
#include <vector>

#include "tests/support/alloc_gate.h"
#include "tests/support/signals.h"

namespace {

using Samples = std::vector<int16_t>;

struct Settings {
    int room, damp, wet, dry, width, gain;
};
constexpr Settings kVoiceLowRate = {128, 128, 64, 2048, 256, 384};
constexpr Settings kVoice = {256, 256, 512, 3072, 2048, 1024};

struct Reverb : reverb_t {
    Reverb() { EXPECT_EQ(reverb_init(this), 0); }
    explicit Reverb(const Settings& s) : Reverb() { set(s); }
    ~Reverb() { reverb_end(this); }
    Reverb(const Reverb&) = delete;
    Reverb& operator=(const Reverb&) = delete;

    void set(const Settings& s) {
        reverb_setroomsize(this, s.room);
        reverb_setdamp(this, s.damp);
        reverb_setwet(this, s.wet);
        reverb_setdry(this, s.dry);
        reverb_setwidth(this, s.width);
        reverb_setgain(this, s.gain);
        reverb_update(this);
    }
};

int32_t wrap(int64_t v) { return static_cast<int32_t>(static_cast<uint64_t>(v)); }
int32_t pin(int64_t v) {
    return static_cast<int32_t>(std::clamp<int64_t>(v, INT32_MIN, INT32_MAX));
}

/// A filter as it stands, with a line of its own.
template <typename Filter>
struct Model {
    explicit Model(const Filter* from)
        : f(*from), line(from->buffer, from->buffer + from->bufsize) {}
    int32_t& slot() {
        return line[static_cast<size_t>(std::exchange(f.bufidx, (f.bufidx + 1) % f.bufsize))];
    }
    Filter f;
    std::vector<int32_t> line;
};

int32_t step(Model<comber>& m, int32_t x) {
    int32_t& slot = m.slot();
    const int32_t delayed = slot;
    const uint64_t sum = static_cast<uint64_t>(int64_t{delayed} * m.f.damp2) +
                         static_cast<uint64_t>(int64_t{m.f.filterstore} * m.f.damp1);
    m.f.filterstore = pin(static_cast<int64_t>(sum) >> 13);
    slot = wrap(pin(int64_t{m.f.filterstore} * m.f.feedback >> 13) + int64_t{x} * 8192);
    return delayed >> 13;
}

int32_t step(Model<allpass>& m, int32_t x) {
    int32_t& slot = m.slot();
    const int64_t y = slot + int64_t{pin(int64_t{x} * m.f.feedback >> 13)};
    const uint64_t product = static_cast<uint64_t>(y) * static_cast<uint64_t>(m.f.feedback);
    slot = wrap(x - int64_t{pin(static_cast<int64_t>(product) >> 13)});
    return wrap(y);
}

int32_t step(dc_remove& dc, int32_t x) {
    const int64_t x13 = int64_t{x} * 8192;
    const uint64_t t = static_cast<uint64_t>(x13 + dc.y - dc.x_prev) * 66840428U;
    dc = {.y = static_cast<int64_t>(t) >> 26, .x_prev = x13};
    return wrap(static_cast<int64_t>(t) >> 39);
}

/// One channel, sample by sample.
struct Channel {
    Channel(comber* const* c, allpass* const* a, const dc_remove* d)
        : combs(c, c + 8), allpasses(a, a + 4), dc(*d) {}
    int32_t reverberate(int32_t x) {
        int64_t sum = 0;
        for (auto& comb : combs) sum += step(comb, x);
        int32_t wet = wrap(sum);
        for (auto& a : allpasses) wet = step(a, wet);
        return wet;
    }
    int16_t finish(int64_t mix) {
        return static_cast<int16_t>(std::clamp(step(dc, wrap(mix) >> 13), INT16_MIN, INT16_MAX));
    }
    std::vector<Model<comber>> combs;
    std::vector<Model<allpass>> allpasses;
    dc_remove dc;
};

/// Both channels from the state that rv has; the mono path is the left one without the cross feed.
void by_definition(const reverb_t& rv, int32_t cross, Samples& l, Samples& r) {
    Channel left(rv.combL, rv.allpassL, rv.dcL), right(rv.combR, rv.allpassR, rv.dcR);
    const auto term = [](int64_t a, int64_t b) { return int64_t{wrap(a * b)}; };
    for (size_t i = 0; i < l.size(); ++i) {
        const int64_t xl = l[i], xr = r[i];
        const int32_t wl = left.reverberate(wrap(rv.gain * xl) >> 13);
        const int32_t wr = right.reverberate(wrap(rv.gain * xr) >> 13);
        l[i] = left.finish(term(rv.dry, xl) + term(rv.wet1, wl) + term(cross, wr));
        r[i] = right.finish(term(rv.dry, xr) + term(rv.wet1, wr) + term(cross, wl));
    }
}

/// Full-scale noise with two runs of the extremes.
Samples loud(uint32_t seed) {
    Samples s = krel_test::noise_s16(4000, seed);
    std::fill_n(s.begin() + 1300, 400, INT16_MIN);
    std::fill_n(s.begin() + 2000, 400, INT16_MAX);
    return s;
}

/// Fills every line and low-pass with full-range values and runs of both extremes.
void scramble(reverb_t* rv) {
    std::mt19937 random(3);
    const auto fill = [&](auto* filter) {
        const int size = filter->bufsize;
        for (int i = 0; i < size; ++i) filter->buffer[i] = static_cast<int32_t>(random());
        std::fill_n(filter->buffer + size / 2, size / 4, INT32_MIN);
        std::fill_n(filter->buffer + size / 4, size / 4, INT32_MAX);
        filter->bufidx = size - 1 - static_cast<int>(random() % 9);
    };
    for (int k = 0; k < 8; ++k) {
        for (comber* comb : {rv->combL[k], rv->combR[k]}) {
            fill(comb);
            comb->filterstore = k % 2 == 0 ? INT32_MIN : INT32_MAX;
        }
        if (k < 4) fill(rv->allpassL[k]), fill(rv->allpassR[k]);
    }
}

struct Case {
    Settings settings;
    void (*tinker)(reverb_t*) = [](reverb_t*) {};
};
constexpr Settings kTailOnly = {256, 256, 1, 0, 8192, INT32_MAX};
const Case kCases[] = {
        {kVoice},
        {kVoiceLowRate},
        {{8192, 8192, 2730, 4096, 0, 8192}},           // long tail, the mix wraps
        {{8475, 0, 8192, 0, -8192, 65536}},            // loop gain at and above 1.0, no damping
        {{-30000, 25000, -4000, -100, 20000, -9000}},  // negative loop gain, damping above 1.0
        {{INT32_MAX, INT32_MIN, INT32_MAX, INT32_MIN, 1, INT32_MAX}},
        {{INT32_MIN, INT32_MAX, 1, INT32_MAX, INT32_MAX, INT32_MIN}},
        // One filter of the channel on its own.
        {kTailOnly, [](reverb_t* rv) { comb_setfeedback(rv->combL[1], 8193); }},
        {kTailOnly, [](reverb_t* rv) { comb_setfeedback(rv->combL[7], INT32_MIN); }},
        {kTailOnly, [](reverb_t* rv) { comb_setsetdamp(rv->combL[5], 8193); }},
        {kTailOnly, [](reverb_t* rv) { comb_setsetdamp(rv->combL[0], -9000); }},
        {kTailOnly, [](reverb_t* rv) { comb_setsetdamp(rv->combL[4], 0); }},
        {kTailOnly, [](reverb_t* rv) { rv->combL[6]->damp2 = 100; }},
        {kTailOnly, [](reverb_t* rv) { allpass_setfeedback(rv->allpassL[1], 3000); }},
        {kTailOnly, [](reverb_t* rv) { allpass_setfeedback(rv->allpassL[3], INT32_MIN); }},
};

TEST(Reverb, AnySplitOfAnyStateEqualsTheDefinition) {
    constexpr int kSamples = 4000;
    const Samples in_l = loud(11), in_r = loud(12);
    for (const Case& c : kCases) {
        Samples expected_l, expected_r, expected, unused;
        for (const int chunk : {1, 7, 128, 1000, kSamples}) {
            SCOPED_TRACE(testing::Message() << &c - kCases << ' ' << chunk);
            Reverb rv(c.settings), mono(c.settings);
            for (reverb_t* r : {&rv, &mono}) {
                scramble(r);
                c.tinker(r);
            }
            if (chunk == 1) {
                expected_l = expected = in_l;
                expected_r = unused = in_r;
                by_definition(rv, rv.wet2, expected_l, expected_r);
                by_definition(mono, 0, expected, unused);
            }
            Samples l = in_l, r = in_r, m = in_l;
            for (size_t at = 0; at < kSamples; at += static_cast<size_t>(chunk)) {
                const int n = std::min(chunk, kSamples - static_cast<int>(at));
                reverb_process_mono(&mono, &m[at], &m[at], n);
                // The channels come back swapped.
                reverb_process_stereo(&rv, &l[at], &r[at], &r[at], &l[at],
                                      static_cast<unsigned>(n));
            }
            ASSERT_EQ(m, expected);
            ASSERT_EQ(r, expected_l);
            ASSERT_EQ(l, expected_r);
        }
    }
}

TEST(ReverbFilters, AnswerAsWorkedOut) {
    comber comb;
    comb_init(&comb, 3);
    EXPECT_EQ(comb.damp1, 8192) << "closed until it is set";
    comb_setsetdamp(&comb, 0);
    allpass ap;
    allpass_init(&ap, 2);
    int impulse = -1001;
    // The comb's line keeps 13 fractional bits; only what is returned rounds toward minus infinity.
    for (const int expected : {0, 0, 0, -1001, 0, 0, -501, 0, 0, -251})
        EXPECT_EQ(comb_process(std::exchange(impulse, 0), &comb), expected);
    impulse = 1 << 16;
    for (const int expected : {32768, 0, 49152, 0, -24576})
        EXPECT_EQ(allpass_process(std::exchange(impulse, 0), &ap), expected);
    comb_end(&comb);
    allpass_end(&ap);
    EXPECT_EQ(comb_process(5, &comb), 0) << "without a line";
    EXPECT_EQ(allpass_process(5, &ap), 5);

    dc_remove dc, model{};
    dc_remove_init(&dc);
    for (const int32_t x : {INT32_MAX, INT32_MIN, INT32_MAX, 10000, 10000, -1, 0, 0}) {
        int32_t y = x;
        dc_remove_process(&dc, &y, &y);
        EXPECT_EQ(y, step(model, x));
    }
}

TEST(Reverb, SettingsScaleAsTunedAndLinesHaveTheirLengths) {
    struct Row {
        Settings set;
        std::vector<int32_t> expected;  // room size, damping, wet, dry, width, gain, wet1, wet2
    };
    const Settings extreme = {INT32_MIN, INT32_MIN, INT32_MAX, INT32_MIN, INT32_MIN, INT32_MAX};
    Reverb rv;
    for (const Row& row :
         {Row{{4096, 4096, 2730, 0, 8192, 127}, {6945, 1650, 8190, 0, 8192, 127, 8190, 0}},
          Row{kVoiceLowRate, {5815, 51, 192, 4096, 256, 384, 99, 93}},
          Row{extreme,
              {5779 - 2333 * (1 << 18), -3301 * (1 << 18), INT32_MAX, INT32_MIN, INT32_MIN,
               INT32_MAX, INT32_MIN, INT32_MAX}},
          // Halving rounds toward zero, the shift toward minus infinity.
          Row{{0, 0, 1, 0, 19115, 0}, {5779, 0, 3, 0, 19115, 0, 4, -2}},
          Row{{0, 0, 4096, 0, -1, 0}, {5779, 0, 12288, 0, -1, 0, 6144, 6144}}}) {
        if (row.set.gain != 127) rv.set(row.set);  // the first row is what init leaves
        EXPECT_EQ((std::vector<int32_t>{rv.roomsize, rv.damp, rv.wet, rv.dry, rv.width, rv.gain,
                                        rv.wet1, rv.wet2}),
                  row.expected);
        for (const comber* comb : {rv.combL[0], rv.combR[7]}) {
            EXPECT_EQ(comb->feedback, rv.roomsize);
            EXPECT_EQ(comb->damp1, rv.damp);
            EXPECT_EQ(comb->damp2, 8192 - rv.damp);
        }
    }
    const int combs[][2] = {{1109, 1151}, {1399, 1423}, {1489, 1523}, {1777, 1801},
                            {1973, 1997}, {2069, 2099}, {2267, 2293}, {2549, 2579}};
    const int allpasses[][2] = {{619, 643}, {523, 547}, {337, 367}, {241, 269}};
    for (int k = 0; k < 8; ++k) {
        EXPECT_EQ(rv.combL[k]->bufsize, combs[k][0]);
        EXPECT_EQ(rv.combR[k]->bufsize, combs[k][1]);
        if (k >= 4) continue;
        EXPECT_EQ(rv.allpassL[k]->bufsize, allpasses[k][0]);
        EXPECT_EQ(rv.allpassR[k]->bufsize, allpasses[k][1]);
    }
}

TEST(Reverb, TailDecaysToZeroOrMinusOne) {
    // The loops round toward minus infinity: a slot that was negative last rests at -1.
    for (const Settings& settings : {kVoice, kVoiceLowRate}) {
        Reverb rv(settings);
        Samples io = krel_test::noise_s16(4800, 9);
        io.resize(96000);
        reverb_process_mono(&rv, io.data(), io.data(), 96000);
        EXPECT_GT(krel_test::rms({io.begin() + 4800, io.begin() + 9600}), 1.0);
        EXPECT_TRUE(std::all_of(io.begin() + 90000, io.end(),
                                [](int16_t s) { return s == 0 || s == -1; }));
    }
}

TEST(Reverb, FailedInitLeavesAPassThrough) {
    reverb_t rv;
    {
        krel_test::AllocGate gate(50);  // 24 records with a line each, two without: the last
        EXPECT_EQ(reverb_init(&rv), -1);
    }
    Samples l = loud(2), r = loud(3);
    reverb_process_mono(&rv, l.data(), l.data(), 4000);
    reverb_process_stereo(&rv, l.data(), r.data(), r.data(), l.data(), 4000);
    EXPECT_EQ(l, loud(3));  // swapped outputs
    EXPECT_EQ(r, loud(2));
    reverb_end(&rv);
}

}  // namespace
