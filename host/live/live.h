// SPDX-License-Identifier: Apache-2.0
// A voice between the microphone and every program that listens to it.
#ifndef KREL_HOST_LIVE_LIVE_H
#define KREL_HOST_LIVE_LIVE_H

#include <stddef.h>

#include <string>

#include "host/live/backend.h"

namespace krel::host::live {

struct LiveOptions {
    size_t preset = 0;
    std::string backend;  // "pipewire", "jack"; empty: whichever runs
    BackendOptions graph;
};

/// Runs until the user, or whoever controls the program, asks it to end. Throws Error without a
/// sound server or a microphone, and when the server goes away; Interrupted on a signal.
void run_live(const LiveOptions& options);

}  // namespace krel::host::live

#endif
