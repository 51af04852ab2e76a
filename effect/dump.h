// SPDX-License-Identifier: Apache-2.0
// Debug dumps: the audio of an instance, appended to files block by block while the system property
// audio.krel.vcp.dump is not 0. A file is opened and closed for every block.
#ifndef KREL_EFFECT_DUMP_H
#define KREL_EFFECT_DUMP_H

#include <stddef.h>
#include <stdint.h>

#include "effect/instance.h"

namespace krel {

/// Where in the block's way a dump is taken, a file each.
enum class DumpPoint {
    kInput,      // in the internal format, before the fades
    kProcessed,  // in the internal format, after the fades
    kMixed,      // what was added to the framework's float buffer, with what was there
};

/// The property's number, for krel_vcp_context_t::dumpEnabled.
int32_t read_dump_property();

/// Appends `bytes` of `data`, when the instance's dumps are on; a file that cannot be opened is
/// left out.
void dump(const krel_vcp_context_t& ctx, DumpPoint point, const void* data, size_t bytes);

}  // namespace krel

#endif
