#include "spectral/vocoder.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/spectral/effects.h"
#include "tests/spectral/reference.h"
#include "tests/support/log_capture.h"
#include "tests/support/signals.h"

namespace {

using namespace krel_test;
using Vocoder = Effect<VocoderKind>;

const std::vector<float> kSilence(480 + 2048);

auto with_carrier(int rate, const float* carrier) {
    return [=](vocoder_ctx_t* ctx) { EXPECT_EQ(vocoder_init(ctx, rate, carrier), 0); };
}

TEST(Vocoder, FollowsTheDoublePrecisionModel) {
    for (const int rate : {16000, 48000}) {
        Vocoder vocoder(rate);
        const int size = vocoder->fft_size;
        Spectrum frame(static_cast<size_t>(size));
        const auto window = hann(size);
        for (size_t n = 0; n < frame.size(); ++n) frame[n] = krel::kCarrier[480 + n] * window[n];
        const Spectrum carrier = direct_dft(frame, -1);

        const auto voice = voice_s16(size * 2, rate);
        const auto expected = overlap_add(voice, size, [&](Spectrum& x) {
            for (size_t k = 0; k <= x.size() / 2; ++k) {
                x[k] = std::polar(2.0 * std::abs(x[k]), std::arg(carrier[k]));
            }
        });
        EXPECT_GT(snr_db(expected, vocoder.run_floats(voice)), 90.0) << rate;
    }
}

TEST(Vocoder, SilentCarrierMakesEveryFrameSymmetricAboutItsStart) {
    for (const int rate : {16000, 48000}) {
        Vocoder vocoder(with_carrier(rate, kSilence.data()));
        for (int k = 0; k <= vocoder->half_size; ++k) ASSERT_EQ(vocoder->carrier_phase[k], 0.0f);
        vocoder.run(noise_s16(4096, 4));
        for (int n = 1; n < vocoder->half_size; ++n) {
            ASSERT_NEAR(vocoder->fft_in[n].r, vocoder->fft_in[vocoder->fft_size - n].r, 2e-6);
        }
    }
}

TEST(Vocoder, TheBuiltInCarrierMakesACompactPulseInTheMiddleOfEitherFrame) {
    // A flat spectrum under the carrier's phases. Noise would spread it over the frame: 10 ms would hold a fifth or a
    // tenth of the energy at 48 kHz.
    for (const int rate : {16000, 48000}) {
        Vocoder vocoder(rate);
        const auto size = static_cast<size_t>(vocoder->fft_size);
        Spectrum flat(size);
        for (size_t k = 0; k < size / 2; ++k)
            flat[k] = std::polar(1.0, double{vocoder->carrier_phase[k]});
        const Spectrum pulse = direct_dft(flat, +1);
        double all = 0.0;
        double middle = 0.0;
        for (size_t n = 0; n < size; ++n) {
            const double energy = pulse[n].real() * pulse[n].real();
            all += energy;
            if (n > size / 2 - 240 && n < size / 2 + 240) middle += energy;
        }
        EXPECT_GT(middle / all, 0.75) << rate;
    }
}

TEST(Vocoder, SpeaksOnThePitchOfTheHopRate) {
    Vocoder vocoder(48000);
    const auto hop = static_cast<size_t>(vocoder->hop);
    const auto out = vocoder.run(sine_s16(48000, 700.0, 48000, 8000.0));
    for (size_t i = 8 * hop; i + hop < out.size(); ++i) ASSERT_NEAR(out[i], out[i + hop], 120) << i;
    EXPECT_GT(rms(out), 800.0);
}

TEST(Vocoder, OutputBeyondFullScaleWrapsAround) {
    // Noise has its energy in a thousand bins; phase 0 in all of them piles it up.
    Vocoder vocoder(48000);
    auto block = noise_s16(2048, 9);
    int beyond = 0;
    for (int pass = 0; pass < 8; ++pass) {
        auto out = block;
        vocoder_process(vocoder.get(), out.data(), out.data(), 2048);
        for (size_t i = 0; i < out.size(); ++i) {
            const float y = vocoder->out_block[i];
            beyond += std::fabs(y) > 1.0f ? 1 : 0;
            ASSERT_EQ(out[i], static_cast<int16_t>(static_cast<int32_t>(y * 32768.0f)));
        }
    }
    EXPECT_GT(beyond, 20);
}

TEST(Vocoder, RefusesANullCarrierAndStaysSafe) {
    vocoder_ctx_t ctx;
    std::memset(&ctx, 0xA5, sizeof ctx);
    EXPECT_EQ(vocoder_init(&ctx, 48000, nullptr), -1);
    EXPECT_EQ(vocoder_init(nullptr, 48000, kSilence.data()), -1);
    int16_t sample = 123;
    EXPECT_EQ(vocoder_process(&ctx, &sample, &sample, 1), 1);
    EXPECT_EQ(sample, 123);
    vocoder_deinit(&ctx);
}

TEST(Vocoder, ACarrierOfNoNumbersGivesSilenceNotACrash) {
    const std::vector<float> bad(480 + 2048, std::nanf(""));
    Vocoder vocoder(with_carrier(48000, bad.data()));
    const auto out = vocoder.run(noise_s16(8192, 2));
    EXPECT_EQ(rms(out), 0.0);
}

TEST(Vocoder, LogsItsLifecycle) {
    const LogCapture log;
    { const Vocoder low(31999); }
    { const Vocoder high(32000); }
    const std::vector<LogLine> expected = {{3, "_K_vcp_core", "vocoder_init: fftsize 1024"},
                                           {3, "_K_vcp_core", "vocoder_deinit"},
                                           {3, "_K_vcp_core", "vocoder_init: fftsize 2048"},
                                           {3, "_K_vcp_core", "vocoder_deinit"}};
    EXPECT_EQ(log.lines(), expected);
}

}  // namespace
