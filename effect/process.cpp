// SPDX-License-Identifier: Apache-2.0
#include <audio_utils/format.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <iterator>

#include "base/fixed_point.h"
#include "base/log.h"
#include "effect/dump.h"
#include "effect/instance.h"
#include "wrapper/voice_changer.h"

namespace krel {
namespace {

// Deliberate: a block is two interleaved channels whatever the configured mask says.
constexpr size_t kChannels = 2;
constexpr size_t kWidestFrameBytes = kChannels * sizeof(int32_t);
constexpr size_t kMostFrames = SIZE_MAX / kWidestFrameBytes;

size_t sample_bytes(uint32_t format) {
    return audio_bytes_per_sample(static_cast<audio_format_t>(format));
}

/// Makes workBuffer fit `frames`. False when it cannot: there is no work buffer then.
bool fit_work_buffer(krel_vcp_context_t* ctx, size_t frames) {
    if (ctx->workBuffer != nullptr && frames == ctx->frameCount) return true;
    KREL_LOGD(kEffectTag, "numFrames change to %zu, dump %d", frames, ctx->dumpEnabled);
    ctx->frameCount = static_cast<uint32_t>(frames);
    // Sized for the widest internal format, so that no later configuration outgrows it.
    void* grown = frames <= UINT32_MAX && frames <= kMostFrames
                          ? realloc(ctx->workBuffer, frames * kWidestFrameBytes)
                          : nullptr;
    if (grown == nullptr) free(ctx->workBuffer);
    ctx->workBuffer = static_cast<uint8_t*>(grown);
    return grown != nullptr;
}

void read_input(const krel_vcp_context_t* ctx, void* work, const void* in, size_t samples) {
    if (sample_bytes(ctx->format) == 0) return;
    memcpy_by_audio_format(
            work, static_cast<audio_format_t>(ctx->format), in,
            ctx->convertFloat ? AUDIO_FORMAT_PCM_FLOAT : static_cast<audio_format_t>(ctx->format),
            samples);
}

void add_s16(int16_t* out, const int16_t* work, size_t samples) {
    for (size_t i = 0; i < samples; ++i) out[i] = sat_s16(int32_t{out[i]} + work[i]);
}
void add_s32(int32_t* out, const int32_t* work, size_t samples) {
    for (size_t i = 0; i < samples; ++i) out[i] = sat_s32(int64_t{out[i]} + work[i]);
}
void add_float(float* out, const int32_t* work, size_t samples) {
    for (size_t i = 0; i < samples; ++i) {
        const float sum = out[i] + static_cast<float>(work[i]) * 0x1p-31f;
        out[i] = sum > 1.0f ? 1.0f : sum < -1.0f ? -1.0f : sum;
    }
}

void write_output(const krel_vcp_context_t* ctx, void* out, const void* work, size_t samples,
                  bool accumulate) {
    if (!is_calculable(*ctx)) {
        memcpy(out, work, samples * sample_bytes(ctx->format));
    } else if (accumulate && ctx->convertFloat) {
        add_float(static_cast<float*>(out), static_cast<const int32_t*>(work), samples);
    } else if (accumulate && ctx->format == AUDIO_FORMAT_PCM_16_BIT) {
        add_s16(static_cast<int16_t*>(out), static_cast<const int16_t*>(work), samples);
    } else if (accumulate) {
        add_s32(static_cast<int32_t*>(out), static_cast<const int32_t*>(work), samples);
    } else {
        const auto format = static_cast<audio_format_t>(ctx->format);
        memcpy_by_audio_format(out, ctx->convertFloat ? AUDIO_FORMAT_PCM_FLOAT : format, work,
                               format, samples);
    }
}

/// What an inactive instance does, without a work buffer: a little at a time through the stack.
void pass_through(const krel_vcp_context_t* ctx, const uint8_t* in, uint8_t* out, size_t frames,
                  bool accumulate) {
    int32_t piece[256];
    const size_t bytes = sample_bytes(ctx->format);
    // Formats of no known size have nothing to carry, and no buffer can hold that many frames.
    if (bytes == 0 || frames > kMostFrames) return;
    for (size_t left = frames * kChannels; left > 0;) {
        const size_t samples = std::min(left, std::size(piece));
        read_input(ctx, piece, in, samples);
        write_output(ctx, out, piece, samples, accumulate);
        in += samples * bytes;
        out += samples * bytes;
        left -= samples;
    }
}

template <typename T>
void ramp(T* block, size_t frames, int32_t first_gain, int32_t gain_step) {
    int32_t gain = first_gain;
    for (size_t i = 0; i < frames; ++i) {
        block[kChannels * i] = mul_q13_sat(block[kChannels * i], gain);
        block[kChannels * i + 1] = mul_q13_sat(block[kChannels * i + 1], gain);
        gain += gain_step;
    }
}

void ramp_work(krel_vcp_context_t* ctx, int32_t first_gain, int32_t direction) {
    if (!is_calculable(*ctx)) return;
    const size_t frames = ctx->frameCount;
    // Deliberate: an integer step. Long blocks end short of the full ramp, beyond 8192 frames the
    // gain does not move.
    const int32_t step = direction * static_cast<int32_t>(kOneQ13 / std::max<size_t>(frames, 1));
    if (ctx->format == AUDIO_FORMAT_PCM_16_BIT) {
        ramp(reinterpret_cast<int16_t*>(ctx->workBuffer), frames, first_gain, step);
    } else {
        ramp(reinterpret_cast<int32_t*>(ctx->workBuffer), frames, first_gain, step);
    }
}

void silence_work(krel_vcp_context_t* ctx, size_t bytes) {
    if (is_calculable(*ctx)) memset(ctx->workBuffer, 0, bytes);
}

void fade_in(krel_vcp_context_t* ctx, size_t bytes) {
    if (ctx->fadeInCount == 0 || ctx->modeSwitchPending != 0) return;
    if (ctx->fadeInCount == 1) {
        ramp_work(ctx, 0, 1);
    } else {
        silence_work(ctx, bytes);
    }
    --ctx->fadeInCount;
}

/// The first call fades the old preset out, the second is silent and switches, the third hides the
/// new preset's start.
void fade_out(krel_vcp_context_t* ctx, size_t bytes) {
    if (ctx->fadeOutCount == 0) return;
    if (ctx->fadeOutCount == kFadeOutCalls) {
        ramp_work(ctx, kOneQ13, -1);
    } else {
        silence_work(ctx, bytes);
        if (ctx->modeSwitchPending == 1) {
            krel_voice_changer_set_mode(ctx->wrapper, ctx->mode);
            ctx->modeSwitchPending = 0;
        }
    }
    --ctx->fadeOutCount;
}

void change_voice(krel_vcp_context_t* ctx, size_t bytes) {
    dump(*ctx, DumpPoint::kInput, ctx->workBuffer, bytes);
    fade_in(ctx, bytes);
    if (is_calculable(*ctx)) krel_voice_changer_process(ctx->wrapper, ctx->workBuffer, bytes);
    fade_out(ctx, bytes);
    dump(*ctx, DumpPoint::kProcessed, ctx->workBuffer, bytes);
}

}  // namespace

int32_t process(effect_handle_t self, audio_buffer_t* in, audio_buffer_t* out) {
    auto* ctx = reinterpret_cast<krel_vcp_context_t*>(self);
    if (ctx == nullptr || in == nullptr || out == nullptr || in->raw == nullptr ||
        out->raw == nullptr || in->frameCount == 0 || in->frameCount != out->frameCount) {
        return -EINVAL;
    }
    const bool accumulate = ctx->config.outputCfg.accessMode == EFFECT_BUFFER_ACCESS_ACCUMULATE &&
                            out->raw != in->raw;
    const size_t frames = in->frameCount;
    if (fit_work_buffer(ctx, frames)) {
        const size_t samples = frames * kChannels;
        read_input(ctx, ctx->workBuffer, in->raw, samples);
        if (ctx->enabled) change_voice(ctx, samples * sample_bytes(ctx->format));
        write_output(ctx, out->raw, ctx->workBuffer, samples, accumulate);
        if (accumulate && ctx->convertFloat) {
            dump(*ctx, DumpPoint::kMixed, out->raw, samples * sizeof(float));
        }
    } else {
        pass_through(ctx, in->u8, out->u8, frames, accumulate);
    }
    return ctx->state == kActive ? 0 : -ENODATA;
}

}  // namespace krel
