#include "host/output_names.h"

#include <stdio.h>

#include <algorithm>

#include "host/error.h"
#include "host/output_formats.h"
#include "host/presets.h"

namespace krel::host {
namespace {

namespace fs = std::filesystem;

std::string two_digits(size_t number) {
    char text[24];
    snprintf(text, sizeof(text), "%02zu", number);
    return text;
}

void replace_all(std::string& text, const std::string& what, const std::string& by) {
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at)) {
        text.replace(at, what.size(), by);
        at += by.size();
    }
}

}  // namespace

std::string preset_label(size_t preset) {
    return two_digits(preset) + "-" + presets()[preset].name;
}

std::vector<fs::path> output_paths(const fs::path& in, const fs::path& out,
                                   std::span<const size_t> numbers) {
    std::error_code ignored;
    const fs::path pattern = fs::is_directory(out, ignored) ? out / "{number}-{name}.wav" : out;
    std::vector<fs::path> paths;
    for (const size_t n : numbers) {
        std::string path = pattern.string();
        replace_all(path, "{number}", two_digits(n));
        replace_all(path, "{name}", presets()[n].name);
        if (std::ranges::find(paths, fs::path(path)) != paths.end()) {
            throw UsageError(
                    "several presets would be written to '" + path +
                    "': give a folder that exists, or a pattern such as 'out/{number}.wav'");
        }
        if (numbers.size() > 1 && fs::equivalent(in, path, ignored)) {
            throw UsageError("with several presets, no output may be the input " + in_quotes(path));
        }
        paths.emplace_back(path);
    }
    for (const fs::path& path : paths) check_output_ending(path);
    return paths;
}

}  // namespace krel::host
