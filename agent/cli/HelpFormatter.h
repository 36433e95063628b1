#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace agent {

/// How `--help` looks: commands before options, an option's value by its name alone; default, variable and company in
/// the description, which is wrapped.
class CHelpFormatter : public CLI::Formatter {
public:
    CHelpFormatter();

    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override;
    std::string make_usage(const CLI::App* app, std::string name) const override;
    std::string make_option_name(const CLI::Option* option, bool isArgument) const override;
    std::string make_option_opts(const CLI::Option* option) const override;
    std::string make_option_desc(const CLI::Option* option) const override;
    std::string make_subcommand(const CLI::App* command) const override;
};

/// Usage and commands alone, for who gave none. `name` is the program's with the command's, if any.
[[nodiscard]] std::string ShortHelp(const CLI::App& app, const std::string& name);

/// Lines of no more letters than that, broken between words.
[[nodiscard]] std::string WrapText(const std::string& text, std::size_t width);

}  // namespace agent
