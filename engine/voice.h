/* SPDX-License-Identifier: Apache-2.0 */
/**
 * The voice engine: one of 17 changed voices for a stream of mono samples, in any program.
 *
 * krel_voice_create(), then krel_voice_process_s16() or krel_voice_process_float() for every block
 * of the stream, then krel_voice_release(). Meanwhile krel_voice_prepare() chooses another voice,
 * without a click and without disturbing the stream.
 *
 * Threads: one engine's process calls come from one thread at a time. Every other call may come
 * from any thread at any time, also while a process call runs; only krel_voice_release() must be
 * the last of all. Engines share nothing.
 *
 * Real time: process, krel_voice_bypass() and krel_voice_heard() neither allocate nor free nor lock
 * nor log nor wait. Voices work in blocks of 128 samples, so a call that completes one does its
 * work; for the tenths of a second of a switch that is twice as much. create, prepare and release
 * do allocate and free, and take some tens of milliseconds.
 *
 * Results: the same input gives the same output, bit for bit, in calls of any length.
 */
#ifndef KREL_ENGINE_VOICE_H
#define KREL_ENGINE_VOICE_H

#include <stddef.h>
#include <stdint.h>

#include "base/export.h"

KREL_C_BEGIN

/** An engine. Made by krel_voice_create() and owned by its caller. */
typedef struct krel_voice krel_voice;

/* ---- the voices ------------------------------------------------------------------------------ */

/** How many voices there are; their numbers count from 0. */
KREL_EXPORT int krel_voice_count(void);

/**
 * A voice's name, one word, and what it does, one line. English, ASCII, static; null for a number
 * that is no voice's.
 */
KREL_EXPORT const char* krel_voice_name(int number);
KREL_EXPORT const char* krel_voice_description(int number);

/**
 * Samples by which a voice lags its input at a sample rate in Hz; -1 for a number that is no
 * voice's or a rate that no engine works at. Exact, but for voices 10 to 14: they let the voice's
 * periods decide, and this is their usual delay.
 */
KREL_EXPORT int krel_voice_latency(int number, int rate_hz);

/* ---- an engine ------------------------------------------------------------------------------- */

/**
 * Takes one line about what the engine does. priority is 3 for traces and 6 for errors. Called by
 * create, prepare and release, on their callers' threads; never while samples are processed.
 */
typedef void (*krel_voice_log)(void* context, int priority, const char* line);

/**
 * A new engine with its first voice, settled: as if silence had gone before.
 *
 * rate_hz  8000 to 192000
 * number   the voice, 0 to krel_voice_count() - 1
 * log      takes the engine's lines with `context`; null for none
 *
 * Null when an argument is out of range or memory short. Voice 2, the echo, places some of its
 * echoes by chance: every engine draws them from the same sequence, from its start, so that two
 * engines used alike sound alike.
 */
KREL_EXPORT krel_voice* krel_voice_create(int rate_hz, int number, krel_voice_log log,
                                          void* context);

/**
 * Chooses a voice: builds it, lets it settle on silence and leaves it for the process calls to
 * take. They run it unheard, on their input, for as long as it is late and 20 to 60 ms more, and
 * then fade over to it within 30 ms; before the first process call it simply takes the first one's
 * place. Voices that were faded out are freed here, or by krel_voice_release().
 *
 * Returns 0; -1, and the stream goes on unchanged, for a null engine, a number that is no voice's,
 * or when memory is short. Of several choices that wait to be taken the latest counts.
 */
KREL_EXPORT int krel_voice_prepare(krel_voice* voice, int number);

/**
 * krel_voice_prepare() in parts, for a program whose audio thread is its only one: begin builds the
 * voice, within a millisecond or two, and returns what prepare returns; each part then lets it
 * settle for up to `blocks` blocks, at the cost of so many blocks of 128 samples, and returns how
 * many are left. The part that returns 0 has handed the voice over, and is when it was chosen; 0
 * also means that none was begun. Another begin drops what is not complete. Both from one thread at
 * a time; begin allocates and frees, a part frees.
 */
KREL_EXPORT int krel_voice_prepare_begin(krel_voice* voice, int number);
KREL_EXPORT int krel_voice_prepare_part(krel_voice* voice, int blocks);

/**
 * With `on` other than 0 the input comes out unchanged, as late as the voice would be; 0, which is
 * how an engine begins, brings the voice back. Either way within a ramp of 20 ms. The voice goes on
 * unheard meanwhile. A null engine: nothing happens.
 */
KREL_EXPORT void krel_voice_bypass(krel_voice* voice, int on);

/**
 * The voice that is heard, or would be without bypass: a new one from the moment its fade begins.
 * -1 for null.
 */
KREL_EXPORT int krel_voice_heard(const krel_voice* voice);

/**
 * Changes the voice of `count` samples in place. Calls of both kinds and of any length may follow
 * each other.
 *
 * Voices work on 16 bits. Floats are full scale at +-1.0: on the way in they are rounded to the
 * nearest step of 1 / 32768, halves upwards, and pinned to -1.0 and 32767 / 32768 (NaN counts as
 * 0); on the way out they are such steps exactly. Bypass passes floats as they are, and pins and
 * truncates them where they come out as 16 bits. A null engine or null samples: nothing happens.
 */
KREL_EXPORT void krel_voice_process_s16(krel_voice* voice, int16_t* samples, size_t count);
KREL_EXPORT void krel_voice_process_float(krel_voice* voice, float* samples, size_t count);

/** Frees the engine and all its voices. Null: nothing happens. */
KREL_EXPORT void krel_voice_release(krel_voice* voice);

KREL_C_END

#endif
