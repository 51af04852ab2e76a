// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "host/audio/temporary_file.h"
#include "host/commands/arguments.h"
#include "host/commands/commands.h"
#include "host/commands/render_notes.h"
#include "host/commands/result_table.h"
#include "host/effect/effect_host.h"
#include "host/error.h"
#include "host/presets.h"
#include "host/render/session.h"
#include "host/report/page.h"

namespace krel::host {
namespace {

namespace fs = std::filesystem;

constexpr size_t kMostMinutes = 10;
constexpr size_t kReadFrames = 4096;

constexpr char kNotes[] =
        "The page shows waveform, spectrum, pitch, level, loudness, delay and cost of every voice "
        "beside the original, and "
        "plays them all; a switch to another voice keeps the place in the recording. It needs "
        "nothing else: it opens from "
        "disk in any present browser, and can be sent to others. A voice takes some 120 KB of it "
        "for a recording of 6 "
        "seconds, 650 KB for a minute. Recordings may last 10 minutes.\n"
        "\n"
        "Examples:\n"
        "  krelvcp compare talk.wav -o talk.html\n"
        "  krelvcp compare high.wav low.m4a -o voices.html -p girl,woman,child";

struct Arguments {
    std::vector<std::string> in;
    std::string out;
    std::string presets = "all";
    std::string channel = "mix";
    bool quiet = false;
    RenderOptions options;
};

/// What the voices are made from.
std::vector<float> read_original(const InputFile& in, const RenderOptions& options) {
    VoiceSource source(in, {.channel = options.channel});
    const size_t limit = kMostMinutes * 60 * static_cast<size_t>(source.rate_hz());
    std::vector<float> samples;
    std::vector<double> heard(2 * kReadFrames);
    std::vector<double> original(2 * kReadFrames);
    while (const size_t got = source.read(heard.data(), original.data(), kReadFrames)) {
        for (size_t i = 0; i < got; ++i) samples.push_back(static_cast<float>(heard[2 * i]));
        if (samples.size() > limit) {
            throw Error(in_quotes(in.path()) + " is longer than the " +
                        std::to_string(kMostMinutes) + " minutes that a page holds");
        }
    }
    for (const std::string& text : source.warnings()) {
        fprintf(stderr, "krelvcp: warning: %s\n", text.c_str());
    }
    return samples;
}

Take make_voice(const InputFile& in, const RenderOptions& options, double axis_seconds,
                const Progress& progress) {
    const Preset& preset = presets()[options.preset];
    VoiceSource source(in, {.channel = options.channel});
    std::vector<float> samples;
    Session session(options, source, [&](const double* stereo, size_t frames) {
        for (size_t i = 0; i < frames; ++i) samples.push_back(static_cast<float>(stereo[2 * i]));
    });
    session.run(progress);
    const double rate_hz = source.rate_hz();
    Take take = make_take(samples, source.rate_hz(), axis_seconds);
    take.voice = VoiceFacts{
            .number = options.preset,
            .name = preset.name,
            .description = preset.description,
            .delay_seconds = latency_samples(options.preset, source.rate_hz()) / rate_hz,
            .cost = session.effect_seconds() * rate_hz / static_cast<double>(samples.size()),
    };
    return take;
}

ComparedRecording compare(const fs::path& path, const Arguments& a,
                          const std::vector<size_t>& presets) {
    const InputFile in(path);
    const int rate_hz = VoiceSource(in, {}).rate_hz();
    const std::vector<float> original = read_original(in, a.options);
    const double seconds = static_cast<double>(original.size()) / rate_hz;
    ComparedRecording recording{path.filename().string(), rate_hz, seconds, {}};
    recording.takes.push_back(make_take(original, rate_hz, seconds));
    ProgressLine line(recording.name, !a.quiet);
    RenderOptions options = a.options;
    for (size_t i = 0; i < presets.size(); ++i) {
        options.preset = presets[i];
        recording.takes.push_back(make_voice(in, options, seconds, [&](double share) {
            const double voices = static_cast<double>(i) + std::min(share, 1.0);
            line.show(voices / static_cast<double>(presets.size()));
        }));
    }
    return recording;
}

std::string counted(size_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

void check_output(const Arguments& a) {
    std::error_code ignored;
    for (const std::string& in : a.in) {
        if (fs::equivalent(in, a.out, ignored)) {
            throw UsageError("the page would replace the recording " + in_quotes(in));
        }
    }
}

void run(Arguments a) {
    const std::vector<size_t> presets = parse_presets(a.presets);
    a.options.channel = parse_channel(a.channel);
    if (a.options.library.empty()) a.options.library = default_library();
    check_output(a);
    show_log(false);

    const bool to_standard_output = is_standard_output(a.out);
    TemporaryFile file(to_standard_output ? "-" : a.out);
    std::vector<ComparedRecording> recordings;
    for (const std::string& in : a.in) recordings.push_back(compare(in, a, presets));
    const std::string page = comparison_page(recordings, "krelvcp " KREL_VERSION);
    file.write(page.data(), static_cast<int64_t>(page.size()));
    if (!file.commit()) {
        throw Error("cannot write " + in_quotes(a.out) + ": " + file.error_text());
    }
    if (a.quiet) return;
    fprintf(to_standard_output ? stderr : stdout, "%s: %s, %s, %.1f MB\n", a.out.c_str(),
            counted(recordings.size(), "recording").c_str(),
            counted(presets.size(), "voice").c_str(), static_cast<double>(page.size()) / 1e6);
}

}  // namespace

void add_compare_command(CLI::App& app) {
    CLI::App* command =
            app.add_subcommand("compare", "Make a page to hear and see voices side by side");
    const auto a = std::make_shared<Arguments>();
    command->add_option("FILES", a->in, "Audio files to read, as 'krelvcp render' does")
            ->required()
            ->type_name("IN...");
    command->add_option("-o,--output", a->out, "HTML file to write")->required()->type_name("FILE");
    command->add_option("-p,--preset", a->presets,
                        "Voice by name or number, a list such as girl,3, or all (default)")
            ->join(',')
            ->type_name("VOICE");
    command->add_option("--channel", a->channel, kChannelText)->type_name("left|right|mix");
    command->add_option("--library", a->options.library, kLibraryText)->type_name("FILE");
    command->add_flag("-q,--quiet", a->quiet, "Print warnings and errors only");
    command->footer(kNotes);
    command->callback([a] { run(*a); });
}

}  // namespace krel::host
