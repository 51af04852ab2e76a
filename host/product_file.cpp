// SPDX-License-Identifier: Apache-2.0
#include "host/product_file.h"

namespace krel::host {

std::filesystem::path product_file(const std::string& name) {
    const auto folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    auto beside = folder / name;
    auto installed = folder.parent_path() / KREL_LIBRARY_FOLDER / name;
    return exists(installed) && !exists(beside) ? installed : beside;
}

}  // namespace krel::host
