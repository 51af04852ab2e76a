// SPDX-License-Identifier: Apache-2.0
#include <elf.h>
#include <tinyxml2.h>

#include <algorithm>

#include "host/doctor/checks.h"
#include "host/error.h"

namespace krel::host::doctor {
namespace {

constexpr char kWidth[] = "audio HAL";
constexpr char kInterface[] = "effects HAL";
constexpr char kEffectHal[] = "android.hardware.audio.effect";

bool has(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }

/// The audio HAL's programs: android.hardware.audio.service, android.hardware.audio@2.0-service,
/// makers' variants.
std::vector<DeviceFile> service_files(const Device& device) {
    std::vector<DeviceFile> found;
    for (const char* folder : {"/odm/bin/hw", "/vendor/bin/hw", "/system/bin/hw"}) {
        std::ranges::copy_if(device.files(folder), std::back_inserter(found), [](const auto& f) {
            const std::string name = f.here.filename();
            const bool audio = name.starts_with("android.hardware.audio.service") ||
                               name.starts_with("android.hardware.audio@");
            return audio && has(name, "service") && !has(name, "aidl");
        });
    }
    return found;
}

void add_service(const DeviceFile& file, Service& service, Report& report) {
    try {
        const ElfFile elf = read_elf(file.here);
        report.ok(kWidth, file.on_device + " is " + machine_name(elf));
        if (std::ranges::count(service.widths, elf.bits) == 0) service.widths.push_back(elf.bits);
        service.machine = elf.machine;
    } catch (const Error& e) {
        report.note(kWidth, file.on_device + " cannot be read: " + e.what());
    }
}

Service find_service(const Device& device, Report& report) {
    Service service;
    for (const DeviceFile& file : service_files(device)) add_service(file, service, report);
    if (service.widths.empty()) {
        report.note(kWidth,
                    "its program is not among the files: the library must be there for 32 "
                    "and for 64 bits");
        return {{32, 64}, 0};
    }
    if (service.widths.size() > 1) {
        service.machine = 0;
        report.note(kWidth, "programs of both widths: the library must be there for both");
    }
    return service;
}

/// The formats, hidl or aidl, in which manifests declare the effects HAL.
void add_formats(const DeviceFile& file, std::vector<std::string>& formats, Report& report) {
    tinyxml2::XMLDocument document;
    if (document.LoadFile(file.here.c_str()) != tinyxml2::XML_SUCCESS) {
        report.note(kInterface, file.on_device + " cannot be read: " + document.ErrorStr());
        return;
    }
    const auto* root = document.FirstChildElement("manifest");
    if (root == nullptr) return;
    for (auto* hal = root->FirstChildElement("hal"); hal != nullptr;
         hal = hal->NextSiblingElement("hal")) {
        const auto* name = hal->FirstChildElement("name");
        const char* format = hal->Attribute("format");
        if (name == nullptr || name->GetText() == nullptr || format == nullptr) continue;
        if (name->GetText() == std::string(kEffectHal)) formats.emplace_back(format);
    }
}

std::vector<std::string> declared_formats(const Device& device, Report& report) {
    std::vector<std::string> formats;
    for (const char* place : {"/vendor/manifest.xml", "/vendor/etc/vintf/manifest.xml",
                              "/odm/manifest.xml", "/odm/etc/vintf/manifest.xml"}) {
        if (const auto file = device.file(place)) add_formats(*file, formats, report);
    }
    for (const char* folder : {"/vendor/etc/vintf/manifest", "/odm/etc/vintf/manifest"}) {
        for (const DeviceFile& file : device.files(folder)) add_formats(file, formats, report);
    }
    return formats;
}

void check_interface(const Device& device, Report& report) {
    const std::vector<std::string> formats = declared_formats(device, report);
    if (std::ranges::count(formats, "aidl") > 0) {
        report.problem(kInterface, "AIDL: this service does not load libraries with a record AELI",
                       "the effect needs a vendor image with a HIDL audio HAL");
    } else if (!formats.empty()) {
        report.ok(kInterface, "HIDL");
    } else if (const int level = device.api_level(); level > 0 && level <= kLastWithoutAidl) {
        report.ok(kInterface, "HIDL, at API level " + std::to_string(level));
    } else {
        report.problem(kInterface,
                       "neither manifests nor an API level up to 33 say that it is HIDL",
                       "pull /vendor/etc/vintf, or adb shell getprop > getprop.txt");
    }
}

}  // namespace

Service check_service(const Device& device, Report& report) {
    check_interface(device, report);
    const std::string ignored = device.property("ro.audio.ignore_effects");
    if (ignored == "true" || ignored == "1") {
        report.problem(kInterface, "ro.audio.ignore_effects is set: no library is loaded",
                       "remove the property");
    }
    return find_service(device, report);
}

}  // namespace krel::host::doctor
