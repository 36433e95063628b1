#include <string>

#include "agent/cli/Completion.h"
#include "agent/cli/DefinitionForms.h"

namespace agent {

namespace {

/// As roff reads it: no letter of it is taken for a command.
std::string Escape(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        const bool atBegin = escaped.empty() || escaped.back() == '\n';
        if (atBegin && (c == '.' || c == '\'')) {
            escaped += "\\&";
        }
        escaped += c == '\\' ? "\\e" : c == '-' ? "\\-" : std::string(1, c);
    }
    return escaped;
}

std::string NamesOf(const CLI::Option& option) {
    std::string text;
    for (const auto& name : option.get_snames()) {
        text += "\\fB\\-" + Escape(name) + "\\fR, ";
    }
    text += "\\fB\\-\\-" + Escape(option.get_lnames().front()) + "\\fR";
    const bool hasValue = option.get_expected_min() != 0;
    return hasValue ? text + " \\fI" + Escape(option.get_type_name()) + "\\fR" : text;
}

std::string OptionText(const CLI::Option& option) {
    const std::string notes = NotesOf(option);
    std::string text = ".TP\n" + NamesOf(option) + "\n" + Escape(option.get_description()) +
                       (notes.empty() ? "" : " " + Escape(notes)) + "\n";
    if (!option.get_envname().empty()) {
        text += "Environment: " + Escape(option.get_envname()) + ".\n";
    }
    return text;
}

std::string CommandText(const CLI::App& command, const std::string& above) {
    const std::string name = above + command.get_name();
    std::string text = ".SS " + Escape(name);
    for (const CLI::Option* argument : ArgumentsOf(command)) {
        const std::string word = argument->get_name(true);
        const std::string more = argument->get_expected_max() > 1 ? "..." : "";
        text += " " + Escape(argument->get_required() ? word + more : "[" + word + more + "]");
    }
    text += "\n" + Escape(command.get_description()) + ".\n";
    for (const CLI::Option* argument : ArgumentsOf(command)) {
        text += ".TP\n\\fI" + Escape(argument->get_name(true)) + "\\fR\n" + Escape(argument->get_description()) + "\n";
    }
    for (const CLI::Option* option : NamedOptionsOf(command)) {
        text += OptionText(*option);
    }
    for (const CLI::App* sub : CommandsOf(command)) {
        text += CommandText(*sub, name + " ");
    }
    return text;
}

}  // namespace

std::string MakeManPage(const CLI::App& app, const std::string& version) {
    std::string text = ".TH CLOUDBACKUP 1 \"\" \"" + Escape(version) + "\"\n.SH NAME\ncloudbackup \\- " +
                       Escape(app.get_description()) +
                       "\n.SH SYNOPSIS\n\\fBcloudbackup\\fR [\\fIOPTIONS\\fR] \\fICOMMAND\\fR ...\n.SH OPTIONS\n"
                       "They may stand before or behind the command, in the environment, and in a configuration file "
                       "as \\fIname\\fR = \\fIvalue\\fR; the command line goes before the environment, and that before "
                       "the file.\n";
    for (const CLI::Option* option : NamedOptionsOf(app)) {
        text += OptionText(*option);
    }
    text += ".SH COMMANDS\n";
    for (const CLI::App* command : CommandsOf(app)) {
        text += CommandText(*command, {});
    }
    text +=
        ".SH FILES\n.TP\n\\fI$XDG_CONFIG_HOME/cloudbackup/config.toml\\fR, "
        "\\fI~/.config/cloudbackup/config.toml\\fR\nOptions, one \\fIname\\fR = \\fIvalue\\fR a line.\n"
        ".TP\n\\fI$XDG_STATE_HOME/cloudbackup\\fR, \\fI~/.local/state/cloudbackup\\fR\n"
        "The client's id, and copies of metadata that save downloads.\n";
    return text + ".SH EXIT STATUS\n" + Escape(app.get_footer()) + "\n";
}

}  // namespace agent
