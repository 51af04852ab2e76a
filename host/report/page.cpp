// SPDX-License-Identifier: Apache-2.0
#include "host/report/page.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <string_view>

#include "host/report/page_files.h"
#include "host/report/spectrogram.h"

namespace krel::host {
namespace {

using Json = nlohmann::ordered_json;

/// Rounded: the page's size is mostly digits otherwise. Infinities become null, as JSON has none.
Json number(double value, double steps_per_unit) {
    if (!std::isfinite(value)) return nullptr;
    return std::round(value * steps_per_unit) / steps_per_unit;
}

Json contour(const std::vector<float>& contour_hz) {
    Json points = Json::array();
    for (const float hz : contour_hz) points.push_back(std::lround(hz * 10.0F));
    return points;
}

Json take_data(const Take& take) {
    Json data = {{"number", nullptr}};
    if (const auto& voice = take.voice) {
        data = {{"number", voice->number},
                {"name", voice->name},
                {"description", voice->description},
                {"delay", number(voice->delay_seconds, 1e4)},
                {"cost", number(voice->cost, 1e6)}};
    }
    data["seconds"] = number(take.seconds, 1e3);
    data["peak"] = number(take.peak_dbfs, 10.0);
    data["rms"] = number(take.rms_dbfs, 10.0);
    data["loudness"] = number(take.loudness_lufs, 10.0);
    data["pitch"] = number(take.pitch_hz, 10.0);
    data["contour"] = contour(take.contour_hz);
    data["outline"] = take.outline;
    data["spectrogram"] = take.spectrogram;
    data["audio"] = take.audio;
    return data;
}

Json recording_data(const ComparedRecording& recording) {
    Json takes = Json::array();
    for (const Take& take : recording.takes) takes.push_back(take_data(take));
    return {{"name", recording.name},
            {"rate", recording.rate_hz},
            {"axis", number(recording.axis_seconds, 1e3)},
            {"topHz", top_frequency_hz(recording.rate_hz)},
            {"takes", std::move(takes)}};
}

/// Puts a text where the page has a comment with its name.
void insert(std::string& page, std::string_view name, std::string_view text) {
    const std::string comment = "/* " + std::string(name) + " */";
    page.replace(page.find(comment), comment.size(), text);
}

/// As JSON inside a script element, which ends at the first "</".
std::string script_data(const Json& data) {
    std::string text = data.dump(-1, ' ', false, Json::error_handler_t::replace);
    for (size_t at = text.find('<'); at != std::string::npos; at = text.find('<', at)) {
        text.replace(at, 1, "\\u003c");
    }
    return text;
}

}  // namespace

std::string comparison_page(std::span<const ComparedRecording> recordings,
                            const std::string& program) {
    Json data = {{"program", program}, {"recordings", Json::array()}};
    for (const ComparedRecording& recording : recordings) {
        data["recordings"].push_back(recording_data(recording));
    }
    const auto files = page_files();
    std::string page(files.front().text);
    for (const PageFile& file : files.subspan(1)) insert(page, file.name, file.text);
    insert(page, "data", script_data(data));
    return page;
}

}  // namespace krel::host
