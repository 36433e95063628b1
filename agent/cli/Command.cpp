#include "agent/cli/Command.h"

namespace agent {

CLI::Option* AddCheckpointArgument(CLI::App& command, std::string& checkpoint, const std::string& name) {
    const auto check = [](const std::string& text) -> std::string {
        const bool number = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
        return number || text == "latest" ? "" : "'" + text + "' is neither a checkpoint's ID nor 'latest'";
    };
    return command.add_option(name, checkpoint, "A checkpoint's ID, or 'latest'")->required()->check(check);
}

}  // namespace agent
