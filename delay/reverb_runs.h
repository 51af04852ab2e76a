// SPDX-License-Identifier: Apache-2.0
// The reverberator's filters over runs of samples: the same results as one call per sample of
// comb_process(), allpass_process() and dc_remove_process(), several times faster. All lines must
// exist.
#ifndef KREL_DELAY_REVERB_RUNS_H
#define KREL_DELAY_REVERB_RUNS_H

#include <stdint.h>

#include "delay/reverb_filters.h"

namespace krel {

inline constexpr int kReverbRun = 128;  // most samples per call

/// Replaces n samples by the wrapping sum of the outputs of a channel's combs.
void combs_run(comber* const* combs, int32_t* samples, int n);

/// Replaces n samples by the all-pass's output.
void allpass_run(allpass* ap, int32_t* samples, int n);

/// Replaces n samples by the DC blocker's output.
void dc_remove_run(dc_remove* dc, int32_t* samples, int n);

}  // namespace krel

#endif
