// The reverberator's filters over runs of samples: the same results as one call per sample of comb_process(),
// allpass_process() and dc_remove_process(), several times faster. All lines must exist.
#ifndef KREL_CORE_REVERB_RUNS_H
#define KREL_CORE_REVERB_RUNS_H

#include "base/fixed_point.h"
#include "core/reverb.h"

namespace krel {

inline constexpr int kReverbRun = 128;  // most samples per call

/// Replaces n samples by the wrapping sum of the outputs of a channel's combs.
void combs_run(comber* const* combs, int32_t* samples, int n);

/// Replaces n samples by the all-pass's output.
void allpass_run(allpass* ap, int32_t* samples, int n);

/// One sample of the DC blocker.
inline int32_t dc_remove_step(dc_remove& dc, int32_t x) {
    constexpr int64_t kPoleQ26 = 66840428;  // 0.996
    const int64_t x_q13 = int64_t{x} * kOneQ13;
    const int64_t change_q13 = sub_wrap_s64(x_q13, dc.x_prev);  // known before dc.y is
    const int64_t y_q39 = mul_wrap_s64(add_wrap_s64(change_q13, dc.y), kPoleQ26);
    dc.x_prev = x_q13;
    dc.y = y_q39 >> 26;
    return wrap_s32(y_q39 >> 39);
}

/// Replaces n samples by the DC blocker's output.
void dc_remove_run(dc_remove* dc, int32_t* samples, int n);

}  // namespace krel

#endif
