// SPDX-License-Identifier: Apache-2.0
// How the host program fails: one line for the user, and the exit code that goes with it.
#ifndef KREL_HOST_ERROR_H
#define KREL_HOST_ERROR_H

#include <filesystem>
#include <stdexcept>
#include <string>

namespace krel::host {

enum ExitCode { kExitOk = 0, kExitFailure = 1, kExitUsage = 2, kExitSignal = 128 };

/// what() is one line that names what failed and on which file or setting.
class Error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The command line asks for something that makes no sense.
class UsageError : public Error {
  public:
    using Error::Error;
};

/// A file's name for messages.
inline std::string in_quotes(const std::filesystem::path& path) {
    std::string text(1, '\'');
    return text.append(path.string()).append(1, '\'');
}

}  // namespace krel::host

#endif
