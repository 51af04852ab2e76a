// SPDX-License-Identifier: Apache-2.0
// The files that the page is made of, as they stand in this folder.
#ifndef KREL_HOST_REPORT_PAGE_FILES_H
#define KREL_HOST_REPORT_PAGE_FILES_H

#include <span>
#include <string_view>

namespace krel::host {

struct PageFile {
    std::string_view name;
    std::string_view text;
};

/// The page itself first. It holds a comment with the name of each other file where that belongs.
std::span<const PageFile> page_files();

}  // namespace krel::host

#endif
