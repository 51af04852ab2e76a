// One holder for the frame-based effects, so that what they promise alike is tested alike, and what they are compared with:
// double precision, direct sums, no fast algorithm.
#ifndef KREL_TESTS_SPECTRAL_EFFECTS_H
#define KREL_TESTS_SPECTRAL_EFFECTS_H

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <functional>
#include <numbers>
#include <vector>

#include "spectral/pitch.h"
#include "spectral/vocal.h"
#include "spectral/vocoder.h"
#include "tables/carrier.h"
#include "tables/hann.h"
#include "tests/support/signals.h"

namespace krel_test {

using Samples = std::vector<int16_t>;

template <typename Record, auto kProcess, auto kDeinit>
struct Kind {
    using Context = Record;
    static constexpr auto process = kProcess;
    static constexpr auto deinit = kDeinit;
};
struct PitchKind : Kind<pitch_ctx_t, pitch_process, pitch_deinit> {
    static int init(void* ctx, int rate, float scale = 1.14f) {
        return pitch_init(ctx, rate, scale);
    }
};
struct VocoderKind : Kind<vocoder_ctx_t, vocoder_process, vocoder_deinit> {
    static int init(void* ctx, int rate, const float* carrier = krel::kCarrier) {
        return vocoder_init(ctx, rate, carrier);
    }
};
struct VocalKind : Kind<vocal_ctx_t, vocal_process, vocal_deinit> {
    static int init(void* ctx, int rate, float ratio = 0.5605381f, int eq = 2) {
        return vocal_init(ctx, rate, ratio, eq);
    }
};

/// Owns one effect. Its memory is garbage before init, as the owner's may be.
template <typename K>
class Effect {
  public:
    template <typename... Setting>
    explicit Effect(int rate, Setting... setting) {
        std::memset(static_cast<void*>(&ctx_), 0xA5, sizeof ctx_);
        K::init(&ctx_, rate, setting...);
    }
    ~Effect() { K::deinit(&ctx_); }
    Effect(const Effect&) = delete;
    Effect& operator=(const Effect&) = delete;

    /// In place, in calls whose lengths repeat `splits`.
    Samples run(Samples samples, const std::vector<int>& splits = {128}) {
        floats.clear();
        int16_t* at = samples.data();
        for (size_t call = 0; at != samples.data() + samples.size(); ++call) {
            const auto left = static_cast<int>(samples.data() + samples.size() - at);
            const int n = std::min(left, splits[call % splits.size()]);
            K::process(&ctx_, at, at, n);
            at += n;
            if (ctx_.fft_cfg != nullptr && n <= ctx_.fft_size)
                floats.insert(floats.end(), ctx_.out_block, ctx_.out_block + n);
        }
        return samples;
    }

    typename K::Context* operator->() { return &ctx_; }
    typename K::Context* get() { return &ctx_; }

    /// The output of the last run() before its conversion to 16 bits, +-1.
    std::vector<float> floats;

  private:
    typename K::Context ctx_;
};

using Pitch = Effect<PitchKind>;
using Vocoder = Effect<VocoderKind>;
using Vocal = Effect<VocalKind>;

inline constexpr double kPi = std::numbers::pi;
using Spectrum = std::vector<std::complex<double>>;

/// sum over n of x[n] exp(sign 2 pi i k n / N), unscaled.
inline Spectrum direct_dft(const Spectrum& x, int sign) {
    const size_t size = x.size();
    Spectrum turn(size);
    for (size_t n = 0; n < size; ++n)
        turn[n] = std::polar(1.0,
                             sign * 2.0 * kPi * static_cast<double>(n) / static_cast<double>(size));
    Spectrum out(size);
    for (size_t k = 0; k < size; ++k) {
        for (size_t n = 0; n < size; ++n) out[k] += x[n] * turn[k * n % size];
    }
    return out;
}

/// Runs `in` through the effect and through its model: analysis and synthesis by overlap-add of windowed frames, where
/// `change` turns bins 0..size/2 of a frame's spectrum into those of the output. Returns the level of what the model gives
/// over that of the difference, in dB.
template <typename K>
double snr_db(Effect<K>& effect, const Samples& in, const std::function<void(Spectrum&)>& change) {
    effect.run(in);
    const int size = effect->fft_size;
    const auto n = static_cast<size_t>(size);
    const size_t hop = n / 4;
    const float* window = krel::hann_window(size);
    std::vector<double> padded(n - hop, 0.0);  // what the first frame sees before the input
    for (const int s : in) padded.push_back(s / 32768.0);
    std::vector<double> out(in.size() + n, 0.0);
    for (size_t start = 0; start + hop <= in.size(); start += hop) {
        Spectrum frame(n);
        for (size_t k = 0; k < n; ++k) frame[k] = padded[start + k] * double{window[k]};
        Spectrum spectrum = direct_dft(frame, -1);
        change(spectrum);
        std::fill(spectrum.begin() + size / 2 + 1, spectrum.end(), 0.0);
        frame = direct_dft(spectrum, +1);
        for (size_t k = 0; k < n && start + hop + k < out.size(); ++k)
            out[start + hop + k] += 0.5 * double{window[k]} * frame[k].real() / size;
    }
    double signal = 0.0, error = 0.0;
    for (size_t i = 0; i < in.size(); ++i) {
        signal += out[i] * out[i];
        error += std::pow(out[i] - double{effect.floats[i]}, 2);
    }
    return 10.0 * std::log10(signal / error);
}

}  // namespace krel_test

#endif
