#pragma once

#include <CLI/CLI.hpp>
#include <string>

/// Texts made of the same definitions as --help.
namespace agent {

/// A script that completes commands and options; `shell` is "bash", "zsh" or "fish".
[[nodiscard]] std::string MakeCompletion(const CLI::App& app, const std::string& shell);

/// The page for man(1).
[[nodiscard]] std::string MakeManPage(const CLI::App& app, const std::string& version);

}  // namespace agent
