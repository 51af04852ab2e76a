// SPDX-License-Identifier: Apache-2.0
#include "core/output_fifo.h"

#include <algorithm>

#include "base/log.h"
#include "base/memory.h"
#include "base/ring.h"

namespace krel {
namespace {

// Until then the reserve finds the level that the voice's longest edits need. Drift alone empties
// 20 ms more slowly.
constexpr int kSettlingSeconds = 4;

ring_view view(vcp_core_t* core) {
    return {core->fifo_capacity, core->fifo_count, core->fifo_read, core->fifo_write};
}

}  // namespace

bool output_fifo_init(vcp_core_t* core) {
    core->fifo_bits = 16;
    core->fifo_capacity = core->sample_rate / 25;
    core->fifo_prime_level = core->sample_rate / 50;
    core->fifo_count = 0;
    core->fifo_read = 0;
    core->fifo_write = 0;
    core->reserved = 0;
    core->fifo_state = kPriming;
    core->settling = kSettlingSeconds * core->sample_rate;
    core->fifo_buffer = zeroed_raw<int16_t>(core->fifo_capacity);
    return core->fifo_buffer != nullptr;
}

void output_fifo_deinit(vcp_core_t* core) { release(core->fifo_buffer); }

int output_fifo_wanted_surplus(const vcp_core_t* core) {
    if (core->settling > 0) return 0;
    const int32_t waiting = core->fifo_count + core->stream->numOutputSamples;
    if (waiting > core->sample_rate / 10) return -1;
    return waiting < core->sample_rate / 200 ? 1 : 0;
}

void output_fifo_exchange(vcp_core_t* core, int16_t* out, int received, int frames) {
    ring_push_n(view(core), core->fifo_buffer, out, static_cast<size_t>(received));

    if (core->fifo_state == kPriming) {
        // The block in which priming ends is still silent.
        if (core->fifo_count >= core->fifo_prime_level) core->fifo_state = kRunning;
        std::fill_n(out, frames, int16_t{0});
        return;
    }
    core->settling -= std::min(core->settling, frames);
    const int missing = std::max(frames - core->fifo_count, 0);
    std::fill_n(out, missing, int16_t{0});
    ring_pop_n(view(core), core->fifo_buffer, out + missing, static_cast<size_t>(frames - missing));
    if (missing > 0) {
        // Deliberate: the figure is what this call's read fell short of a block, not what the FIFO
        // lacked.
        KREL_LOGD_AUDIO(kCoreTag, "vcp_process: underrun %d", frames - received);
    }
}

}  // namespace krel
