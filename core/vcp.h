/* SPDX-License-Identifier: Apache-2.0 */
/**
 * The voice changer's core: one preset at work on 16-bit mono PCM.
 *
 * Life of a core: vcp_init(), vcp_set_mode() once, vcp_process() any number of times, vcp_deinit().
 * There is no way back and no reset: a new preset needs a new core. Nothing here locks; one thread
 * at a time per core.
 */
#ifndef KREL_CORE_VCP_H
#define KREL_CORE_VCP_H

#include <stdint.h>

#include "base/export.h"

KREL_C_BEGIN

/**
 * A new core for a sample rate in Hz, which is not checked; null when memory is short. The caller
 * owns it.
 */
KREL_EXPORT void* vcp_init(int sample_rate);

/**
 * Chooses the preset, 0..16; any other value is stored and passes audio through. Only the first
 * call on a core counts. A preset whose effects cannot be set up, for want of memory or at a rate
 * they cannot work at, passes audio through too. Returns -1 for a null core, else 0. Allocates.
 */
KREL_EXPORT int vcp_set_mode(void* core, int preset);

/**
 * Changes the voice of `frames` samples from in to out. in may be modified; in and out may be one
 * buffer, and must be for preset 0. A core without a preset, or with one that passes audio through,
 * touches neither.
 *
 * Returns -1 for a null pointer or frames < 1, else frames.
 * Real time: allocates nothing, except for the slowly growing buffers of the pitch streams (presets
 * 10 to 14).
 */
KREL_EXPORT int vcp_process(void* core, int16_t* in, int16_t* out, int frames);

/** Frees the core and what its preset owns. Returns -1 for null, else 0. */
KREL_EXPORT int vcp_deinit(void* core);

KREL_C_END

#endif
