// SPDX-License-Identifier: Apache-2.0
// What the program tells on the terminal: results, warnings, progress.
#ifndef KREL_HOST_COMMANDS_RESULT_TABLE_H
#define KREL_HOST_COMMANDS_RESULT_TABLE_H

#include <stdio.h>

#include <chrono>
#include <set>
#include <string>

#include "host/commands/output_names.h"
#include "host/render/render.h"

namespace krel::host {

enum class ResultStyle { kSummary, kTable, kJson, kQuiet };

/// Results of renderings, on standard output or, where that gets the audio, on standard error;
/// warnings on standard error, each once.
class ResultPrinter {
  public:
    ResultPrinter(ResultStyle style, FILE* to) : style_(style), to_(to) {}

    /// The heading of a table.
    void start_input(const std::filesystem::path& in);
    /// Throws Error when not everything could be written.
    void print(const Job& job, const RenderResult& result);

  private:
    void print_summary(const Job& job, const RenderResult& r);
    void print_row(const Job& job, const RenderResult& r);
    void warn(const char* kind, const std::string& text);

    ResultStyle style_;
    FILE* to_;
    std::set<std::string> told_;
};

/// One line.
std::string json_text(const Job& job, const RenderResult& result);

/// Flushes; throws Error when not everything could be written.
void check_printed(FILE* to);

/// A percentage on a terminal's last line, for whatever takes longer than a second. Elsewhere
/// nothing.
class ProgressLine {
  public:
    ProgressLine(std::string label, bool wanted);
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
