// SPDX-License-Identifier: Apache-2.0
#include "core/voice_block.h"

#include "core/vcp.h"

namespace krel {
namespace {

// 21/16 after every preset.
constexpr int32_t kMakeUpGain = 21;
constexpr int kMakeUpShift = 4;

}  // namespace

bool voice_compressor_init(drc_t* compressor) {
    drc_params_t params = kVoiceCompressor;
    drc_init(compressor, &params);
    if (compressor->gain_history != nullptr && compressor->delay_line != nullptr) return true;
    drc_deinit(compressor);
    return false;
}

void voice_compress(drc_t* compressor, int32_t* amplified, int16_t* block) {
    for (int i = 0; i < kVoiceBlock; ++i) amplified[i] = (block[i] * kMakeUpGain) >> kMakeUpShift;
    drc_process(compressor, amplified, block, kVoiceBlock);
}

int voice_block_process(void* core, drc_t* compressor, int32_t* amplified, int16_t* block) {
    const int processed = vcp_process(core, block, block, kVoiceBlock);
    if (compressor != nullptr) voice_compress(compressor, amplified, block);
    return processed;
}

}  // namespace krel
