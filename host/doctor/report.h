// SPDX-License-Identifier: Apache-2.0
// What the doctor finds: one line each, and what to do about it.
#ifndef KREL_HOST_DOCTOR_REPORT_H
#define KREL_HOST_DOCTOR_REPORT_H

#include <string>

namespace krel::host::doctor {

/// Prints findings to standard output as they come. `subject` is the part of the device it is
/// about.
class Report {
  public:
    void ok(const std::string& subject, const std::string& found);
    /// Worth knowing, but nothing that keeps the effect from loading.
    void note(const std::string& subject, const std::string& found);
    /// Keeps the effect from loading, or leaves open whether it loads.
    void problem(const std::string& subject, const std::string& found, const std::string& remedy);

    int problems() const { return problems_; }

  private:
    int problems_ = 0;
};

}  // namespace krel::host::doctor

#endif
