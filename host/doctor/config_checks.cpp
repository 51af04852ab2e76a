// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "effect/interface.h"
#include "host/doctor/checks.h"
#include "host/doctor/effects_config.h"
#include "host/error.h"

namespace krel::host::doctor {
namespace {

constexpr char kConfig[] = "configuration";
constexpr int kFirstWithSku = 30;

/// Where the factory looks for audio_effects.xml, in its order.
std::vector<std::string> xml_places(const Device& device) {
    std::vector<std::string> places = {"/odm/etc/"};
    const std::string sku = device.property("ro.boot.product.vendor.sku");
    const int level = device.api_level();
    if (!sku.empty() && (level == 0 || level >= kFirstWithSku)) {
        places.push_back("/vendor/etc/audio/sku_" + sku + "/");
    }
    places.insert(places.end(), {"/vendor/etc/", "/system/etc/"});
    for (std::string& place : places) place += "audio_effects.xml";
    return places;
}

std::optional<DeviceFile> first_of(const Device& device, const std::vector<std::string>& places) {
    for (const std::string& place : places) {
        if (auto file = device.file(place)) return file;
    }
    return std::nullopt;
}

struct Chosen {
    DeviceFile file;
    EffectsConfig config;
};

void report_broken(const std::string& found, bool has_other, Report& report) {
    if (has_other) {
        report.note(kConfig, found);
    } else {
        report.problem(kConfig, found, "mend it: no other XML file is looked at");
    }
}

/// The XML file if it can be parsed, else the older file: a broken XML file keeps the factory from
/// all others.
std::optional<Chosen> choose(const Device& device, Report& report) {
    const auto xml = first_of(device, xml_places(device));
    const auto conf =
            first_of(device, {"/vendor/etc/audio_effects.conf", "/system/etc/audio_effects.conf"});
    if (xml) {
        try {
            return Chosen{*xml, read_effects_xml(xml->here)};
        } catch (const Error& e) {
            report_broken(xml->on_device + ": " + e.what(), conf.has_value(), report);
        }
    }
    if (!conf && !xml) {
        report.problem(kConfig, "no file that the factory can take",
                       "/vendor/etc/audio_effects.xml must have the entries of "
                       "android/audio_effects.xml");
    }
    if (!conf) return std::nullopt;
    try {
        return Chosen{*conf, read_effects_conf(conf->here)};
    } catch (const Error& e) {
        report.problem(kConfig, conf->on_device + ": " + e.what(), "mend it");
        return std::nullopt;
    }
}

const EffectsConfig::Effect* find_effect(const EffectsConfig& config) {
    const auto found = std::ranges::find(config.effects, std::string_view(KREL_VCP_UUID_TEXT),
                                         &EffectsConfig::Effect::uuid);
    return found == config.effects.end() ? nullptr : &*found;
}

/// The library that the effect names, if the file has it. Two reports at most: the effect's entry
/// and the library's.
const EffectsConfig::Library* check_entries(const EffectsConfig& config, Report& report) {
    const auto* effect = find_effect(config);
    if (effect == nullptr) {
        report.problem(kConfig, "no effect has the uuid " KREL_VCP_UUID_TEXT,
                       "add <effect> of android/audio_effects.xml");
        return nullptr;
    }
    const auto library =
            std::ranges::find(config.libraries, effect->library, &EffectsConfig::Library::name);
    if (library == config.libraries.end()) {
        report.problem(kConfig,
                       "effect '" + effect->name + "' names the library '" + effect->library +
                               "', which the file does not have",
                       "add <library> of android/audio_effects.xml");
        return nullptr;
    }
    if (std::filesystem::path(library->path).filename() != kLibraryFile) {
        report.problem(kConfig,
                       "library '" + library->name + "' is the file '" + library->path + "'",
                       std::string("its path must be ") + kLibraryFile);
        return nullptr;
    }
    report.ok(kConfig,
              "effect '" + effect->name + "' of library '" + library->name + "', " + library->path);
    return &*library;
}

void note_attachments(const EffectsConfig& config, Report& report) {
    const std::string effect = find_effect(config)->name;
    for (const auto& [section, target, name] : config.attachments) {
        if (name != effect) continue;
        if (section == "deviceEffects") {
            report.note(kConfig, "<deviceEffects> cannot attach this effect: its record is 3.0");
        } else if (section == "preprocess" || section == "pre_processing") {
            report.note(kConfig,
                        "<preprocess> cannot attach this effect: it is of the insert kind");
        } else {
            report.note(kConfig, "attached to every stream of type '" + target + "'");
        }
    }
}

}  // namespace

std::optional<std::string> check_config(const Device& device, Report& report) {
    const auto chosen = choose(device, report);
    if (!chosen) return std::nullopt;
    report.ok(kConfig, "the factory takes " + chosen->file.on_device);
    const auto* library = check_entries(chosen->config, report);
    if (library == nullptr) return std::nullopt;
    note_attachments(chosen->config, report);
    const bool conf = chosen->file.here.extension() == ".conf";
    if (conf && library->path.find("/lib/soundfx/") == std::string::npos) {
        report.problem(
                kConfig, "'" + library->path + "' has no /lib/soundfx/ in it",
                "this format wants the whole path, such as /vendor/lib/soundfx/libkrelvcp.so");
        return std::nullopt;
    }
    if (!conf && library->path.starts_with("/")) {
        report.problem(kConfig, "'" + library->path + "' begins with a slash",
                       "the path is relative to the soundfx folders");
        return std::nullopt;
    }
    return library->path;
}

}  // namespace krel::host::doctor
