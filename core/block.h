// SPDX-License-Identifier: Apache-2.0
// How many samples a voice works on at a time.
#ifndef KREL_CORE_BLOCK_H
#define KREL_CORE_BLOCK_H

namespace krel {

inline constexpr int kVoiceBlock = 128;

}  // namespace krel

#endif
