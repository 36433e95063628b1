#include "agent/cli/Command.h"

namespace agent {

void AddCheckpointArgument(CLI::App& command, std::string& checkpoint) {
    const auto check = [](const std::string& text) -> std::string {
        const bool number = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
        return number || text == "latest" ? "" : "'" + text + "' is neither a checkpoint's ID nor 'latest'";
    };
    command.add_option("CHECKPOINT", checkpoint, "A checkpoint's ID, or 'latest'")->required()->check(check);
}

}  // namespace agent
