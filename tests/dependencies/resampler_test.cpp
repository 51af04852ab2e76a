// What this library relies on in its resampler: the fixed-point build, which turns float samples into 16-bit integers.
#include <gtest/gtest.h>
#include <speex/speex_resampler.h>

#include <cmath>
#include <vector>

namespace {

std::vector<float> resample(const std::vector<float>& in) {
    int err = 0;
    SpeexResamplerState* state = speex_resampler_init(1, 8000, 5000, 5, &err);
    speex_resampler_skip_zeros(state);
    auto in_len = static_cast<spx_uint32_t>(in.size());
    std::vector<float> out(in.size());
    auto out_len = static_cast<spx_uint32_t>(out.size());
    speex_resampler_process_float(state, 0, in.data(), &in_len, out.data(), &out_len);
    speex_resampler_destroy(state);
    out.resize(out_len);
    return out;
}

std::vector<float> constant(float level) { return std::vector<float>(512, level); }

TEST(Resampler, FloatInputIsTruncatedToIntegersAndPinned) {
    EXPECT_EQ(resample(constant(0.4f)), resample(constant(0.0f)));
    EXPECT_EQ(resample(constant(0.9f)), resample(constant(0.0f)));
    EXPECT_EQ(resample(constant(-1.9f)), resample(constant(-1.0f)));
    EXPECT_EQ(resample(constant(100.99f)), resample(constant(100.0f)));
    EXPECT_NE(resample(constant(101.0f)), resample(constant(100.0f)));
    EXPECT_EQ(resample(constant(32766.5f)), resample(constant(1e9f)));
    EXPECT_NE(resample(constant(32766.0f)), resample(constant(1e9f)));
    EXPECT_EQ(resample(constant(-32767.5f)), resample(constant(-1e9f)));
}

TEST(Resampler, OutputIsIntegersAtTheWantedRate) {
    std::vector<float> ramp(512);
    for (size_t i = 0; i < ramp.size(); ++i) ramp[i] = 37.3f * static_cast<float>(i);
    const auto out = resample(ramp);
    EXPECT_NEAR(static_cast<double>(out.size()), 512 * 5 / 8.0, 40.0);
    for (const float y : out) ASSERT_EQ(y, std::trunc(y));
    EXPECT_NEAR(out[160], 37.3 * 160 * 8 / 5, 40.0);
}

}  // namespace
