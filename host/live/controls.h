// SPDX-License-Identifier: Apache-2.0
// What the user asks for while the voice is live: keys on a terminal, lines from a program.
#ifndef KREL_HOST_LIVE_CONTROLS_H
#define KREL_HOST_LIVE_CONTROLS_H

#include <termios.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace krel::host::live {

struct Request {
    enum class Kind { kVoice, kNext, kPrevious, kBypass, kMonitor, kStatus, kQuit };
    Kind kind;
    std::string voice;  // kVoice: as the user named it
};

/// Single keys where standard input and output are a terminal, which is set up for it and put back,
/// and the program runs in its foreground; lines where standard input is a pipe or a socket;
/// otherwise nothing.
class Controls {
  public:
    Controls();
    ~Controls();
    Controls(const Controls&) = delete;
    Controls& operator=(const Controls&) = delete;

    [[nodiscard]] bool on_terminal() const { return saved_.has_value(); }
    /// To be polled; -1: there is nothing to wait for.
    [[nodiscard]] int fd() const { return fd_; }
    /// Call when fd() is readable. That the terminal, or the program at the other end, has gone is
    /// a request to quit.
    std::vector<Request> read();

  private:
    void read_keys(const std::string& keys, std::vector<Request>& requests);
    void read_lines(std::vector<Request>& requests);
    std::string typed_number(char digit);

    int fd_ = -1;
    std::optional<termios> saved_;  // the terminal's settings before
    std::string line_;              // begun, not ended
    std::string digits_;            // typed just now
    std::chrono::steady_clock::time_point last_digit_;
};

}  // namespace krel::host::live

#endif
