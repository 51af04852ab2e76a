// SPDX-License-Identifier: Apache-2.0
// Help, manual page and completions, all from the command line's own description.
//
// Descriptions are plain sentences. Texts below the options ("footers") are paragraphs, broken to
// the reader's width; lines that begin with a space are shown as they are, and a line that ends
// with a colon is a heading. An option's type names its values: "left|right|mix" all of them, VOICE
// the voices, FILE any file.
#ifndef KREL_HOST_COMMANDS_HELP_H
#define KREL_HOST_COMMANDS_HELP_H

#include <string>
#include <vector>

namespace CLI {  // NOLINT(readability-identifier-naming): the library's name
class App;
class Option;
}  // namespace CLI

namespace krel::host {

/// Sets the help of the program and its commands: at most 80 columns. After the commands have been
/// added.
void use_plain_help(CLI::App& app);

/// `text` broken at spaces to lines of at most `width`.
std::vector<std::string> wrap(const std::string& text, size_t width);

/// "-p, --preset VOICE"
std::string option_synopsis(const CLI::Option& option);

/// What --help and the manual list: neither positional arguments nor hidden options.
std::vector<const CLI::Option*> listed_options(const CLI::App& command);

/// The shown commands.
std::vector<const CLI::App*> listed_commands(const CLI::App& app);

/// The manual page, as roff.
std::string manual_page(const CLI::App& app, const std::string& version);

/// The completion script for "bash", "zsh" or "fish".
std::string completion_script(const CLI::App& app, const std::string& shell);

}  // namespace krel::host

#endif
