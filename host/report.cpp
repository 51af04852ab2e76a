#include "host/report.h"

#include <stdio.h>
#include <unistd.h>

#include <algorithm>

#include "host/error.h"
#include "host/output_names.h"
#include "host/presets.h"

namespace krel::host {
namespace {

using std::chrono::milliseconds;
constexpr milliseconds kFirstShown{1000};
constexpr milliseconds kShownEvery{200};

void print_levels(const char* side, const LevelMeter& level) {
    printf("  %-8s peak %.1f dBFS, RMS %.1f dBFS, %lld clipped samples\n", side, level.peak_dbfs(),
           level.rms_dbfs(), static_cast<long long>(level.clipped()));
}

}  // namespace

void print_presets() {
    printf("%-4s %-8s %-62s %s\n", "no.", "name", "what it does", "status");
    for (size_t i = 0; i < presets().size(); ++i) {
        const Preset& p = presets()[i];
        printf("%-4zu %-8s %-62s %s\n", i, p.name, p.description,
               p.complete ? "complete" : "passes the voice through");
    }
}

void print_summary(const std::filesystem::path& in, const std::filesystem::path& out, size_t preset,
                   const RenderResult& r) {
    printf("%s -> %s, preset %zu (%s)\n", in.c_str(), out.c_str(), preset, presets()[preset].name);
    printf("  %-8s %.2f s in, %.2f s out, %d Hz, %s, %s\n", "audio", r.input_seconds,
           r.output_seconds, r.rate_hz, r.channels == 1 ? "mono" : "stereo",
           r.output_format.c_str());
    print_levels("input", r.input);
    print_levels("output", r.output);
    printf("  %-8s %.0f times real time in the effect\n", "speed", r.speed());
}

void print_table_head(const std::filesystem::path& in) {
    printf("%s\n", in.c_str());
    printf("%-18s %9s %9s %8s %9s  %s\n", "preset", "peak dBFS", "RMS dBFS", "clipped", "speed",
           "file");
}

void print_table_row(const std::filesystem::path& out, size_t preset, const RenderResult& r) {
    printf("%-18s %9.1f %9.1f %8lld %8.0fx  %s\n", preset_label(preset).c_str(),
           r.output.peak_dbfs(), r.output.rms_dbfs(), static_cast<long long>(r.output.clipped()),
           r.speed(), out.c_str());
    fflush(stdout);
}

void check_printed() {
    if (fflush(stdout) != 0 || ferror(stdout) != 0) throw Error("cannot write to standard output");
}

ProgressLine::ProgressLine(std::string label)
    : label_(std::move(label)),
      terminal_(isatty(STDERR_FILENO) == 1),
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
