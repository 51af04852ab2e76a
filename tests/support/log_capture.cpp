#include "tests/support/log_capture.h"

#include <android/log.h>

#include <algorithm>
#include <mutex>
#include <ostream>

namespace krel_test {
namespace {

std::mutex g_mutex;
std::vector<LogLine> g_lines;

void collect(const __android_logger_data* data, const char* message) {
    const std::lock_guard lock(g_mutex);
    g_lines.push_back({data->priority, data->tag == nullptr ? "" : data->tag, message});
}

void discard(const __android_logger_data*, const char*) {}

}  // namespace

void PrintTo(const LogLine& line, std::ostream* os) {
    *os << line.priority << ' ' << line.tag << ": " << line.text;
}

LogCapture::LogCapture() {
    clear();
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger(collect);
}
LogCapture::~LogCapture() { __android_log_set_logger(discard); }

const std::vector<LogLine>& LogCapture::lines() const { return g_lines; }
int LogCapture::count(const std::string& text) const {
    const std::lock_guard lock(g_mutex);
    return static_cast<int>(
            std::ranges::count_if(g_lines, [&](const LogLine& line) { return line.text == text; }));
}
void LogCapture::clear() {
    const std::lock_guard lock(g_mutex);
    g_lines.clear();
}

}  // namespace krel_test
