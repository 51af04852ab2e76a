#include "host/output_formats.h"

#include <algorithm>
#include <cctype>
#include <span>

#include "host/error.h"

namespace krel::host {
namespace {

struct Container {
    const char* ending;
    int format;
    int lossy_subtype = 0;  // the only one, if the container has no PCM
    bool four_gib = false;  // has 32-bit length fields
};

constexpr Container kContainers[] = {
        {".wav", SF_FORMAT_WAV, 0, true},
        {".flac", SF_FORMAT_FLAC},
        {".ogg", SF_FORMAT_OGG, SF_FORMAT_VORBIS},
        {".oga", SF_FORMAT_OGG, SF_FORMAT_VORBIS},
        {".opus", SF_FORMAT_OGG, SF_FORMAT_OPUS},
        {".mp3", SF_FORMAT_MPEG, SF_FORMAT_MPEG_LAYER_III},
        {".aiff", SF_FORMAT_AIFF, 0, true},
        {".aif", SF_FORMAT_AIFF, 0, true},
        {".w64", SF_FORMAT_W64},
        {".rf64", SF_FORMAT_RF64},
        {".caf", SF_FORMAT_CAF},
        {".au", SF_FORMAT_AU, 0, true},
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

const Container* find_container(const std::filesystem::path& path) {
    std::string ending = path.extension().string();
    std::ranges::transform(ending, ending.begin(), [](unsigned char c) { return std::tolower(c); });
    const auto* found = std::ranges::find(kContainers, ending, &Container::ending);
    return found == std::end(kContainers) ? nullptr : found;
}

const Subtype* find_subtype(int format) {
    const auto* found = std::ranges::find(kSubtypes, format & SF_FORMAT_SUBMASK, &Subtype::format);
    return found == std::end(kSubtypes) ? nullptr : found;
}

/// The input's own sample format and then ever narrower ones. 8-bit and compressed inputs ask for 16 bits.
std::span<const int> wanted_subtypes(const Container& container, int input_subtype) {
    static constexpr int kNarrowing[] = {SF_FORMAT_DOUBLE, SF_FORMAT_FLOAT, SF_FORMAT_PCM_32,
                                         SF_FORMAT_PCM_24, SF_FORMAT_PCM_16};
    if (container.lossy_subtype != 0) return {&container.lossy_subtype, 1};
    const auto* own = std::ranges::find(kNarrowing, input_subtype);
    return {std::min(own, std::end(kNarrowing) - 1), std::end(kNarrowing)};
}

}  // namespace

void check_output_ending(const std::filesystem::path& path) {
    if (find_container(path) != nullptr) return;
    std::string known;
    for (const Container& c : kContainers) known += std::string(" ") + c.ending;
    throw UsageError("the ending of " + in_quotes(path) + " names no output format; known are" +
                     known);
}

int output_format(const std::filesystem::path& path, int input_subtype, SF_INFO info) {
    check_output_ending(path);
    const Container& container = *find_container(path);
    for (const int subtype : wanted_subtypes(container, input_subtype)) {
        info.format = container.format | subtype;
        if (sf_format_check(&info) != 0) return info.format;
    }
    throw Error("cannot write " + in_quotes(path) + ": " + container.ending +
                " files do not take " + std::to_string(info.samplerate) + " Hz");
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
