#include "agent/cli/ConfigFile.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "common/exc.h"

namespace agent {

namespace {

std::string FromEnvironment(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? std::string() : value;
}

/// Commands within commands are separated as the words of an option's name are.
std::string VariableName(const std::vector<std::string>& commands, const std::string& option) {
    std::string name = "cloudbackup";
    for (const std::string& word : commands) {
        name += "_" + word;
    }
    name += "_" + option;
    for (char& c : name) {
        c = c == '-' ? '_' : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return name;
}

bool TakesSeveral(const CLI::Option& option) { return option.get_items_expected_max() > 1; }

/// What the user may also say elsewhere than on the command line: options by name, but for help and version.
bool IsSettable(const CLI::App& app, const CLI::Option& option) {
    return !option.get_lnames().empty() && &option != app.get_help_ptr() && !option.check_lname("version");
}

struct SSetting {
    std::string variable;
    const CLI::Option* option = nullptr;
};

/// Throws nothing: an empty setting when there is no such option.
SSetting FindSetting(const CLI::App& program, const CLI::ConfigItem& item) {
    const CLI::App* app = &program;
    for (const std::string& name : item.parents) {
        const auto commands =
            app->get_subcommands([&](const CLI::App* command) { return command->get_name() == name; });
        if (commands.empty()) {
            return {};
        }
        app = commands.front();
    }
    for (const CLI::Option* option : app->get_options()) {
        if (option->check_lname(item.name) && IsSettable(*app, *option)) {
            const std::string& own = option->get_envname();
            return {own.empty() ? VariableName(item.parents, option->get_lnames().front()) : own, option};
        }
    }
    return {};
}

std::string JoinLines(const std::vector<std::string>& values) {
    std::string lines;
    for (const std::string& value : values) {
        lines += (lines.empty() ? "" : "\n") + value;
    }
    return lines;
}

void ReadVariable(CLI::Option& option, const std::string& variable) {
    option.envname(variable);
    const std::string lines = FromEnvironment(variable.c_str());
    if (TakesSeveral(option) && !lines.empty()) {
        // The line end before them keeps the library from taking one that stands in brackets for a list.
        ::setenv(variable.c_str(), ("\n" + lines).c_str(), 1);
        option.delimiter('\n');
    }
}

void ReadVariablesOf(CLI::App& app, const std::vector<std::string>& words, std::vector<std::string>& commands) {
    for (CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        if (std::ranges::find(words, command->get_name()) == words.end()) {
            continue;
        }
        commands.push_back(command->get_name());
        for (CLI::Option* option : command->get_options()) {
            if (IsSettable(*command, *option) && option->get_envname().empty()) {
                ReadVariable(*option, VariableName(commands, option->get_lnames().front()));
            }
        }
        ReadVariablesOf(*command, words, commands);
        commands.pop_back();
    }
}

}  // namespace

std::string DefaultConfigFile() {
    const std::string folder = FromEnvironment("XDG_CONFIG_HOME");
    const std::string home = FromEnvironment("HOME");
    if (folder.empty() && home.empty()) {
        return {};
    }
    return (folder.empty() ? home + "/.config" : folder) + "/cloudbackup/config.toml";
}

std::string GivenConfigFile(int argc, const char* const* argv) {
    static constexpr std::string_view name = "--config";
    for (int i = 1; i < argc && std::string_view(argv[i]) != "--"; ++i) {
        const std::string_view argument = argv[i];
        if (argument == name && i + 1 < argc) {
            return argv[i + 1];
        }
        if (argument.starts_with(name) && argument.substr(name.size()).starts_with('=')) {
            return std::string(argument.substr(name.size() + 1));
        }
    }
    return FromEnvironment("CLOUDBACKUP_CONFIG");
}

void LoadConfigFile(const CLI::App& app, const std::string& file, bool mustExist) {
    if (file.empty() || (!mustExist && ::access(file.c_str(), F_OK) != 0)) {
        return;
    }
    std::ifstream stream(file);
    if (!stream) {
        throw exc::CRuntimeExc("Cannot read the configuration file '%1': %2", file, std::strerror(errno));
    }
    for (const auto& item : CLI::ConfigTOML().from_config(stream)) {
        if (item.name == "++" || item.name == "--") {
            continue;  // where a section begins and ends
        }
        const auto [variable, option] = FindSetting(app, item);
        if (option == nullptr || (item.inputs.size() != 1 && !TakesSeveral(*option))) {
            throw exc::CRuntimeExc("Configuration file '%1': '%2' is no option of the program with one value", file,
                                   item.fullname());
        }
        if (std::ranges::any_of(item.inputs, [](const auto& value) { return value.find('\n') != std::string::npos; })) {
            throw exc::CRuntimeExc("Configuration file '%1': a value of '%2' holds a line end", file, item.fullname());
        }
        ::setenv(variable.c_str(), JoinLines(item.inputs).c_str(), 0);
    }
}

void ReadCommandVariables(CLI::App& app, const std::vector<std::string>& words) {
    const auto asksForHelp = [](const std::string& word) { return word == "-h" || word == "--help"; };
    if (std::ranges::none_of(words, asksForHelp)) {
        std::vector<std::string> commands;
        ReadVariablesOf(app, words, commands);
    }
}

}  // namespace agent
