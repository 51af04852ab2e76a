#include "spectral/pitch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include "tests/spectral/effects.h"
#include "tests/spectral/reference.h"
#include "tests/support/log_capture.h"
#include "tests/support/signals.h"

namespace {

using namespace krel_test;
using Pitch = Effect<PitchKind>;

constexpr float kScales[] = {0.78f, 0.86f, 1.14f, 1.36f};

auto shifting(int rate, float scale) {
    return [=](pitch_ctx_t* ctx) { EXPECT_EQ(pitch_init(ctx, rate, scale), 0); };
}

/// A voice without its Nyquist frequency: that bin is real, and whether its phase of half a turn is positive or negative
/// hangs on the sign of a zero.
std::vector<int16_t> smooth_voice(int samples, int rate) {
    auto voice = voice_s16(samples, rate);
    for (size_t i = voice.size() - 1; i > 0; --i) {
        voice[i] = static_cast<int16_t>((voice[i] + voice[i - 1]) / 2);
    }
    return voice;
}

/// The gain of bin k in a spectrum whose Nyquist bin is h.
double shape(int k, int h, double scale) {
    if (k < 3) return k / 3.0;
    double gain = 1.0;
    if (k < h && k >= 5 * h / 8) gain = std::max(0.0, 1.0 - (k + 1 - 5 * h / 8) / (h / 4.0));
    const int lo = scale > 1.2 ? h / 16 : scale < 0.8 ? h / 64 : h / 32;
    const int hi = scale > 1.2 ? 9 * h / 16 : scale < 0.8 ? 7 * h / 16 : h / 2;
    const int q = (hi - lo) / 4;
    const int at = k - lo;
    if (at >= 0 && at < q) gain *= 1.0 + static_cast<double>(at) / q;
    if (at >= q && at < 3 * q) gain *= 2.0;
    if (at >= 3 * q && at < 4 * q) gain *= 2.0 - static_cast<double>(at + 1 - 3 * q) / q;
    return gain;
}

/// Double-precision phase vocoder in units of bins; only the choice of target bins is single precision.
class Model {
  public:
    Model(int size, float scale)
        : half_(size / 2), scale_(scale), last_(bins(), 0.0), sum_(bins(), 0.0) {}

    void operator()(Spectrum& x) {
        std::vector<double> magnitude(bins());
        std::vector<double> place(bins());
        for (int k = 0; k <= half_; ++k) {
            const auto b = static_cast<size_t>(k);
            magnitude[b] = 2.0 * std::abs(x[b]);
            const double phase = std::arg(x[b]);
            const double turns = (phase - last_[b]) / (2.0 * kPi) - k / 4.0;
            last_[b] = phase;
            place[b] = k + 4.0 * (turns - std::round(turns));
        }
        std::vector<double> to_magnitude(bins());
        std::vector<double> to_place(bins());
        for (const bool second : {false, true}) {
            for (int k = 0; k <= half_; ++k) {
                const float s = second ? second_scale(k) : scale_;
                const auto t = static_cast<size_t>(s * static_cast<float>(k));
                if (t >= bins()) continue;
                to_magnitude[t] += magnitude[static_cast<size_t>(k)];
                to_place[t] = place[static_cast<size_t>(k)] * s;
            }
        }
        for (int k = 0; k <= half_; ++k) {
            const auto b = static_cast<size_t>(k);
            sum_[b] += to_place[b] * kPi / 2.0;
            x[b] = std::polar(shape(k, half_, scale_) * to_magnitude[b], sum_[b]);
        }
    }

  private:
    [[nodiscard]] size_t bins() const { return static_cast<size_t>(half_) + 1; }
    [[nodiscard]] float second_scale(int k) const {
        if (scale_ <= 1.2f) return scale_;
        return k < half_ / 8 ? 1.2f : k <= half_ / 4 ? 1.5f : 1.8f;
    }

