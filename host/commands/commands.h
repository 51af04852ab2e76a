// SPDX-License-Identifier: Apache-2.0
// The program's commands. Each function adds one to the command line; it runs when the line is
// parsed.
//
// A command's texts and its options' types follow the conventions of help.h: they are the help, the
// manual page and the completions.
#ifndef KREL_HOST_COMMANDS_COMMANDS_H
#define KREL_HOST_COMMANDS_COMMANDS_H

namespace CLI {  // NOLINT(readability-identifier-naming): the library's name
class App;
}

namespace krel::host {

void add_render_command(CLI::App& app);
void add_compare_command(CLI::App& app);
void add_live_command(CLI::App& app);
void add_presets_command(CLI::App& app);
/// Not listed: "manual" and "completion SHELL" print what the build installs.
void add_document_commands(CLI::App& app);

}  // namespace krel::host

#endif
