// SPDX-License-Identifier: Apache-2.0
#include <stdlib.h>
#include <string.h>

#include "base/log.h"
#include "effect/effect_library.h"
#include "effect/instance.h"
#include "effect/interface.h"
#include "wrapper/voice_changer.h"

using namespace krel;

namespace {

constexpr char kName[] = "KREL VCP Library";
constexpr char kImplementor[] = "ZOLT Electronics Technology Corp., Ltd";

// Type and implementation share one uuid.
constexpr effect_uuid_t kUuid = KREL_VCP_UUID;

constexpr uint32_t kDefaultSampleRateHz = 48000;
constexpr uint32_t kDefaultFrameCount = 1200;
constexpr int32_t kDefaultPreset = 3;

bool is_ours(const effect_uuid_t* uuid) { return memcmp(uuid, &kUuid, sizeof kUuid) == 0; }

void fill_descriptor(effect_descriptor_t* descriptor) {
    *descriptor = {};  // the platform copies the texts with their padding
    descriptor->type = kUuid;
    descriptor->uuid = kUuid;
    descriptor->apiVersion = EFFECT_CONTROL_API_VERSION;
    descriptor->memoryUsage = 1;
    memcpy(descriptor->name, kName, sizeof kName);
    memcpy(descriptor->implementor, kImplementor, sizeof kImplementor);
}

int32_t get_descriptor(effect_handle_t, effect_descriptor_t* descriptor) {
    if (descriptor == nullptr) return -EINVAL;
    fill_descriptor(descriptor);
    return 0;
}

// The fourth slot, process_reverse, must exist and be null: the framework looks at it.
constexpr effect_interface_s kInterface = {process, command, get_descriptor, nullptr};

}  // namespace

const audio_effect_library_t AELI = {
        .tag = AUDIO_EFFECT_LIBRARY_TAG,
        .version = EFFECT_LIBRARY_API_VERSION,
        .name = kName,
        .implementor = kImplementor,
        .create_effect = EffectCreate,
        .release_effect = EffectRelease,
        .get_descriptor = EffectGetDescriptor,
};

int32_t EffectCreate(const effect_uuid_t* uuid, int32_t, int32_t, effect_handle_t* pHandle) {
    KREL_LOGD(kEffectTag, "EffectCreate");
    if (uuid == nullptr || pHandle == nullptr) return -EINVAL;
    if (!is_ours(uuid)) return -ENOENT;

    auto* ctx = static_cast<krel_vcp_context_t*>(malloc(sizeof(krel_vcp_context_t)));
    if (ctx == nullptr) return -ENOMEM;
    *ctx = {};
    ctx->itfe = &kInterface;
    ctx->state = kInactive;
    ctx->sampleRate = kDefaultSampleRateHz;
    ctx->frameCount = kDefaultFrameCount;
    ctx->format = AUDIO_FORMAT_PCM_16_BIT;
    ctx->formatType = KREL_FORMAT_S16;
    ctx->mode = kDefaultPreset;
    *pHandle = reinterpret_cast<effect_handle_t>(ctx);
    return 0;
}

int32_t EffectRelease(effect_handle_t handle) {
    KREL_LOGD(kEffectTag, "EffectRelease");
    if (handle == nullptr) return -EINVAL;
    auto* ctx = reinterpret_cast<krel_vcp_context_t*>(handle);
    ctx->state = kUninitialised;
    ctx->fadeInCount = 0;
    ctx->fadeOutCount = 0;
    ctx->modeSwitchPending = 0;
    ctx->enabled = false;
    free(ctx->workBuffer);
    ctx->workBuffer = nullptr;
    if (ctx->wrapper != nullptr) krel_voice_changer_deinit(ctx->wrapper);
    free(ctx);
    return 0;
}

int32_t EffectGetDescriptor(const effect_uuid_t* uuid, effect_descriptor_t* pDescriptor) {
    if (uuid == nullptr || pDescriptor == nullptr) {
        KREL_LOGW(kEffectTag, "EffectGetDescriptor() called with NULL pointer");
        return -EINVAL;
    }
    // Deliberate: -EINVAL here where EffectCreate answers -ENOENT.
    if (!is_ours(uuid)) return -EINVAL;
    fill_descriptor(pDescriptor);
    return 0;
}

int32_t EffectQueryNumberEffects(uint32_t* pNumEffects) {
    if (pNumEffects == nullptr) return -EINVAL;
    *pNumEffects = 1;
    return 0;
}

int32_t EffectQueryEffect(uint32_t index, effect_descriptor_t* pDescriptor) {
    if (index != 0 || pDescriptor == nullptr) return -EINVAL;
    fill_descriptor(pDescriptor);
    return 0;
}
