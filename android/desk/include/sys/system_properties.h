// SPDX-License-Identifier: Apache-2.0
// The part of the NDK's <sys/system_properties.h> that this library uses, for the stand-in sysroot.
#ifndef ANDROID_DESK_SYSTEM_PROPERTIES_H
#define ANDROID_DESK_SYSTEM_PROPERTIES_H

#ifdef __cplusplus
extern "C" {
#endif

#define PROP_VALUE_MAX 92

int __system_property_get(const char* name, char* value);

#ifdef __cplusplus
}
#endif

#endif
