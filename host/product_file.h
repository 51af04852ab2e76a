// SPDX-License-Identifier: Apache-2.0
// Where the files are that belong to this program.
#ifndef KREL_HOST_PRODUCT_FILE_H
#define KREL_HOST_PRODUCT_FILE_H

#include <filesystem>
#include <string>

namespace krel::host {

/// A library's path from the program's own place: beside it, as in a build, or else in the folder
/// for libraries of an installed tree. It need not exist.
std::filesystem::path product_file(const std::string& name);

}  // namespace krel::host

#endif
