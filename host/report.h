// What the program tells on the terminal: results on standard output, progress on standard error.
#ifndef KREL_HOST_REPORT_H
#define KREL_HOST_REPORT_H

#include <stddef.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "host/render.h"

namespace krel::host {

void print_presets();

/// The result of a single rendering.
void print_summary(const std::filesystem::path& in, const std::filesystem::path& out, size_t preset,
                   const RenderResult& result);

/// The results of several renderings: a heading, then a row for each.
void print_table_head(const std::filesystem::path& in);
void print_table_row(const std::filesystem::path& out, size_t preset, const RenderResult& result);

/// Flushes standard output; throws Error when not everything could be written.
void check_printed();

/// A percentage on a terminal's last line, for whatever takes longer than a second. Elsewhere nothing.
class ProgressLine {
  public:
    explicit ProgressLine(std::string label);
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    void show(double share);

  private:
    using Clock = std::chrono::steady_clock;
    std::string label_;
    bool terminal_;
    bool shown_ = false;
    Clock::time_point next_;
};

}  // namespace krel::host

#endif
