// SPDX-License-Identifier: Apache-2.0
#include "host/live/controls.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>

#include "host/presets.h"

namespace krel::host::live {
namespace {

using Kind = Request::Kind;

constexpr std::chrono::milliseconds kDigitTime{800};  // for the second digit of a number
constexpr size_t kLongestLine = 200;

struct Key {
    const char* sequence;
    Kind kind;
};

// Longer ones first. The last one is the end of input, typed.
constexpr Key kKeys[] = {
        {"\x1b[C", Kind::kNext},     {"\x1b[B", Kind::kNext}, {"\x1b[D", Kind::kPrevious},
        {"\x1b[A", Kind::kPrevious}, {"n", Kind::kNext},      {"p", Kind::kPrevious},
        {" ", Kind::kBypass},        {"m", Kind::kMonitor},   {"q", Kind::kQuit},
        {"\x04", Kind::kQuit},
};

/// Where a program may write.
bool is_pipe(int fd) {
    struct stat about = {};
    return fstat(fd, &about) == 0 && (S_ISFIFO(about.st_mode) || S_ISSOCK(about.st_mode));
}

/// In the background there are no keys, and a change of the terminal's settings is a stop.
bool in_background() {
    const pid_t front = tcgetpgrp(STDIN_FILENO);  // -1: not the terminal that controls this program
    return front != -1 && front != getpgrp();
}

/// Keys come one by one and unseen. Ctrl-C stays what it is. Not so a stop, for a stopped program
/// would hold up everybody's sound, nor Ctrl-\, which would leave the terminal like this.
termios for_keys(termios settings) {
    settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    settings.c_cc[VSUSP] = settings.c_cc[VQUIT] = _POSIX_VDISABLE;
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
    return settings;
}

Request request(const std::string& line) {
    if (line == "next") return {Kind::kNext, ""};
    if (line == "previous") return {Kind::kPrevious, ""};
    if (line == "bypass") return {Kind::kBypass, ""};
    if (line == "monitor") return {Kind::kMonitor, ""};
    if (line == "status") return {Kind::kStatus, ""};
    if (line == "quit") return {Kind::kQuit, ""};
    return {Kind::kVoice, line};
}

}  // namespace

Controls::Controls() {
    termios settings = {};
    if (isatty(STDOUT_FILENO) == 1 && tcgetattr(STDIN_FILENO, &settings) == 0 && !in_background()) {
        saved_ = settings;
        settings = for_keys(settings);
        tcsetattr(STDIN_FILENO, TCSANOW, &settings);
    }
    if (saved_ || is_pipe(STDIN_FILENO)) fd_ = STDIN_FILENO;
}

Controls::~Controls() {
    if (saved_) tcsetattr(STDIN_FILENO, TCSANOW, &*saved_);
}

std::vector<Request> Controls::read() {
    std::vector<Request> requests;
    char buffer[256];
    const ssize_t count = ::read(fd_, buffer, sizeof buffer);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) return requests;
    if (count <= 0) {
        requests.push_back({Kind::kQuit, ""});
        return requests;
    }
    const std::string typed(buffer, static_cast<size_t>(count));
    if (saved_) {
        read_keys(typed, requests);
    } else {
        line_ += typed;
        read_lines(requests);
    }
    return requests;
}

void Controls::read_keys(const std::string& keys, std::vector<Request>& requests) {
    for (size_t at = 0; at < keys.size();) {
        const std::string rest = keys.substr(at);
        const auto* key = std::ranges::find_if(
                kKeys, [&](const Key& k) { return rest.starts_with(k.sequence); });
        if (key != std::end(kKeys)) {
            requests.push_back({key->kind, ""});
            at += std::string(key->sequence).size();
            continue;
        }
        if (std::isdigit(static_cast<unsigned char>(rest[0])) != 0)
            requests.push_back({Kind::kVoice, typed_number(rest[0])});
        ++at;
    }
}

/// With the digit before, where both came together and are a voice's number.
std::string Controls::typed_number(char digit) {
    const auto now = std::chrono::steady_clock::now();
    const bool together = now - last_digit_ < kDigitTime && digits_.size() == 1;
    const std::string both = digits_ + digit;
    digits_ = together && std::stoul(both) < presets().size() ? both : std::string(1, digit);
    last_digit_ = now;
    return digits_;
}

void Controls::read_lines(std::vector<Request>& requests) {
    for (size_t end = 0; (end = line_.find('\n')) != std::string::npos;) {
        requests.push_back(request(line_.substr(0, end)));
        line_.erase(0, end + 1);
    }
    if (line_.size() > kLongestLine) line_.clear();
}

}  // namespace krel::host::live
