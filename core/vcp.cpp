// SPDX-License-Identifier: Apache-2.0
#include "core/vcp.h"

#include <stdlib.h>

#include "base/log.h"
#include "core/chains.h"
#include "core/core_record.h"
#include "core/presets.h"

using namespace krel;

namespace {

/// The row of the core's preset; out of range it is one that does nothing.
const preset_row& row_of(const vcp_core_t* core) {
    static constexpr preset_row kNone;
    return core->mode >= 0 && core->mode < kPresetCount ? kPresets[core->mode] : kNone;
}

}  // namespace

void* vcp_init(int sample_rate) {
    auto* core = static_cast<vcp_core_t*>(malloc(sizeof(vcp_core_t)));
    if (core == nullptr) return nullptr;
    KREL_LOGD(kCoreTag, "vcp_init: sample_rate %d", sample_rate);
    core->sample_rate = sample_rate;
    core->mode_set = 0;
    return core;
}

int vcp_set_mode(void* handle, int preset) {
    auto* core = static_cast<vcp_core_t*>(handle);
    if (core == nullptr) return -1;
    if (core->mode_set != 0) return 0;
    KREL_LOGD(kCoreTag, "vcp_set_mode: mode %d", preset);
    core->mode_set = 1;
    core->mode = preset;
    chain_init(core, row_of(core));
    return 0;
}

int vcp_process(void* handle, int16_t* in, int16_t* out, int frames) {
    auto* core = static_cast<vcp_core_t*>(handle);
    if (core == nullptr || in == nullptr || out == nullptr || frames < 1) return -1;
    if (core->mode_set == 1) chain_process(core, row_of(core), in, out, frames);
    return frames;
}

int vcp_deinit(void* handle) {
    auto* core = static_cast<vcp_core_t*>(handle);
    if (core == nullptr) return -1;
    if (core->mode_set == 1) {
        chain_deinit(core, row_of(core));
        KREL_LOGD(kCoreTag, "vcp_deinit: mMode %d", core->mode);
    }
    free(core);
    return 0;
}
