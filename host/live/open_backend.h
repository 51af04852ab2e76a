// SPDX-License-Identifier: Apache-2.0
// Finds and loads the module for a sound server.
#ifndef KREL_HOST_LIVE_OPEN_BACKEND_H
#define KREL_HOST_LIVE_OPEN_BACKEND_H

#include <memory>
#include <string>

#include "host/live/backend.h"

namespace krel::host::live {

/// `name` is "pipewire", "jack", or empty for the first of them that runs. Throws Error, which says
/// what is missing of each one that was tried; Interrupted when a signal comes meanwhile.
std::unique_ptr<Backend> open_backend(const std::string& name, const BackendOptions& options,
                                      Processor& processor);

}  // namespace krel::host::live

#endif
