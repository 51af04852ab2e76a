// SPDX-License-Identifier: Apache-2.0
// What the effect library takes from the platform: the system log, for which on a desk stands
// platform/standin/log.cpp, and the C library's random numbers. libkrelvoice brings its own
// (engine/services.cpp).
#include <android/log.h>
#include <stdlib.h>

#include "base/log.h"
#include "base/random.h"

namespace krel {

extern const log_print_t log_print = __android_log_print;
extern const log_print_t log_print_audio = __android_log_print;

// Never seeded, so that every process hears the same jitter.
int random_draw() { return rand(); }

}  // namespace krel
