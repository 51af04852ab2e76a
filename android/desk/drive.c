// SPDX-License-Identifier: Apache-2.0
// Drives all presets of an effect library for a second as the framework would and prints a checksum
// of each one's output. Plain C, so that it runs beside any C library.
//
//   drive LIBRARY PRESETS     PRESETS: how many there are
#include <dlfcn.h>
#include <hardware/audio_effect.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

#include "effect/interface.h"

static const effect_uuid_t kUuid = KREL_VCP_UUID;

enum { kMostFrames = 960 };

static void require(int held, const char* what) {
    if (held) return;
    fprintf(stderr, "drive: %s\n", what);
    exit(1);
}

static void command(effect_handle_t effect, uint32_t code, uint32_t size, void* data) {
    int32_t reply = -1;
    uint32_t reply_size = sizeof reply;
    const int32_t result = (*effect)->command(effect, code, size, data, &reply_size, &reply);
    require(result == 0 && reply == 0, "a command was refused");
}

static void configure(effect_handle_t effect, uint32_t rate_hz, audio_format_t format) {
    effect_config_t config = {0};
    config.inputCfg.samplingRate = rate_hz;
    config.inputCfg.channels = AUDIO_CHANNEL_OUT_STEREO;
    config.inputCfg.format = (uint8_t)format;
    config.inputCfg.accessMode = EFFECT_BUFFER_ACCESS_READ;
    config.inputCfg.mask = EFFECT_CONFIG_ALL;
    config.outputCfg = config.inputCfg;
    config.outputCfg.accessMode = EFFECT_BUFFER_ACCESS_WRITE;
    command(effect, EFFECT_CMD_SET_CONFIG, sizeof config, &config);
}

/// A pulse train that glides, under noise: integers only, so that it is the same everywhere.
static int16_t next_sample(uint32_t state[3], uint32_t rate_hz) {
    state[0] = state[0] * 1664525u + 1013904223u;
    state[1] += (120u + (state[2]++ >> 9)) * (UINT32_MAX / rate_hz);
    const int32_t pulse = (int32_t)(state[1] >> 18) - 8192;
    return (int16_t)(pulse + (int32_t)(state[0] >> 20) - 2048);
}

static void fill(void* block, uint32_t frames, uint32_t rate_hz, audio_format_t format,
                 uint32_t state[3]) {
    for (uint32_t i = 0; i < 2 * frames; i += 2) {
        const int16_t sample = next_sample(state, rate_hz);
        for (uint32_t k = i; k < i + 2; ++k) {
            if (format == AUDIO_FORMAT_PCM_FLOAT) {
                ((float*)block)[k] = (float)sample / 32768.0f;
            } else {
                ((int16_t*)block)[k] = sample;
            }
        }
    }
}

static uint64_t checksum(uint64_t sum, const unsigned char* bytes, size_t count) {
    for (size_t i = 0; i < count; ++i) sum = (sum ^ bytes[i]) * UINT64_C(0x100000001b3);
    return sum;
}

static uint64_t run(const audio_effect_library_t* library, int32_t preset, uint32_t rate_hz,
                    audio_format_t format) {
    effect_handle_t effect = NULL;
    require(library->create_effect(&kUuid, 1, 1, &effect) == 0, "the effect cannot be created");
    command(effect, EFFECT_CMD_INIT, 0, NULL);
    krel_vcp_param_t parameter = KREL_VCP_PARAM(preset);
    command(effect, EFFECT_CMD_SET_PARAM, sizeof parameter, &parameter);
    configure(effect, rate_hz, format);
    command(effect, EFFECT_CMD_ENABLE, 0, NULL);

    static float block[2 * kMostFrames];
    const uint32_t frames = rate_hz / 50;
    const size_t bytes = 2 * frames * audio_bytes_per_sample(format);
    uint32_t state[3] = {1, 0, 0};
    uint64_t sum = UINT64_C(0xcbf29ce484222325);
    for (uint32_t done = 0; done < rate_hz; done += frames) {
        fill(block, frames, rate_hz, format, state);
        audio_buffer_t buffer = {.frameCount = frames, .raw = block};
        require((*effect)->process(effect, &buffer, &buffer) == 0, "a block was refused");
        sum = checksum(sum, (const unsigned char*)block, bytes);
    }
    require(library->release_effect(effect) == 0, "the effect cannot be released");
    return sum;
}

int main(int argc, char** argv) {
    require(argc == 3, "usage: drive LIBRARY PRESETS");
    void* handle = dlopen(argv[1], RTLD_NOW);
    require(handle != NULL, handle == NULL ? dlerror() : "");
    const audio_effect_library_t* library = dlsym(handle, AUDIO_EFFECT_LIBRARY_INFO_SYM_AS_STR);
    require(library != NULL && library->tag == AUDIO_EFFECT_LIBRARY_TAG, "no effect library");
    const int32_t presets = atoi(argv[2]);
    require(presets > 0, "there are no presets");
    for (int32_t preset = 0; preset < presets; ++preset) {
        // One after the other: echoes draw from one sequence.
        const uint64_t wide = run(library, preset, 48000, AUDIO_FORMAT_PCM_FLOAT);
        const uint64_t narrow = run(library, preset, 16000, AUDIO_FORMAT_PCM_16_BIT);
        printf("preset %2d  48000 Hz float %016" PRIx64 "  16000 Hz s16 %016" PRIx64 "\n", preset,
               wide, narrow);
    }
    require(dlclose(handle) == 0, "the library cannot be unloaded");
    return 0;
}
