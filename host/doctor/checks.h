// SPDX-License-Identifier: Apache-2.0
// What must hold for a device's effects factory to load this library. Each check reports what it
// found.
#ifndef KREL_HOST_DOCTOR_CHECKS_H
#define KREL_HOST_DOCTOR_CHECKS_H

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "host/doctor/device.h"
#include "host/doctor/elf_file.h"
#include "host/doctor/report.h"

namespace krel::host::doctor {

inline constexpr char kLibraryFile[] = "libkrelvcp.so";

/// The process that hosts effects: its widths, 32 or 64 or, when unknown, both; and its machine, 0
/// when unknown.
struct Service {
    std::vector<int> widths;
    int machine = 0;
};

/// The audio HAL's program: how wide it is. The manifests: whether it is one that loads such
/// libraries at all.
Service check_service(const Device& device, Report& report);

/// Which configuration file the factory takes, and its entries. The library's path as that file has
/// it, or nothing.
std::optional<std::string> check_config(const Device& device, Report& report);

/// The library where a process of that width looks for it. `path` is what the configuration file
/// says.
void check_installed(const Device& device, const std::string& path, int width, int machine,
                     Report& report);

/// One library file: what a device asks of it.
void check_library(const ElfFile& file, Report& report);

/// Other effect libraries in the folders, for comparison.
void note_neighbours(const Device& device, Report& report);

}  // namespace krel::host::doctor

#endif
