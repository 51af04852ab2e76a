// SPDX-License-Identifier: Apache-2.0
// The layouts and codes that the platform's binaries rely on, checked against whatever headers this
// build uses: the stand-ins on a desk and in NDK builds, the real ones in an Android tree.
#include <cutils/properties.h>
#include <hardware/audio_effect.h>
#include <stddef.h>

namespace {

constexpr bool k64 = sizeof(void*) == 8;
constexpr size_t by_width(size_t on_64_bit, size_t on_32_bit) {
    return k64 ? on_64_bit : on_32_bit;
}

#define KREL_LAYOUT(record, field, at_64, at_32) \
    static_assert(offsetof(record, field) == by_width(at_64, at_32), #record "::" #field)
#define KREL_SIZE(record, size_64, size_32) \
    static_assert(sizeof(record) == by_width(size_64, size_32), "size of " #record)

KREL_SIZE(audio_buffer_t, 16, 8);
KREL_LAYOUT(audio_buffer_t, frameCount, 0, 0);
KREL_LAYOUT(audio_buffer_t, raw, 8, 4);

KREL_SIZE(buffer_provider_t, 24, 12);
KREL_SIZE(buffer_config_t, 56, 32);
KREL_LAYOUT(buffer_config_t, samplingRate, 16, 8);
KREL_LAYOUT(buffer_config_t, channels, 20, 12);
KREL_LAYOUT(buffer_config_t, bufferProvider, 24, 16);
KREL_LAYOUT(buffer_config_t, format, 48, 28);
KREL_LAYOUT(buffer_config_t, accessMode, 49, 29);
KREL_LAYOUT(buffer_config_t, mask, 50, 30);

KREL_SIZE(effect_config_t, 112, 64);
KREL_LAYOUT(effect_config_t, outputCfg, 56, 32);

KREL_SIZE(effect_uuid_t, 16, 16);
KREL_LAYOUT(effect_uuid_t, timeMid, 4, 4);
KREL_LAYOUT(effect_uuid_t, timeHiAndVersion, 6, 6);
KREL_LAYOUT(effect_uuid_t, clockSeq, 8, 8);
KREL_LAYOUT(effect_uuid_t, node, 10, 10);

KREL_SIZE(effect_descriptor_t, 172, 172);
KREL_LAYOUT(effect_descriptor_t, uuid, 16, 16);
KREL_LAYOUT(effect_descriptor_t, apiVersion, 32, 32);
KREL_LAYOUT(effect_descriptor_t, flags, 36, 36);
KREL_LAYOUT(effect_descriptor_t, cpuLoad, 40, 40);
KREL_LAYOUT(effect_descriptor_t, memoryUsage, 42, 42);
KREL_LAYOUT(effect_descriptor_t, name, 44, 44);
KREL_LAYOUT(effect_descriptor_t, implementor, 108, 108);

KREL_SIZE(effect_param_t, 12, 12);
KREL_LAYOUT(effect_param_t, psize, 4, 4);
KREL_LAYOUT(effect_param_t, vsize, 8, 8);
KREL_LAYOUT(effect_param_t, data, 12, 12);

KREL_SIZE(effect_interface_s, 32, 16);
KREL_LAYOUT(effect_interface_s, command, 8, 4);
KREL_LAYOUT(effect_interface_s, get_descriptor, 16, 8);
KREL_LAYOUT(effect_interface_s, process_reverse, 24, 12);

// The record grew by one member at the end in Android 11; what we fill stays where it is.
KREL_LAYOUT(audio_effect_library_t, version, 4, 4);
KREL_LAYOUT(audio_effect_library_t, name, 8, 8);
KREL_LAYOUT(audio_effect_library_t, implementor, 16, 12);
KREL_LAYOUT(audio_effect_library_t, create_effect, 24, 16);
KREL_LAYOUT(audio_effect_library_t, release_effect, 32, 20);
KREL_LAYOUT(audio_effect_library_t, get_descriptor, 40, 24);

static_assert(EFFECT_CMD_INIT == 0 && EFFECT_CMD_SET_CONFIG == 1 && EFFECT_CMD_RESET == 2 &&
              EFFECT_CMD_ENABLE == 3);
static_assert(EFFECT_CMD_DISABLE == 4 && EFFECT_CMD_SET_PARAM == 5 &&
              EFFECT_CMD_SET_PARAM_DEFERRED == 6);
static_assert(EFFECT_CMD_SET_PARAM_COMMIT == 7 && EFFECT_CMD_GET_PARAM == 8 &&
              EFFECT_CMD_SET_DEVICE == 9);
static_assert(EFFECT_CMD_SET_VOLUME == 10 && EFFECT_CMD_SET_AUDIO_MODE == 11);
static_assert(EFFECT_BUFFER_ACCESS_WRITE == 0 && EFFECT_BUFFER_ACCESS_READ == 1 &&
              EFFECT_BUFFER_ACCESS_ACCUMULATE == 2);
static_assert(EFFECT_CONTROL_API_VERSION == 0x00020000 && EFFECT_LIBRARY_API_VERSION == 0x00030000);
static_assert(AUDIO_EFFECT_LIBRARY_TAG == 0x41454C54);
static_assert(AUDIO_CHANNEL_OUT_MONO == 0x1 && AUDIO_CHANNEL_OUT_STEREO == 0x3);
static_assert(AUDIO_FORMAT_PCM_16_BIT == 1 && AUDIO_FORMAT_PCM_8_BIT == 2 &&
              AUDIO_FORMAT_PCM_32_BIT == 3);
static_assert(AUDIO_FORMAT_PCM_8_24_BIT == 4 && AUDIO_FORMAT_PCM_FLOAT == 5 &&
              AUDIO_FORMAT_PCM_24_BIT_PACKED == 6);
static_assert(EFFECT_STRING_LEN_MAX == 64 && PROPERTY_VALUE_MAX == 92);

}  // namespace
