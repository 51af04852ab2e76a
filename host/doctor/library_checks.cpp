// SPDX-License-Identifier: Apache-2.0
#include <elf.h>

#include <algorithm>
#include <array>
#include <regex>

#include "host/doctor/checks.h"
#include "host/doctor/needed_names.h"
#include "host/error.h"

namespace krel::host::doctor {
namespace {

constexpr uint32_t kTag = 0x41454C54;  // "AELT"
constexpr uint32_t kMajorVersion = 3;
constexpr uint64_t kSmallPage = 0x1000;
constexpr uint64_t kLargePage = 0x4000;
constexpr char kRebuild[] = "build it for Android (docs/INTEGRATION.md)";

const std::array<std::string, 3> kPartitions = {"/odm", "/vendor", "/system"};

/// What every device of API level 29 and up gives to a vendor library.
const std::regex kPlatformLibraries("lib(c|m|dl|log|cutils|audioutils|utils|c\\+\\+)\\.so");
/// Names that builds other than the checked one may need as well: an Android tree's, the NDK's
/// checked forms, ARM's own.
const std::regex kPlatformNames(
        "__\\w+_chk|__aeabi_\\w+|property_get|memcpy_by_audio_format|__emutls_\\w+");

std::string soundfx(const std::string& partition, int width) {
    return partition + (width == 64 ? "/lib64" : "/lib") + "/soundfx";
}

std::string subject(int bits) { return "library " + std::to_string(bits); }

std::string joined(const std::vector<std::string>& parts) {
    std::string text;
    for (const std::string& part : parts) text += (text.empty() ? "" : ", ") + part;
    return text;
}

/// The file that a process of this width would open.
std::optional<DeviceFile> find_library(const Device& device, const std::string& path, int width) {
    if (path.starts_with("/")) {  // the older format: one whole path, for 32 bits
        const size_t at = path.find("/lib/");
        const std::string changed =
                width == 64 ? path.substr(0, at) + "/lib64/" + path.substr(at + 5) : path;
        return device.file(changed);
    }
    for (const std::string& partition : kPartitions) {
        if (auto file = device.file(soundfx(partition, width) + "/" + path)) return file;
    }
    return std::nullopt;
}

void check_needs(const ElfFile& file, Report& report) {
    std::vector<std::string> lacking;
    for (const std::string& name : file.needed) {
        if (!std::regex_match(name, kPlatformLibraries)) lacking.push_back(name);
    }
    if (!lacking.empty()) {
        report.problem(subject(file.bits), "needs " + joined(lacking) + ", which a device lacks",
                       kRebuild);
        return;
    }
    for (const std::string& name : file.imported) {
        const bool known = std::ranges::find(kNeededNames, name) != std::end(kNeededNames);
        if (!known && !std::regex_match(name, kPlatformNames)) lacking.push_back(name);
    }
    if (lacking.empty()) {
        report.ok(subject(file.bits), "needs " + joined(file.needed) + ", no unknown name of them");
    } else {
        report.problem(subject(file.bits), "needs " + joined(lacking) + ", not known to be there",
                       kRebuild);
    }
}

void check_pages(const ElfFile& file, Report& report) {
    if (file.smallest_alignment < kSmallPage || file.smallest_alignment == UINT64_MAX) {
        report.problem(subject(file.bits), "its segments are not aligned to pages", kRebuild);
    } else if (file.smallest_alignment < kLargePage) {
        report.note(subject(file.bits),
                    "aligned to 4 KiB: devices with pages of 16 KiB do not load it "
                    "(-Wl,-z,max-page-size=16384)");
    } else {
        report.ok(subject(file.bits), "aligned for pages of 4 and 16 KiB");
    }
    if (file.text_relocations) {
        report.problem(subject(file.bits), "has text relocations",
                       "build it as position-independent code");
    }
}

void check_record(const ElfFile& file, Report& report) {
    if (!file.effect_library) {
        report.problem(subject(file.bits), "does not export AELI", "it is no effect library");
        return;
    }
    const auto [tag, version] = *file.effect_library;
    if (tag != kTag || version >> 16 != kMajorVersion) {
        report.problem(subject(file.bits), "AELI has a wrong tag or version",
                       "wanted are AELT and 3.x");
    } else {
        report.ok(subject(file.bits), "AELI, version 3." + std::to_string(version & 0xFFFF));
    }
}

}  // namespace

void check_library(const ElfFile& file, Report& report) {
    if (file.machine == EM_ARM && (file.flags & EF_ARM_ABI_FLOAT_HARD) != 0) {
        report.problem(subject(file.bits),
                       "passes floats in registers (hard float), a device does not", kRebuild);
    }
    check_needs(file, report);
    check_pages(file, report);
    check_record(file, report);
}

void check_installed(const Device& device, const std::string& path, int width, int machine,
                     Report& report) {
    const auto found = find_library(device, path, width);
    if (!found) {
        report.problem(subject(width),
                       "not where a " + std::to_string(width) + "-bit process looks",
                       "put that build into " + soundfx("/vendor", width));
        return;
    }
    try {
        const ElfFile file = read_elf(found->here);
        const bool right_machine = machine == 0 || machine == file.machine;
        if (file.bits != width || !right_machine) {
            report.problem(subject(width), found->on_device + " is " + machine_name(file),
                           "put the build for this process there");
            return;
        }
        report.ok(subject(width), found->on_device + " is " + machine_name(file));
        check_library(file, report);
    } catch (const Error& e) {
        report.problem(subject(width), found->on_device + ": " + e.what(), "copy it again");
    }
}

void note_neighbours(const Device& device, Report& report) {
    std::vector<std::string> folders;
    for (const std::string& partition : kPartitions) {
        for (const int width : {32, 64}) folders.push_back(soundfx(partition, width));
    }
    for (const std::string& folder : folders) {
        auto files = device.files(folder);
        std::erase_if(files, [](const auto& f) { return f.here.filename() == kLibraryFile; });
        if (files.empty()) continue;
        report.note("neighbours", std::to_string(files.size()) + " other files in " + folder);
    }
}

}  // namespace krel::host::doctor
