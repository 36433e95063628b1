#include "agent/cli/HelpFormatter.h"

#include <sstream>

#include "agent/cli/DefinitionForms.h"

namespace agent {

namespace {

constexpr std::size_t nameWidth = 30;
constexpr std::size_t textWidth = 70;

/// Line breaks that stand in a description were made for no width in particular; only what is in brackets keeps its
/// line.
std::string Unwrap(const std::string& text) {
    std::string line;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isBreak = text[i] == '\n' && text.compare(i + 1, 1, "(") != 0;
        line += isBreak ? ' ' : text[i];
    }
    return line;
}

std::string NamesOf(const std::set<CLI::Option*>& options) {
    std::string names;
    for (const CLI::Option* option : options) {
        names += (names.empty() ? "" : ", ") + option->get_name();
    }
    return names;
}

std::string WrapLine(const std::string& line, std::size_t width) {
    std::istringstream words(line);
    std::string text;
    std::size_t used = 0;
    for (std::string word; words >> word;) {
        if (used != 0 && used + 1 + word.size() > width) {
            text += '\n';
            used = 0;
        }
        text += (used == 0 ? "" : " ") + word;
        used += (used == 0 ? 0 : 1) + word.size();
    }
    return text;
}

}  // namespace

std::string WrapText(const std::string& text, std::size_t width) {
    std::istringstream lines(text);
    std::string wrapped;
    for (std::string line; std::getline(lines, line);) {
        wrapped += (wrapped.empty() ? "" : "\n") + WrapLine(line, width);
    }
    return wrapped;
}

CHelpFormatter::CHelpFormatter() {
    column_width(nameWidth);
    label("Positionals", "Arguments");
    label("SUBCOMMAND", "COMMAND");
}

std::string CHelpFormatter::make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const {
    std::string text = make_description(app) + make_usage(app, std::move(name)) + make_positionals(app) +
                       make_subcommands(app, mode) + make_groups(app, mode);
    const CLI::App* const above = app->get_parent();
    if (above == nullptr) {
        return text + "\n" + make_footer(app);
    }
    if (const std::string footer = make_footer(app); app->get_footer() != above->get_footer()) {
        text += "\n" + footer;
    }
    return text + "\nOptions of all commands (--repo, --set, --json, ...): see 'cloudbackup --help'.\n";
}

std::string CHelpFormatter::make_usage(const CLI::App* app, std::string name) const {
    return CLI::Formatter::make_usage(app, std::move(name));
}

std::string CHelpFormatter::make_option_name(const CLI::Option* option, bool isArgument) const {
    std::string name = CLI::Formatter::make_option_name(option, isArgument);
    if (const auto comma = name.find(','); comma != std::string::npos) {
        name.insert(comma + 1, " ");
    }
    return name;
}

std::string CHelpFormatter::make_option_opts(const CLI::Option* option) const {
    const bool hasValue = option->get_type_size() != 0 && !option->get_type_name().empty();
    return hasValue ? " " + option->get_type_name() : std::string();
}

std::string CHelpFormatter::make_option_desc(const CLI::Option* option) const {
    std::string text = Unwrap(option->get_description());
    const std::string notes = NotesOf(*option);
    text += notes.empty() ? "" : " " + notes;
    if (!option->get_needs().empty()) {
        text += "\n(only with " + NamesOf(option->get_needs()) + ")";
    }
    if (!option->get_excludes().empty()) {
        text += "\n(not with " + NamesOf(option->get_excludes()) + ")";
    }
    if (!option->get_envname().empty()) {
        text += "\n[$" + option->get_envname() + "]";
    }
    return WrapText(text, textWidth);
}

std::string CHelpFormatter::make_subcommand(const CLI::App* command) const {
    std::ostringstream text;
    CLI::detail::format_help(text, command->get_name(), WrapText(command->get_description(), textWidth), nameWidth);
    return text.str();
}

std::string ShortHelp(const CLI::App& app, const std::string& name) {
    const CHelpFormatter formatter;
    return formatter.make_usage(&app, name) + formatter.make_subcommands(&app, CLI::AppFormatMode::Normal) + "\n'" +
           name + " COMMAND --help' tells more of a command, '" + name + " --help' the options of all.";
}

}  // namespace agent
