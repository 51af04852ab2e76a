// SPDX-License-Identifier: Apache-2.0
// System properties, for builds outside an Android tree.
#ifndef KREL_PLATFORM_CUTILS_PROPERTIES_H
#define KREL_PLATFORM_CUTILS_PROPERTIES_H

#ifdef __cplusplus
extern "C" {
#endif

#define PROPERTY_VALUE_MAX 92

/**
 * Copies the property's text, or `default_value` (cut to 91 characters) when the property is
 * missing or empty, to `value`, which has room for PROPERTY_VALUE_MAX bytes. Returns the length
 * without the terminator. A null default with a missing property gives an empty text and 0.
 *
 * Built with the NDK it reads the device's property. On a desk it reads the environment variable
 * whose name is the property's in capitals with every other character than letters and digits as
 * "_": "audio.krel.vcp.dump" is AUDIO_KREL_VCP_DUMP.
 */
int property_get(const char* key, char* value, const char* default_value);

#ifdef __cplusplus
}
#endif

#endif
