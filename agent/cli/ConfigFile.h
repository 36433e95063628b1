#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace agent {

/// Where the file lies unless the user says otherwise: $XDG_CONFIG_HOME/cloudbackup/config.toml, else
/// ~/.config/cloudbackup/config.toml.
[[nodiscard]] std::string DefaultConfigFile();

/// The file of a command line (--config FILE), else of the environment (CLOUDBACKUP_CONFIG); empty when neither says.
[[nodiscard]] std::string GivenConfigFile(int argc, const char* const* argv);

/// Puts what the file says of options into the environment where that says nothing yet, before the command line is
/// read: so the command line goes before the environment, and that before the file. A command's options stand in a
/// section of its name. Throws exc::CRuntimeExc for a key that is no option, and for a file that cannot be read; one
/// that does not exist only when `mustExist`.
void LoadConfigFile(const CLI::App& app, const std::string& file, bool mustExist);

/// Lets the options of those commands that are among the words be read from the environment, where the command line
/// does not give them: CLOUDBACKUP_BACKUP_EXCLUDE, several values as several lines. The others' are left alone: what is
/// wrong there is no matter of this run. Nor for a run that shows its help, where they would be noise.
void ReadCommandVariables(CLI::App& app, const std::vector<std::string>& words);

}  // namespace agent
