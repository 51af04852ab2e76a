// SPDX-License-Identifier: Apache-2.0
// What the folders below ask of whoever links them, served for one engine at a time: log lines and
// random draws.
#ifndef KREL_ENGINE_SERVICES_H
#define KREL_ENGINE_SERVICES_H

#include <stdint.h>

#include <atomic>

#include "engine/voice.h"

namespace krel {

/// Whom an engine works for. `drawn` counts its random draws, whichever threads make them.
struct engine_client {
    krel_voice_log log;
    void* context;
    std::atomic<uint32_t> drawn{0};
};

/// While it lives, what this thread logs and draws is the client's. Not for the audio thread: first
/// use in a thread may allocate.
class serving {
  public:
    explicit serving(engine_client* client);
    ~serving();
    serving(const serving&) = delete;
    serving& operator=(const serving&) = delete;

  private:
    engine_client* before_;
};

/// Draw n, from 0, of the sequence that the C library's rand() yields when nobody has seeded it.
int unseeded_draw(uint32_t n);

}  // namespace krel

#endif
