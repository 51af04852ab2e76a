// SPDX-License-Identifier: Apache-2.0
#include "fuzz/effect_calls.h"

#include <errno.h>
#include <math.h>
#include <string.h>

#include <algorithm>

#include "core/presets.h"
#include "fuzz/signal.h"

namespace krel_fuzz {
namespace {

constexpr size_t kChannels = 2;

size_t bytes_per_sample(const krel_vcp_context_t& ctx) {
    return audio_bytes_per_sample(static_cast<audio_format_t>(ctx.format));
}

/// Fills a block with a drawn signal in the framework's format.
template <typename T>
void fill_as(std::span<uint8_t> block, Draw& d) {
    auto samples = signal_buffer<T>(d, block.size() / sizeof(T));
    memcpy(block.data(), samples.data(), block.size());
}
void fill_block(std::span<uint8_t> block, const krel_vcp_context_t& ctx, Draw& d) {
    if (ctx.convertFloat) return fill_as<float>(block, d);
    if (bytes_per_sample(ctx) == 4) return fill_as<int32_t>(block, d);
    if (bytes_per_sample(ctx) == 2) return fill_as<int16_t>(block, d);
    fill_as<uint8_t>(block, d);
}

template <typename T>
T sample_at(const uint8_t* block, size_t i) {
    T sample;
    memcpy(&sample, block + i * sizeof(T), sizeof sample);
    return sample;
}

/// before: what the output held; in: what went in. `added`: the output was added to.
void check_output(const krel_vcp_context_t& ctx, std::span<const uint8_t> out,
                  const std::vector<uint8_t>& before, const std::vector<uint8_t>& in, bool added) {
    const size_t bytes = bytes_per_sample(ctx);
    for (size_t i = 0; ctx.convertFloat && i < out.size() / 4; ++i) {
        const bool nan_before = added && isnan(sample_at<float>(before.data(), i));
        require(nan_before || fabsf(sample_at<float>(out.data(), i)) <= 1.0f, "floats within +-1");
    }
    if (!krel::is_calculable(ctx))
        return require(std::ranges::equal(out, in), "other formats are copied");
    if (added || ctx.convertFloat) return;
    if (!ctx.enabled) return require(std::ranges::equal(out, in), "inactive instances copy");
    if (ctx.channels != 2 || ctx.wrapper == nullptr) return;
    for (size_t at = 0; at < out.size(); at += kChannels * bytes)
        require(memcmp(&out[at], &out[at + bytes], bytes) == 0, "both channels are equal");
}

}  // namespace

effect_config_t draw_config(Draw& d) {
    constexpr uint8_t kFormats[] = {AUDIO_FORMAT_PCM_16_BIT,        AUDIO_FORMAT_PCM_FLOAT,
                                    AUDIO_FORMAT_PCM_32_BIT,        AUDIO_FORMAT_PCM_8_24_BIT,
                                    AUDIO_FORMAT_PCM_16_BIT,        AUDIO_FORMAT_PCM_8_BIT,
                                    AUDIO_FORMAT_PCM_24_BIT_PACKED, AUDIO_FORMAT_DEFAULT};
    constexpr uint32_t kMasks[] = {AUDIO_CHANNEL_OUT_STEREO,
                                   AUDIO_CHANNEL_OUT_STEREO,
                                   AUDIO_CHANNEL_OUT_STEREO,
                                   AUDIO_CHANNEL_OUT_MONO,
                                   0x3F,
                                   0x80000003,
                                   0,
                                   0xBFFFFFFF,
                                   0x40000003};
    effect_config_t cfg;
    memset(&cfg, 0xA5, sizeof cfg);  // padding and unused fields are garbage in real life too
    buffer_config_t& in = cfg.inputCfg;
    in.samplingRate = d.rate();
    in.channels = d.one_in(16) ? d.any<uint32_t>() : d.pick(kMasks);
    in.format = d.one_in(16) ? d.any<uint8_t>() : d.pick(kFormats);
    in.accessMode = EFFECT_BUFFER_ACCESS_READ;
    cfg.outputCfg = in;
    cfg.outputCfg.accessMode =
            d.one_in(3) ? EFFECT_BUFFER_ACCESS_ACCUMULATE : EFFECT_BUFFER_ACCESS_WRITE;
    switch (d.range(0, 31)) {  // a little wrong
        case 31:
            cfg.outputCfg.channels = d.any<uint32_t>();
            break;
        case 30:
            cfg.outputCfg.samplingRate = d.rate();
            break;
        case 29:
            cfg.outputCfg.format = d.any<uint8_t>();
            break;
        case 28:
            (d.one_in(2) ? cfg.inputCfg : cfg.outputCfg).accessMode = d.any<uint8_t>();
            break;
        default:
            break;
    }
    return cfg;
}

int32_t draw_preset(Draw& d) { return d.hostile(KREL_VCP_PRESET_OFF, krel::kPresetCount - 1); }

int32_t send(effect_handle_t handle, uint32_t code, const void* data, uint32_t size) {
    std::vector<uint8_t> payload(size);
    if (size > 0) memcpy(payload.data(), data, size);
    int32_t status = 0;
    uint32_t reply_size = sizeof status;
    return (*handle)->command(handle, code, size, payload.data(), &reply_size, &status);
}

void run_block(effect_handle_t handle, Draw& d, size_t frames) {
    const krel_vcp_context_t& ctx = record_of(handle);
    const size_t bytes = frames * kChannels * bytes_per_sample(ctx);
    Buffer<uint8_t> in(bytes);
    Buffer<uint8_t> separate(bytes);
    fill_block(in.all(), ctx, d);
    const bool in_place = d.one_in(2);
    const bool added =
            !in_place && ctx.config.outputCfg.accessMode == EFFECT_BUFFER_ACCESS_ACCUMULATE;
    if (added) fill_block(separate.all(), ctx, d);
    const std::span<uint8_t> out = in_place ? in.all() : separate.all();
    const std::vector<uint8_t> in_before(in.all().begin(), in.all().end());
    const std::vector<uint8_t> out_before(out.begin(), out.end());

    audio_buffer_t in_buffer = {};
    audio_buffer_t out_buffer = {};
    in_buffer.frameCount = out_buffer.frameCount = frames;
    in_buffer.raw = in.data();
    out_buffer.raw = out.data();
    const int32_t result = (*handle)->process(handle, &in_buffer, &out_buffer);

    require(result == (ctx.state == krel::kActive ? 0 : -ENODATA), "the result tells the state");
    require(in_place || std::ranges::equal(in.all(), in_before), "the input stays as it was");
    check_output(ctx, out, out_before, in_before, added);
}

void run_refused_block(effect_handle_t handle, Draw& d) {
    uint8_t frame[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    const auto before = std::to_array(frame);
    audio_buffer_t in = {};
    audio_buffer_t out = {};
    in.raw = out.raw = frame;
    in.frameCount = out.frameCount = SIZE_MAX - d.any<uint8_t>();
    const int32_t fault = d.range(0, 6);
    if (fault == 1) in.frameCount = out.frameCount = 0;
    if (fault == 2) out.frameCount = 1;
    if (fault == 3) in.raw = nullptr;
    if (fault == 4) out.raw = nullptr;
    const int32_t result = (*handle)->process(
            fault == 0 ? nullptr : handle, fault == 5 ? nullptr : &in, fault == 6 ? nullptr : &out);
    require(result == -EINVAL, "unusable arguments are refused");
    require(std::ranges::equal(frame, before), "unusable blocks are not touched");

    // As many frames as no buffer holds: nothing is there to be processed.
    in.raw = out.raw = frame;
    in.frameCount = out.frameCount = SIZE_MAX - d.any<uint8_t>();
    (*handle)->process(handle, &in, &out);
    require(std::ranges::equal(frame, before), "impossible blocks are not touched");
}

}  // namespace krel_fuzz
