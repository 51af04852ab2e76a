// SPDX-License-Identifier: Apache-2.0
#include "core/gain.h"

#include "base/fast_paths.h"
#include "base/fixed_point.h"

namespace krel {

KREL_FAST void gain_eighths(int16_t* block, int frames, int32_t eighths) {
    for (int i = 0; i < frames; ++i) block[i] = sat_s16((block[i] * eighths) >> 3);
}

}  // namespace krel
