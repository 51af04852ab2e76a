// SPDX-License-Identifier: Apache-2.0
// An effect library that copies its input, writes down every call to $FAKE_EFFECT_LOG, and
// misbehaves as $FAKE_EFFECT_FAULT says.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#include <hardware/audio_effect.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <threads.h>

#include "effect/interface.h"

static int fault_is(const char* name) {
    const char* fault = getenv("FAKE_EFFECT_FAULT");
    return fault != NULL && strcmp(fault, name) == 0;
}

#define NOTE(...)                                            \
    do {                                                     \
        const char* path = getenv("FAKE_EFFECT_LOG");        \
        FILE* log = path == NULL ? NULL : fopen(path, "ab"); \
        if (log != NULL) {                                   \
            fprintf(log, __VA_ARGS__);                       \
            fputc('\n', log);                                \
            fclose(log);                                     \
        }                                                    \
    } while (0)

static const effect_uuid_t kUuid = KREL_VCP_UUID;

static effect_config_t g_config;
static int g_enabled;

static int32_t process(effect_handle_t self, audio_buffer_t* in, audio_buffer_t* out) {
    NOTE("process %zu %s%s", in->frameCount, in->raw == out->raw ? "in place" : "apart",
         in->frameCount == out->frameCount ? "" : " of other length");
    if (fault_is("block")) return -EINVAL;
    if (fault_is("slow")) thrd_sleep(&(struct timespec){.tv_nsec = 20000000}, NULL);
    const size_t samples = 2 * in->frameCount;
    if (g_config.outputCfg.accessMode != EFFECT_BUFFER_ACCESS_ACCUMULATE) {
        memmove(out->raw, in->raw, samples * audio_bytes_per_sample(g_config.inputCfg.format));
    } else if (g_config.inputCfg.format == AUDIO_FORMAT_PCM_16_BIT && in->raw != out->raw) {
        for (size_t i = 0; i < samples; ++i) out->s16[i] = (int16_t)(out->s16[i] + in->s16[i]);
    }
    return g_enabled || fault_is("endless") ? 0 : -ENODATA;
}

static void note_config(const char* side, const buffer_config_t* c) {
    NOTE("  %s rate %u, channels %u, format %u, access %u, mask %u, buffer %zu %d", side,
         c->samplingRate, c->channels, c->format, c->accessMode, c->mask, c->buffer.frameCount,
         c->buffer.raw != NULL);
}

static int32_t command(effect_handle_t self, uint32_t code, uint32_t size, void* data,
                       uint32_t* reply_size, void* reply) {
    NOTE("command %u, size %u, reply %u", code, size, *reply_size);
    if (reply != NULL) *(int32_t*)reply = 0;
    if (code == EFFECT_CMD_INIT && fault_is("init")) return -EINVAL;
    if (code == EFFECT_CMD_ENABLE || code == EFFECT_CMD_DISABLE)
        g_enabled = code == EFFECT_CMD_ENABLE;
    if (code == EFFECT_CMD_SET_CONFIG) {
        memcpy(&g_config, data, sizeof(g_config));
        note_config("in", &g_config.inputCfg);
        note_config("out", &g_config.outputCfg);
        if (fault_is("config")) *(int32_t*)reply = -EINVAL;
    }
    if (code == EFFECT_CMD_SET_PARAM) {
        int32_t words[5];
        memcpy(words, data, sizeof(words));
        NOTE("  sizes %d %d, parameter %d = %d", words[1], words[2], words[3], words[4]);
    }
    return 0;
}

static int32_t fill(const effect_uuid_t* uuid, effect_descriptor_t* descriptor) {
    NOTE("library descriptor");
    if (memcmp(uuid, &kUuid, sizeof(kUuid)) != 0 || fault_is("uuid")) return -EINVAL;
    descriptor->uuid = kUuid;
    descriptor->apiVersion = fault_is("api") ? 0x00030000 : 0x00020007;
    return 0;
}

static int32_t instance_descriptor(effect_handle_t self, effect_descriptor_t* descriptor) {
    NOTE("instance descriptor, %s", descriptor->apiVersion == 0 ? "zeroed" : "not zeroed");
    return 0;
}

static struct effect_interface_s g_interface = {process, command, instance_descriptor, NULL};
static struct effect_interface_s* g_instance = &g_interface;

static int32_t create(const effect_uuid_t* uuid, int32_t session, int32_t io, effect_handle_t* h) {
    NOTE("create");
    *h = &g_instance;
    return memcmp(uuid, &kUuid, sizeof(kUuid)) != 0 || fault_is("create") ? -ENOENT : 0;
}

static int32_t release(effect_handle_t handle) {
    NOTE("release%s", handle == &g_instance ? "" : " of a stranger");
    return 0;
}

__attribute__((visibility("default")))
audio_effect_library_t AELI = {AUDIO_EFFECT_LIBRARY_TAG,
                               0x00030005,  // the minor half does not matter
                               "fake",
                               "tests",
                               create,
                               release,
                               fill};

__attribute__((constructor)) static void corrupt(void) {
    if (fault_is("tag")) AELI.tag = 0x544C4541;
    if (fault_is("version")) AELI.version = 0x00020000;
}

__attribute__((destructor)) static void unload(void) { NOTE("unload"); }
