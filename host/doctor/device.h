// SPDX-License-Identifier: Apache-2.0
// A device's files, as they lie in a folder.
#ifndef KREL_HOST_DOCTOR_DEVICE_H
#define KREL_HOST_DOCTOR_DEVICE_H

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace krel::host::doctor {

/// A file by its path on the device and on this machine.
struct DeviceFile {
    std::string on_device;
    std::filesystem::path here;
};

/// The last Android version (API level) whose effects service is never the AIDL one.
inline constexpr int kLastWithoutAidl = 33;

/// Files and properties of one device. Properties are those of getprop.txt, what `adb shell
/// getprop` printed, or else of the build.prop files.
class Device {
  public:
    /// `root` has the device's paths below it: root/vendor/etc and so on. Throws Error when it is
    /// no folder.
    explicit Device(const std::filesystem::path& root);

    std::optional<DeviceFile> file(const std::string& on_device) const;
    /// The regular files directly in a folder, by name; none when there is no such folder.
    std::vector<DeviceFile> files(const std::string& folder) const;

    /// Empty when unknown.
    std::string property(const std::string& name) const;
    /// The vendor image's Android version as API level; 0 when unknown.
    int api_level() const;

  private:
    std::filesystem::path root_;
    std::map<std::string, std::string> properties_;
};

}  // namespace krel::host::doctor

#endif
