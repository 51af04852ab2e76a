// SPDX-License-Identifier: Apache-2.0
// The library's log. Messages are literal and fixed: people grep for them.
//
// Who links the folders together says where lines go (see base/system.cpp). Each may cost a system
// call: nothing below the audio path logs per block except where its contract names the line.
#ifndef KREL_BASE_LOG_H
#define KREL_BASE_LOG_H

namespace krel {

/// Prints one line, in the manner of printf.
typedef int (*log_print_t)(int priority, const char* tag, const char* format, ...)
        __attribute__((format(printf, 3, 4)));

extern const log_print_t log_print;
/// For lines that the audio path may log: an owner whose audio thread must not, leaves them out.
extern const log_print_t log_print_audio;

/// Android's numbers.
enum LogPriority { kLogDebug = 3, kLogWarn = 5, kLogError = 6 };

inline constexpr char kEffectTag[] = "_K_krel_vcp_sfx";  // effect/
inline constexpr char kWrapperTag[] = "_K_vcp_wrapper";  // wrapper/
inline constexpr char kCoreTag[] = "_K_vcp_core";        // core/, spectral/, pitch_stream/, dsp/

}  // namespace krel

#define KREL_LOGD(tag, ...) ((void)krel::log_print(krel::kLogDebug, tag, __VA_ARGS__))
#define KREL_LOGW(tag, ...) ((void)krel::log_print(krel::kLogWarn, tag, __VA_ARGS__))
#define KREL_LOGE(tag, ...) ((void)krel::log_print(krel::kLogError, tag, __VA_ARGS__))
#define KREL_LOGD_AUDIO(tag, ...) ((void)krel::log_print_audio(krel::kLogDebug, tag, __VA_ARGS__))

#endif
