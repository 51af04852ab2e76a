// SPDX-License-Identifier: Apache-2.0
// The time that this thread has computed, whatever else the machine does.
#ifndef KREL_HOST_EFFECT_CPU_CLOCK_H
#define KREL_HOST_EFFECT_CPU_CLOCK_H

#include <time.h>

namespace krel::host {

inline double cpu_seconds() {
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

}  // namespace krel::host

#endif
