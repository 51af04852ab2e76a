/* SPDX-License-Identifier: Apache-2.0 */
/**
 * The entry points that the audio framework finds in this library. It reaches them through the
 * record AELI; the two query functions are exported beside it.
 *
 * The framework serialises creation and release of one instance against its other calls.
 * EffectRelease() takes mVcpLock and so waits for a running block; the others take no lock.
 * Errors are negated errno values.
 */
#ifndef KREL_EFFECT_EFFECT_LIBRARY_H
#define KREL_EFFECT_EFFECT_LIBRARY_H

#include <hardware/audio_effect.h>
#include <stdint.h>

#include "base/export.h"

KREL_C_BEGIN

/** The library record: tag "AELT", interface version 3.0. */
extern KREL_EXPORT const audio_effect_library_t AELI;

/**
 * Creates an instance and stores its handle in *pHandle. The instance is initialised but inactive,
 * has no voice changer before its first EFFECT_CMD_SET_CONFIG, and belongs to the caller until
 * EffectRelease(). sessionId and ioId are not used.
 *
 * -EINVAL for a null pointer, -ENOENT for a uuid that is not the effect's, -ENOMEM when memory is
 * short.
 */
KREL_EXPORT int32_t EffectCreate(const effect_uuid_t* uuid, int32_t sessionId, int32_t ioId,
                                 effect_handle_t* pHandle);

/**
 * Destroys an instance. -EINVAL for null; a handle that was released before must not be passed
 * again.
 */
KREL_EXPORT int32_t EffectRelease(effect_handle_t handle);

/** Fills *pDescriptor. -EINVAL for a null pointer or a uuid that is not the effect's. */
KREL_EXPORT int32_t EffectGetDescriptor(const effect_uuid_t* uuid,
                                        effect_descriptor_t* pDescriptor);

/** Stores the number of effects, 1. -EINVAL for null. */
KREL_EXPORT int32_t EffectQueryNumberEffects(uint32_t* pNumEffects);

/** Fills *pDescriptor for index 0. -EINVAL for any other index or null. */
KREL_EXPORT int32_t EffectQueryEffect(uint32_t index, effect_descriptor_t* pDescriptor);

KREL_C_END

#endif
