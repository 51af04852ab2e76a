// SPDX-License-Identifier: Apache-2.0
#include "host/doctor/report.h"

#include <cstdio>

namespace krel::host::doctor {

void Report::ok(const std::string& subject, const std::string& found) {
    printf("ok       %-14s %s\n", subject.c_str(), found.c_str());
}

void Report::note(const std::string& subject, const std::string& found) {
    printf("note     %-14s %s\n", subject.c_str(), found.c_str());
}

void Report::problem(const std::string& subject, const std::string& found,
                     const std::string& remedy) {
    printf("PROBLEM  %-14s %s: %s\n", subject.c_str(), found.c_str(), remedy.c_str());
    ++problems_;
}

}  // namespace krel::host::doctor
