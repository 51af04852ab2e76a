#include "spectral/vocal.h"

#include <gtest/gtest.h>
#include <speex/speex_resampler.h>

#include <climits>

#include "dsp/cubic_interp.h"
#include "tests/spectral/effects.h"

namespace {

using namespace krel_test;
using Values = std::vector<double>;

/// Curve 1..5 in dB at a frame's bins, 0 dB for every other number. Its last cubic would reach thousands of dB: above
/// 48 kHz the last gain is held instead.
std::vector<float> curve_db(int eq, int rate, int size) {
    std::vector<float> at(static_cast<size_t>(size) / 2);
    if (eq < 1 || eq > 5) return at;
    struct {
        std::vector<float> hz, gain_db;
    } curves[] = {
            {{0, 300, 600, 800, 1000, 1250, 1800, 2800, 3900, 4600, 6200},
             {-6, 6, -3, -3, 3, -6, 15, -15, 12, 9, 0}},
            {{0, 250, 500, 750, 1000, 1500, 2250, 3000, 4000, 6000},
             {-4, 6, 0, -12, 9, 0, -12, 6, 9, -6}},
            {{0, 250, 500, 750, 1000, 1500, 2250, 3000, 4000, 6000},
             {-4, 3, 0, -12, 9, 0, -12, 6, 9, -6}},
            {{0, 80, 250, 1000, 2000, 4000, 8000}, {0, 12, 0, -12, 0, 12, -6}},
            {{0, 80, 220, 660, 1000, 2000, 3000, 5000, 8000}, {-15, -12, -4, 12, 0, -6, 0, 9, -3}},
    };
    auto& [hz, gain_db] = curves[eq - 1];
    for (size_t k = 0; k < at.size(); ++k) {
        at[k] = static_cast<float>(rate) * static_cast<float>(k) / static_cast<float>(size);
        if (rate > 48000) at[k] = std::min(at[k], hz.back());
    }
    void* interp = cubicinterp_init(hz.data(), gain_db.data(), static_cast<int>(hz.size()));
    cubicinterp_process(interp, at.data(), at.data(), size / 2);
    cubicinterp_deinit(interp);
    return at;
}

/// Root mean square along the bins, times 256, ten bins earlier than the filter gives it.
Values smoothed(const Values& magnitude) {
    iir_coeff_gen_t lp;
    iir_lpf_init_coeffs(&lp, 100, 8000);
    Values envelope;
    double x1 = 0.0, x2 = 0.0, y1 = 0.0, y2 = 0.0;
    for (const double m : magnitude) {
        const double x = m * m;
        const double y = lp.gain * (x + lp.b1 * x1 + x2) - lp.a1 * y1 - lp.a2 * y2;
        x2 = x1, x1 = x, y2 = y1, y1 = y;
        envelope.push_back(256.0 * std::sqrt(std::fabs(y)));
    }
    envelope.erase(envelope.begin(), envelope.begin() + 10);
    envelope.resize(magnitude.size());
    return envelope;
}

/// Resampled by a resampler that has seen nothing else, as 16-bit integers.
Samples squeezed(const Values& envelope, float ratio) {
    Samples in;
    for (const double e : envelope) in.push_back(static_cast<int16_t>(std::min(e, 32767.0)));
    auto in_len = static_cast<uint32_t>(in.size());
    auto out_len = static_cast<uint32_t>(ratio * static_cast<float>(in.size()));
    Samples out(out_len);
    auto* resampler =
            speex_resampler_init(1, 8000, static_cast<uint32_t>(ratio * 8000.0f), 5, nullptr);
    speex_resampler_skip_zeros(resampler);
    speex_resampler_process_int(resampler, 0, in.data(), &in_len, out.data(), &out_len);
    speex_resampler_destroy(resampler);
    out.resize(out_len);
    return out;
}

Values shifted_magnitudes(const Values& magnitude, float ratio) {
    const auto envelope = smoothed(magnitude);
    const auto target = squeezed(envelope, ratio);
    const size_t top = target.size();
    const size_t fade_from = 7 * top / 8;
    Values out;
    for (size_t k = 0; k < magnitude.size(); ++k) {
        const double gain = k < top ? std::clamp(target[k] / envelope[k], 1.0 / 32.0, 32.0) : 0.5;
        double g = 1.0;
        if (k > fade_from && k <= top)
            g = static_cast<double>(top + 1 - k) / static_cast<double>(top - fade_from);
        out.push_back(magnitude[k] * (g * gain + (1.0 - g) * 0.5));
    }
    return out;
}

TEST(Vocal, FollowsTheDoublePrecisionModel) {
    struct {
        int rate;
        float ratio;
        int eq;
        double voice, tone;
    } const rows[] = {
            {16000, 0.5605381f, 2, 6000.0, 0.0},
            {16000, 0.5f, 1, 32000.0, 0.0},      // loud: the envelope saturates
            {16000, 0.625f, 0, 300.0, 20000.0},  // one tone: the gain meets both its limits
            {16000, 0.95f, 3, 6000.0, 0.0},
            {48000, 0.625f, 2, 6000.0, 0.0},
            {31999, 2.0f, 4, 6000.0, 0.0},
            {8000, 1.0f, 5, 6000.0, 0.0},
            {96000, 1.0f, 2, 6000.0, 0.0},
            {32000, NAN, INT_MAX, 6000.0, 0.0}};  // neither a ratio nor a curve: unchanged
    for (const auto& row : rows) {
        Vocal vocal(row.rate, row.ratio, row.eq);
        const int size = row.rate < 32000 ? 1024 : 2048;
        ASSERT_EQ(vocal->fft_size, size);
        const int hop = size / 4;
        const auto half = static_cast<size_t>(size / 2);
        auto in = voice_s16(5 * hop, row.rate, 150.0, 150.0, row.voice);
        const auto tone = sine_s16(5 * hop, row.rate / 8.0, row.rate, row.tone);
        const auto hiss = noise_s16(5 * hop, 1, 300);
        for (size_t i = 0; i < in.size(); ++i)
            in[i] = static_cast<int16_t>(in[i] + hiss[i] + tone[i]);
        const auto eq_db = curve_db(row.eq, row.rate, size);
        const auto change = [&](Spectrum& x) {
            Values y;
            for (size_t k = 0; k < half; ++k) y.push_back(2.0 * std::abs(x[k]));
            if (row.ratio < 1.0f) y = shifted_magnitudes(y, row.ratio);
            for (size_t k = 0; k < half; ++k)
                x[k] = std::polar(y[k] * std::pow(10.0, eq_db[k] / 20.0), std::arg(x[k]));
        };
        // An envelope that is not truncated to whole numbers, or not limited, misses this by far.
        EXPECT_GT(snr_db(vocal, in, change), 70.0) << row.rate << ' ' << row.ratio;
    }
}

/// Amplitude of the partial at hz in the second half of x.
double partial(const Samples& x, double hz, int rate) {
    const size_t n = x.size() / 2;
    std::complex<double> sum;
    for (size_t i = 0; i < n; ++i) {
        const double turn = 2.0 * kPi * static_cast<double>(i);
        const double hann = 1.0 - std::cos(turn / static_cast<double>(n));
        sum += hann * std::polar(double{1} * x[n + i], turn * hz / rate);
    }
    return 2.0 * std::abs(sum) / static_cast<double>(n);
}

TEST(Vocal, FormantsMoveDownByTheRatioWhileHarmonicsStay) {
    for (const int rate : {16000, 48000}) {
        const double f0 = rate / 160.0;
        const double formant = 24.0 * f0;
        Samples in;
        for (int i = 0; i < rate; ++i) {
            double x = 0.0;
            for (double hz = f0; hz < 2.0 * formant; hz += f0)
                x += std::sin(2.0 * kPi * hz * i / rate) /
                     (1.0 + std::pow((hz - formant) / f0 / 2.5, 2));
            in.push_back(static_cast<int16_t>(1000.0 * x));
        }
        for (const float ratio : {0.5605381f, 0.625f, 0.5f}) {
            const auto out = Vocal(rate, ratio, 0).run(in);
            double loudest = 0.0, at = 0.0;
            for (double hz = f0; hz <= formant; hz += f0) {
                const double level = partial(out, hz, rate);
                EXPECT_LT(partial(out, hz + 0.5 * f0, rate), 0.01 * level + 0.1) << hz;
                if (level > loudest) at = hz;
                loudest = std::max(loudest, level);
            }
            EXPECT_NEAR(at, ratio * formant, 1.5 * f0) << rate;
            EXPECT_LT(partial(out, formant, rate), 0.3 * loudest) << "still at its old place";
        }
    }
}

TEST(Vocal, SilenceAfterLoudSpeechIsSilenceAndSpeechAfterItIsUnharmed) {
    const auto speech = noise_s16(24000, 7, 9000);
    const auto piece = [](const Samples& x, int first_frame, int frames) {
        return Samples(x.begin() + first_frame * 2048, x.begin() + (first_frame + frames) * 2048);
    };
    const Samples silence(2048);
    for (const float ratio : {0.5f, 1.0f}) {
        // A whole number of frames before the second speech, so that its frames fall where a fresh instance's do.
        auto in = voice_s16(2 * 2048, 48000, 110.0, 160.0, 32000.0);
        in.resize(5 * 2048);
        in.insert(in.end(), speech.begin(), speech.end());
        const auto out = Vocal(48000, ratio, 1).run(in);
        const auto fresh = Vocal(48000, ratio, 1).run(speech);
        EXPECT_EQ(piece(out, 4, 1), silence);
        EXPECT_EQ(piece(out, 6, 9), piece(fresh, 1, 9));
        EXPECT_GT(rms(piece(fresh, 1, 9)), 100.0);
        // Deliberate: a silent frame below ratio 1 is not a number, so what rings ahead of an onset goes with it.
        EXPECT_NE(piece(fresh, 0, 1), silence);
        EXPECT_EQ(piece(out, 5, 1) == silence, ratio < 1.0f);
    }
}

TEST(Vocal, RatiosFromTwoFifthsToTwoAreTaken) {
    for (const float ratio : {0.39f, 0.4f, 2.0f, 2.01f, -INFINITY}) {
        vocal_ctx_t ctx{};
        const bool taken = ratio == 0.4f || ratio == 2.0f;
        EXPECT_EQ(vocal_init(&ctx, 48000, ratio, -1), taken ? 0 : -1);
        EXPECT_EQ(ctx.envelope_delay, taken ? 20 : 0);
        vocal_deinit(&ctx);
    }
}

}  // namespace
