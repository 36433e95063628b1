#include "agent/cli/CommandLine.h"

#include <algorithm>
#include <numeric>
#include <string_view>

#include "agent/cli/DefinitionForms.h"
#include "agent/cli/HelpFormatter.h"

namespace agent {

namespace {

constexpr char guard = '\x01';

void FinishOption(CLI::Option& option) {
    if (option.get_type_size() == 0) {
        return;  // a flag
    }
    for (int i = 0; i < 8; ++i) {
        try {
            option.get_validator(i)->description("");
        } catch (const CLI::OptionNotFound&) {
            break;
        }
    }
    if (option.get_positional()) {
        option.type_name("");
    }
    option.transform(CLI::Validator(
        [](std::string& text) {
            if (text.starts_with(guard)) {
                text.erase(0, 1);
            }
            return std::string();
        },
        std::string()));
}

/// How many letters must be changed, put in or left out to make one text of the other.
std::size_t DistanceOf(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t same = diagonal + (a[i] == b[j] ? 0U : 1U);
            diagonal = row[j + 1];
            row[j + 1] = std::min({same, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

/// "; did you mean 'x'?" for the nearest of the names; nothing when none is near.
std::string Suggest(const std::string& word, const std::vector<std::string>& names) {
    std::string best;
    std::size_t distance = 4;  // what is further off is no slip
    for (const auto& name : names) {
        const std::size_t away = DistanceOf(word, name);
        if (away < distance && 2 * away <= name.size()) {
            best = name;
            distance = away;
        }
    }
    return best.empty() ? "" : "; did you mean '" + best + "'?";
}

std::vector<std::string> CommandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : CommandsOf(app)) {
        names.push_back(command->get_name());
    }
    return names;
}

void AddOptionNames(const CLI::App& app, std::vector<std::string>& names) {
    for (const CLI::Option* option : NamedOptionsOf(app)) {
        names.push_back("--" + option->get_lnames().front());
    }
}

std::string DescribeUnknown(const CLI::App& app, const CLI::App& command, const std::string& name,
                            const std::string& word) {
    if (!word.starts_with('-')) {
        return CommandsOf(command).empty() ? "'" + word + "' is one argument too many for '" + name + "'"
                                           : "'" + word + "' is no command" + Suggest(word, CommandNames(command));
    }
    std::vector<std::string> names;
    AddOptionNames(command, names);
    AddOptionNames(app, names);
    const std::string option = word.substr(0, word.find('='));
    return "'" + option + "' is no option of '" + name + "'" + Suggest(option, names);
}

std::string WithoutGuards(std::string text) {
    std::erase(text, guard);
    return text;
}

}  // namespace

std::vector<std::string> GuardWords(int argc, const char* const* argv) {
    std::vector<std::string> words;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        const bool isGuarded = word.starts_with('[') || word.starts_with(guard);
        words.push_back(isGuarded ? guard + word : word);
    }
    return words;
}

void FinishDefinition(CLI::App& app) {
    for (CLI::Option* option : app.get_options()) {
        FinishOption(*option);
    }
    for (CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        command->group("Commands");
        FinishDefinition(*command);
    }
}

void ParseWords(CLI::App& app, std::vector<std::string> words) {
    std::reverse(words.begin(), words.end());  // as the library wants them
    app.parse(std::move(words));
}

std::pair<const CLI::App*, std::string> InnermostCommand(const CLI::App& app) {
    const CLI::App* command = &app;
    std::string name = app.get_name();
    while (!command->get_subcommands().empty()) {
        command = command->get_subcommands().front();
        name += " " + command->get_name();
    }
    return {command, name};
}

std::string DescribeWrongUse(const CLI::App& app, const std::exception& failure) {
    const auto [command, name] = InnermostCommand(app);
    const std::vector<std::string> rest = app.remaining(true);
    const bool isUnknown = dynamic_cast<const CLI::ExtrasError*>(&failure) != nullptr ||
                           (dynamic_cast<const CLI::RequiredError*>(&failure) != nullptr && !rest.empty() &&
                            !CommandsOf(*command).empty());
    if (!isUnknown && !CommandsOf(*command).empty() && dynamic_cast<const CLI::RequiredError*>(&failure) != nullptr) {
        return "no command was given\n" + ShortHelp(*command, name);
    }
    const std::string text =
        isUnknown && !rest.empty() ? DescribeUnknown(app, *command, name, rest.front()) : failure.what();
    return WithoutGuards(text) + " (see '" + name + " --help')";
}

}  // namespace agent
