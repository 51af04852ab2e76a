// krelvcp: renders audio files through the voice changer on a desk, as a device would.
#include <android/log.h>

#include <CLI/CLI.hpp>
#include <cstdio>

#include "host/arguments.h"
#include "host/effect_host.h"
#include "host/error.h"
#include "host/interrupt.h"
#include "host/output_names.h"
#include "host/render.h"
#include "host/report.h"

namespace krel::host {
namespace {

constexpr double kLongestBlock = 1 << 20;
constexpr double kLongestTail = 3600.0;

constexpr char kIntro[] =
        "Changes voices in audio files. Loads the effect library and drives it block by block, "
        "the\n"
        "way the audio framework of a device does.";

constexpr char kExamples[] =
        "Examples:\n"
        "  krelvcp presets                                       the 17 voices\n"
        "  krelvcp render in.wav out.wav --preset 11             one voice\n"
        "  krelvcp render in.wav folder --preset all             every voice, one file each\n"
        "  krelvcp render in.flac 'v{number}.ogg' --preset 3,6   two voices, names by pattern\n"
        "  krelvcp render in.wav out.wav --preset 7 --switch 2.5:11 --switch 4:3\n"
        "                                                        change the voice on the way\n"
        "\n"
        "'krelvcp render --help' explains the options.\n"
        "\n"
        "Exit codes: 0 done; 1 something failed (one line on standard error says what); 2 the\n"
        "command line makes no sense; 128 + n ended by signal n. A failed or interrupted "
        "rendering\n"
        "leaves no file behind, and a file of that name as it was.";

constexpr char kRenderNotes[] =
        "The effect changes the left channel and plays the result on both; a mono file stays mono. "
        "OUT\n"
        "has the rate and length of IN, and its sample format where the file type has it (16 bits\n"
        "for compressed and 8-bit input). The effect settles on silence before the audio begins, "
        "its\n"
        "delay is cut off at the start, and it is flushed at the end: voice and original line up\n"
        "(presets 10 to 14 within some 20 ms, drifting by up to 0.3 ms per second on long files).\n"
        "With --switch to a later voice the file is longer by the difference of their delays.\n"
        "\n"
        "A sample is rounded (to nearest, ties to even, clamped) only where it goes into a "
        "narrower\n"
        "format: 16-bit audio reaches and leaves every buffer format exactly.";

struct RenderArguments {
    std::string in;
    std::string out;
    std::string presets;
    std::string format = "float";
    std::vector<std::string> switches;
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

void add_render_options(CLI::App& command, RenderArguments& a) {
    RenderOptions& o = a.options;
    command.add_option("IN", a.in, "Audio file to read: mono or stereo, any rate")
            ->required()
            ->type_name("");
    command.add_option("OUT", a.out,
                       "Audio file to write; its ending names the type: .wav .flac .ogg\n"
                       ".aiff .caf .w64 .opus .mp3 ... For several presets: a folder that\n"
                       "exists, or a pattern with {number} and {name}")
            ->required()
            ->type_name("");
    command.add_option("--preset", a.presets, "Voice 0 to 16, a list such as 0,1,3, or all")
            ->required()
            ->type_name("LIST");
    command.add_option("--switch", a.switches,
                       "SECONDS:PRESET changes the voice at the first block from that time\n"
                       "of IN on; may be repeated. What is cut off at the start stays the\n"
                       "delay of the first voice")
            ->allow_extra_args(false)
            ->type_name("TIME:N");
    command.add_option("--tail", o.tail_seconds,
                       "Seconds to go on after the end of IN, for echoes and rooms")
            ->check(in_range(0.0, kLongestTail, "0 to 3600"))
            ->type_name("SECONDS");
    command.add_option("--block", o.block_frames, "Frames in a block (default: 960)")
            ->check(in_range(1.0, kLongestBlock, "1 to 1048576"))
            ->type_name("FRAMES");
    command.add_option("--format", a.format,
                       "Samples in the effect's buffers: float (default), s16, s32, q8.24")
            ->type_name("FORMAT");
    command.add_flag("--accumulate", o.accumulate,
                     "Let the effect add its voice to the original, delayed to match, instead\n"
                     "of replacing it");
    command.add_flag("--raw-timing", o.raw_timing,
                     "Keep what the effect emits from its first block on: the fade-in, the\n"
                     "delay, and the flushed end after it");
    command.add_option("--library", o.library,
                       "Effect library to load (default: the one beside this program, or\n"
                       "installed with it)")
            ->type_name("FILE");
    command.add_flag("-v,--verbose", a.verbose, "Show the effect's log on standard error");
    command.footer(kRenderNotes);
}

/// Renders one file; the progress line is gone before the result is printed.
RenderResult render_with_progress(const RenderArguments& a, const std::filesystem::path& out) {
    ProgressLine line(preset_label(a.options.preset));
    return render(a.in, out, a.options, [&](double share) { line.show(share); });
}

void run_render(RenderArguments a) {
    const std::vector<size_t> presets = parse_presets(a.presets);
    a.options.format = parse_format(a.format);
    a.options.switches = parse_switches(a.switches);
    if (a.options.library.empty()) a.options.library = default_library();
    const auto paths = output_paths(a.in, a.out, presets);
    __android_log_set_minimum_priority(a.verbose ? ANDROID_LOG_VERBOSE : ANDROID_LOG_SILENT);

    if (presets.size() > 1) print_table_head(a.in);
    for (size_t i = 0; i < presets.size(); ++i) {
        a.options.preset = presets[i];
        const RenderResult result = render_with_progress(a, paths[i]);
        if (presets.size() > 1) {
            print_table_row(paths[i], presets[i], result);
        } else {
            print_summary(a.in, paths[i], presets[i], result);
        }
    }
}

void run(int argc, char** argv) {
    CLI::App app(kIntro, "krelvcp");
    app.set_version_flag("--version", "krelvcp " KREL_VERSION);
    app.require_subcommand(1);
    app.footer(kExamples);
    app.add_subcommand("presets", "List the voices")->callback(print_presets);
    RenderArguments arguments;
    CLI::App* command = app.add_subcommand("render", "Render an audio file through the effect");
    add_render_options(*command, arguments);
    command->callback([&] { run_render(arguments); });
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        app.exit(help);
    } catch (const CLI::ParseError& e) {
        throw UsageError(std::string(e.what()) + " (see krelvcp --help)");
    }
    check_printed();
}

}  // namespace
}  // namespace krel::host

int main(int argc, char** argv) {
    using namespace krel::host;
    catch_signals();
    ExitCode code = kExitFailure;
    try {
        run(argc, argv);
        return kExitOk;
    } catch (const Interrupted& cause) {
        die_of(cause);
    } catch (const UsageError& e) {
        code = kExitUsage;
        fprintf(stderr, "krelvcp: %s\n", e.what());
    } catch (const std::exception& e) {
        fprintf(stderr, "krelvcp: %s\n", e.what());
    }
    return code;
}
