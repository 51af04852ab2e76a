// SPDX-License-Identifier: Apache-2.0
// Android's log for a desk: lines on stderr. The environment variable AUDIO_KREL_VCP_LOG, read when
// the library is loaded, holds back those below a priority, named as logcat names it: V, D, I, W,
// E, F, or S for none at all. Without it every line appears, as on a device.
#include <android/log.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

constexpr char kLetters[] = "??VDIWEFS";  // by android_LogPriority

int lowest_from_environment() {
    const char* name = getenv("AUDIO_KREL_VCP_LOG");
    if (name == nullptr || *name == '\0' || *name == '?') return ANDROID_LOG_VERBOSE;
    const char* letter = strchr(kLetters, *name);
    return letter == nullptr ? ANDROID_LOG_VERBOSE : static_cast<int>(letter - kLetters);
}

const int g_lowest = lowest_from_environment();

}  // namespace

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    if (prio < g_lowest) return 0;
    const bool named = prio >= ANDROID_LOG_VERBOSE && prio < ANDROID_LOG_SILENT;
    char text[1024];
    va_list arguments;
    va_start(arguments, fmt);
    vsnprintf(text, sizeof text, fmt, arguments);
    va_end(arguments);
    return fprintf(stderr, "%c/%s: %s\n", named ? kLetters[prio] : '?', tag, text);
}
