// SPDX-License-Identifier: Apache-2.0
// The block path of one instance: configurations, blocks of any length and content, presets changed
// in flight.
#include "effect/effect_library.h"
#include "fuzz/draw.h"
#include "fuzz/effect_calls.h"
#include "fuzz/fuzzer.h"

using namespace krel_fuzz;

namespace {

constexpr int32_t kMostFrames = 8192;  // of an execution
constexpr int kMostSteps = 64;

void configure(effect_handle_t handle, Draw& d) {
    const effect_config_t cfg = draw_config(d);
    send(handle, EFFECT_CMD_SET_CONFIG, &cfg, sizeof cfg);
}

void choose_preset(effect_handle_t handle, Draw& d) {
    const krel_vcp_param_t param = KREL_VCP_PARAM(draw_preset(d));
    send(handle, EFFECT_CMD_SET_PARAM, &param, sizeof param);
}

/// A few blocks of one length, as a framework sends them; now and then of any length.
int32_t run_blocks(effect_handle_t handle, Draw& d, int32_t left) {
    constexpr int32_t kLengths[] = {1, 2, 127, 128, 129, 240, 480, 960, 1024, 31, 255, 192};
    const int32_t frames = d.one_in(3) ? d.range(1, 2100) : d.pick(kLengths);
    const int32_t blocks = d.range(1, 8);
    int32_t done = 0;
    for (int32_t i = 0; i < blocks && done + frames <= left; ++i, done += frames)
        run_block(handle, d, static_cast<size_t>(frames));
    return done;
}

void change_state(effect_handle_t handle, Draw& d) {
    const uint32_t rate = d.rate();
    switch (d.range(0, 3)) {
        case 0:
            send(handle, EFFECT_CMD_ENABLE, nullptr, 0);
            break;
        case 1:
            send(handle, EFFECT_CMD_DISABLE, nullptr, 0);
            break;
        case 2:
            send(handle, EFFECT_CMD_SET_SAMPLE_RATE, &rate, sizeof rate);
            break;
        default:
            configure(handle, d);
            break;
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    start_execution();
    Draw d(data, size);
    effect_handle_t handle = nullptr;
    if (AELI.create_effect(&kUuid, 0, 0, &handle) != 0) return 0;
    // Usually the order of a framework: preset, configuration, enable, blocks.
    if (!d.one_in(16)) choose_preset(handle, d);
    if (!d.one_in(16)) configure(handle, d);
    if (!d.one_in(16)) send(handle, EFFECT_CMD_ENABLE, nullptr, 0);
    int32_t left = kMostFrames;
    for (int step = 0; d.more() && step < kMostSteps; ++step) {
        const int32_t kind = d.range(0, 15);
        if (kind < 10) {
            left -= run_blocks(handle, d, left);
        } else if (kind < 13) {
            choose_preset(handle, d);
        } else if (kind < 15) {
            change_state(handle, d);
        } else {
            run_refused_block(handle, d);
        }
    }
    AELI.release_effect(handle);
    return 0;
}
