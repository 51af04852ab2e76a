// SPDX-License-Identifier: Apache-2.0
#include "host/commands/arguments.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <iterator>
#include <numeric>
#include <string_view>

#include "host/error.h"
#include "host/presets.h"

namespace krel::host {
namespace {

constexpr double kLatestSwitch = 1e6;  // seconds
constexpr int kHighestRate = 768000;
constexpr int kMostChannels = 64;
constexpr double kMostGain = 60.0;

/// The whole of `text` as a number.
template <typename T>
bool parse_number(std::string_view text, T& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

bool same_ignoring_case(std::string_view a, std::string_view b) {
    return std::ranges::equal(
            a, b, {}, [](unsigned char c) { return std::tolower(c); },
            [](unsigned char c) { return std::tolower(c); });
}

/// The parts between the separators; always at least one.
std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (size_t start = 0; start <= text.size();) {
        const size_t end = std::min(text.find(separator, start), text.size());
        parts.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

struct Encoding {
    const char* name;
    int code;
};

constexpr Encoding kEncodings[] = {
        {"s8", SF_FORMAT_PCM_S8},
        {"u8", SF_FORMAT_PCM_U8},
        {"s16le", SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE},
        {"s16be", SF_FORMAT_PCM_16 | SF_ENDIAN_BIG},
        {"s24le", SF_FORMAT_PCM_24 | SF_ENDIAN_LITTLE},
        {"s24be", SF_FORMAT_PCM_24 | SF_ENDIAN_BIG},
        {"s32le", SF_FORMAT_PCM_32 | SF_ENDIAN_LITTLE},
        {"s32be", SF_FORMAT_PCM_32 | SF_ENDIAN_BIG},
        {"f32le", SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE},
        {"f32be", SF_FORMAT_FLOAT | SF_ENDIAN_BIG},
        {"f64le", SF_FORMAT_DOUBLE | SF_ENDIAN_LITTLE},
        {"ulaw", SF_FORMAT_ULAW},
        {"alaw", SF_FORMAT_ALAW},
};

}  // namespace

size_t parse_preset(std::string_view text) {
    size_t preset = 0;
    if (parse_number(text, preset) && preset < presets().size()) return preset;
    const auto found = std::ranges::find_if(
            presets(), [&](const Preset& p) { return same_ignoring_case(p.name, text); });
    if (found != presets().end()) return static_cast<size_t>(found - presets().begin());
    throw UsageError("there is no voice '" + std::string(text) +
                     "': 'krelvcp presets' lists names and numbers");
}

std::vector<size_t> parse_presets(const std::string& text) {
    std::vector<size_t> list;
    for (const std::string_view part : split(text, ',')) {
        std::vector<size_t> found(1);
        if (same_ignoring_case(part, "all")) {
            found.resize(presets().size());
            std::iota(found.begin(), found.end(), size_t{0});
        } else {
            found[0] = parse_preset(part);
        }
        std::ranges::copy_if(found, std::back_inserter(list),
                             [&](size_t p) { return std::ranges::find(list, p) == list.end(); });
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

Channel parse_channel(const std::string& text) {
    if (text == "mix") return Channel::kMix;
    if (text == "left") return Channel::kLeft;
    if (text == "right") return Channel::kRight;
    throw UsageError("--channel " + text + ": choose left, right or mix");
}

RawFormat parse_raw_format(const std::string& text) {
    const auto parts = split(text, ':');
    RawFormat raw;
    const auto* encoding =
            std::ranges::find_if(kEncodings, [&](const Encoding& e) { return parts[0] == e.name; });
    const bool numbers = parts.size() >= 2 && parts.size() <= 3 &&
                         parse_number(parts[1], raw.rate_hz) &&
                         (parts.size() < 3 || parse_number(parts[2], raw.channels));
    if (encoding != std::end(kEncodings) && numbers && raw.rate_hz > 0 &&
        raw.rate_hz <= kHighestRate && raw.channels > 0 && raw.channels <= kMostChannels) {
        raw.encoding = encoding->code;
        return raw;
    }
    std::string known;
    for (const Encoding& e : kEncodings) known += std::string(" ") + e.name;
    throw UsageError(
            "--raw " + text +
            ": give encoding, rate and channels, for instance s16le:8000:1; encodings are" + known);
}

void parse_gain(const std::string& text, RenderOptions& options) {
    options.auto_gain = text == "auto";
    std::string_view number = text;
    if (number.starts_with('+')) number.remove_prefix(1);
    if (options.auto_gain ||
        (parse_number(number, options.gain_db) && std::abs(options.gain_db) <= kMostGain))
        return;
    throw UsageError("--gain " + text + ": give decibels from -60 to 60, or auto");
}

std::vector<PresetSwitch> parse_switches(const std::vector<std::string>& texts) {
    std::vector<PresetSwitch> switches;
    for (const std::string_view text : texts) {
        const size_t colon = text.find(':');
        PresetSwitch s;
        if (colon == std::string_view::npos || !parse_number(text.substr(0, colon), s.seconds) ||
            !(s.seconds >= 0.0 && s.seconds <= kLatestSwitch)) {
            throw UsageError("--switch " + std::string(text) +
                             ": give seconds, a colon and a voice, for instance 2.5:girl");
        }
        s.preset = parse_preset(text.substr(colon + 1));
        switches.push_back(s);
    }
    std::ranges::stable_sort(switches, {}, &PresetSwitch::seconds);
    return switches;
}

}  // namespace krel::host
