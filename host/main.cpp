// SPDX-License-Identifier: Apache-2.0
// krelvcp: renders audio files through the voice changer on a desk, as a device would.
#include <CLI/CLI.hpp>
#include <cstdio>

#include "host/commands/commands.h"
#include "host/commands/help.h"
#include "host/commands/result_table.h"
#include "host/doctor/doctor_command.h"
#include "host/error.h"
#include "host/interrupt.h"

namespace krel::host {
namespace {

constexpr char kIntro[] =
        "Changes voices in audio files with the effect library that a device loads, driven block "
        "by "
        "block as a device drives it.";

constexpr char kNotes[] =
        "Examples:\n"
        "  krelvcp presets                                  the voices\n"
        "  krelvcp render talk.wav girl.wav -p girl         one voice\n"
        "  krelvcp render memo.m4a out/ -p all              every voice, a file each\n"
        "  krelvcp compare talk.wav -o talk.html            every voice, on one page\n"
        "  krelvcp render *.flac 'out/{in}-{name}.ogg' -p robot,deep\n"
        "  krelvcp render talk.wav out.wav -p plain --switch 2.5:girl --switch 4:low\n"
        "  krelvcp live --voice girl                        a changed microphone\n"
        "  arecord -f cd -d 5 | krelvcp render - - -p cave | aplay\n"
        "\n"
        "'krelvcp render --help' explains the options.\n"
        "\n"
        "Exit codes:\n"
        "0: done. 1: something failed; one line on standard error says what. 2: the command line "
        "makes no sense. 128 + n: "
        "ended by signal n. What fails or is interrupted leaves no file behind, and a file of that "
        "name as it was.";

/// CLI11 would complain about the word after a mistyped command, or about none at all.
void check_command(const CLI::App& app, int argc, char** argv) {
    if (argc < 2 || argv[1][0] == '-') return;
    const std::string asked = argv[1];
    std::string known;
    for (const CLI::App* c : app.get_subcommands({})) {
        if (c->get_name() == asked) return;
        if (!c->get_group().empty()) known += (known.empty() ? "" : ", ") + c->get_name();
    }
    throw UsageError("there is no command '" + asked + "': the commands are " + known);
}

void run(int argc, char** argv) {
    CLI::App app(kIntro, "krelvcp");
    app.set_version_flag("--version", "krelvcp " KREL_VERSION, "Show the version");
    app.require_subcommand(1);
    app.footer(kNotes);
    add_render_command(app);
#ifdef KREL_REPORT
    add_compare_command(app);
#endif
    add_live_command(app);
    add_presets_command(app);
    add_document_commands(app);
#ifdef KREL_DOCTOR
    add_doctor_command(app);
#endif
    use_plain_help(app);
    check_command(app, argc, argv);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        app.exit(help);
    } catch (const CLI::ParseError& e) {
        throw UsageError(std::string(e.what()) + " (see krelvcp --help)");
    }
    check_printed(stdout);
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
