// SPDX-License-Identifier: Apache-2.0
#include "host/doctor/device.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <regex>

#include "host/error.h"

namespace krel::host::doctor {
namespace {

namespace fs = std::filesystem;

/// Where else a path of the device may lie: partitions that are folders of another one.
std::vector<std::string> spellings(const std::string& path) {
    std::vector<std::string> all = {path};
    if (path.starts_with("/vendor/")) all.push_back("/system" + path);
    if (path.starts_with("/odm/")) all.push_back("/vendor" + path);
    return all;
}

/// "[name]: [value]" of getprop, or name=value of a build.prop; the first value of a name stays.
void read_properties(const fs::path& path, std::map<std::string, std::string>& properties) {
    static const std::regex line_of_getprop(R"(\[([^\]]+)\]: \[(.*)\]\s*)");
    static const std::regex line_of_build_prop(R"(([\w.]+)=(.*?)\s*)");
    std::ifstream stream(path);
    std::smatch match;
    for (std::string line; std::getline(stream, line);) {
        if (std::regex_match(line, match, line_of_getprop) ||
            std::regex_match(line, match, line_of_build_prop)) {
            properties.emplace(match[1], match[2]);
        }
    }
}

}  // namespace

Device::Device(const fs::path& root) : root_(root) {
    std::error_code error;
    if (!fs::is_directory(root, error)) throw Error(in_quotes(root) + " is no folder");
    read_properties(root / "getprop.txt", properties_);
    for (const char* path : {"/odm/etc/build.prop", "/vendor/build.prop", "/system/build.prop"}) {
        if (const auto found = file(path)) read_properties(found->here, properties_);
    }
}

std::optional<DeviceFile> Device::file(const std::string& on_device) const {
    std::error_code error;
    for (const std::string& path : spellings(on_device)) {
        const fs::path here = root_ / path.substr(1);
        if (fs::is_regular_file(here, error)) return DeviceFile{on_device, here};
    }
    return std::nullopt;
}

std::vector<DeviceFile> Device::files(const std::string& folder) const {
    std::vector<DeviceFile> found;
    std::error_code error;
    for (const std::string& path : spellings(folder + "/")) {
        for (const auto& entry : fs::directory_iterator(root_ / path.substr(1), error)) {
            if (!entry.is_regular_file(error)) continue;
            found.push_back({folder + "/" + entry.path().filename().string(), entry.path()});
        }
    }
    std::ranges::sort(found, {}, &DeviceFile::on_device);
    return found;
}

std::string Device::property(const std::string& name) const {
    const auto found = properties_.find(name);
    return found == properties_.end() ? "" : found->second;
}

int Device::api_level() const {
    for (const char* name : {"ro.vendor.build.version.sdk", "ro.build.version.sdk"}) {
        const auto level = static_cast<int>(strtol(property(name).c_str(), nullptr, 10));
        if (level > 0) return level;
    }
    return 0;
}

}  // namespace krel::host::doctor
