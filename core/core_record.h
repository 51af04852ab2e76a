// SPDX-License-Identifier: Apache-2.0
// The record behind a core handle.
#ifndef KREL_CORE_CORE_RECORD_H
#define KREL_CORE_CORE_RECORD_H

#include <stdint.h>

#include <type_traits>

#include "delay/echos.h"
#include "delay/reverb.h"
#include "pitch_stream/pitch_stream.h"
#include "spectral/pitch.h"
#include "spectral/vocal.h"
#include "spectral/vocoder.h"

namespace krel {

/// Values of vcp_core_t::fifo_state.
enum FifoState : int32_t { kPriming = 1, kRunning = 2 };

}  // namespace krel

/// Comes from malloc and is not cleared: every member but the first three holds garbage until the
/// preset's set-up writes it, and only members that the preset has set up may be read.
struct vcp_core_t {
    int32_t sample_rate;  // Hz
    int32_t mode_set;     // 0 until the preset is chosen, then 1
    int32_t mode;         // as chosen, in range or not

    vocoder_ctx_t vocoder;      // presets 0, 1
    pitch_ctx_t pitch;          // 3 to 6
    echos_t echos;              // 2
    vocal_ctx_t vocal;          // 11, 13 to 16
    reverb_t reverb;            // 15, 16
    pitchStreamStruct* stream;  // owned; 10 to 14

    // Output FIFO of the presets with a pitch stream.
    int32_t fifo_bits;  // 16
    int32_t fifo_capacity;
    int32_t fifo_count;
    int32_t fifo_read;
    int32_t fifo_write;
    int32_t reserved;
    int16_t* fifo_buffer;  // owned, fifo_capacity samples
    int32_t fifo_prime_level;
    int32_t fifo_state;
    int32_t settling;  // samples until the stream's delay is steered
};
static_assert(std::is_trivial_v<vcp_core_t>);

#endif
