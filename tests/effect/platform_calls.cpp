#include "tests/effect/platform_calls.h"

#include <android/log.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "wrapper/voice_changer.h"

using krel_test::platform_calls;

extern "C" {

FILE* __real_fopen(const char* path, const char* mode);
FILE* __wrap_fopen(const char* path, const char* mode) {
    constexpr char kDevice[] = "/data/vendor/audio_dump/";
    if (platform_calls.counting) ++platform_calls.files;
    if (strncmp(path, kDevice, sizeof kDevice - 1) != 0) return __real_fopen(path, mode);
    platform_calls.opened.emplace_back(path);
    EXPECT_STREQ(mode, "ab+");
    return __real_fopen((platform_calls.dump_folder + (path + sizeof kDevice - 2)).c_str(), mode);
}

size_t __real_fwrite(const void* data, size_t size, size_t count, FILE* file);
size_t __wrap_fwrite(const void* data, size_t size, size_t count, FILE* file) {
    if (platform_calls.counting) ++platform_calls.files;
    return __real_fwrite(data, size, count, file);
}

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (platform_calls.counting)
        ++(mutex == &mVcpLock ? platform_calls.vcp_locks : platform_calls.other_locks);
    return __real_pthread_mutex_lock(mutex);
}

int __wrap___android_log_print(int priority, const char* tag, const char* format, ...) {
    if (platform_calls.counting) {
        platform_calls.log.emplace_back(format);
        return 1;
    }
    va_list arguments;
    va_start(arguments, format);
    const int result = __android_log_vprint(priority, tag, format, arguments);
    va_end(arguments);
    return result;
}

}  // extern "C"
