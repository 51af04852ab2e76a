// SPDX-License-Identifier: Apache-2.0
// One step of the DC blocker, for its function of single samples and for runs.
#ifndef KREL_DELAY_DC_BLOCKER_H
#define KREL_DELAY_DC_BLOCKER_H

#include <stdint.h>

#include "base/fixed_point.h"

namespace krel {

/// y[n] = 0.996 (x[n] - x[n-1] + y[n-1]), rounded toward minus infinity. y_q13 and x_prev_q13 are
/// the state: the output and the input before, times 2^13.
inline int32_t dc_blocker_step(int64_t& y_q13, int64_t& x_prev_q13, int32_t x) {
    constexpr int64_t kPoleQ26 = 66840428;  // 0.996
    const int64_t x_q13 = int64_t{x} * kOneQ13;
    const int64_t change_q13 = sub_wrap_s64(x_q13, x_prev_q13);  // known before y is
    const int64_t y_q39 = mul_wrap_s64(add_wrap_s64(change_q13, y_q13), kPoleQ26);
    x_prev_q13 = x_q13;
    y_q13 = y_q39 >> 26;
    return wrap_s32(y_q39 >> 39);
}

}  // namespace krel

#endif
