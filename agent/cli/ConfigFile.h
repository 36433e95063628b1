#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace agent {

/// Where the file lies unless the user says otherwise: $XDG_CONFIG_HOME/cloudbackup/config.toml, else
/// ~/.config/cloudbackup/config.toml.
[[nodiscard]] std::string DefaultConfigFile();

/// The file of a command line (--config FILE), else of the environment (CLOUDBACKUP_CONFIG); empty when neither says.
[[nodiscard]] std::string GivenConfigFile(int argc, const char* const* argv);

/// Puts what the file says of options into the environment where that says nothing yet, before the command line is
/// read: so the command line goes before the environment, and that before the file. Throws exc::CRuntimeExc for a key
/// that is no global option, and for a file that cannot be read; one that does not exist only when `mustExist`.
void LoadConfigFile(const CLI::App& app, const std::string& file, bool mustExist);

}  // namespace agent
