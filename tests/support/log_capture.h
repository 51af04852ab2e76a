// Collects the library's log lines, from debug up, while it lives. One at a time.
#ifndef KREL_TESTS_SUPPORT_LOG_CAPTURE_H
#define KREL_TESTS_SUPPORT_LOG_CAPTURE_H

#include <string>
#include <vector>

namespace krel_test {

struct LogLine {
    int priority;  // 3 debug, 5 warn, 6 error
    std::string tag;
    std::string text;
    bool operator==(const LogLine&) const = default;
};
void PrintTo(const LogLine& line, std::ostream* os);

class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    [[nodiscard]] const std::vector<LogLine>& lines() const;
    /// How many lines have exactly this text.
    [[nodiscard]] int count(const std::string& text) const;
    void clear();
};

}  // namespace krel_test

#endif
