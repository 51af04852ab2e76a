#include "host/arguments.h"

#include <algorithm>
#include <charconv>
#include <numeric>
#include <string_view>

#include "host/error.h"
#include "host/presets.h"

namespace krel::host {
namespace {

constexpr double kLatestSwitch = 1e6;  // seconds

/// The whole of `text` as a number.
template <typename T>
bool parse_number(std::string_view text, T& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

size_t parse_preset(std::string_view text) {
    size_t preset = 0;
    if (!parse_number(text, preset) || preset >= presets().size()) {
        throw Error("there is no preset '" + std::string(text) +
                    "': they are numbered 0 to 16, see 'krelvcp presets'");
    }
    return preset;
}

}  // namespace

std::vector<size_t> parse_presets(const std::string& text) {
    if (text == "all") {
        std::vector<size_t> all(presets().size());
        std::iota(all.begin(), all.end(), size_t{0});
        return all;
    }
    std::vector<size_t> list;
    for (size_t start = 0; start <= text.size();) {
        const size_t comma = std::min(text.find(',', start), text.size());
        const size_t preset = parse_preset(std::string_view(text).substr(start, comma - start));
        if (std::ranges::find(list, preset) == list.end()) list.push_back(preset);
        start = comma + 1;
    }
    return list;
}

SampleFormat parse_format(const std::string& text) {
    for (const SampleFormat f :
         {SampleFormat::kFloat, SampleFormat::kS16, SampleFormat::kS32, SampleFormat::kQ8_23}) {
        if (text == format_name(f)) return f;
    }
    throw UsageError("--format " + text + ": choose float, s16, s32 or q8.24");
}

std::vector<PresetSwitch> parse_switches(const std::vector<std::string>& texts) {
    std::vector<PresetSwitch> switches;
    for (const std::string_view text : texts) {
        const size_t colon = text.find(':');
        PresetSwitch s;
        if (colon == std::string_view::npos || !parse_number(text.substr(0, colon), s.seconds) ||
            !(s.seconds >= 0.0 && s.seconds <= kLatestSwitch)) {
            throw UsageError("--switch " + std::string(text) +
                             ": give seconds, a colon and a preset, for instance 2.5:11");
        }
        s.preset = parse_preset(text.substr(colon + 1));
        switches.push_back(s);
    }
    std::ranges::stable_sort(switches, {}, &PresetSwitch::seconds);
    return switches;
}

}  // namespace krel::host
