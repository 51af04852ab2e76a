// SPDX-License-Identifier: Apache-2.0
// The records, commands and constants of Android's <system/audio_effect.h> that this library and
// its host program use, for builds outside an Android tree. Values and layouts are the published
// ones.
#ifndef KREL_PLATFORM_SYSTEM_AUDIO_EFFECT_H
#define KREL_PLATFORM_SYSTEM_AUDIO_EFFECT_H

#include <stdint.h>

#include "system/audio.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef audio_uuid_t effect_uuid_t;

#define EFFECT_STRING_LEN_MAX 64

typedef struct effect_descriptor_s {
    effect_uuid_t type;
    effect_uuid_t uuid;
    uint32_t apiVersion;
    uint32_t flags;
    uint16_t cpuLoad;
    uint16_t memoryUsage;
    char name[EFFECT_STRING_LEN_MAX];
    char implementor[EFFECT_STRING_LEN_MAX];
} effect_descriptor_t;

#define EFFECT_MAKE_API_VERSION(M, m) (((M) << 16) | ((m)&0xFFFF))
#define EFFECT_API_VERSION_MAJOR(v) ((v) >> 16)
#define EFFECT_CONTROL_API_VERSION EFFECT_MAKE_API_VERSION(2, 0)

typedef struct audio_buffer_s {
    size_t frameCount;  // samples per channel
    union {
        void* raw;
        float* f32;
        int32_t* s32;
        int16_t* s16;
        uint8_t* u8;
    };
} audio_buffer_t;

typedef int32_t (*buffer_function_t)(void* cookie, audio_buffer_t* buffer);

typedef struct buffer_provider_s {
    buffer_function_t getBuffer;
    buffer_function_t releaseBuffer;
    void* cookie;
} buffer_provider_t;

typedef struct buffer_config_s {
    audio_buffer_t buffer;
    uint32_t samplingRate;
    uint32_t channels;  // channel mask
    buffer_provider_t bufferProvider;
    uint8_t format;      // low byte of an audio_format_t
    uint8_t accessMode;  // EFFECT_BUFFER_ACCESS_*
    uint16_t mask;       // EFFECT_CONFIG_*
} buffer_config_t;

typedef struct effect_config_s {
    buffer_config_t inputCfg;
    buffer_config_t outputCfg;
} effect_config_t;

enum effect_buffer_access_e {
    EFFECT_BUFFER_ACCESS_WRITE = 0,
    EFFECT_BUFFER_ACCESS_READ = 1,
    EFFECT_BUFFER_ACCESS_ACCUMULATE = 2,
};

#define EFFECT_CONFIG_ALL 0x1F

typedef struct effect_param_s {
    int32_t status;
    uint32_t psize;
    uint32_t vsize;
    char data[];  // psize bytes, padded to a multiple of 4, then vsize bytes
} effect_param_t;

enum effect_command_e {
    EFFECT_CMD_INIT = 0,
    EFFECT_CMD_SET_CONFIG = 1,
    EFFECT_CMD_RESET = 2,
    EFFECT_CMD_ENABLE = 3,
    EFFECT_CMD_DISABLE = 4,
    EFFECT_CMD_SET_PARAM = 5,
    EFFECT_CMD_SET_PARAM_DEFERRED = 6,
    EFFECT_CMD_SET_PARAM_COMMIT = 7,
    EFFECT_CMD_GET_PARAM = 8,
    EFFECT_CMD_SET_DEVICE = 9,
    EFFECT_CMD_SET_VOLUME = 10,
    EFFECT_CMD_SET_AUDIO_MODE = 11,
};

#ifdef __cplusplus
}
#endif

#endif
