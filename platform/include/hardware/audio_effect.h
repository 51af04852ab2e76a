// SPDX-License-Identifier: Apache-2.0
// The interface table and library record of Android's <hardware/audio_effect.h>, for builds outside
// an Android tree.
#ifndef KREL_PLATFORM_HARDWARE_AUDIO_EFFECT_H
#define KREL_PLATFORM_HARDWARE_AUDIO_EFFECT_H

#include <errno.h>
#include <stdint.h>

#include "system/audio_effect.h"

#ifdef __cplusplus
extern "C" {
#endif

// Address of a record whose first member points to the interface table.
typedef struct effect_interface_s** effect_handle_t;

struct effect_interface_s {
    int32_t (*process)(effect_handle_t self, audio_buffer_t* inBuffer, audio_buffer_t* outBuffer);
    int32_t (*command)(effect_handle_t self, uint32_t cmdCode, uint32_t cmdSize, void* pCmdData,
                       uint32_t* replySize, void* pReplyData);
    int32_t (*get_descriptor)(effect_handle_t self, effect_descriptor_t* pDescriptor);
    int32_t (*process_reverse)(effect_handle_t self, audio_buffer_t* inBuffer,
                               audio_buffer_t* outBuffer);
};

#define AUDIO_EFFECT_LIBRARY_TAG 0x41454C54  // "AELT"
#define EFFECT_LIBRARY_API_VERSION EFFECT_MAKE_API_VERSION(3, 0)
#define AUDIO_EFFECT_LIBRARY_INFO_SYM AELI
#define AUDIO_EFFECT_LIBRARY_INFO_SYM_AS_STR "AELI"

// Later platforms have an eighth member, create_effect_3_1, which they read from records of version
// 3.1 on only.
typedef struct audio_effect_library_s {
    uint32_t tag;
    uint32_t version;
    const char* name;
    const char* implementor;
    int32_t (*create_effect)(const effect_uuid_t* uuid, int32_t sessionId, int32_t ioId,
                             effect_handle_t* pHandle);
    int32_t (*release_effect)(effect_handle_t handle);
    int32_t (*get_descriptor)(const effect_uuid_t* uuid, effect_descriptor_t* pDescriptor);
} audio_effect_library_t;

#ifdef __cplusplus
}
#endif

#endif
