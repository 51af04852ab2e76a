// SPDX-License-Identifier: Apache-2.0
// The engine and, to compare with, the effect library's voice changer after the same silence.
#ifndef KREL_TESTS_ENGINE_VOICES_H
#define KREL_TESTS_ENGINE_VOICES_H

#include <stdint.h>

#include <memory>
#include <vector>

#include "engine/voice.h"

namespace krel_test {

using Samples = std::vector<int16_t>;

struct ReleaseVoice {
    void operator()(krel_voice* v) const { krel_voice_release(v); }
};
using Voice = std::unique_ptr<krel_voice, ReleaseVoice>;
inline Voice create(int rate_hz, int number) {
    return Voice(krel_voice_create(rate_hz, number, nullptr, nullptr));
}

/// What the effect library makes of `in` after as much silence as `krelvcp render` feeds it, in a
/// process that has drawn no random number yet.
Samples by_effect(int rate_hz, int number, Samples in);

}  // namespace krel_test

#endif
