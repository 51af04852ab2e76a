// SPDX-License-Identifier: Apache-2.0
#include "host/commands/output_names.h"

#include <stdio.h>

#include <set>

#include "host/audio/output_formats.h"
#include "host/error.h"
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

std::string output_pattern(const OutputRequest& request) {
    std::error_code ignored;
    if (request.out.has_filename() && !fs::is_directory(request.out, ignored))
        return request.out.string();
    const std::string in = request.inputs.size() > 1 ? "{in}-" : "";
    const std::string type = request.type.empty() ? "wav" : request.type;
    return (request.out / (in + "{number}-{name}." + type)).string();
}

void check_distinct(const std::vector<Job>& jobs) {
    std::set<fs::path> seen;
    for (const Job& job : jobs) {
        if (seen.insert(job.out).second) continue;
        throw UsageError("several results would be written to " + in_quotes(job.out) +
                         ": give a folder ('out/') or a pattern such as 'out/{in}-{number}.wav'");
    }
}

[[noreturn]] void refuse_replacing(const fs::path& out) {
    throw UsageError("the output " + in_quotes(out) + " is an input: --force replaces it");
}

[[noreturn]] void refuse_as_input(const fs::path& in) {
    throw UsageError("with several results, no output may be the input " + in_quotes(in));
}

void check_inputs_survive(const OutputRequest& request, const std::vector<Job>& jobs) {
    std::error_code ignored;
    for (const Job& job : jobs) {
        for (const fs::path& in : request.inputs) {
            const bool same = fs::equivalent(in, job.out, ignored);
            if (same && !request.force) refuse_replacing(job.out);
            if (same && jobs.size() > 1) refuse_as_input(in);
        }
    }
}

}  // namespace

std::string preset_label(size_t preset) {
    return two_digits(preset) + "-" + presets()[preset].name;
}

std::vector<Job> plan_jobs(const OutputRequest& request) {
    std::vector<Job> jobs;
    const std::string pattern = output_pattern(request);
    for (const fs::path& in : request.inputs) {
        for (const size_t preset : request.presets) {
            std::string path = pattern;
            replace_all(path, "{in}", in == "-" ? "stdin" : in.stem().string());
            replace_all(path, "{number}", two_digits(preset));
            replace_all(path, "{name}", presets()[preset].name);
            jobs.push_back({in, preset, path});
        }
    }
    check_distinct(jobs);
    check_inputs_survive(request, jobs);
    output_type(jobs.at(0).out, request.type);
    return jobs;
}

}  // namespace krel::host
