// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <cctype>
#include <sstream>

#include "host/commands/commands.h"
#include "host/commands/help.h"

namespace krel::host {
namespace {

/// Text for roff: no escape, no request at a line's start, no hyphenated option.
std::string escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '\\') {
            out += "\\e";
        } else if (c == '-') {
            out += "\\-";
        } else {
            out += c;
        }
    }
    return out.starts_with('.') || out.starts_with('\'') ? "\\&" + out : out;
}

std::string upper_case(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

/// Paragraphs, lines shown as they are, and headings.
std::string body(const std::string& text) {
    std::string out;
    std::istringstream lines(text);
    bool literal = false;
    for (std::string line; std::getline(lines, line);) {
        const bool shown_as_is = line.starts_with(' ');
        if (shown_as_is != literal) out += shown_as_is ? ".nf\n" : ".fi\n";
        literal = shown_as_is;
        if (line.empty()) {
            out += ".PP\n";
        } else if (!shown_as_is && line.ends_with(':')) {
            out += ".SS " + escaped(line.substr(0, line.size() - 1)) + "\n";
        } else {
            out += escaped(line) + "\n";
        }
    }
    return literal ? out + ".fi\n" : out;
}

std::string options(const CLI::App& command) {
    std::string out;
    for (const CLI::Option* o : listed_options(command)) {
        out += ".TP\n.B " + escaped(option_synopsis(*o)) + "\n" + escaped(o->get_description()) +
               "\n";
    }
    return out;
}

std::string command_section(const CLI::App& command) {
    std::string out = ".SH " + upper_case(command.get_name()) + "\n.B krelvcp " +
                      command.get_name() + "\n[OPTIONS]";
    for (const CLI::Option* o : command.get_options()) {
        if (o->get_positional()) out += " " + escaped(o->get_type_name());
    }
    out += "\n.PP\n" + body(command.get_description());
    for (const CLI::Option* o : command.get_options()) {
        if (!o->get_positional()) continue;
        out += ".TP\n" + escaped(o->get_type_name()) + "\n" + escaped(o->get_description()) + "\n";
    }
    return out + options(command) + ".PP\n" + body(command.get_footer());
}

}  // namespace

std::string manual_page(const CLI::App& app, const std::string& version) {
    std::string out = ".TH KRELVCP 1 \"\" \"krelvcp " + version + "\" \"User Commands\"\n";
    out += ".SH NAME\nkrelvcp \\- voice changer for audio files\n";
    out += ".SH SYNOPSIS\n.B krelvcp\n[OPTIONS] COMMAND ...\n.SH DESCRIPTION\n" +
           body(app.get_description());
    out += ".SH OPTIONS\n" + options(app);
    for (const CLI::App* command : listed_commands(app)) out += command_section(*command);
    return out + ".SH NOTES\n" + body(app.get_footer());
}

}  // namespace krel::host
