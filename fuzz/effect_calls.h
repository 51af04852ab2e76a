// SPDX-License-Identifier: Apache-2.0
// Calls at the effect boundary, as both of its fuzzers draw them.
#ifndef KREL_FUZZ_EFFECT_CALLS_H
#define KREL_FUZZ_EFFECT_CALLS_H

#include <hardware/audio_effect.h>

#include <vector>

#include "effect/instance.h"
#include "effect/interface.h"
#include "fuzz/draw.h"

namespace krel_fuzz {

inline constexpr effect_uuid_t kUuid = KREL_VCP_UUID;

/// A configuration that the effect accepts unless one of its odder fields was drawn oddly.
effect_config_t draw_config(Draw& d);

/// A preset, or a number that is none.
int32_t draw_preset(Draw& d);

/// What the fuzzers know of an instance comes from its record.
inline const krel_vcp_context_t& record_of(effect_handle_t handle) {
    return *reinterpret_cast<krel_vcp_context_t*>(handle);
}

/// Command with a well-formed reply. Returns the call's result.
int32_t send(effect_handle_t handle, uint32_t code, const void* data, uint32_t size);

/// One block of `frames` frames, drawn: signals, one buffer or two. Checks everything that holds
/// for any block.
void run_block(effect_handle_t handle, Draw& d, size_t frames);

/// A block that must be refused or must not be touched: null pointers, no frames, different numbers
/// of frames, more frames than any buffer holds.
void run_refused_block(effect_handle_t handle, Draw& d);

}  // namespace krel_fuzz

#endif
