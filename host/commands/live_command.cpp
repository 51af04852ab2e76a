// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>

#include "host/commands/arguments.h"
#include "host/commands/commands.h"
#include "host/error.h"
#include "host/live/live.h"

namespace krel::host {
namespace {

constexpr char kNotes[] =
        "PipeWire gets a microphone 'Krel voice', which any program can choose, JACK a client "
        "krel-voice with the ports in and out. It stands as long as the command runs. Monitor with "
        "headphones: loudspeakers come back through the microphone.\n"
        "\n"
        "Keys on a terminal:\n"
        "  n, p, arrows   the next voice, the one before\n"
        "  0 to 16        the voice of that number\n"
        "  space          bypass: your own voice, as late as the changed one\n"
        "  m              monitor on, off\n"
        "  q, Ctrl-C      quit\n"
        "\n"
        "Without a terminal every event is a line on standard output. Where standard input is a "
        "pipe, its lines are requests: a voice's name or number, next, previous, bypass, monitor, "
        "status, quit; its end is quit too.\n"
        "\n"
        "A microphone that is unplugged leaves silence, and is heard again when it is back. When "
        "the sound server ends, so does the command, with exit code 1.";

struct Arguments {
    std::string voice = "plain";
    live::LiveOptions options;
};

void run(Arguments a) {
    if (!a.options.backend.empty() && a.options.backend != "pipewire" &&
        a.options.backend != "jack") {
        throw UsageError("--backend " + a.options.backend + ": choose pipewire or jack");
    }
    a.options.preset = parse_preset(a.voice);
    run_live(a.options);
}

}  // namespace

void add_live_command(CLI::App& app) {
    CLI::App* command = app.add_subcommand("live", "Be heard with another voice, in any program");
    const auto a = std::make_shared<Arguments>();
    command->add_option("-p,--voice,--preset", a->voice, "Voice by name or number (default: plain)")
            ->type_name("VOICE");
    command->add_option("--in", a->options.graph.microphone,
                        "Microphone, by its name or a part of it; in JACK a port or a client "
                        "(default: the server's)")
            ->type_name("DEVICE");
    command->add_flag("--monitor", a->options.graph.monitor,
                      "Hear yourself, where sound is played");
    command->add_option("--backend", a->options.backend,
                        "Sound server (default: the first of them that runs)")
            ->type_name("pipewire|jack");
    command->footer(kNotes);
    command->callback([a] { run(*a); });
}

}  // namespace krel::host
