// SPDX-License-Identifier: Apache-2.0
#include "host/commands/help.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

namespace krel::host {
namespace {

constexpr size_t kWidth = 79;
constexpr size_t kOptionColumn = 26;

/// A name, and beside or below it what it means.
std::string entry(const std::string& name, const std::string& text) {
    std::string out = "  " + name;
    if (out.size() + 2 > kOptionColumn) out += "\n";
    std::string indent(kOptionColumn - (out.back() == '\n' ? 0 : out.size()), ' ');
    for (const std::string& line : wrap(text, kWidth - kOptionColumn)) {
        out += indent + line + "\n";
        indent.assign(kOptionColumn, ' ');
    }
    return out;
}

std::string paragraphs(const std::string& text) {
    std::string out;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line.front() == ' ') {
            out += line + "\n";
            continue;
        }
        for (const std::string& piece : wrap(line, kWidth)) out += piece + "\n";
    }
    return out;
}

class PlainHelp : public CLI::Formatter {
  public:
    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode) const override {
        std::string out = paragraphs(app->get_description()) +
                          "\nUsage: " + usage(*app, std::move(name)) + "\n";
        if (const auto commands = listed_commands(*app); !commands.empty()) {
            out += "\nCommands:\n";
            for (const CLI::App* c : commands) out += entry(c->get_name(), c->get_description());
        }
        for (const CLI::Option* o : app->get_options()) {
            if (o->get_positional()) out += "\n" + entry(o->get_type_name(), o->get_description());
        }
        out += "\nOptions:\n";
        for (const CLI::Option* o : listed_options(*app))
            out += entry(option_synopsis(*o), o->get_description());
        return app->get_footer().empty() ? out : out + "\n" + paragraphs(app->get_footer());
    }

  private:
    static std::string usage(const CLI::App& app, std::string name) {
        name += " [OPTIONS]";
        for (const CLI::Option* o : app.get_options()) {
            if (o->get_positional()) name += " " + o->get_type_name();
        }
        return listed_commands(app).empty() ? name : name + " COMMAND ...";
    }
};

}  // namespace

void use_plain_help(CLI::App& app) {
    const auto help = std::make_shared<PlainHelp>();
    app.formatter(help);
    for (CLI::App* command : app.get_subcommands({})) {
        command->formatter(help);
        command->get_help_ptr()->description("Show this help");
    }
    app.get_help_ptr()->description("Show this help");
}

std::vector<std::string> wrap(const std::string& text, size_t width) {
    std::vector<std::string> lines(1);
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        std::string& line = lines.back();
        if (!line.empty() && line.size() + 1 + word.size() > width) {
            lines.push_back(word);
        } else {
            line += (line.empty() ? "" : " ") + word;
        }
    }
    return lines;
}

std::string option_synopsis(const CLI::Option& option) {
    std::string names = CLI::detail::join(
            option.get_snames(), [](auto& n) { return "-" + n; }, ", ");
    for (const std::string& name : option.get_lnames())
        names += (names.empty() ? "--" : ", --") + name;
    const bool flag = option.get_expected_max() == 0;
    return flag ? names : names + " " + option.get_type_name();
}

std::vector<const CLI::Option*> listed_options(const CLI::App& command) {
    return command.get_options(
            [](const CLI::Option* o) { return o->nonpositional() && !o->get_group().empty(); });
}

std::vector<const CLI::App*> listed_commands(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App* c) { return !c->get_group().empty(); });
}

}  // namespace krel::host
