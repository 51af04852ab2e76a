// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>

#include "host/audio/temporary_file.h"
#include "host/commands/arguments.h"
#include "host/commands/commands.h"
#include "host/commands/output_names.h"
#include "host/commands/render_notes.h"
#include "host/commands/result_table.h"
#include "host/effect/effect_host.h"
#include "host/error.h"
#include "host/render/render.h"

namespace krel::host {
namespace {

namespace fs = std::filesystem;

struct Arguments {
    std::vector<std::string> files;
    std::string out;
    std::vector<std::string> presets;
    std::string channel = "mix";
    std::string gain = "0";
    std::string raw;
    std::string format = "float";
    std::vector<std::string> switches;
    bool force = false;
    bool json = false;
    bool quiet = false;
    bool verbose = false;
    RenderOptions options;
};

/// Also refuses what is no number.
CLI::Validator in_range(double low, double high, const std::string& range) {
    const auto check = [=](const std::string& text) -> std::string {
        double value = 0.0;
        const bool number = CLI::detail::lexical_cast(text, value);
        return number && value >= low && value <= high ? "" : text + " is not in " + range;
    };
    return {check, ""};
}

void add_file_options(CLI::App& command, Arguments& a) {
    command.add_option("FILES", a.files, kFilesText)->required()->type_name("IN... OUT");
    command.add_option("-p,--preset", a.presets,
                       "Voice by name or number, a list such as girl,3, or all")
            ->required()
            ->allow_extra_args(false)
            ->type_name("VOICE");
    command.add_option("-o,--output", a.out, "The same as OUT; then all other names are inputs")
            ->type_name("FILE");
    command.add_option("--type", a.options.type, "Type of the output, whatever its name")
            ->type_name("wav|flac|ogg|opus|mp3|aiff|caf|au|w64|rf64|raw");
    command.add_option("--raw", a.raw, kRawText)->type_name("ENCODING:HZ[:CHANNELS]");
    command.add_flag("--force", a.force, "Let the output replace the input");
    command.add_flag("--json", a.json, "Print one JSON object a line for every result");
    command.add_flag("-q,--quiet", a.quiet, "Print warnings and errors only");
    command.add_flag("-v,--verbose", a.verbose, "Show the effect's log on standard error");
}

void add_sound_options(CLI::App& command, Arguments& a) {
    RenderOptions& o = a.options;
    command.add_option("--channel", a.channel, kChannelText)->type_name("left|right|mix");
    command.add_option("--gain", a.gain, kGainText)->type_name("DB|auto");
    command.add_option("--loudness", o.loudness, kLoudnessText)
            ->check(in_range(-70.0, 0.0, "-70 to 0"))
            ->type_name("LUFS");
    command.add_option("--tail", o.tail_seconds, kTailText)
            ->check(in_range(0.0, 3600.0, "0 to 3600"))
            ->type_name("SECONDS");
    command.add_option("--rate", o.rate_hz, kRateText)
            ->check(in_range(4000.0, 384000.0, "4000 to 384000"))
            ->type_name("HZ");
    command.add_option("--switch", a.switches, kSwitchText)
            ->allow_extra_args(false)
            ->type_name("SECONDS:VOICE");
    command.add_flag("--accumulate", o.accumulate, kAccumulateText);
}

void add_device_options(CLI::App& command, Arguments& a) {
    RenderOptions& o = a.options;
    command.add_option("--block", o.block_frames, "Frames in a block (default: 960)")
            ->check(in_range(1.0, 1 << 20, "1 to 1048576"))
            ->type_name("FRAMES");
    command.add_option("--format", a.format, "Samples in the effect's buffers (default: float)")
            ->type_name("float|s16|s32|q8.24");
    command.add_flag("--raw-timing", o.raw_timing, kRawTimingText);
    command.add_option("--library", o.library, kLibraryText)->type_name("FILE");
}

OutputRequest output_request(Arguments& a) {
    OutputRequest request;
    if (a.out.empty()) {
        if (a.files.size() < 2)
            throw UsageError("OUT is required: a file, a folder, or - for standard output");
        a.out = a.files.back();
        a.files.pop_back();
    }
    request.inputs.assign(a.files.begin(), a.files.end());
    request.presets = parse_presets(CLI::detail::join(a.presets, ","));
    request.out = is_standard_output(a.out) ? "-" : a.out;
    request.type = a.options.type;
    request.force = a.force;
    if (request.out == "-" && isatty(STDOUT_FILENO) == 1)
        throw UsageError("standard output is a terminal: name a file");
    return request;
}

ResultPrinter make_printer(const Arguments& a, const OutputRequest& request) {
    const bool one = request.inputs.size() * request.presets.size() == 1;
    const ResultStyle style = a.quiet  ? ResultStyle::kQuiet
                              : a.json ? ResultStyle::kJson
                              : one    ? ResultStyle::kSummary
                                       : ResultStyle::kTable;
    return {style, request.out == "-" ? stderr : stdout};
}

/// All jobs of one input. The progress line is gone before a result is printed.
void render_input(const Arguments& a, std::span<const Job> jobs, ResultPrinter& printer) {
    std::optional<RawFormat> raw;
    if (!a.raw.empty()) raw = parse_raw_format(a.raw);
    const InputFile in(jobs[0].in, raw);
    if (!fs::path(a.out).has_filename()) fs::create_directories(a.out);
    printer.start_input(jobs[0].in);
    for (const Job& job : jobs) {
        RenderOptions options = a.options;
        options.preset = job.preset;
        std::optional<ProgressLine> line(std::in_place, preset_label(job.preset), !a.quiet);
        const auto progress = [&](double share) { line->show(share); };
        render(in, job.out, options, progress, [&](const RenderResult& result) {
            line.reset();
            printer.print(job, result);
        });
    }
}

/// One bad input does not keep the others from being rendered.
void render_all(const Arguments& a, const std::vector<Job>& jobs, size_t per_input,
                ResultPrinter& printer) {
    size_t failed = 0;
    for (size_t first = 0; first < jobs.size(); first += per_input) {
        try {
            render_input(a, std::span(jobs).subspan(first, per_input), printer);
        } catch (const UsageError&) {
            throw;
        } catch (const Error& e) {
            if (jobs.size() == per_input) throw;
            ++failed;
            fprintf(stderr, "krelvcp: %s\n", e.what());
        }
    }
    if (failed == 0) return;
    throw Error(std::to_string(failed) + " of " + std::to_string(jobs.size() / per_input) +
                " inputs failed");
}

void run(Arguments a) {
    const OutputRequest request = output_request(a);
    a.options.channel = parse_channel(a.channel);
    parse_gain(a.gain, a.options);
    a.options.format = parse_format(a.format);
    a.options.switches = parse_switches(a.switches);
    if (!a.raw.empty()) parse_raw_format(a.raw);
    if (a.options.library.empty()) a.options.library = default_library();
    const std::vector<Job> jobs = plan_jobs(request);
    show_log(a.verbose);
    ResultPrinter printer = make_printer(a, request);
    render_all(a, jobs, request.presets.size(), printer);
}

}  // namespace

void add_render_command(CLI::App& app) {
    CLI::App* command = app.add_subcommand("render", "Change the voice in audio files");
    const auto a = std::make_shared<Arguments>();
    add_file_options(*command, *a);
    add_sound_options(*command, *a);
    add_device_options(*command, *a);
    command->footer(kRenderNotes);
    command->callback([a] { run(*a); });
}

}  // namespace krel::host
