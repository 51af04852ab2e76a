// Every preset against its effects called one by one, with settings written out here once more.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <vector>

#include "base/fixed_point.h"
#include "core/echos.h"
#include "core/reverb.h"
#include "core/vcp.h"
#include "pitch_stream/pitch_stream.h"
#include "spectral/pitch.h"
#include "spectral/vocal.h"
#include "spectral/vocoder.h"
#include "tables/carrier.h"
#include "tests/support/signals.h"

namespace {

using Samples = std::vector<int16_t>;

constexpr int kRate = 44100;
constexpr int kFrames = 128;

/// Both buffers of a process call, before and after.
struct Buffers {
    Samples in, out;
};

void gain(Samples& block, int eighths) {
    for (auto& s : block) s = krel::sat_s16((s * eighths) >> 3);
}

/// The chain of one preset; step() does to the buffers what one process call does.
class Chain {
  public:
    virtual ~Chain() = default;
    virtual void step(Buffers& b) = 0;
};

class VocoderChain : public Chain {
  public:
    VocoderChain(const float* carrier, int eighths, bool in_place)
        : eighths_(eighths), in_place_(in_place) {
        vocoder_init(&v_, kRate, carrier);
    }
    ~VocoderChain() override { vocoder_deinit(&v_); }
    void step(Buffers& b) override {
        vocoder_process(&v_, b.in.data(), in_place_ ? b.in.data() : b.out.data(), kFrames);
        gain(b.out, eighths_);
    }

  private:
    vocoder_ctx_t v_;
    int eighths_;
    bool in_place_;
};

class EchoChain : public Chain {
  public:
    EchoChain() {
        int delays[6] = {}, gains[6] = {};
        calculate_echos(kRate, delays, gains, 2);
        echos_init(&e_, delays, gains, 45);
    }
    ~EchoChain() override { echos_deinit(&e_); }
    void step(Buffers& b) override { echos_process(&e_, b.in.data(), b.out.data(), kFrames); }

  private:
    echos_t e_;
};

class ShiftChain : public Chain {
  public:
    ShiftChain(float scale, int eighths) : eighths_(eighths) { pitch_init(&p_, kRate, scale); }
    ~ShiftChain() override { pitch_deinit(&p_); }
    void step(Buffers& b) override {
        pitch_process(&p_, b.in.data(), b.out.data(), kFrames);
        gain(b.out, eighths_);
    }

  private:
    pitch_ctx_t p_;
    int eighths_;
};

class StreamChain : public Chain {
  public:
    explicit StreamChain(float ratio) : stream_(pitchCreateStream(kRate, 0, 0.0f, 0.0f, 1024)) {
        pitchSetPitch(stream_, ratio);
    }
    StreamChain(int target, float most, float least, float formants, int eq)
        : stream_(pitchCreateStream(kRate, target, most, least, 1024)), has_vocal_(true) {
        vocal_init(&vocal_, kRate, formants, eq);
    }
    ~StreamChain() override {
        pitchDestroyStream(stream_);
        if (has_vocal_) vocal_deinit(&vocal_);
    }
    void step(Buffers& b) override {
        gain(b.in, 7);
        pitchWriteShortToStream(stream_, b.in.data(), kFrames);
        const int received = pitchReadShortFromStream(stream_, b.out.data(), kFrames);
        fifo_.insert(fifo_.end(), b.out.begin(), b.out.begin() + received);
        std::ranges::fill(b.out, int16_t{0});
        if (received == 0) return;
        if (primed_) {
            const size_t count = std::min(fifo_.size(), b.out.size());
            std::copy_n(fifo_.begin(), count, b.out.end() - static_cast<ptrdiff_t>(count));
            fifo_.erase(fifo_.begin(), fifo_.begin() + static_cast<ptrdiff_t>(count));
        }
        primed_ = primed_ || fifo_.size() >= kRate / 50;
        if (has_vocal_) vocal_process(&vocal_, b.out.data(), b.out.data(), kFrames);
    }

