// SPDX-License-Identifier: Apache-2.0
#include <string.h>

#include "base/log.h"
#include "effect/dump.h"
#include "effect/instance.h"
#include "effect/interface.h"
#include "wrapper/voice_changer.h"

namespace krel {
namespace {

constexpr int32_t kFadeInCalls = 2;  // one silent block, one ramp

constexpr uint32_t kSetParamBytes = sizeof(krel_vcp_param_t);
constexpr uint32_t kGetParamBytes = offsetof(krel_vcp_param_t, value);
static_assert(kSetParamBytes == sizeof(effect_param_t) + 2 * sizeof(int32_t));

/// Payloads and replies may lie at any address: they are copied, never read through a cast pointer.
template <typename T>
T load(const void* from) {
    T value;
    memcpy(&value, from, sizeof value);
    return value;
}

struct reply_view {
    uint32_t* size;
    void* data;

    [[nodiscard]] bool holds(uint32_t bytes) const {
        return has_room(bytes) && load<uint32_t>(size) == bytes;
    }
    [[nodiscard]] bool has_room(uint32_t bytes) const {
        return size != nullptr && data != nullptr && load<uint32_t>(size) >= bytes;
    }
    void put(int32_t status) const {
        if (data != nullptr) memcpy(data, &status, sizeof status);
    }
};

int32_t format_type_of(uint32_t format) {
    switch (format) {
        case AUDIO_FORMAT_PCM_16_BIT:
            return KREL_FORMAT_S16;
        case AUDIO_FORMAT_PCM_8_24_BIT:
            return KREL_FORMAT_Q8_23;
        case AUDIO_FORMAT_PCM_32_BIT:
            return KREL_FORMAT_S32;
        default:
            return KREL_FORMAT_OTHER;
    }
}

/// Channels of an output mask. The positions are Android 10's on every platform version, whose own
/// helpers differ.
uint32_t channel_count(uint32_t mask) {
    constexpr uint32_t kPositions = 0x300FFFFF;
    constexpr uint32_t kIndices = 0x3FFFFFFF;
    const uint32_t representation = mask >> 30;
    if (representation != 0 && representation != 2) return 0;
    return static_cast<uint32_t>(
            __builtin_popcount(mask & (representation == 0 ? kPositions : kIndices)));
}

bool access_is_usable(const effect_config_t& cfg) {
    return cfg.inputCfg.accessMode == EFFECT_BUFFER_ACCESS_READ &&
           (cfg.outputCfg.accessMode == EFFECT_BUFFER_ACCESS_WRITE ||
            cfg.outputCfg.accessMode == EFFECT_BUFFER_ACCESS_ACCUMULATE);
}

/// Makes the voice changer anew from the stored configuration and preset, and reads the dump
/// property again. 0 or -EINVAL: there is none then.
int32_t rebuild_voice_changer(krel_vcp_context_t* ctx) {
    KREL_LOGD(kEffectTag, "init");
    if (ctx->wrapper != nullptr) {
        krel_voice_changer_deinit(ctx->wrapper);
        ctx->wrapper = nullptr;
    }
    ctx->wrapper = krel_voice_changer_init(ctx->channels, ctx->sampleRate, ctx->formatType, 0);
    if (ctx->wrapper == nullptr) {
        KREL_LOGW(kEffectTag, "init: no work context!");
        return -EINVAL;
    }
    krel_voice_changer_set_mode(ctx->wrapper, ctx->mode);
    ctx->dumpEnabled = read_dump_property();
    return 0;
}

/// Checks and stores a configuration, then rebuilds the voice changer. 0 or -EINVAL: a
/// configuration that is refused leaves everything as it was, one whose voice changer cannot be
/// built is stored and leaves none.
int32_t configure(krel_vcp_context_t* ctx, const effect_config_t* cfg) {
    const buffer_config_t& in = cfg->inputCfg;
    const buffer_config_t& out = cfg->outputCfg;
    KREL_LOGD(kEffectTag, "configure format:%d, channels:%d, samplingRate:%d", in.format,
              static_cast<int>(in.channels), static_cast<int>(in.samplingRate));
    if (in.channels != out.channels) {
        KREL_LOGW(kEffectTag, "configure: channels configure error");
        return -EINVAL;
    }
    if (!access_is_usable(*cfg)) {
        KREL_LOGW(kEffectTag, "configure: accessMode configure error");
        return -EINVAL;
    }
    if (in.format != out.format) {
        KREL_LOGW(kEffectTag, "configure: format configure error");
        return -EINVAL;
    }
    if (in.samplingRate != out.samplingRate || in.samplingRate != ctx->sampleRate) {
        KREL_LOGD(kEffectTag, "configure: samplingRate configure %d",
                  static_cast<int>(in.samplingRate));
        ctx->sampleRate = in.samplingRate;
    }
    ctx->convertFloat = in.format == AUDIO_FORMAT_PCM_FLOAT;
    ctx->format = ctx->convertFloat ? uint32_t{AUDIO_FORMAT_PCM_32_BIT} : in.format;
    ctx->formatType = format_type_of(ctx->format);
    ctx->channels = channel_count(in.channels);
    ctx->config = *cfg;
    if (ctx->convertFloat) {
        ctx->config.inputCfg.format = AUDIO_FORMAT_PCM_32_BIT;
        ctx->config.outputCfg.format = AUDIO_FORMAT_PCM_32_BIT;
    }
    return rebuild_voice_changer(ctx);
}

int32_t set_config(krel_vcp_context_t* ctx, uint32_t size, const void* data, reply_view reply) {
    if (data == nullptr || size != sizeof(effect_config_t) || !reply.holds(sizeof(int32_t)))
        return -EINVAL;
    const auto cfg = load<effect_config_t>(data);
    reply.put(configure(ctx, &cfg));
    return 0;
}

int32_t enable(krel_vcp_context_t* ctx, reply_view reply) {
    if (!reply.holds(sizeof(int32_t))) return -EINVAL;
    if (ctx->state != kInactive) return -ENOSYS;
    ctx->enabled = true;
    ctx->state = kActive;
    ctx->fadeInCount = kFadeInCalls;
    reply.put(0);
    return 0;
}

int32_t disable(krel_vcp_context_t* ctx, reply_view reply) {
    if (!reply.holds(sizeof(int32_t))) return -EINVAL;
    if (ctx->state != kActive) return -ENOSYS;
    ctx->enabled = false;
    ctx->state = kInactive;
    reply.put(0);
    return 0;
}

/// Notes a new preset; the process path hands it over between its fade-out and fade-in.
void choose_preset(krel_vcp_context_t* ctx, int32_t preset) {
    if (preset == ctx->mode) return;
    ctx->mode = preset;
    ctx->fadeInCount = kFadeInCalls;
    ctx->fadeOutCount = kFadeOutCalls;
    ctx->modeSwitchPending = 1;
    KREL_LOGD(kEffectTag, "set fx preset %d", preset);
}

int32_t set_param(krel_vcp_context_t* ctx, uint32_t size, const void* data, reply_view reply) {
    if (data == nullptr || size != kSetParamBytes || !reply.holds(sizeof(int32_t))) return -EINVAL;
    const auto param = load<krel_vcp_param_t>(data);
    const bool well_formed = param.psize == sizeof param.id && param.vsize == sizeof param.value;
    reply.put(well_formed ? 0 : -EINVAL);
    if (well_formed && param.id == KREL_VCP_PARAM_PRESET) choose_preset(ctx, param.value);
    // Whatever was set: an instance that is switched off stays off. Its state stays active.
    if (ctx->mode == KREL_VCP_PRESET_OFF) ctx->enabled = false;
    return 0;
}

int32_t get_param(const krel_vcp_context_t* ctx, uint32_t size, const void* data,
                  reply_view reply) {
    if (data == nullptr || size != kGetParamBytes || !reply.has_room(kSetParamBytes))
        return -EINVAL;
    krel_vcp_param_t param = {};
    memcpy(&param, data, kGetParamBytes);
    param.status = param.psize == sizeof param.id ? 0 : -EINVAL;
    uint32_t reply_bytes = kGetParamBytes;
    if (param.status == 0) {
        param.vsize = sizeof param.value;
        reply_bytes = kSetParamBytes;
        if (param.id == KREL_VCP_PARAM_PRESET)
            memcpy(static_cast<char*>(reply.data) + kGetParamBytes, &ctx->mode, sizeof ctx->mode);
    }
    memcpy(reply.data, &param, kGetParamBytes);
    memcpy(reply.size, &reply_bytes, sizeof reply_bytes);
    return 0;
}

int32_t set_sample_rate(krel_vcp_context_t* ctx, uint32_t size, const void* data,
                        reply_view reply) {
    if (data == nullptr || size != sizeof(uint32_t)) return -EINVAL;
    const auto rate = load<uint32_t>(data);
    KREL_LOGD(kEffectTag, "command: EFFECT_CMD_SET_SAMPLE_RATE: %d", static_cast<int>(rate));
    ctx->sampleRate = rate;
    if (ctx->wrapper == nullptr) return -EINVAL;
    rebuild_voice_changer(ctx);
    if (ctx->wrapper == nullptr) return -EINVAL;
    reply.put(0);
    return 0;
}

/// Settings that this effect is told of and does not use: one 32-bit word.
int32_t acknowledge_word(uint32_t size, const void* data, reply_view reply) {
    if (data == nullptr || size != sizeof(uint32_t)) return -EINVAL;
    reply.put(0);
    return 0;
}

}  // namespace

int32_t command(effect_handle_t self, uint32_t cmdCode, uint32_t cmdSize, void* pCmdData,
                uint32_t* replySize, void* pReplyData) {
    auto* ctx = reinterpret_cast<krel_vcp_context_t*>(self);
    if (ctx == nullptr || ctx->state == kUninitialised) return -EINVAL;
    const reply_view reply = {replySize, pReplyData};
    switch (cmdCode) {
        case EFFECT_CMD_INIT:
            reply.put(0);
            return 0;
        case EFFECT_CMD_SET_CONFIG:
            return set_config(ctx, cmdSize, pCmdData, reply);
        case EFFECT_CMD_ENABLE:
            return enable(ctx, reply);
        case EFFECT_CMD_DISABLE:
            return disable(ctx, reply);
        case EFFECT_CMD_SET_PARAM:
            return set_param(ctx, cmdSize, pCmdData, reply);
        case EFFECT_CMD_GET_PARAM:
            return get_param(ctx, cmdSize, pCmdData, reply);
        case EFFECT_CMD_SET_VOLUME:
        case EFFECT_CMD_SET_AUDIO_MODE:
            return acknowledge_word(cmdSize, pCmdData, reply);
        case EFFECT_CMD_SET_SAMPLE_RATE:
            return set_sample_rate(ctx, cmdSize, pCmdData, reply);
        // Reset, deferred parameters, device, and whatever else: nothing to do, nothing to say.
        default:
            return 0;
    }
}

}  // namespace krel
