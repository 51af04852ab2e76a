// SPDX-License-Identifier: Apache-2.0
#include "host/doctor/adb.h"

#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>

#include <string>
#include <vector>

#include "host/error.h"

extern char** environ;

namespace krel::host::doctor {
namespace {

namespace fs = std::filesystem;

constexpr const char* kPulled[] = {
        "/odm/etc/audio_effects.xml",
        "/vendor/etc/audio_effects.xml",
        "/vendor/etc/audio_effects.conf",
        "/vendor/etc/audio",
        "/system/etc/audio_effects.xml",
        "/system/etc/audio_effects.conf",
        "/odm/etc/vintf",
        "/vendor/etc/vintf",
        "/odm/lib/soundfx",
        "/vendor/lib/soundfx",
        "/system/lib/soundfx",
        "/odm/lib64/soundfx",
        "/vendor/lib64/soundfx",
        "/system/lib64/soundfx",
        "/odm/bin/hw",
        "/vendor/bin/hw",
};

/// Runs adb with its output in a file; its exit code, or -1 when it could not be run at all.
int run_adb(std::vector<std::string> arguments, const fs::path& output) {
    arguments.insert(arguments.begin(), "adb");
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&files, 2, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int error = posix_spawnp(&child, "adb", &files, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    int status = 0;
    if (error != 0 || waitpid(child, &status, 0) < 0) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
    std::string name = fs::temp_directory_path() / "krelvcp-doctor-XXXXXX";
    if (mkdtemp(name.data()) == nullptr)
        throw Error("no temporary folder: " + std::string(strerror(errno)));
    path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code error;
    fs::remove_all(path_, error);
}

void pull_device(const fs::path& root) {
    const int result = run_adb({"shell", "getprop"}, root / "getprop.txt");
    if (result == -1 || result == 127)
        throw Error("the program adb cannot be run: is it installed?");
    if (result != 0) throw Error("adb reaches no device: see adb devices");
    for (const char* path : kPulled) {
        const fs::path target = root / fs::path(path).relative_path();
        fs::create_directories(target.parent_path());
        run_adb({"pull", path, target}, "/dev/null");
    }
}

}  // namespace krel::host::doctor
