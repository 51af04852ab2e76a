// SPDX-License-Identifier: Apache-2.0
// What `live` shows: a line for every event and, on a terminal, a last line that follows the
// levels.
#ifndef KREL_HOST_LIVE_DISPLAY_H
#define KREL_HOST_LIVE_DISPLAY_H

#include <string>

#include "host/live/live_voice.h"

namespace krel::host::live {

struct Status {
    std::string voice;
    Levels levels;
    double voice_ms = 0.0;
    double graph_ms = 0.0;
    bool bypass = false;
    bool monitor = false;
};

/// "160.7 ms (voice 155.3 + graph 5.3)"
std::string delay_text(const Status& status);

/// "in -12.0 dB, out -9.8 dB, ..."
std::string status_text(const Status& status);

/// Both throw Error when standard output takes no more.
class Display {
  public:
    explicit Display(bool terminal) : terminal_(terminal) {}
    ~Display();
    Display(const Display&) = delete;
    Display& operator=(const Display&) = delete;

    void event(const std::string& line);
    /// Replaces the one before. Nothing without a terminal.
    void status(const Status& status);

  private:
    void clear();

    const bool terminal_;
    bool shown_ = false;  // a status is on the last line
};

}  // namespace krel::host::live

#endif
