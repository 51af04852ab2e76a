// SPDX-License-Identifier: Apache-2.0
// Channel masks as they are from Android 12 on: an enumeration, which C++ does not convert integers
// to.
#ifndef ANDROID_DESK_SYSTEM_AUDIO_H
#define ANDROID_DESK_SYSTEM_AUDIO_H

#define audio_channel_mask_t audio_channel_mask_plain_t
#define AUDIO_CHANNEL_OUT_MONO AUDIO_CHANNEL_OUT_MONO_plain
#define AUDIO_CHANNEL_OUT_STEREO AUDIO_CHANNEL_OUT_STEREO_plain
#include_next <system/audio.h>
#undef audio_channel_mask_t
#undef AUDIO_CHANNEL_OUT_MONO
#undef AUDIO_CHANNEL_OUT_STEREO

typedef enum {
    AUDIO_CHANNEL_OUT_MONO = 0x1u,
    AUDIO_CHANNEL_OUT_STEREO = 0x3u,
    AUDIO_CHANNEL_INVALID = 0xC0000000u,
} audio_channel_mask_t;

#endif
