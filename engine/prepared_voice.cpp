// SPDX-License-Identifier: Apache-2.0
#include "engine/prepared_voice.h"

#include <algorithm>

#include "base/memory.h"
#include "core/chains.h"
#include "core/vcp.h"
#include "engine/voices.h"

namespace krel {
namespace {

// The compressor's gain begins at one half and is settled after 65 blocks; the pitch stream's
// buffers hold some 100 ms. Also touches all memory once before the audio thread does.
//
// Just as many as `krelvcp render` has for the voice before the audio begins, whose samples depend
// on how transforms lie in time: 256 blocks, of which the effect's first preset has all. Any other
// one comes in its place with the third block.
constexpr int kSettlingBlocks = 256;
constexpr int kFirstPreset = 3;

constexpr int settling_blocks(int number) {
    return number == kFirstPreset ? kSettlingBlocks : kSettlingBlocks - 2;
}

bool is_complete(const void* core, int number) {
    const preset_row& row = kPresets[number];
    return row.chain == Chain::kBypass ||
           chain_ready(static_cast<const vcp_core_t*>(core), row.chain);
}

}  // namespace

prepared_voice* make_voice(int rate_hz, int number) {
    auto* voice = zeroed_raw<prepared_voice>(1);
    if (voice == nullptr) return nullptr;
    voice->number = number;
    voice->delay = block_delay(number, rate_hz);
    voice->core = vcp_init(rate_hz);
    if (voice->core == nullptr || !voice_compressor_init(&voice->compressor)) {
        free_voice(voice);
        return nullptr;
    }
    vcp_set_mode(voice->core, number);
    if (!is_complete(voice->core, number)) {
        free_voice(voice);
        return nullptr;
    }
    voice->unsettled = settling_blocks(number);
    return voice;
}

void settle(prepared_voice* voice, int blocks) {
    int32_t amplified[kVoiceBlock];
    for (; blocks > 0 && voice->unsettled > 0; --blocks, --voice->unsettled) {
        std::fill_n(voice->settled, kVoiceBlock, int16_t{0});
        run_voice(voice, amplified, voice->settled);
    }
}

void free_voice(prepared_voice* voice) {
    if (voice == nullptr) return;
    vcp_deinit(voice->core);
    drc_deinit(&voice->compressor);
    free(voice);
}

void run_voice(prepared_voice* voice, int32_t* amplified, int16_t* block) {
    voice_block_process(voice->core, &voice->compressor, amplified, block);
}

}  // namespace krel
