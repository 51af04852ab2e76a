// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <sstream>

#include "host/commands/help.h"
#include "host/error.h"
#include "host/presets.h"

namespace krel::host {
namespace {

std::string voices() {
    std::string names = "all";
    for (const Preset& p : presets()) {
        if ((" " + names + " ").find(std::string(" ") + p.name + " ") == std::string::npos)
            names += std::string(" ") + p.name;
    }
    return names;
}

/// The values of an option, separated by spaces; empty where they are files or numbers.
std::string values(const CLI::Option& option) {
    std::string type = option.get_type_name();
    if (type.starts_with("VOICE")) return voices();
    if (type.find('|') == std::string::npos) return "";
    std::ranges::replace(type, '|', ' ');
    return type;
}

bool takes_value(const CLI::Option& option) { return option.get_expected_max() > 0; }

std::string names(const CLI::Option& option, const char* separator) {
    std::string out;
    for (const std::string& n : option.get_snames())
        out += (out.empty() ? "-" : separator + std::string("-")) + n;
    for (const std::string& n : option.get_lnames())
        out += (out.empty() ? "--" : separator + std::string("--")) + n;
    return out;
}

std::string command_names(const CLI::App& app) {
    std::string out;
    for (const CLI::App* c : listed_commands(app)) out += (out.empty() ? "" : " ") + c->get_name();
    return out;
}

std::string bash_command(const CLI::App& command) {
    std::string out = "        " + command.get_name() + ")\n            case $previous in\n";
    std::string all;
    for (const CLI::Option* o : listed_options(command)) {
        all += names(*o, " ") + " ";
        if (!takes_value(*o)) continue;
        const std::string v = values(*o);
        out += "                " + names(*o, " | ") + ") " +
               (v.empty() ? "compopt -o default"
                          : "COMPREPLY=($(compgen -W '" + v + "' -- \"$word\"))") +
               "; return ;;\n";
    }
    return out + "            esac\n            options='" + all + "' ;;\n";
}

std::string bash_script(const CLI::App& app) {
    std::string out =
            "# bash completion for krelvcp\n_krelvcp() {\n"
            "    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} "
            "options\n"
            "    COMPREPLY=()\n    case ${COMP_WORDS[1]} in\n";
    for (const CLI::App* command : listed_commands(app)) out += bash_command(*command);
    out += "        *) options='" + command_names(app) +
           " --help --version' ;;\n    esac\n"
           "    if [[ $word == -* || $COMP_CWORD -eq 1 ]]; then\n"
           "        COMPREPLY=($(compgen -W \"$options\" -- \"$word\"))\n"
           "    else\n        compopt -o default\n    fi\n}\ncomplete -F _krelvcp krelvcp\n";
    return out;
}

/// For single quotes, of either shell.
std::string quoted(const std::string& text, const char* apostrophe) {
    std::string out;
    for (const char c : text) {
        if (c == '\'') {
            out += apostrophe;
        } else {
            out += c;
        }
    }
    return out;
}

/// In an argument specification of zsh brackets and colons mean something.
std::string zsh_escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '[' || c == ']' || c == ':') out += '\\';
        out += c;
    }
    return quoted(out, "'\\''");
}

std::string zsh_option(const CLI::Option& option) {
    const std::string value = values(option);
    const std::string action = !takes_value(option) ? ""
                               : value.empty()      ? ":value:_files"
                                                    : ":value:(" + value + ")";
    const std::string description = "[" + zsh_escaped(option.get_description()) + "]";
    std::string out;
    std::istringstream each(names(option, " "));
    for (std::string name; each >> name;) {
        out += " \\\n                '";
        out += name;
        out += description;
        out += action;
        out += "'";
    }
    return out;
}

std::string zsh_script(const CLI::App& app) {
    std::string out =
            "#compdef krelvcp\n_krelvcp() {\n    if (( CURRENT == 2 )); then\n        local -a "
            "commands=(";
    for (const CLI::App* c : listed_commands(app)) {
        out += "\n            '" + c->get_name() + ":" + zsh_escaped(c->get_description()) + "'";
    }
    out += "\n        )\n        _describe command commands\n        return\n    fi\n"
           "    local command=$words[2]\n    shift words\n    (( CURRENT-- ))\n    case $command "
           "in\n";
    for (const CLI::App* c : listed_commands(app)) {
        out += "        " + c->get_name() + ")\n            _arguments";
        for (const CLI::Option* o : listed_options(*c)) out += zsh_option(*o);
        out += " \\\n                '*:file:_files' ;;\n";
    }
    return out + "    esac\n}\n_krelvcp \"$@\"\n";
}

std::string fish_option(const std::string& command, const CLI::Option& option) {
    std::string out = "complete -c krelvcp -n '__fish_seen_subcommand_from " + command + "'";
    for (const std::string& n : option.get_snames()) out += " -s " + n;
    for (const std::string& n : option.get_lnames()) out += " -l " + n;
    if (takes_value(option))
        out += values(option).empty() ? " -r" : " -x -a '" + values(option) + "'";
    return out + " -d '" + quoted(option.get_description(), "\\'") + "'\n";
}

std::string fish_script(const CLI::App& app) {
    std::string out = "# fish completion for krelvcp\n";
    for (const CLI::App* c : listed_commands(app)) {
        out += "complete -c krelvcp -f -n __fish_use_subcommand -a " + c->get_name() + " -d '" +
               quoted(c->get_description(), "\\'") + "'\n";
        for (const CLI::Option* o : listed_options(*c)) out += fish_option(c->get_name(), *o);
    }
    return out;
}

}  // namespace

std::string completion_script(const CLI::App& app, const std::string& shell) {
    if (shell == "bash") return bash_script(app);
    if (shell == "zsh") return zsh_script(app);
    if (shell == "fish") return fish_script(app);
    throw UsageError("completion: choose bash, zsh or fish");
}

}  // namespace krel::host