  private:
    pitchStreamStruct* stream_;
    std::deque<int16_t> fifo_;
    bool primed_ = false;
    bool has_vocal_ = false;
    vocal_ctx_t vocal_;
};

class RoomChain : public Chain {
  public:
    RoomChain(int eq, int room, int damp, int wet, int dry, int width, int level) {
        reverb_init(&rv_);
        reverb_setroomsize(&rv_, room);
        reverb_setdamp(&rv_, damp);
        reverb_setwet(&rv_, wet);
        reverb_setdry(&rv_, dry);
        reverb_setwidth(&rv_, width);
        reverb_setgain(&rv_, level);
        reverb_update(&rv_);
        vocal_init(&vocal_, kRate, 1.0f, eq);
    }
    ~RoomChain() override {
        vocal_deinit(&vocal_);
        reverb_end(&rv_);
    }
    void step(Buffers& b) override {
        vocal_process(&vocal_, b.in.data(), b.in.data(), kFrames);
        reverb_process_mono(&rv_, b.in.data(), b.out.data(), kFrames);
    }

  private:
    reverb_t rv_;
    vocal_ctx_t vocal_;
};

std::unique_ptr<Chain> chain_of(int preset) {
    static const std::vector<float> silence(2528, 0.0f);
    switch (preset) {
        case 0:
            return std::make_unique<VocoderChain>(krel::kCarrier, 13, true);
        case 1:
            return std::make_unique<VocoderChain>(silence.data(), 45, false);
        case 2:
            return std::make_unique<EchoChain>();
        case 3:
            return std::make_unique<ShiftChain>(0.78f, 15);
        case 4:
            return std::make_unique<ShiftChain>(0.86f, 17);
        case 5:
            return std::make_unique<ShiftChain>(1.14f, 15);
        case 6:
            return std::make_unique<ShiftChain>(1.36f, 19);
        case 10:
            return std::make_unique<StreamChain>(0.8f);
        case 11:
            return std::make_unique<StreamChain>(223, 2.7f, 1.5f, 0.5605381f, 2);
        case 12:
            return std::make_unique<StreamChain>(1.3f);
        case 13:
            return std::make_unique<StreamChain>(200, 2.4f, 1.3f, 0.625f, 0);
        case 14:
            return std::make_unique<StreamChain>(250, 3.0f, 1.7f, 0.5f, 1);
        case 15:
            return std::make_unique<RoomChain>(4, 256, 256, 512, 3072, 2048, 1024);
        case 16:
            return std::make_unique<RoomChain>(5, 512, 256, 512, 3072, 2048, 1024);
        default:
            return nullptr;
    }
}

class Composition : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Presets, Composition,
                         testing::Values(0, 1, 2, 3, 4, 5, 6, 10, 11, 12, 13, 14, 15, 16));

TEST_P(Composition, EqualsTheEffectsOneByOneInBothBuffers) {
    const auto voice = krel_test::voice_s16(200 * kFrames, kRate, 110.0, 180.0, 25000.0);
    srand(1);
    const auto chain = chain_of(GetParam());
    srand(1);
    void* core = vcp_init(kRate);
    vcp_set_mode(core, GetParam());
    for (size_t at = 0; at < voice.size(); at += kFrames) {
        const auto first = voice.begin() + static_cast<ptrdiff_t>(at);
        Buffers expected = {{first, first + kFrames}, Samples(kFrames, 1000)};
        Buffers actual = expected;
        chain->step(expected);
        EXPECT_EQ(vcp_process(core, actual.in.data(), actual.out.data(), kFrames), kFrames);
        ASSERT_EQ(actual.in, expected.in) << at;
        ASSERT_EQ(actual.out, expected.out) << at;
    }
    vcp_deinit(core);
}

}  // namespace
