// SPDX-License-Identifier: Apache-2.0
#include "host/live/display.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "host/commands/result_table.h"

namespace krel::host::live {
namespace {

constexpr double kFloorDb = -60.0;  // what a meter and a figure show as nothing
constexpr int kNarrow = 80;         // columns of a terminal that does not tell
constexpr int kTextColumns = 68;    // of the last line without its meters' bars
constexpr int kLongestBar = 24;

double decibels(float peak) {
    return std::max(20.0 * std::log10(std::max(static_cast<double>(peak), 1e-9)), kFloorDb);
}

int columns() {
    winsize size = {};
    const bool told = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return told ? size.ws_col : kNarrow;
}

std::string bar(float peak, int length) {
    const auto filled =
            static_cast<size_t>(std::lround(length * (1.0 - decibels(peak) / kFloorDb)));
    std::string text(static_cast<size_t>(length), ' ');
    std::fill_n(text.begin(), std::min(filled, text.size()), '=');
    return '[' + text + ']';
}

template <typename... Values>
std::string format(const char* pattern, Values... values) {
    char text[256];
    snprintf(text, sizeof text, pattern, values...);
    return text;
}

}  // namespace

std::string delay_text(const Status& s) {
    return format("%.1f ms (voice %.1f + graph %.1f)", s.voice_ms + s.graph_ms, s.voice_ms,
                  s.graph_ms);
}

std::string status_text(const Status& s) {
    return format("in %.1f dB, out %.1f dB, ", decibels(s.levels.in_peak),
                  decibels(s.levels.out_peak)) +
           delay_text(s) + format(", cost %.2f %%", 100.0 * s.levels.cost);
}

Display::~Display() {
    if (shown_) putchar('\n');
}

void Display::clear() {
    if (shown_) fputs("\r\x1b[K", stdout);
    shown_ = false;
}

void Display::event(const std::string& line) {
    clear();
    printf("%s\n", line.c_str());
    check_printed(stdout);
}

void Display::status(const Status& s) {
    if (!terminal_) return;
    const int width = columns();
    const int length = std::clamp((width - kTextColumns) / 2, 4, kLongestBar);
    std::string line = format("%-6s in ", s.voice.c_str()) + bar(s.levels.in_peak, length) +
                       format("%4.0f out ", decibels(s.levels.in_peak)) +
                       bar(s.levels.out_peak, length) +
                       format("%4.0f dB  %.1f+%.1f ms  %.1f %%", decibels(s.levels.out_peak),
                              s.voice_ms, s.graph_ms, 100.0 * s.levels.cost) +
                       (s.bypass ? " bypass" : "") + (s.monitor ? " monitor" : "");
    line.resize(std::min(line.size(), static_cast<size_t>(std::max(width - 1, 1))));
    clear();
    fputs(line.c_str(), stdout);
    shown_ = true;
    check_printed(stdout);
}

}  // namespace krel::host::live
