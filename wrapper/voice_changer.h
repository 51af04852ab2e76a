/* SPDX-License-Identifier: Apache-2.0 */
/**
 * The voice changer for interleaved blocks of any length and width: 128-sample FIFOs around the
 * core, make-up gain and compressor after it, load statistics.
 *
 * Every call that touches a core holds mVcpLock: one lock for all work spaces of the process, so
 * two of them never run at the same time and a teardown waits for a running block.
 */
#ifndef KREL_WRAPPER_VOICE_CHANGER_H
#define KREL_WRAPPER_VOICE_CHANGER_H

#include <pthread.h>
#include <stddef.h>

#include "base/export.h"

KREL_C_BEGIN

/**
 * The lock. Initialised when the library is loaded, destroyed when it is unloaded. Who holds it
 * keeps every voice changer of the process waiting.
 */
extern KREL_EXPORT pthread_mutex_t mVcpLock;

/** Sample formats of a work space. */
enum {
    KREL_FORMAT_OTHER = 0, /**< handled like Q8.23 */
    KREL_FORMAT_S16 = 1,   /**< 16-bit */
    KREL_FORMAT_Q8_23 = 2, /**< Q8.23 in 32 bits */
    KREL_FORMAT_S32 = 3    /**< full-scale 32-bit */
};

/**
 * Creates a work space, which the caller owns, with a core that has no preset yet.
 *
 * chn_num      channels per frame; 2 means that both samples of a frame are written
 * sample_rate  Hz
 * format_type  KREL_FORMAT_*; anything else counts as KREL_FORMAT_OTHER
 * drc_disable  0: gain and compressor after the core; any other value: neither
 *
 * Null when memory for the work space is short. Without a core (short of memory too) it is a
 * bypass. Takes no lock.
 */
KREL_EXPORT void* krel_voice_changer_init(unsigned chn_num, unsigned sample_rate, int format_type,
                                          int drc_disable);

/**
 * Destroys the core and starts a fresh one with `preset`, 0..16; any other value passes audio
 * through. FIFOs, compressor and statistics go on. Null: nothing happens. Allocates, under
 * mVcpLock.
 */
KREL_EXPORT void krel_voice_changer_set_mode(void* ws, int preset);

/**
 * Changes the voice of one block, in place.
 *
 * ws      work space; null: nothing happens
 * buffer  interleaved samples, chn_num per frame, in the format given at creation
 * size    bytes in buffer; whole frames are processed, what is left over stays as it is
 *
 * Channel 0 is processed and, with two channels, written to both. With more than two the frames are
 * taken to lie one sample apart. Output lags input by 127 frames, by 480 more with the compressor,
 * and by what the preset adds. Without a core the buffer is left untouched and a warning is logged.
 * Real time: holds mVcpLock for the whole call and allocates nothing itself. Per 128 frames it
 * reads the clock twice; every 2048 such blocks it logs two lines of load statistics.
 */
KREL_EXPORT void krel_voice_changer_process(void* ws, void* buffer, size_t size);

/** Destroys the work space and its core. Null: nothing happens. */
KREL_EXPORT void krel_voice_changer_deinit(void* ws);

KREL_C_END

#endif
