// SPDX-License-Identifier: Apache-2.0
// What a preset's row means: setting up, running and tearing down the effects of its chain, in one
// place per kind.
#ifndef KREL_CORE_CHAINS_H
#define KREL_CORE_CHAINS_H

#include <stdint.h>

#include "core/core_record.h"
#include "core/presets.h"

namespace krel {

/// Sets up the chain's effects with the row's settings. If one of them cannot exist, for want of
/// memory or at this rate, all are released and the chain stays idle.
void chain_init(vcp_core_t* core, const preset_row& row);

/// Whether all of the chain's effects exist. Every init leaves its part of the record in a state
/// that can be asked.
bool chain_ready(const vcp_core_t* core, Chain chain);

/// Runs the chain on `frames` samples, 1 or more; an idle chain touches neither buffer.
void chain_process(vcp_core_t* core, const preset_row& row, int16_t* in, int16_t* out, int frames);

/// Releases what chain_init() set up; for an idle chain nothing is left to do.
void chain_deinit(vcp_core_t* core, const preset_row& row);

}  // namespace krel

#endif
