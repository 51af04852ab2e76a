// SPDX-License-Identifier: Apache-2.0
#include "cutils/properties.h"

#include <ctype.h>
#include <stdlib.h>
#include <string.h>

#ifdef __ANDROID__
#include <sys/system_properties.h>
#endif

namespace {

/// Copies at most PROPERTY_VALUE_MAX - 1 characters and terminates; returns the number copied.
int copy_cut(char* value, const char* text) {
    const size_t length = strnlen(text, PROPERTY_VALUE_MAX - 1);
    memcpy(value, text, length);
    value[length] = '\0';
    return static_cast<int>(length);
}

#ifdef __ANDROID__

int read_property(const char* key, char* value) { return __system_property_get(key, value); }

#else

int read_property(const char* key, char* value) {
    char variable[256] = {};
    for (size_t i = 0; key[i] != '\0' && i + 1 < sizeof variable; ++i) {
        const int c = static_cast<unsigned char>(key[i]);
        variable[i] = isalnum(c) != 0 ? static_cast<char>(toupper(c)) : '_';
    }
    const char* text = getenv(variable);
    return text == nullptr ? 0 : copy_cut(value, text);
}

#endif

}  // namespace

extern "C" int property_get(const char* key, char* value, const char* default_value) {
    value[0] = '\0';
    const int length = read_property(key, value);
    if (length > 0 || default_value == nullptr) return length;
    return copy_cut(value, default_value);
}
