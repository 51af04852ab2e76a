// SPDX-License-Identifier: Apache-2.0
// Fetches from a connected device what the doctor looks at.
#ifndef KREL_HOST_DOCTOR_ADB_H
#define KREL_HOST_DOCTOR_ADB_H

#include <filesystem>

namespace krel::host::doctor {

/// A folder that is gone with the object.
class TemporaryFolder {
  public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

/// Copies the files into `root` with the program adb. What a device lacks or does not let read
/// stays away; throws Error when there is no adb or no device.
void pull_device(const std::filesystem::path& root);

}  // namespace krel::host::doctor

#endif