    int half_;
    float scale_;
    std::vector<double> last_;
    std::vector<double> sum_;
};

TEST(Pitch, FollowsTheDoublePrecisionModel) {
    // The effect sums its phases in single precision, so its distance to the model grows with the number of frames.
    struct {
        int rate, hops;
        double floor_db;
    } const rows[] = {{8000, 4, 80.0}, {8000, 24, 60.0}, {16000, 6, 80.0}, {48000, 3, 80.0}};
    for (const auto& row : rows) {
        for (const float scale : kScales) {
            Pitch pitch(shifting(row.rate, scale));
            const auto voice = smooth_voice(pitch->hop * row.hops, row.rate);
            const auto expected =
                    overlap_add(voice, pitch->fft_size, Model(pitch->fft_size, scale));
            EXPECT_GT(snr_db(expected, pitch.run_floats(voice)), row.floor_db)
                    << row.rate << " Hz, " << scale << ", " << row.hops << " frames";
        }
    }
}

TEST(Pitch, AnalysedFrequenciesStayWithinTwoBinsOfTheirBin) {
    // Half a turn per hop is two bins. The lowest bins are where the phase advance exceeds a turn in either direction.
    Pitch pitch(shifting(16000, 1.14f));
    const auto noise = noise_s16(600 * pitch->hop, 77);
    for (int frame = 0; frame < 600; ++frame) {
        const auto* from = noise.data() + frame * pitch->hop;
        pitch.run({from, from + pitch->hop});
        for (int k = 0; k <= pitch->half_size; ++k) {
            ASSERT_NEAR(pitch->ana_freq[k] / pitch->freq_per_bin, k, 2.0001) << k;
        }
    }
}

TEST(Pitch, SynthesisPhasesGrowWithoutBound) {
    Pitch pitch(shifting(16000, 1.36f));
    pitch.run(voice_s16(200 * pitch->hop, 16000));
    EXPECT_GT(*std::max_element(pitch->sum_phase, pitch->sum_phase + pitch->half_size), 1e4f);
}

TEST(Pitch, MagnitudesAreDoubledAndShaped) {
    // At scale 1 every bin is its own target, so the gain of each can be read off.
    Pitch pitch(shifting(8000, 1.0f));
    pitch.run(noise_s16(4096, 21));
    const int h = pitch->half_size;
    const auto gain = [&](int k) { return pitch->syn_magn[k] / (2.0f * pitch->ana_magn[k]); };
    for (int k = 0; k <= h; ++k) ASSERT_NEAR(gain(k), shape(k, h, 1.0), 1e-5) << k;
    EXPECT_EQ(gain(0), 0.0f);
    EXPECT_FLOAT_EQ(gain(1), 1.0f / 3.0f);
    EXPECT_FLOAT_EQ(gain(2), 2.0f / 3.0f);
    EXPECT_FLOAT_EQ(gain(8), 1.0f);  // the boost starts at 1
    EXPECT_FLOAT_EQ(gain(9), 1.0f + 1.0f / 30.0f);
    EXPECT_FLOAT_EQ(gain(38), 2.0f);
    EXPECT_FLOAT_EQ(gain(97), 2.0f);
    EXPECT_FLOAT_EQ(gain(98), 2.0f - 1.0f / 30.0f);
    EXPECT_FLOAT_EQ(gain(159), 1.0f);
    EXPECT_FLOAT_EQ(gain(160), 1.0f - 1.0f / 64.0f);  // the first faded bin is already below 1
    EXPECT_EQ(gain(223), 0.0f);
    EXPECT_EQ(gain(255), 0.0f);
    EXPECT_FLOAT_EQ(gain(256), 1.0f);  // deliberate: the Nyquist bin is left as it is
}

/// Frequency bin of the strongest partial at the end of a signal, under a window of `size` samples.
double strongest_bin(const std::vector<int16_t>& samples, int size) {
    const auto n = static_cast<size_t>(size);
    const auto window = hann(size);
    Spectrum frame(n);
    for (size_t i = 0; i < n; ++i) frame[i] = samples[samples.size() - n + i] * window[i];
    const Spectrum spectrum = direct_dft(frame, -1);
    const auto strongest = std::max_element(
            spectrum.begin(), spectrum.begin() + size / 2,
            [](const auto& a, const auto& b) { return std::abs(a) < std::abs(b); });
    return static_cast<double>(strongest - spectrum.begin());
}

TEST(Pitch, ASineMovesToScaleTimesItsFrequency) {
    for (const int rate : {8000, 16000, 44100, 48000}) {
        for (const float scale : kScales) {
            // The widest scale adds a second partial, at 1.2 to 1.8 times the frequency; only that of a high sine is
            // faded out.
            const double low = scale > 1.2f ? 0.247 : 0.0513;
            for (const double per_rate : {low, 0.247}) {
                Pitch pitch(shifting(rate, scale));
                const auto out = pitch.run(sine_s16(rate / 2, per_rate * rate, rate, 6000.0));
                EXPECT_NEAR(strongest_bin(out, pitch->fft_size), scale * per_rate * pitch->fft_size,
                            1.0)
                        << rate << " Hz, " << scale;
                EXPECT_GT(rms(out), 500.0);
            }
        }
    }
}

TEST(Pitch, AtScaleOneSoundComesOutOneFrameLater) {
    for (const int rate : {8000, 16000, 48000}) {
        Pitch pitch(shifting(rate, 1.0f));
        const auto voice = voice_s16(rate, rate);
        const auto out = pitch.run(voice);
        const auto size = static_cast<size_t>(pitch->fft_size);
        size_t best = 0;
        double most = 0.0;
        for (size_t lag = size / 4; lag < 2 * size; ++lag) {
            double sum = 0.0;
            for (size_t i = lag; i < out.size(); ++i) sum += double{1} * out[i] * voice[i - lag];
            if (sum > most) {
                most = sum;
                best = lag;
            }
        }
        EXPECT_EQ(best, size) << rate;
    }
}

TEST(Pitch, OutputBeyondFullScaleSaturates) {
    Pitch pitch(shifting(48000, 0.86f));
    auto out = sine_s16(48000, 3000.0, 48000, 32767.0);
    out = pitch.run(out, {2048});
    EXPECT_EQ(*std::ranges::max_element(out), 32767);
    EXPECT_EQ(*std::ranges::min_element(out), -32768);
    int jumps = 0;
    for (size_t i = 1; i < out.size(); ++i) jumps += std::abs(out[i] - out[i - 1]) > 50000 ? 1 : 0;
    EXPECT_EQ(jumps, 0);
}

TEST(Pitch, ScalesThatAreNoneAreClamped) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    const auto noise = noise_s16(16384, 31);
    for (const float scale : {0.0f, -0.0f, -0.5f, -1e30f, -infinity, nan}) {
        Pitch pitch(shifting(48000, scale));
        EXPECT_EQ(pitch->scale, 0.0f);
        EXPECT_EQ(rms(pitch.run(noise)), 0.0) << scale;
    }
    for (const float scale : {1025.0f, 2048.0f, 1e9f, 1e30f, infinity}) {
        Pitch pitch(shifting(48000, scale));
        EXPECT_LE(pitch->scale, 2048.0f);
        EXPECT_GT(rms(pitch.run(noise)), 0.0) << scale;
    }
}

