#include "agent/cli/ConfigFile.h"

#include <unistd.h>

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

const CLI::Option* FindOption(const CLI::App& app, const CLI::ConfigItem& item) {
    for (const CLI::Option* option : app.get_options()) {
        if (item.parents.empty() && option->check_lname(item.name) && !option->get_envname().empty()) {
            return option;
        }
    }
    return nullptr;
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
            continue;  // where a section begins and ends; what stands in it has a name that is refused below
        }
        const CLI::Option* const option = FindOption(app, item);
        if (option == nullptr || item.inputs.size() != 1) {
            throw exc::CRuntimeExc("Configuration file '%1': '%2' is no option of the program with one value", file,
                                   item.fullname());
        }
        ::setenv(option->get_envname().c_str(), item.inputs.front().c_str(), 0);
    }
}

}  // namespace agent
