// SPDX-License-Identifier: Apache-2.0
// The platform's log for fuzzers: lines are formatted, as a real log would, and dropped.
#include <android/log.h>
#include <stdarg.h>
#include <stdio.h>

extern "C" int __android_log_print(int /*prio*/, const char* /*tag*/, const char* fmt, ...) {
    char text[1024];
    va_list arguments;
    va_start(arguments, fmt);
    const int length = vsnprintf(text, sizeof text, fmt, arguments);
    va_end(arguments);
    return length;
}
