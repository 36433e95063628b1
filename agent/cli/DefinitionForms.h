#pragma once

#include <CLI/CLI.hpp>
#include <string>
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

/// What a description does not say itself: that the option may be repeated, and its default.
[[nodiscard]] inline std::string NotesOf(const CLI::Option& option) {
    std::string notes;
    const auto says = [&](const char* text) { return option.get_description().find(text) != std::string::npos; };
    const bool isRepeated =
        !option.get_positional() && option.get_type_size() != 0 &&
        (option.get_expected_max() > 1 || option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll);
    if (isRepeated && !says("several times") && !says("repeated")) {
        notes += "(may be repeated)";
    }
    if (!option.get_default_str().empty() && !says("(default")) {
        notes += (notes.empty() ? "" : " ") + std::string("(default: ") + option.get_default_str() + ")";
    }
    return notes;
}

}  // namespace agent
