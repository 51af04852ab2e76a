/* SPDX-License-Identifier: Apache-2.0 */
/**
 * What a caller of the effect must know beside the platform's own interface: the effect's uuid, its
 * one parameter and its private command. Constants only, for the library and its hosts alike.
 */
#ifndef KREL_EFFECT_INTERFACE_H
#define KREL_EFFECT_INTERFACE_H

#include <stdint.h>

/** Type and implementation, as a configuration file writes it. */
#define KREL_VCP_UUID_TEXT "40050b20-6999-11e0-b0d8-0002a5d5c526"
/** The same: initialises an effect_uuid_t. */
#define KREL_VCP_UUID                                                              \
    {                                                                              \
        0x40050b20, 0x6999, 0x11e0, 0xb0d8, { 0x00, 0x02, 0xa5, 0xd5, 0xc5, 0x26 } \
    }

/** The parameter: the preset, an int32 from 0 to the number of presets less one. */
enum { KREL_VCP_PARAM_PRESET = 0 };
/** The parameter's value that switches processing off. */
enum { KREL_VCP_PRESET_OFF = -1 };

/** Private command beside the platform's: one uint32, the sample rate in Hz. */
enum { EFFECT_CMD_SET_SAMPLE_RATE = 0xFFFF };

/**
 * The payload of EFFECT_CMD_SET_PARAM and the answer to EFFECT_CMD_GET_PARAM: an effect_param_t
 * with one 32-bit parameter and one 32-bit value behind it, 20 bytes. EFFECT_CMD_GET_PARAM's own
 * payload ends before the value.
 */
typedef struct krel_vcp_param_t {
    int32_t status; /**< 0, or a negated errno value in an answer */
    uint32_t psize; /**< 4 */
    uint32_t vsize; /**< 4 */
    int32_t id;     /**< KREL_VCP_PARAM_PRESET */
    int32_t value;
} krel_vcp_param_t;

/** Initialises the krel_vcp_param_t that chooses a preset. */
#define KREL_VCP_PARAM(preset) \
    { 0, sizeof(int32_t), sizeof(int32_t), KREL_VCP_PARAM_PRESET, (preset) }

#endif
