// SPDX-License-Identifier: Apache-2.0
// The sample formats and helpers of Android's <system/audio.h> that this library uses, for builds
// outside an Android tree. Values and layouts are the published ones; abi_check.cpp holds them
// against whatever header is in use.
#ifndef KREL_PLATFORM_SYSTEM_AUDIO_H
#define KREL_PLATFORM_SYSTEM_AUDIO_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    AUDIO_FORMAT_DEFAULT = 0,
    AUDIO_FORMAT_PCM_16_BIT = 1,
    AUDIO_FORMAT_PCM_8_BIT = 2,     // unsigned, offset 128
    AUDIO_FORMAT_PCM_32_BIT = 3,    // Q0.31
    AUDIO_FORMAT_PCM_8_24_BIT = 4,  // Q8.23 in 32 bits
    AUDIO_FORMAT_PCM_FLOAT = 5,
    AUDIO_FORMAT_PCM_24_BIT_PACKED = 6,
    AUDIO_FORMAT_IEC61937 = 0x0D000000,
} audio_format_t;

typedef uint32_t audio_channel_mask_t;

enum {
    AUDIO_CHANNEL_OUT_MONO = 0x1,
    AUDIO_CHANNEL_OUT_STEREO = 0x3,
};

// Bytes of one sample; 0 for formats without a fixed sample size.
static inline size_t audio_bytes_per_sample(audio_format_t format) {
    switch (format) {
        case AUDIO_FORMAT_PCM_32_BIT:
        case AUDIO_FORMAT_PCM_8_24_BIT:
        case AUDIO_FORMAT_PCM_FLOAT:
            return 4;
        case AUDIO_FORMAT_PCM_24_BIT_PACKED:
            return 3;
        case AUDIO_FORMAT_PCM_16_BIT:
        case AUDIO_FORMAT_IEC61937:
            return 2;
        case AUDIO_FORMAT_PCM_8_BIT:
            return 1;
        default:
            return 0;
    }
}

typedef struct audio_uuid_s {
    uint32_t timeLow;
    uint16_t timeMid;
    uint16_t timeHiAndVersion;
    uint16_t clockSeq;
    uint8_t node[6];
} audio_uuid_t;

#ifdef __cplusplus
}
#endif

#endif
