// SPDX-License-Identifier: Apache-2.0
#include <stdlib.h>

#include <new>

#include "engine/engine.h"
#include "engine/voice.h"
#include "engine/voices.h"

using namespace krel;

struct krel_voice final : voice_engine {
    using voice_engine::voice_engine;
};

int krel_voice_count() { return kPresetCount; }

const char* krel_voice_name(int number) {
    return is_voice(number) ? kVoiceNames[number].name : nullptr;
}
const char* krel_voice_description(int number) {
    return is_voice(number) ? kVoiceNames[number].description : nullptr;
}

int krel_voice_latency(int number, int rate_hz) {
    if (!is_voice(number) || !is_rate(rate_hz)) return -1;
    return kCollectDelay + block_delay(number, rate_hz);
}

krel_voice* krel_voice_create(int rate_hz, int number, krel_voice_log log, void* context) {
    if (!is_voice(number) || !is_rate(rate_hz)) return nullptr;
    void* memory = malloc(sizeof(krel_voice));
    if (memory == nullptr) return nullptr;
    auto* voice = new (memory) krel_voice(rate_hz, log, context);
    if (voice->start(number)) return voice;
    krel_voice_release(voice);
    return nullptr;
}

int krel_voice_prepare(krel_voice* voice, int number) {
    return voice != nullptr && is_voice(number) && voice->prepare(number) ? 0 : -1;
}

int krel_voice_prepare_begin(krel_voice* voice, int number) {
    return voice != nullptr && is_voice(number) && voice->prepare_begin(number) ? 0 : -1;
}

int krel_voice_prepare_part(krel_voice* voice, int blocks) {
    return voice == nullptr ? 0 : voice->prepare_part(blocks);
}

void krel_voice_bypass(krel_voice* voice, int on) {
    if (voice != nullptr) voice->set_bypass(on != 0);
}

int krel_voice_heard(const krel_voice* voice) { return voice == nullptr ? -1 : voice->heard(); }

void krel_voice_process_s16(krel_voice* voice, int16_t* samples, size_t count) {
    if (voice != nullptr && samples != nullptr) voice->process(samples, count);
}

void krel_voice_process_float(krel_voice* voice, float* samples, size_t count) {
    if (voice != nullptr && samples != nullptr) voice->process(samples, count);
}

void krel_voice_release(krel_voice* voice) {
    if (voice == nullptr) return;
    voice->~krel_voice();
    free(voice);
}
