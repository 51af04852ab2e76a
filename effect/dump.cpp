// SPDX-License-Identifier: Apache-2.0
#include "effect/dump.h"

#include <cutils/properties.h>
#include <stdio.h>
#include <stdlib.h>

namespace krel {
namespace {

constexpr char kProperty[] = "audio.krel.vcp.dump";

constexpr char kInputFile[] = "/data/vendor/audio_dump/krel_vcp_%p_in_%zu_%d.pcm";
constexpr char kProcessedFile[] = "/data/vendor/audio_dump/krel_vcp_%p_out_%zu_%d.pcm";
constexpr char kMixedFile[] = "/data/vendor/audio_dump/krel_hp_%p_out2_%zu_%d.pcm";

const char* file_pattern(DumpPoint point) {
    switch (point) {
        case DumpPoint::kInput:
            return kInputFile;
        case DumpPoint::kProcessed:
            return kProcessedFile;
        case DumpPoint::kMixed:
            break;
    }
    return kMixedFile;
}

}  // namespace

int32_t read_dump_property() {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(kProperty, value, "0");
    return static_cast<int32_t>(strtol(value, nullptr, 10));
}

void dump(const krel_vcp_context_t& ctx, DumpPoint point, const void* data, size_t bytes) {
    if (ctx.dumpEnabled == 0) return;
    // Instances add to one output buffer in turn: its dump goes by the buffer, not by the instance.
    const void* owner = point == DumpPoint::kMixed ? data : &ctx;
    char path[256] = {};
    snprintf(path, sizeof path, file_pattern(point), owner, static_cast<size_t>(ctx.sampleRate),
             static_cast<int>(ctx.format));
    FILE* file = fopen(path, "ab+");
    if (file == nullptr) return;
    fwrite(data, 1, bytes, file);
    fclose(file);
}

}  // namespace krel
