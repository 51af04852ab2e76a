// SPDX-License-Identifier: Apache-2.0
// The configuration mask as it is from Android 12 on: an enumerator.
#ifndef ANDROID_DESK_SYSTEM_AUDIO_EFFECT_H
#define ANDROID_DESK_SYSTEM_AUDIO_EFFECT_H

#include_next <system/audio_effect.h>
#undef EFFECT_CONFIG_ALL
enum { EFFECT_CONFIG_ALL = 0x1F };

#endif
