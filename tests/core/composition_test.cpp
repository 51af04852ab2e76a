// Every preset against its effects called one by one, with settings written out here once more.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "base/fixed_point.h"
#include "core/core_record.h"
#include "core/vcp.h"
#include "tables/carrier.h"
#include "tests/support/signals.h"

namespace {

using Samples = std::vector<int16_t>;
/// Does to the two buffers of a process call what the call does.
using Step = std::function<void(Samples& in, Samples& out)>;

constexpr int kFrames = 128;

/// An effect's record that lives as long as the step that holds it.
template <typename Record, auto end>
struct Owned : Record {
    ~Owned() { end(this); }
};
template <typename Record, auto end>
std::shared_ptr<Record> own() {
    return std::make_shared<Owned<Record, end>>();
}

void gain(Samples& block, int eighths) {
    for (auto& s : block) s = krel::sat_s16((s * eighths) >> 3);
}

Step vocoder(int rate, const float* carrier, int eighths, bool in_place) {
    const auto v = own<vocoder_ctx_t, vocoder_deinit>();
    vocoder_init(v.get(), rate, carrier);
    return [=](Samples& in, Samples& out) {
        vocoder_process(v.get(), in.data(), in_place ? in.data() : out.data(), kFrames);
        gain(out, eighths);
    };
}

Step echo(int rate) {
    const auto e = own<echos_t, echos_deinit>();
    int delays[6] = {}, gains[6] = {};
    calculate_echos(rate, delays, gains, 2);
    echos_init(e.get(), delays, gains, 45);
    return [=](Samples& in, Samples& out) {
        echos_process(e.get(), in.data(), out.data(), kFrames);
    };
}

Step shift(int rate, float scale, int eighths) {
    const auto p = own<pitch_ctx_t, pitch_deinit>();
    pitch_init(p.get(), rate, scale);
    return [=](Samples& in, Samples& out) {
        pitch_process(p.get(), in.data(), out.data(), kFrames);
        gain(out, eighths);
    };
}

Step formants(int rate, float ratio, int eq) {
    const auto v = own<vocal_ctx_t, vocal_deinit>();
    vocal_init(v.get(), rate, ratio, eq);
    return [=](Samples& in, Samples& out) {
        vocal_process(v.get(), in.data(), out.data(), kFrames);
    };
}

Step stream(int rate, const std::shared_ptr<pitchStreamStruct>& s, const Step& after) {
    std::deque<int16_t> fifo;
    bool primed = false;
    return [=](Samples& in, Samples& out) mutable {
        gain(in, 7);
        pitchWriteShortToStream(s.get(), in.data(), kFrames);
        const int received = pitchReadShortFromStream(s.get(), out.data(), kFrames);
        fifo.insert(fifo.end(), out.begin(), out.begin() + received);
        std::ranges::fill(out, int16_t{0});
        if (received == 0) return;
        if (primed) {
            const auto count = static_cast<ptrdiff_t>(std::min(fifo.size(), out.size()));
            std::copy_n(fifo.begin(), count, out.end() - count);
            fifo.erase(fifo.begin(), fifo.begin() + count);
        }
        primed = primed || fifo.size() >= static_cast<size_t>(rate) / 50;
        after(out, out);
    };
}
Step fixed_stream(int rate, float ratio) {
    const std::shared_ptr<pitchStreamStruct> s(pitchCreateStream(rate, 0, 0.0f, 0.0f, 1024),
                                               pitchDestroyStream);
    pitchSetPitch(s.get(), ratio);
    return stream(rate, s, [](Samples&, Samples&) {});
}
Step steered_stream(int rate, int target_hz, float most, float least, float ratio, int eq) {
    const std::shared_ptr<pitchStreamStruct> s(
            pitchCreateStream(rate, target_hz, most, least, 1024), pitchDestroyStream);
    return stream(rate, s, formants(rate, ratio, eq));
}

Step room(int rate, int eq, const int (&low)[6], const int (&full)[6]) {
    void (*const set[])(reverb_t*, int) = {reverb_setroomsize, reverb_setdamp,  reverb_setwet,
                                           reverb_setdry,      reverb_setwidth, reverb_setgain};
    const auto rv = own<reverb_t, reverb_end>();
    reverb_init(rv.get());
    for (int k = 0; k < 6; ++k) set[k](rv.get(), rate < 44100 ? low[k] : full[k]);
    reverb_update(rv.get());
    return [=, before = formants(rate, 1.0f, eq)](Samples& in, Samples& out) {
        before(in, in);
        reverb_process_mono(rv.get(), in.data(), out.data(), kFrames);
    };
}

const std::vector<float> kSilence(2528, 0.0f);
const std::map<int, std::function<Step(int rate)>> kChains = {
        {0, [](int rate) { return vocoder(rate, krel::kCarrier, 13, true); }},
        {1, [](int rate) { return vocoder(rate, kSilence.data(), 45, false); }},
        {2, echo},
        {3, [](int rate) { return shift(rate, 0.78f, 15); }},
        {4, [](int rate) { return shift(rate, 0.86f, 17); }},
        {5, [](int rate) { return shift(rate, 1.14f, 15); }},
        {6, [](int rate) { return shift(rate, 1.36f, 19); }},
        {10, [](int rate) { return fixed_stream(rate, 0.8f); }},
        {11, [](int rate) { return steered_stream(rate, 223, 2.7f, 1.5f, 0.5605381f, 2); }},
        {12, [](int rate) { return fixed_stream(rate, 1.3f); }},
        {13, [](int rate) { return steered_stream(rate, 200, 2.4f, 1.3f, 0.625f, 0); }},
        {14, [](int rate) { return steered_stream(rate, 250, 3.0f, 1.7f, 0.5f, 1); }},
        {15,
         [](int rate) {
             return room(rate, 4, {128, 128, 64, 2048, 256, 384},
                         {256, 256, 512, 3072, 2048, 1024});
         }},
        {16,
         [](int rate) {
             return room(rate, 5, {256, 256, 256, 2048, 1024, 384},
                         {512, 256, 512, 3072, 2048, 1024});
         }},
};

class Composition : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Presets, Composition, testing::Range(-1, 18));

TEST_P(Composition, EqualsTheEffectsOneByOneInBothBuffers) {
    for (const int rate : {44100, 44099}) {
        // Glides through all that the steered streams aim at, beyond both of their bounds.
        const auto voice = krel_test::voice_s16(300 * kFrames, rate, 60.0, 400.0, 25000.0);
        srand(1);
        const auto chain = kChains.find(GetParam());  // without one, neither buffer is touched
        const Step step = chain != kChains.end() ? chain->second(rate) : [](Samples&, Samples&) {};
        srand(1);
        void* core = vcp_init(rate);
        EXPECT_EQ(vcp_set_mode(core, GetParam()), 0);
        for (auto at = voice.begin(); at != voice.end(); at += kFrames) {
            Samples in(at, at + kFrames), out(kFrames, 1000);
            Samples expected_in = in, expected_out = out;
            step(expected_in, expected_out);
            EXPECT_EQ(vcp_process(core, in.data(), out.data(), kFrames), kFrames);
            ASSERT_EQ(in, expected_in) << rate << ' ' << at - voice.begin();
            ASSERT_EQ(out, expected_out) << rate << ' ' << at - voice.begin();
        }
        EXPECT_EQ(vcp_deinit(core), 0);
    }
}

}  // namespace
