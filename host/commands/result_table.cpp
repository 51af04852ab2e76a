// SPDX-License-Identifier: Apache-2.0
#include "host/commands/result_table.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "host/error.h"
#include "host/presets.h"

namespace krel::host {
namespace {

using std::chrono::milliseconds;
constexpr milliseconds kFirstShown{1000};
constexpr milliseconds kShownEvery{200};
constexpr double kLowestHum = 60.0;  // Hz; below, small loudspeakers give nothing

void print_levels(FILE* to, const char* side, const LevelMeter& level) {
    fprintf(to, "  %-9s peak %.1f dBFS, RMS %.1f dBFS, %lld clipped samples\n", side,
            level.peak_dbfs(), level.rms_dbfs(), static_cast<long long>(level.clipped()));
}

std::string hum_hint(const Job& job, const RenderResult& r) {
    const double hum = hum_hz(job.preset, r.rate_hz);
    if (hum <= 0.0 || hum >= kLowestHum) return "";
    char text[160];
    snprintf(text, sizeof(text),
             "'%s' hums at %.0f Hz at this rate, which small loudspeakers do not give; --rate "
             "48000 makes it %.0f Hz",
             presets()[job.preset].name, hum, hum_hz(job.preset, 48000));
    return text;
}

}  // namespace

void ResultPrinter::start_input(const std::filesystem::path& in) {
    if (style_ != ResultStyle::kTable) return;
    fprintf(to_, "%s\n%-10s %6s %6s %6s %6s %7s %6s %6s  %s\n", in.c_str(), "voice", "LUFS", "dBTP",
            "peak", "RMS", "clipped", "flat", "speed", "file");
}

void ResultPrinter::print(const Job& job, const RenderResult& result) {
    if (style_ == ResultStyle::kSummary) print_summary(job, result);
    if (style_ == ResultStyle::kTable) print_row(job, result);
    if (style_ == ResultStyle::kJson) fprintf(to_, "%s\n", json_text(job, result).c_str());
    check_printed(to_);
    for (const std::string& text : result.warnings) warn("warning", text);
    if (const std::string hint = hum_hint(job, result);
        style_ != ResultStyle::kQuiet && !hint.empty()) {
        warn("hint", hint);
    }
}

void ResultPrinter::print_summary(const Job& job, const RenderResult& r) {
    fprintf(to_, "%s -> %s, voice %zu (%s)\n", job.in.c_str(), job.out.c_str(), job.preset,
            presets()[job.preset].name);
    fprintf(to_, "  %-9s %.2f s in, %.2f s out, %d Hz, %s, %s\n", "audio", r.input_seconds,
            r.output_seconds, r.rate_hz, r.channels == 1 ? "mono" : "stereo",
            r.output_format.c_str());
    print_levels(to_, "input", r.input);
    if (r.gain_db != 0.0) fprintf(to_, "  %-9s %+.1f dB before the voice\n", "gain", r.gain_db);
    print_levels(to_, "output", r.output);
    fprintf(to_, "  %-9s %.1f LUFS, true peak %.1f dBTP\n", "loudness", r.lufs, r.true_peak);
    fprintf(to_, "  %-9s %.0f times real time in the effect\n", "speed", r.speed());
}

void ResultPrinter::print_row(const Job& job, const RenderResult& r) {
    fprintf(to_, "%-10s %6.1f %6.1f %6.1f %6.1f %7lld %5.2f%% %5.0fx  %s\n",
            preset_label(job.preset).c_str(), r.lufs, r.true_peak, r.output.peak_dbfs(),
            r.output.rms_dbfs(), static_cast<long long>(r.output.clipped()), 100.0 * r.flat_tops,
            r.speed(), job.out.c_str());
}

void ResultPrinter::warn(const char* kind, const std::string& text) {
    if (told_.insert(text).second) fprintf(stderr, "krelvcp: %s: %s\n", kind, text.c_str());
}

void check_printed(FILE* to) {
    if (fflush(to) != 0 || ferror(to) != 0) throw Error("cannot write to standard output");
}

ProgressLine::ProgressLine(std::string label, bool wanted)
    : label_(std::move(label)),
      terminal_(wanted && isatty(STDERR_FILENO) == 1),
      next_(Clock::now() + kFirstShown) {}

ProgressLine::~ProgressLine() {
    if (shown_) fputs("\r\033[K", stderr);
}

void ProgressLine::show(double share) {
    if (!terminal_ || Clock::now() < next_) return;
    shown_ = true;
    next_ = Clock::now() + kShownEvery;
    fprintf(stderr, "\r%s: %3.0f %%", label_.c_str(), 100.0 * std::min(share, 1.0));
    fflush(stderr);
}

}  // namespace krel::host
