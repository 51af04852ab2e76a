#include "spectral/vocal.h"

#include <gtest/gtest.h>
#include <speex/speex_resampler.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <vector>

#include "dsp/cubic_interp.h"
#include "tests/spectral/effects.h"
#include "tests/spectral/reference.h"
#include "tests/support/alloc_gate.h"
#include "tests/support/log_capture.h"
#include "tests/support/signals.h"

namespace {

using namespace krel_test;
using Samples = std::vector<int16_t>;

struct Setting {
    float ratio;
    int eq;
};
// What the presets use.
constexpr Setting kPresets[] = {{0.5605381f, 2}, {0.625f, 0}, {0.5f, 1}, {1.0f, 4}, {1.0f, 5}};
constexpr double kPlainGain = 0.75;

class Vocal : public Effect<VocalKind> {
  public:
    Vocal(int rate, Setting setting)
        : Effect([=](vocal_ctx_t* ctx) {
              EXPECT_EQ(vocal_init(ctx, rate, setting.ratio, setting.eq), 0);
          }) {}
};

Samples operator+(Samples a, const Samples& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
Samples tail(const Samples& x, size_t from) {
    return {x.begin() + static_cast<ptrdiff_t>(from), x.end()};
}
bool all_zero(const Samples& x) {
    return std::ranges::all_of(x, [](int16_t s) { return s == 0; });
}
double db(double gain) { return 20.0 * std::log10(gain); }

/// Amplitude of the partial at hz in the second half of x.
double partial(const Samples& x, double hz, int rate) {
    const size_t n = x.size() / 2;
    double c = 0.0;
    double s = 0.0;
    double weight = 0.0;
    for (size_t i = 0; i < n; ++i) {
        const double turn = 2.0 * kPi * static_cast<double>(i);
        const double w = 0.5 - 0.5 * std::cos(turn / static_cast<double>(n));
        c += w * x[n + i] * std::cos(turn * hz / rate);
        s += w * x[n + i] * std::sin(turn * hz / rate);
        weight += w;
    }
    return 2.0 * std::hypot(c, s) / weight;
}

/// Gain in dB for a settled sine of the given frequency.
double gain_at(int rate, Setting setting, double hz) {
    const auto in = sine_s16(16384, hz, rate, 4000.0);
    return db(partial(Vocal(rate, setting).run(in), hz, rate) / partial(in, hz, rate));
}

/// out is in, three quarters as loud and `delay` later, once the first frames are over.
void expect_delayed(const Samples& in, const Samples& out, size_t delay) {
    for (size_t i = 2 * delay; i < out.size(); ++i) {
        ASSERT_NEAR(out[i], kPlainGain * in[i - delay], 1.5) << i;
    }
}

TEST(Vocal, UnchangedSpectrumComesBackOneFrameLateAtThreeQuarters) {
    for (const int rate : {8000, 31999, 32000, 48000, 96000}) {
        for (const float ratio : {1.0f, 2.0f, NAN}) {
            SCOPED_TRACE(testing::Message() << "rate " << rate << " ratio " << ratio);
            const auto in = sine_s16(10000, 1000.0, rate, 8000.0);
            expect_delayed(in, Vocal(rate, {ratio, 0}).run(in), rate < 32000 ? 1024 : 2048);
        }
    }
}

struct Breakpoints {
    std::vector<float> hz, gain_db;

    /// The curve at each breakpoint and at three places up to the next one.
    Breakpoints with_points_between() const {
        Breakpoints out;
        for (size_t i = 0; i < 4 * (hz.size() - 1); ++i) {
            const size_t j = i / 4;
            out.hz.push_back(hz[j] + 0.25f * static_cast<float>(i % 4) * (hz[j + 1] - hz[j]));
        }
        out.gain_db.resize(out.hz.size());
        Breakpoints knots = *this;
        void* interp = cubicinterp_init(knots.hz.data(), knots.gain_db.data(),
                                        static_cast<int>(hz.size()));
        cubicinterp_process(interp, out.hz.data(), out.gain_db.data(),
                            static_cast<int>(out.hz.size()));
        cubicinterp_deinit(interp);
        return out;
    }
};

TEST(Vocal, EqFollowsItsCurve) {
    const Breakpoints curves[] = {
            {{0, 300, 600, 800, 1000, 1250, 1800, 2800, 3900, 4600, 6200},
             {-6, 6, -3, -3, 3, -6, 15, -15, 12, 9, 0}},
            {{0, 250, 500, 750, 1000, 1500, 2250, 3000, 4000, 6000},
             {-4, 6, 0, -12, 9, 0, -12, 6, 9, -6}},
            {{0, 250, 500, 750, 1000, 1500, 2250, 3000, 4000, 6000},
             {-4, 3, 0, -12, 9, 0, -12, 6, 9, -6}},
            {{0, 80, 250, 1000, 2000, 4000, 8000}, {0, 12, 0, -12, 0, 12, -6}},
            {{0, 80, 220, 660, 1000, 2000, 3000, 5000, 8000}, {-15, -12, -4, 12, 0, -6, 0, 9, -3}},
    };
    for (int eq = 1; eq <= 5; ++eq) {
        Breakpoints knots = curves[eq - 1];
        Vocal vocal(16000, {1.0f, eq});
        void* interp = cubicinterp_init(knots.hz.data(), knots.gain_db.data(),
                                        static_cast<int>(knots.hz.size()));
        for (int k = 0; k < vocal->half_size; ++k) {
            float hz = 16000.0f * static_cast<float>(k) / 1024.0f;
            float gain_db = 0.0f;
            cubicinterp_process(interp, &hz, &gain_db, 1);
            ASSERT_FLOAT_EQ(vocal->eq_gain[k], static_cast<float>(std::pow(10.0, gain_db / 20.0)))
                    << "curve " << eq << " bin " << k;
        }
        cubicinterp_deinit(interp);

        const auto curve = curves[eq - 1].with_points_between();
        for (size_t i = 0; i < curve.hz.size(); ++i) {
            if (curve.hz[i] < 200.0f) continue;  // it bends within a few bins there
            EXPECT_NEAR(gain_at(16000, {1.0f, eq}, curve.hz[i]), curve.gain_db[i] + db(kPlainGain),
                        0.5)
                    << "curve " << eq << " at " << curve.hz[i] << " Hz";
        }
    }
}

/// Pulses at f0 through one resonance.
Samples vowel(int samples, int rate, double f0, double formant, double width) {
    const double r = std::exp(-kPi * width / rate);
    const double a1 = 2.0 * r * std::cos(2.0 * kPi * formant / rate);
    Samples out;
    double y1 = 0.0;
    double y2 = 0.0;
    double phase = 0.0;
    for (int i = 0; i < samples; ++i) {
        phase += f0 / rate;
        const double pulse = phase >= 1.0 ? 3000.0 : 0.0;
        phase -= std::floor(phase);
        const double y = pulse + a1 * y1 - r * r * y2;
        y2 = y1;
        y1 = y;
        out.push_back(static_cast<int16_t>(std::lround(y)));
    }
    return out;
}

struct Voice {
    int rate;
    double f0, formant, width;
};

/// The loudest harmonic up to the formant's old place; between harmonics there must be nothing.
double loudest_harmonic(const Samples& x, const Voice& voice) {
    double loudest = 0.0;
    double at = 0.0;
    const int harmonics = static_cast<int>(voice.formant / voice.f0);
    for (int h = 1; h <= harmonics; ++h) {
        const double level = partial(x, h * voice.f0, voice.rate);
        if (level > loudest) at = h * voice.f0;
        loudest = std::max(loudest, level);
        EXPECT_LT(partial(x, (h + 0.5) * voice.f0, voice.rate), 0.01 * level + 0.1) << h;
    }
    EXPECT_LT(partial(x, harmonics * voice.f0, voice.rate), 0.3 * loudest)
            << "still at its old place";
    return at;
}

TEST(Vocal, FormantsMoveDownByTheRatioWhileHarmonicsStay) {
    for (const Voice& voice :
         {Voice{16000, 100.0, 2400.0, 500.0}, Voice{48000, 200.0, 8000.0, 1500.0}}) {
        const auto in = vowel(2 * voice.rate, voice.rate, voice.f0, voice.formant, voice.width);
        for (const float ratio : {0.5605381f, 0.625f, 0.5f}) {
            SCOPED_TRACE(testing::Message() << voice.rate << " Hz, ratio " << ratio);
            const auto out = Vocal(voice.rate, {ratio, 0}).run(in);
            EXPECT_NEAR(loudest_harmonic(out, voice), ratio * voice.formant, 1.5 * voice.f0);
        }
    }
}

/// Root mean square along the bins, times 256, ten bins earlier than the filter gives it.
std::vector<double> smoothed(const std::vector<double>& magnitude) {
    iir_coeff_gen_t lp;
    iir_lpf_init_coeffs(&lp, 100, 8000);
    std::vector<double> envelope;
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
Samples squeezed(const std::vector<double>& envelope, float ratio) {
    Samples in;
    for (const double e : envelope) in.push_back(static_cast<int16_t>(std::min(e, 32767.0)));
    auto in_len = static_cast<uint32_t>(in.size());
    auto out_len = static_cast<uint32_t>(ratio * static_cast<float>(in.size()));
    Samples out(out_len);
    int error = 0;
    auto* resampler =
            speex_resampler_init(1, 8000, static_cast<uint32_t>(ratio * 8000.0f), 5, &error);
    speex_resampler_skip_zeros(resampler);
    speex_resampler_process_int(resampler, 0, in.data(), &in_len, out.data(), &out_len);
    speex_resampler_destroy(resampler);
    out.resize(out_len);
    return out;
}

std::vector<double> shifted_magnitudes(const std::vector<double>& magnitude, float ratio) {
    const auto envelope = smoothed(magnitude);
    const auto target = squeezed(envelope, ratio);
    const size_t top = target.size();
    const size_t fade_from = 7 * top / 8;
    std::vector<double> out;
    for (size_t k = 0; k < magnitude.size(); ++k) {
        const double half = 0.5 * magnitude[k];
        const double gain = k < top ? std::clamp(target[k] / envelope[k], 1.0 / 32.0, 32.0) : 0.5;
        double y = magnitude[k] * gain;
        if (k > fade_from && k <= top) {
            const auto left = static_cast<double>(top + 1 - k);
            const double g = left / static_cast<double>(top - fade_from);
            y = g * y + (1.0 - g) * half;
        }
        out.push_back(y);
    }
    return out;
}

TEST(Vocal, FormantShiftFollowsTheDoublePrecisionModel) {
    struct {
        int rate;
        float ratio;
        double peak;
    } const rows[] = {{16000, 0.5605381f, 6000.0},
                      {16000, 0.5f, 32000.0},  // loud: the envelope saturates
                      {16000, 0.95f, 6000.0},
                      {48000, 0.625f, 6000.0}};
    for (const auto& row : rows) {
        Vocal vocal(row.rate, {row.ratio, 0});
        const auto half = static_cast<size_t>(vocal->half_size);
        auto in = voice_s16(4 * vocal->half_size, row.rate, 150.0, 150.0, row.peak);
        const auto hiss = noise_s16(4 * vocal->half_size, 1, 300);
        for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<int16_t>(in[i] + hiss[i]);
        const auto expected = overlap_add(in, vocal->fft_size, [&](Spectrum& x) {
            std::vector<double> magnitude;
            for (size_t k = 0; k < half; ++k) magnitude.push_back(2.0 * std::abs(x[k]));
            const auto y = shifted_magnitudes(magnitude, row.ratio);
            for (size_t k = 0; k < half; ++k) x[k] = std::polar(y[k], std::arg(x[k]));
        });
        // An envelope that is not truncated to whole numbers, or not limited, misses this by far.
        EXPECT_GT(snr_db(expected, vocal.run_floats(in)), 70.0) << row.rate << ' ' << row.ratio;
    }
}

TEST(Vocal, SilenceAfterLoudSpeechIsSilenceAndSpeechAfterItIsUnharmed) {
    const auto loud = voice_s16(24000, 48000, 110.0, 160.0, 32000.0);
    const auto speech = noise_s16(24000, 7, 9000);
    for (const Setting setting : kPresets) {
        SCOPED_TRACE(setting.ratio);
        Vocal vocal(48000, setting);
        const auto frame = static_cast<size_t>(vocal->fft_size);
        // A whole number of frames before the second speech, so that its frames fall where a fresh instance's do.
        const size_t begins = 20 * frame;
        Samples in = loud;
        in.resize(begins);
        const auto after = tail(vocal.run(in + speech), loud.size() + 2 * frame);
        const auto second = tail(after, begins - loud.size() - 2 * frame);
        const auto fresh = Vocal(48000, setting).run(speech);
        EXPECT_TRUE(all_zero({after.begin(), after.end() - static_cast<ptrdiff_t>(second.size())}));
        EXPECT_EQ(tail(second, frame), tail(fresh, frame));
        EXPECT_GT(rms(tail(fresh, frame)), 100.0);
        // Deliberate: a silent frame below ratio 1 is not a number, so what rings ahead of an onset goes with it.
        if (setting.ratio < 1.0f) {
            EXPECT_TRUE(all_zero({second.begin(), second.begin() + vocal->fft_size}));
            EXPECT_FALSE(all_zero({fresh.begin(), fresh.begin() + vocal->fft_size}));
        }
    }
}

TEST(Vocal, FullScaleSaturates) {
    const auto in = sine_s16(20000, 1800.0, 48000, 32767.0);
    const auto out = tail(Vocal(48000, {1.0f, 1}).run(in), 8192);  // 15 dB there
    EXPECT_EQ(*std::ranges::max_element(out), 32767);
    EXPECT_EQ(*std::ranges::min_element(out), -32768);
}

TEST(Vocal, RatiosFromTwoFifthsToTwoAreTaken) {
    LogCapture log;
    vocal_ctx_t ctx;
    std::memset(&ctx, 0xAB, sizeof ctx);
    for (const float ratio : {0.39f, 2.01f, -1.0f, 0.0f, -INFINITY, INFINITY}) {
        EXPECT_EQ(vocal_init(&ctx, 48000, ratio, 1), -1);
        const auto* bytes = reinterpret_cast<const unsigned char*>(&ctx);
        EXPECT_TRUE(std::all_of(bytes, bytes + sizeof ctx, [](int b) { return b == 0xAB; }));
    }
    EXPECT_EQ(log.count("fratio can't support 0.390000"), 1);
    EXPECT_EQ(log.count("fratio can't support 2.010000"), 1);
    for (const auto& line : log.lines()) {
        EXPECT_EQ(line.priority, 6);
        EXPECT_EQ(line.tag, "_K_vcp_core");
    }
    for (const float ratio : {0.4f, 2.0f}) {
        log.clear();
        ASSERT_EQ(vocal_init(&ctx, 48000, ratio, 3), 0);
        EXPECT_EQ(ctx.formant_ratio, ratio);
        EXPECT_EQ(ctx.envelope_delay, 20);
        vocal_deinit(&ctx);
        const std::string text = ratio < 1.0f ? "vocal_init formant ratio 0.400000, fdeq_mode 3"
                                              : "vocal_init formant ratio 2.000000, fdeq_mode 3";
        EXPECT_EQ(log.lines(), (std::vector<LogLine>{{3, "_K_vcp_core", text},
                                                     {3, "_K_vcp_core", "vocal_deinit"}}));
    }
    EXPECT_EQ(vocal_init(nullptr, 48000, 1.0f, 0), -1);
}

TEST(Vocal, EqNumbersWithoutACurveMeanNoEq) {
    const auto voice = voice_s16(8192, 16000);
    const auto plain = Vocal(16000, {0.625f, 0}).run(voice);
    for (const int eq : {6, -1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(Vocal(16000, {0.625f, eq}).run(voice), plain) << eq;
    }
    EXPECT_NE(Vocal(16000, {0.625f, 5}).run(voice), plain);
}

TEST(Vocal, EqHoldsItsEndGainsOutsideTheUsualRates) {
    // Curve 2 ends with -6 dB at 6 kHz and would reach thousands of dB; at 48 kHz its last cubic still falls steeply.
    EXPECT_NEAR(gain_at(96000, {1.0f, 2}, 20000.0), -6.0 + db(kPlainGain), 0.1);
    EXPECT_NEAR(gain_at(192000, {1.0f, 2}, 90000.0), -6.0 + db(kPlainGain), 0.1);
    EXPECT_LT(gain_at(48000, {1.0f, 2}, 8000.0), -30.0);
    Vocal negative(-48000, {1.0f, 1});
    Vocal zero(0, {1.0f, 1});
    for (int k = 0; k < negative->half_size; ++k) {
        ASSERT_NEAR(db(negative->eq_gain[k]), -6.0, 1e-4);
        ASSERT_NEAR(db(zero->eq_gain[k]), -6.0, 1e-4);
    }
}

TEST(Vocal, HostileRatesNeverCrash) {
    const auto noise = noise_s16(9000, 3);
    for (const int rate : {0, -1, 1, 399, 192000, INT_MAX, INT_MIN}) {
        for (const Setting setting : kPresets) {
            Vocal vocal(rate, setting);
            EXPECT_EQ(vocal->fft_size, rate < 32000 ? 1024 : 2048);
            EXPECT_FALSE(all_zero(vocal.run(noise))) << rate << ' ' << setting.eq;
        }
    }
}

TEST(Vocal, WhenMemoryIsShortAudioPassesThrough) {
    auto in = noise_s16(3000, 8);
    Samples out(in.size());
    for (const Setting setting : kPresets) {
        int short_of_memory = 0;
        const int injected = fail_each_allocation([&] {
            vocal_ctx_t ctx;
            std::memset(&ctx, 0xAB, sizeof ctx);
            EXPECT_EQ(vocal_init(&ctx, 48000, setting.ratio, setting.eq), 0);
            EXPECT_EQ(vocal_process(&ctx, in.data(), out.data(), 3000), 3000);
            if (out == in) ++short_of_memory;
            vocal_deinit(&ctx);
            vocal_deinit(&ctx);
        });
        EXPECT_GT(injected, 17) << setting.eq;
        EXPECT_EQ(short_of_memory, injected) << setting.eq;
    }
}

}  // namespace
