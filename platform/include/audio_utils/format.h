// SPDX-License-Identifier: Apache-2.0
// Sample format conversion, for builds outside an Android tree.
#ifndef KREL_PLATFORM_AUDIO_UTILS_FORMAT_H
#define KREL_PLATFORM_AUDIO_UTILS_FORMAT_H

#include <stddef.h>

#include "system/audio.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Copies `count` samples from src to dst, converting float to 32-bit PCM (rounded to nearest,
 * halves away from zero, pinned to the int32 range) and back (times 2^-31). Equal formats are
 * copied bit by bit.
 *
 * dst and src are disjoint or the same address. NaN, outside the platform's contract, becomes 0.
 * Any other pair of formats, and formats that are not linear PCM even with themselves, log a fatal
 * line and abort, as the platform does.
 */
void memcpy_by_audio_format(void* dst, audio_format_t dst_format, const void* src,
                            audio_format_t src_format, size_t count);

#ifdef __cplusplus
}
#endif

#endif
