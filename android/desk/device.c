// SPDX-License-Identifier: Apache-2.0
// What a device has and musl lacks or does otherwise, for running the Android build on a desk:
// loaded as liblog.so, before the C library.
#include <android/log.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/system_properties.h>

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    (void)prio, (void)tag, (void)fmt;
    return 1;
}

int __system_property_get(const char* name, char* value) {
    (void)name;
    value[0] = '\0';
    return 0;
}

/// A device's rand() is its random(): an additive feedback generator, which echoes draw from.
int rand(void) {
    enum { kDegree = 31, kSeparation = 3, kSkipped = 10 * kDegree };
    static uint32_t r[kDegree];
    static unsigned at = kSeparation;
    if (r[0] == 0) {
        r[0] = 1;
        for (int i = 1; i < kDegree; ++i) r[i] = (uint32_t)(16807 * (uint64_t)r[i - 1] % INT32_MAX);
        for (int i = 0; i < kSkipped; ++i) (void)rand();
    }
    const unsigned now = at++ % kDegree;
    r[now] += r[(now + kDegree - kSeparation) % kDegree];
    return (int)(r[now] >> 1);
}
