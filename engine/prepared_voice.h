// SPDX-License-Identifier: Apache-2.0
// One voice, ready to run. It yields the samples that the effect library's voice changer yields
// after the same silence.
#ifndef KREL_ENGINE_PREPARED_VOICE_H
#define KREL_ENGINE_PREPARED_VOICE_H

#include <stdint.h>

#include "core/voice_block.h"

namespace krel {

struct prepared_voice {
    int number;
    int delay;                     // samples by which a block comes out late
    int unsettled;                 // blocks of silence that it has to run before it is used
    void* core;                    // owned
    drc_t compressor;              // its arrays are owned
    int16_t settled[kVoiceBlock];  // what the last block of silence became
    prepared_voice* next;          // in a list of voices to free
};

/// A voice that is yet to settle; null when memory is short. The caller owns it.
prepared_voice* make_voice(int rate_hz, int number);

/// Runs the voice for up to `blocks` of its unsettled blocks.
void settle(prepared_voice* voice, int blocks);

/// Null is harmless.
void free_voice(prepared_voice* voice);

/// kVoiceBlock samples in place; `amplified` is scratch of that length. Real time: allocates
/// nothing.
void run_voice(prepared_voice* voice, int32_t* amplified, int16_t* block);

}  // namespace krel

#endif
