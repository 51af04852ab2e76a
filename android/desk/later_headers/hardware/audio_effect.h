// SPDX-License-Identifier: Apache-2.0
// The library record as it is from Android 11 on: one member more.
#ifndef ANDROID_DESK_HARDWARE_AUDIO_EFFECT_H
#define ANDROID_DESK_HARDWARE_AUDIO_EFFECT_H

#define audio_effect_library_s audio_effect_library_3_0_s
#define audio_effect_library_t audio_effect_library_3_0_t
#include_next <hardware/audio_effect.h>
#undef audio_effect_library_s
#undef audio_effect_library_t

typedef struct audio_effect_library_s {
    uint32_t tag;
    uint32_t version;
    const char* name;
    const char* implementor;
    int32_t (*create_effect)(const effect_uuid_t* uuid, int32_t sessionId, int32_t ioId,
                             effect_handle_t* pHandle);
    int32_t (*release_effect)(effect_handle_t handle);
    int32_t (*get_descriptor)(const effect_uuid_t* uuid, effect_descriptor_t* pDescriptor);
    int32_t (*create_effect_3_1)(const effect_uuid_t* uuid, int32_t sessionId, int32_t ioId,
                                 int32_t deviceId, effect_handle_t* pHandle);
} audio_effect_library_t;

#endif
