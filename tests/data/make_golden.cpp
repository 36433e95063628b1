/// make_golden FOLDER: makes every golden repository that is not there yet, each in a folder of its name. What is there
/// is never made anew.

#include <filesystem>
#include <iostream>

#include "tests/data/GoldenRepositories.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: make_golden FOLDER\n";
        return 2;
    }
    try {
        for (const auto& recipe : golden::Recipes()) {
            const auto folder = std::filesystem::path(argv[1]) / recipe.name;
            if (std::filesystem::exists(folder)) {
                std::cout << recipe.name << ": is there and stays as it is\n";
                continue;
            }
            recipe.make(folder);
            std::cout << recipe.name << ": made\n";
        }
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << "make_golden: " << failure.what() << "\n";
        return 1;
    }
}
