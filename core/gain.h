// SPDX-License-Identifier: Apache-2.0
// Make-up gains between the effects of a chain.
#ifndef KREL_CORE_GAIN_H
#define KREL_CORE_GAIN_H

#include <stdint.h>

namespace krel {

/// Multiplies `frames` samples by eighths / 8 in place, 0 < eighths; rounds toward minus infinity,
/// saturates to 16 bits.
void gain_eighths(int16_t* block, int frames, int32_t eighths);

}  // namespace krel

#endif
