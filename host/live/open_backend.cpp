// SPDX-License-Identifier: Apache-2.0
#include "host/live/open_backend.h"

#include <dlfcn.h>

#include <vector>

#include "host/error.h"
#include "host/interrupt.h"
#include "host/product_file.h"

namespace krel::host::live {
namespace {

/// The module's entry, or null and what is missing. Modules stay loaded: the servers' libraries do
/// not like to go.
OpenBackend* load(const std::string& name, std::string& error) {
    const auto path = product_file("krelvcp-live/" + name + ".so");
    if (!exists(path)) {
        error = "this krelvcp was built without it";
        return nullptr;
    }
    void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_NODELETE);
    if (module == nullptr) {
        error = std::string("cannot load ") + dlerror();
        return nullptr;
    }
    auto* open = reinterpret_cast<OpenBackend*>(dlsym(module, kOpenBackend));
    if (open == nullptr) error = path.string() + " is no backend";
    return open;
}

}  // namespace

std::unique_ptr<Backend> open_backend(const std::string& name, const BackendOptions& options,
                                      Processor& processor) {
    std::vector<std::string> names = {"pipewire", "jack"};
    if (!name.empty()) names = {name};
    std::string errors;
    for (const std::string& n : names) {
        std::string error;
        OpenBackend* const open = load(n, error);
        if (open != nullptr) {
            std::unique_ptr<Backend> backend(open(options, processor, error));
            if (backend) return backend;
            throw_if_interrupted();
        }
        errors.append(errors.empty() ? "" : "; ").append(n).append(": ").append(error);
    }
    throw Error(errors);
}

}  // namespace krel::host::live
