#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

/// How the golden repositories of the library were made: fixed ids, no times, so the same bytes every time.
///
/// The repositories in golden/ are the record of a format, and are never made anew. When the format changes, another
/// recipe makes another repository, and the old one stays for as long as its format can be read.
namespace golden {

struct SRecipe {
    /// Of the folder in golden/.
    std::string name;
    /// Writes the repository through a directory client into the folder, which must be empty or missing.
    std::function<void(const std::string& folder)> make;

    friend std::ostream& operator<<(std::ostream& out, const SRecipe& recipe) { return out << recipe.name; }
};

[[nodiscard]] const std::vector<SRecipe>& Recipes();

}  // namespace golden
