#include "spectral/vocoder.h"

#include <gtest/gtest.h>

#include "tests/spectral/effects.h"

namespace {

using namespace krel_test;

TEST(Vocoder, FollowsTheDoublePrecisionModelUnderTheBuiltInOrASilentCarrier) {
    const std::vector<float> silence(480 + 2048);
    for (const auto& [rate, carrier] :
         {std::pair(8000, +krel::kCarrier), {48000, krel::kCarrier}, {48000, silence.data()}}) {
        Vocoder vocoder(rate, carrier);
        const int size = rate < 32000 ? 1024 : 2048;
        ASSERT_EQ(vocoder->fft_size, size);
        Spectrum phases;
        for (int n = 0; n < size; ++n)
            phases.emplace_back(double{carrier[480 + n]} * double{vocoder->window[n]});
        phases = direct_dft(phases, -1);
        const auto change = [&](Spectrum& x) {
            for (size_t k = 0; k <= x.size() / 2; ++k)
                x[k] = std::polar(2.0 * std::abs(x[k]), std::arg(phases[k]));
        };
        EXPECT_GT(snr_db(vocoder, voice_s16(size * 2, rate), change), 90.0) << rate;
    }
}

TEST(Vocoder, WithoutACarrierAudioPassesThrough) {
    const float* none = nullptr;
    const auto noise = noise_s16(1000, 5);
    EXPECT_EQ(Vocoder(48000, none).run(noise), noise);
    vocoder_ctx_t ctx;
    EXPECT_EQ(vocoder_init(&ctx, 48000, none), -1);
}

}  // namespace
