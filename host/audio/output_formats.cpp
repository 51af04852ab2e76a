// SPDX-License-Identifier: Apache-2.0
#include "host/audio/output_formats.h"

#include <algorithm>
#include <cctype>
#include <span>

#include "host/audio/temporary_file.h"
#include "host/error.h"

namespace krel::host {
namespace {

constexpr int kOpusRates[] = {8000, 12000, 16000, 24000, 48000};
constexpr int kMp3Rates[] = {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000};

struct Container {
    const char* type;  // also the ending of its files
    int format;
    int lossy_subtype = 0;            // the only one, if the container has no PCM
    bool four_gib = false;            // has 32-bit length fields
    std::span<const int> rates = {};  // the only ones, in order; none: any
};

constexpr Container kContainers[] = {
        {"wav", SF_FORMAT_WAV, 0, true},
        {"flac", SF_FORMAT_FLAC},
        {"ogg", SF_FORMAT_OGG, SF_FORMAT_VORBIS},
        {"oga", SF_FORMAT_OGG, SF_FORMAT_VORBIS},
        {"opus", SF_FORMAT_OGG, SF_FORMAT_OPUS, false, kOpusRates},
        {"mp3", SF_FORMAT_MPEG, SF_FORMAT_MPEG_LAYER_III, false, kMp3Rates},
        {"aiff", SF_FORMAT_AIFF, 0, true},
        {"aif", SF_FORMAT_AIFF, 0, true},
        {"w64", SF_FORMAT_W64},
        {"rf64", SF_FORMAT_RF64},
        {"caf", SF_FORMAT_CAF},
        {"au", SF_FORMAT_AU, 0, true},
        {"raw", SF_FORMAT_RAW},
        {"pcm", SF_FORMAT_RAW},
};

struct Subtype {
    const char* name;
    int format;
    int integer_bits = 0;
};

constexpr Subtype kSubtypes[] = {
        {"64-bit float", SF_FORMAT_DOUBLE}, {"32-bit float", SF_FORMAT_FLOAT},
        {"32-bit", SF_FORMAT_PCM_32, 32},   {"24-bit", SF_FORMAT_PCM_24, 24},
        {"16-bit", SF_FORMAT_PCM_16, 16},   {"Vorbis", SF_FORMAT_VORBIS},
        {"Opus", SF_FORMAT_OPUS},           {"MPEG layer 3", SF_FORMAT_MPEG_LAYER_III},
};

const Container* find_container(const std::string& type) {
    const auto* found = std::ranges::find_if(kContainers, [&](auto& c) { return type == c.type; });
    return found == std::end(kContainers) ? nullptr : found;
}

std::string lower_case(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

const Subtype* find_subtype(int format) {
    const auto* found = std::ranges::find(kSubtypes, format & SF_FORMAT_SUBMASK, &Subtype::format);
    return found == std::end(kSubtypes) ? nullptr : found;
}

/// The input's own sample format and then ever narrower ones. 8-bit and compressed inputs ask for
/// 16 bits.
std::span<const int> wanted_subtypes(const Container& container, int input_subtype) {
    static constexpr int kNarrowing[] = {SF_FORMAT_DOUBLE, SF_FORMAT_FLOAT, SF_FORMAT_PCM_32,
                                         SF_FORMAT_PCM_24, SF_FORMAT_PCM_16};
    if (container.lossy_subtype != 0) return {&container.lossy_subtype, 1};
    const auto* own = std::ranges::find(kNarrowing, input_subtype);
    return {std::min(own, std::end(kNarrowing) - 1), std::end(kNarrowing)};
}

/// The next rate that the container takes, or its highest.
int nearest_rate(const Container& container, int rate_hz) {
    if (container.rates.empty()) return rate_hz;
    const auto next = std::ranges::lower_bound(container.rates, rate_hz);
    return next == container.rates.end() ? container.rates.back() : *next;
}

}  // namespace

std::string output_type(const std::filesystem::path& path, const std::string& type) {
    const std::string ending = path.extension().string();
    const std::string own = is_standard_output(path) ? "wav"
                            : ending.empty()         ? ""
                                                     : ending.substr(1);
    std::string wanted = lower_case(type.empty() ? own : type);
    if (find_container(wanted) != nullptr) return wanted;
    std::string known;
    for (const Container& c : kContainers) known += std::string(" ") + c.type;
    const std::string what = type.empty() ? "the ending of " + in_quotes(path) : "--type " + type;
    throw UsageError(what + " names no output format; known are" + known);
}

void choose_format(const std::string& type, int input_subtype, SF_INFO& info) {
    const Container& container = *find_container(type);
    info.samplerate = nearest_rate(container, info.samplerate);
    for (const int subtype : wanted_subtypes(container, input_subtype)) {
        info.format = container.format | subtype;
        if (sf_format_check(&info) != 0) return;
    }
    throw Error(type + " files do not take " + std::to_string(info.samplerate) + " Hz");
}

int integer_bits(int format) {
    const Subtype* subtype = find_subtype(format);
    return subtype == nullptr ? 0 : subtype->integer_bits;
}

int64_t largest_file(int format) {
    const auto* found =
            std::ranges::find(kContainers, format & SF_FORMAT_TYPEMASK, &Container::format);
    return found->four_gib ? INT64_C(0xffffffff) : INT64_MAX;
}

std::string format_text(int format) {
    const Subtype* subtype = find_subtype(format);
    return subtype == nullptr ? "?" : subtype->name;
}

}  // namespace krel::host
