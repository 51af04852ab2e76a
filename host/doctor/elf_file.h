// SPDX-License-Identifier: Apache-2.0
// What an ELF file says about itself.
#ifndef KREL_HOST_DOCTOR_ELF_FILE_H
#define KREL_HOST_DOCTOR_ELF_FILE_H

#include <stdint.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace krel::host::doctor {

struct ElfFile {
    int bits = 0;     // 32 or 64
    int machine = 0;  // EM_ARM and so on
    uint32_t flags = 0;
    bool text_relocations = false;
    uint64_t smallest_alignment = 0;  // of the segments to load
    std::vector<std::string> needed;  // names of libraries
    std::vector<std::string> imported;
    std::vector<std::string> exported;
    /// The first two words of the record AELI: tag and version. Nothing when there is no such
    /// symbol.
    std::optional<std::pair<uint32_t, uint32_t>> effect_library;
};

/// Throws Error with the reason when the file is no ELF file that a loader would take.
ElfFile read_elf(const std::filesystem::path& path);

/// "64-bit arm64"
std::string machine_name(const ElfFile& file);

}  // namespace krel::host::doctor

#endif
