#pragma once

#include <CLI/CLI.hpp>
#include <exception>
#include <string>
#include <utility>
#include <vector>

/// How the command line is read, beyond what its library does.
namespace agent {

/// The words behind the program's name, as ParseWords takes them.
///
/// The library takes a word in square brackets for a list and strips them wherever several values may come: a pattern
/// like "[ab]" would be read as "ab". So such a word gets a letter before it, that every option takes off again.
[[nodiscard]] std::vector<std::string> GuardWords(int argc, const char* const* argv);
/// Makes all options of the program and its commands take that letter off, and shows their values by name alone.
void FinishDefinition(CLI::App& app);
void ParseWords(CLI::App& app, std::vector<std::string> words);

/// The innermost command that was read, the program itself when there is none, with its full name.
[[nodiscard]] std::pair<const CLI::App*, std::string> InnermostCommand(const CLI::App& app);

/// What is wrong, and where to read how it is right; several lines for who named no command.
[[nodiscard]] std::string DescribeWrongUse(const CLI::App& app, const std::exception& failure);

/// An option whose value is one of these words.
template <class T>
CLI::Option* SetChoices(CLI::Option* option, const std::vector<std::pair<std::string, T>>& choices) {
    std::string names;
    for (const auto& [name, value] : choices) {
        names += (names.empty() ? "" : "|") + name;
    }
    const auto choose = [choices, names](std::string& text) {
        for (const auto& [name, value] : choices) {
            if (text == name) {
                text = std::to_string(static_cast<int>(value));
                return std::string();
            }
        }
        return "'" + text + "' is none of " + names;
    };
    return option->transform(CLI::Validator(choose, std::string()))->type_name(names);
}

}  // namespace agent
