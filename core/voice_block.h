// SPDX-License-Identifier: Apache-2.0
// One block of the voice changer: 128 samples through the core, the make-up gain and the
// compressor. Whoever drives a voice collects its input into such blocks.
//
// Nothing here locks, logs or allocates but voice_compressor_init(). All state is the caller's.
#ifndef KREL_CORE_VOICE_BLOCK_H
#define KREL_CORE_VOICE_BLOCK_H

#include <stdint.h>

#include "core/block.h"
#include "dsp/drc.h"

namespace krel {

inline constexpr int kCollectDelay = kVoiceBlock - 1;  // samples that wait for the block's last one

/// The compressor that ends every voice.
inline constexpr drc_params_t kVoiceCompressor = {
        .history_blocks = 2,
        .delay_unit = 240,
        .attack_shift = 0,  // at once
        .release_shift = 7,
        .threshold = 30720,
        .gain = 8192,  // 1.0
        .noise_floor = 96,
};
/// Its look-ahead in samples.
inline constexpr int kCompressorDelay =
        kVoiceCompressor.history_blocks * kVoiceCompressor.delay_unit;

/// Sets up the compressor; drc_deinit() undoes it. False, with nothing left to undo, when memory is
/// short.
bool voice_compressor_init(drc_t* compressor);

/// Make-up gain of 21/16 and compressor on kVoiceBlock samples in place, which then lag by
/// kCompressorDelay. `amplified` holds as many samples; what it is left with has no meaning.
void voice_compress(drc_t* compressor, int32_t* amplified, int16_t* block);

/// kVoiceBlock samples through the core and, unless `compressor` is null, voice_compress(), in
/// place. Returns what vcp_process() returned; after a negative result the rest was done all the
/// same.
int voice_block_process(void* core, drc_t* compressor, int32_t* amplified, int16_t* block);

}  // namespace krel

#endif
