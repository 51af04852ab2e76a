// SPDX-License-Identifier: Apache-2.0
#include "host/doctor/doctor_command.h"

#include <CLI/CLI.hpp>
#include <memory>

#include "host/doctor/adb.h"
#include "host/doctor/checks.h"
#include "host/error.h"

namespace krel::host {
namespace {

namespace fs = std::filesystem;

constexpr char kNotes[] =
        "PATH is a folder with a device's files at their places on the device, as adb pull gives\n"
        "them:\n"
        "  /vendor/etc/audio_effects.xml   also /odm/etc, /system/etc, /vendor/etc/audio/sku_*\n"
        "  /vendor/lib*/soundfx            also /odm, /system\n"
        "  /vendor/bin/hw/android.hardware.audio*service*\n"
        "  /vendor/etc/vintf               or getprop.txt, what adb shell getprop prints\n"
        "PATH may also be one library file.\n"
        "\n"
        "Every line is ok, a note, or a PROBLEM with what to do. The exit code is 0 only when the\n"
        "device would load the effect.";

struct Arguments {
    std::string path;
    bool adb = false;
};

void examine_device(const fs::path& root, doctor::Report& report) {
    using namespace doctor;
    const Device device(root);
    const Service service = check_service(device, report);
    const auto path = check_config(device, report);
    // A broken configuration says nothing about the files: where they would be looked for is known
    // all the same.
    for (const int width : service.widths) {
        check_installed(device, path.value_or(kLibraryFile), width, service.machine, report);
    }
    note_neighbours(device, report);
}

void examine_library(const fs::path& path, doctor::Report& report) {
    try {
        doctor::check_library(doctor::read_elf(path), report);
    } catch (const Error& e) {
        throw Error(in_quotes(path) + ": " + e.what());
    }
}

void run_doctor(const Arguments& a) {
    if (a.adb == !a.path.empty()) throw UsageError("doctor wants a PATH or --adb");
    doctor::Report report;
    std::error_code error;
    if (a.adb) {
        const doctor::TemporaryFolder folder;
        doctor::pull_device(folder.path());
        examine_device(folder.path(), report);
    } else if (fs::is_regular_file(a.path, error)) {
        examine_library(a.path, report);
    } else {
        examine_device(a.path, report);
    }
    const int problems = report.problems();
    if (problems > 0) {
        throw Error("a device does not load this: " + std::to_string(problems) +
                    (problems == 1 ? " problem" : " problems"));
    }
    printf("A device loads this.\n");
}

}  // namespace

void add_doctor_command(CLI::App& app) {
    auto* command = app.add_subcommand("doctor", "Tell why a device loads the effect, or does not");
    const auto arguments = std::make_shared<Arguments>();
    command->add_option("PATH", arguments->path, "Folder with a device's files, or a library")
            ->type_name("");
    command->add_flag("--adb", arguments->adb, "Fetch the files from the connected device");
    command->footer(kNotes);
    command->callback([arguments] { run_doctor(*arguments); });
}

}  // namespace krel::host
