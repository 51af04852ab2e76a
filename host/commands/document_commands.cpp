// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>

#include "host/commands/commands.h"
#include "host/commands/help.h"

namespace krel::host {

void add_document_commands(CLI::App& app) {
    app.add_subcommand("manual", "Print the manual page")->group("")->callback([&app] {
        fputs(manual_page(app, KREL_VERSION).c_str(), stdout);
    });
    CLI::App* completion = app.add_subcommand("completion", "Print a shell's completions");
    const auto shell = std::make_shared<std::string>();
    completion->add_option("SHELL", *shell, "The shell")->required()->type_name("bash|zsh|fish");
    completion->group("")->callback(
            [&app, shell] { fputs(completion_script(app, *shell).c_str(), stdout); });
}

}  // namespace krel::host
