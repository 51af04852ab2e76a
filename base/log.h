// The library's log. Messages are literal and fixed: people grep for them.
//
// On a device they go to the system log, on a desk to stderr (or to whatever logger the program has set). Each call costs
// a system call: nothing below the audio path logs per block except where its contract names the line.
#ifndef KREL_BASE_LOG_H
#define KREL_BASE_LOG_H

#include <android/log.h>

#define KREL_LOGD(tag, ...) ((void)__android_log_print(ANDROID_LOG_DEBUG, tag, __VA_ARGS__))
#define KREL_LOGW(tag, ...) ((void)__android_log_print(ANDROID_LOG_WARN, tag, __VA_ARGS__))
#define KREL_LOGE(tag, ...) ((void)__android_log_print(ANDROID_LOG_ERROR, tag, __VA_ARGS__))

namespace krel {

inline constexpr char kEffectTag[] = "_K_krel_vcp_sfx";  // effect/
inline constexpr char kWrapperTag[] = "_K_vcp_wrapper";  // wrapper/
inline constexpr char kCoreTag[] = "_K_vcp_core";        // core/, spectral/, pitch_stream/, dsp/

}  // namespace krel

#endif
