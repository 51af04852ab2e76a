// SPDX-License-Identifier: Apache-2.0
// One effect instance: the record behind an effect handle, and the operations on it that the
// interface table leads to.
//
// The control thread calls command(), the audio thread process(). They share the record's plain
// fields without a lock: the caller must not run both at once for one instance. The fade counters
// and modeSwitchPending are the hand-over.
#ifndef KREL_EFFECT_INSTANCE_H
#define KREL_EFFECT_INSTANCE_H

#include <hardware/audio_effect.h>
#include <stddef.h>
#include <stdint.h>

#include <type_traits>

#include "wrapper/voice_changer.h"

struct krel_vcp_context_t {
    const effect_interface_s* itfe;  // first: the record's address is the effect handle
    effect_config_t config;          // last accepted one; float is rewritten to 32-bit PCM
    int32_t state;                   // krel::State
    int32_t fadeInCount;  // process calls left that silence the input, the last one fading it in
    // Process calls left that silence the output, the first one fading it out.
    int32_t fadeOutCount;
    int32_t modeSwitchPending;  // 1 while `mode` waits to be handed to the wrapper
    bool enabled;               // false: blocks pass through
    uint32_t sampleRate;        // Hz, as given to the wrapper
    uint32_t frameCount;        // of the last block; what workBuffer holds, if there is one
    uint8_t* workBuffer;        // owned: one interleaved block in the internal format
    uint32_t format;            // internal format, an audio_format_t
    bool convertFloat;    // the framework's buffers are float, the internal format is 32-bit PCM
    int32_t formatType;   // the wrapper's name for the internal format
    uint32_t channels;    // of the input mask; the block itself is always treated as two channels
    int32_t mode;         // preset 0..16; -1 switches processing off
    void* wrapper;        // owned; null before the first configuration
    int32_t dumpEnabled;  // non-zero: append every block to the dump files
};
static_assert(std::is_trivial_v<krel_vcp_context_t> && offsetof(krel_vcp_context_t, itfe) == 0);

namespace krel {

inline constexpr int32_t kFadeOutCalls = 3;  // one ramp, two silent blocks

enum State : int32_t { kUninitialised = 0, kInactive = 1, kActive = 2 };

/// Whether the fades, the voice changer and the output stage can calculate with the internal
/// format. Blocks of any other (8-bit, packed 24-bit, unknown) are carried from input to output
/// byte by byte.
inline bool is_calculable(const krel_vcp_context_t& ctx) {
    return ctx.formatType != KREL_FORMAT_OTHER;
}

/// Interface slot 2.
int32_t command(effect_handle_t self, uint32_t cmdCode, uint32_t cmdSize, void* pCmdData,
                uint32_t* replySize, void* pReplyData);

/// Interface slot 1. in and out may be one buffer or two that do not overlap; both hold the same
/// number of frames of two samples. 0 while active, -ENODATA after a complete pass while inactive,
/// -EINVAL for unusable arguments.
/// Real time: allocates only for the first block and when the frame count changes, and tries again
/// with every block while that fails; a preset switch rebuilds the core inside its silent block.
int32_t process(effect_handle_t self, audio_buffer_t* in, audio_buffer_t* out);

}  // namespace krel

#endif