TEST(Pitch, TheSignOfTheRateDoesNotMatterAndRateZeroPassesThrough) {
    const auto noise = noise_s16(8192, 41);
    EXPECT_EQ(Pitch(shifting(-48000, 0.78f)).run(noise), Pitch(shifting(48000, 0.78f)).run(noise));
    EXPECT_GT(rms(Pitch(shifting(INT32_MIN, 0.78f)).run(noise)), 0.0);
    EXPECT_EQ(Pitch(shifting(0, 0.78f)).run(noise), noise);
}

TEST(Pitch, InitSetsTheRecordAndLogs) {
    const LogCapture log;
    {
        Pitch pitch(shifting(44100, 1.14f));
        EXPECT_EQ(pitch->scale, 1.14f);
        EXPECT_EQ(pitch->fft_size, 2048);
        EXPECT_EQ(pitch->overlap, 4);
        EXPECT_EQ(pitch->half_size, 1024);
        EXPECT_EQ(pitch->rover, 1536);
        EXPECT_EQ(pitch->freq_per_bin, 44100.0 / 2048.0);
        EXPECT_DOUBLE_EQ(pitch->expected_phase_step, kPi / 2.0);
    }
    const std::vector<LogLine> expected = {
            {3, "_K_vcp_core", "pitch_init: scale 1.140000, fftsize 2048"},
            {3, "_K_vcp_core", "pitch_deinit"}};
    EXPECT_EQ(log.lines(), expected);
}

}  // namespace
