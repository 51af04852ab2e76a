#include "spectral/pitch.h"

#include <gtest/gtest.h>

#include <numeric>

#include "tests/spectral/effects.h"

namespace {

using namespace krel_test;

constexpr float kScales[] = {0.78f, 0.86f, 1.14f, 1.36f};

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
auto model(int size, float scale) {
    const int half = size / 2;
    const auto bins = static_cast<size_t>(half) + 1;
    const auto second_scale = [=](int k) {
        return scale <= 1.2f ? scale : k < half / 8 ? 1.2f : k <= half / 4 ? 1.5f : 1.8f;
    };
    const std::vector<double> zeros(bins);
    return [=, last = zeros, sum = zeros](Spectrum& x) mutable {
        std::vector<double> place(bins), to_magnitude(bins), to_place(bins);
        for (size_t k = 0; k < bins; ++k) {
            const double phase = std::arg(x[k]);
            const auto bin = static_cast<double>(k);
            const double turns = (phase - last[k]) / (2.0 * kPi) - bin / 4.0;
            last[k] = phase;
            place[k] = bin + 4.0 * (turns - std::round(turns));
        }
        for (const bool second : {false, true}) {
            for (int k = 0; k <= half; ++k) {
                const float s = second ? second_scale(k) : scale;
                const auto t = static_cast<size_t>(s * static_cast<float>(k));
                if (t >= bins) continue;
                to_magnitude[t] += 2.0 * std::abs(x[static_cast<size_t>(k)]);
                to_place[t] = place[static_cast<size_t>(k)] * s;
            }
        }
        for (size_t k = 0; k < bins; ++k) {
            sum[k] += to_place[k] * kPi / 2.0;
            x[k] = std::polar(shape(static_cast<int>(k), half, scale) * to_magnitude[k], sum[k]);
        }
    };
}

TEST(Pitch, FollowsTheDoublePrecisionModel) {
    // The effect sums its phases in single precision, so its distance to the model grows with the number of frames.
    struct {
        int rate, hops;
        double floor_db;
    } const rows[] = {{8000, 4, 80.0}, {8000, 24, 60.0}, {16000, 6, 80.0}, {48000, 3, 80.0}};
    const auto mean = [](int a, int b) { return static_cast<int16_t>((a + b) / 2); };
    for (const auto& row : rows) {
        for (const float scale : kScales) {
            Pitch pitch(row.rate, scale);
            auto voice = voice_s16(pitch->hop * row.hops, row.rate);
            // Without its Nyquist frequency: that bin is real, and whether its phase of half a turn is positive or negative
            // hangs on the sign of a zero.
            std::adjacent_difference(voice.begin(), voice.end(), voice.begin(), mean);
            EXPECT_GT(snr_db(pitch, voice, model(pitch->fft_size, scale)), row.floor_db)
                    << row.rate << " Hz, " << scale << ", " << row.hops << " frames";
        }
    }
}

TEST(Pitch, AnalysedFrequenciesStayWithinTwoBinsOfTheirBin) {
    // Half a turn per hop is two bins. The lowest bins are where the phase advance exceeds a turn in either direction.
    Pitch pitch(8000, 1.14f);
    for (uint32_t frame = 0; frame < 200; ++frame) {
        pitch.run(noise_s16(pitch->hop, frame));
        for (int k = 0; k <= pitch->half_size; ++k)
            ASSERT_NEAR(pitch->ana_freq[k] / pitch->freq_per_bin, k, 2.0001) << k;
    }
}

TEST(Pitch, MagnitudesAreDoubledAndShaped) {
    // At scale 1 every bin is its own target, so the gain of each can be read off.
    Pitch pitch(8000, 1.0f);
    pitch.run(noise_s16(4096, 21));
    const auto gain = [&](int k) { return pitch->syn_magn[k] / (2.0f * pitch->ana_magn[k]); };
    // The ramp of the lowest bins; the boost from bin 8 to 159; the fade, whose first bin is already below 1; deliberate:
    // the Nyquist bin is left as it is.
    const struct {
        int bin;
        float gain;
    } rows[] = {{0, 0.0f},          {1, 1.0f / 3.0f},     {2, 2.0f / 3.0f}, {8, 1.0f},
                {9, 31.0f / 30.0f}, {38, 2.0f},           {97, 2.0f},       {98, 59.0f / 30.0f},
                {159, 1.0f},        {160, 63.0f / 64.0f}, {223, 0.0f},      {255, 0.0f},
                {256, 1.0f}};
    for (const auto& row : rows) EXPECT_FLOAT_EQ(gain(row.bin), row.gain) << row.bin;
}

TEST(Pitch, ASineMovesToScaleTimesItsFrequency) {
    for (const int rate : {8000, 16000, 44100}) {
        for (const float scale : kScales) {
            // The widest scale adds a second partial, at 1.2 to 1.8 times the frequency; only that of a high sine is
            // faded out.
            for (const double hz : {(scale > 1.2f ? 0.24 : 0.0513) * rate, 0.247 * rate}) {
                Pitch pitch(rate, scale);
                const auto out = pitch.run(sine_s16(rate, hz, rate, 6000.0));
                int crossings = 0;
                for (size_t i = out.size() / 2; i < out.size(); ++i)
                    crossings += (out[i] < 0) != (out[i - 1] < 0) ? 1 : 0;
                EXPECT_NEAR(crossings, scale * hz, 0.015 * hz) << rate << " Hz, " << scale;
                const float* const phases = pitch->sum_phase;  // deliberate: never wrapped
                EXPECT_GT(*std::max_element(phases, phases + pitch->half_size), 1e4f);
            }
        }
    }
}

TEST(Pitch, ScalesThatAreNoneAreClampedAndRateZeroPassesThrough) {
    const auto noise = noise_s16(16384, 31);
    for (const float scale : {0.0f, -0.5f, -INFINITY, NAN, 2049.0f}) {
        Pitch pitch(48000, scale);
        EXPECT_EQ(pitch->scale, scale > 2048.0f ? 2048.0f : 0.0f);
        EXPECT_EQ(rms(pitch.run(noise)) > 0.0, scale > 2048.0f) << scale;
    }
    EXPECT_EQ(Pitch(0, 0.78f).run(noise), noise);
    EXPECT_EQ(Pitch(-48000, 0.78f).run(noise), Pitch(48000, 0.78f).run(noise));
}

}  // namespace
