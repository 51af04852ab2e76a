// SPDX-License-Identifier: Apache-2.0
// The file in which a device names its effect libraries: audio_effects.xml, or the older
// audio_effects.conf.
#ifndef KREL_HOST_DOCTOR_EFFECTS_CONFIG_H
#define KREL_HOST_DOCTOR_EFFECTS_CONFIG_H

#include <filesystem>
#include <string>
#include <vector>

namespace krel::host::doctor {

struct EffectsConfig {
    struct Library {
        std::string name;
        std::string path;
    };
    struct Effect {
        std::string name;
        std::string library;
        std::string uuid;  // lower case
    };
    /// An effect that the platform attaches by itself: <stream type="music"> in <postprocess>.
    struct Attachment {
        std::string section;
        std::string target;
        std::string effect;
    };
    std::vector<Library> libraries;
    std::vector<Effect> effects;
    std::vector<Attachment> attachments;
};

/// Throws Error with the reason when the platform's parser would give up on the file.
EffectsConfig read_effects_xml(const std::filesystem::path& path);
EffectsConfig read_effects_conf(const std::filesystem::path& path);

}  // namespace krel::host::doctor

#endif
