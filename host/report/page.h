// SPDX-License-Identifier: Apache-2.0
// The comparison page: one HTML file that needs nothing else.
#ifndef KREL_HOST_REPORT_PAGE_H
#define KREL_HOST_REPORT_PAGE_H

#include <span>
#include <string>
#include <vector>

#include "host/report/take.h"

namespace krel::host {

struct ComparedRecording {
    std::string name;  // for people, any bytes
    int rate_hz = 0;
    double axis_seconds = 0.0;
    std::vector<Take> takes;  // the original first
};

/// The page's text, UTF-8. `program` says what made it.
std::string comparison_page(std::span<const ComparedRecording> recordings,
                            const std::string& program);

}  // namespace krel::host

#endif
