// One holder for the frame-based effects, so that what they promise alike is tested alike.
#ifndef KREL_TESTS_SPECTRAL_EFFECTS_H
#define KREL_TESTS_SPECTRAL_EFFECTS_H

#include <algorithm>
#include <cstring>
#include <vector>

#include "spectral/pitch.h"
#include "spectral/vocal.h"
#include "spectral/vocoder.h"
#include "tables/carrier.h"

namespace krel_test {

struct PitchKind {
    using Context = pitch_ctx_t;
    static constexpr int kBuffers = 14;  // the FFT configuration among them
    static constexpr int kAllocations = kBuffers;
    static int init(void* ctx, int rate) { return pitch_init(ctx, rate, 1.14f); }
    static constexpr auto process = pitch_process;
    static constexpr auto deinit = pitch_deinit;
};

struct VocoderKind {
    using Context = vocoder_ctx_t;
    static constexpr int kBuffers = 10;
    static constexpr int kAllocations = kBuffers;
    static int init(void* ctx, int rate) { return vocoder_init(ctx, rate, krel::kCarrier); }
    static constexpr auto process = vocoder_process;
    static constexpr auto deinit = vocoder_deinit;
};

/// Formant shift and EQ together.
struct VocalKind {
    using Context = vocal_ctx_t;
    static constexpr int kBuffers = 17;
    // With the resampler's and, for a while, the interpolator's.
    static constexpr int kAllocations = kBuffers + 6 + 9;
    static int init(void* ctx, int rate) { return vocal_init(ctx, rate, 0.5605381f, 2); }
    static constexpr auto process = vocal_process;
    static constexpr auto deinit = vocal_deinit;
};

/// Owns one effect. Its memory is garbage before init, as the owner's may be.
template <typename Kind>
class Effect {
  public:
    explicit Effect(int rate) {
        std::memset(static_cast<void*>(&ctx_), 0xA5, sizeof ctx_);
        Kind::init(&ctx_, rate);
    }
    /// init: what to call on the record instead of Kind::init.
    template <typename Init>
    explicit Effect(Init init) {
        std::memset(static_cast<void*>(&ctx_), 0xA5, sizeof ctx_);
        init(&ctx_);
    }
    ~Effect() { Kind::deinit(&ctx_); }
    Effect(const Effect&) = delete;
    Effect& operator=(const Effect&) = delete;

    /// In place, in calls whose lengths repeat `splits`.
    std::vector<int16_t> run(std::vector<int16_t> samples, const std::vector<int>& splits = {128}) {
        size_t at = 0;
        for (size_t call = 0; at < samples.size(); ++call) {
            const auto n = std::min(samples.size() - at,
                                    static_cast<size_t>(splits[call % splits.size()]));
            Kind::process(&ctx_, samples.data() + at, samples.data() + at, static_cast<int>(n));
            at += n;
        }
        return samples;
    }

    /// The output before its conversion to 16 bits, +-1.
    std::vector<float> run_floats(std::vector<int16_t> samples) {
        std::vector<float> out;
        for (size_t at = 0; at < samples.size(); at += 128) {
            const auto n = std::min<size_t>(samples.size() - at, 128);
            Kind::process(&ctx_, samples.data() + at, samples.data() + at, static_cast<int>(n));
            out.insert(out.end(), ctx_.out_block, ctx_.out_block + n);
        }
        return out;
    }

    typename Kind::Context* operator->() { return &ctx_; }
    typename Kind::Context* get() { return &ctx_; }

  private:
    typename Kind::Context ctx_;
};

}  // namespace krel_test

#endif
