#pragma once

#include <CLI/CLI.hpp>
#include <vector>

/// The parts of a command line's definition that are shown.
namespace agent {

[[nodiscard]] inline std::vector<const CLI::App*> CommandsOf(const CLI::App& app) {
    std::vector<const CLI::App*> commands =
        app.get_subcommands([](const CLI::App* sub) { return !sub->get_name().empty() && !sub->get_group().empty(); });
    return commands;
}

/// With a long name; those without are arguments.
[[nodiscard]] inline std::vector<const CLI::Option*> NamedOptionsOf(const CLI::App& app) {
    return app.get_options(
        [](const CLI::Option* option) { return !option->get_lnames().empty() && !option->get_group().empty(); });
}

[[nodiscard]] inline std::vector<const CLI::Option*> ArgumentsOf(const CLI::App& app) {
    return app.get_options([](const CLI::Option* option) { return option->get_positional(); });
}

}  // namespace agent
