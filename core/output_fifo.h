// SPDX-License-Identifier: Apache-2.0
// The output FIFO of the presets with a pitch stream: it turns what the stream yields, a little
// more or less than a block per call, into whole blocks. It is primed with 20 ms before the first
// sample leaves it and holds 40 ms.
#ifndef KREL_CORE_OUTPUT_FIFO_H
#define KREL_CORE_OUTPUT_FIFO_H

#include <stdint.h>

#include "core/core_record.h"

namespace krel {

/// Sizes the FIFO for the core's rate and empties it. False when there is no memory or the rate
/// leaves no room.
bool output_fifo_init(vcp_core_t* core);
void output_fifo_deinit(vcp_core_t* core);

/// How many samples each edit of the stream's next write should yield beyond what it consumes, for
/// the delay to stay between 5 and 100 ms. Edits are whole samples long, so that a stream left
/// alone yields a little too much or too little for ever.
int output_fifo_wanted_surplus(const vcp_core_t* core);

/// Takes the first `received` samples of `out`, 1 or more, and fills `out` with the next `frames`:
/// silence while priming; after an underrun silence first and then what there was, and one log
/// line.
void output_fifo_exchange(vcp_core_t* core, int16_t* out, int received, int frames);

}  // namespace krel

#endif
