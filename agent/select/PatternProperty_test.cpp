#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <random>

#include "agent/select/Pattern.h"
#include "agent/select/PatternList.h"
#include "tests/support/TempDir.h"

namespace agent {
namespace {

std::string_view NameOf(std::string_view path) { return path.substr(path.find_last_of('/') + 1); }

// The reference: the definition written down as directly as it goes, trying every possibility.

bool MatchesText(std::string_view pattern, std::string_view name) {
    if (pattern.empty()) {
        return name.empty();
    }
    if (pattern[0] == '*') {
        return MatchesText(pattern.substr(1), name) || (!name.empty() && MatchesText(pattern, name.substr(1)));
    }
    if (name.empty()) {
        return false;
    }
    if (pattern.starts_with("[ab]")) {
        return (name[0] == 'a' || name[0] == 'b') && MatchesText(pattern.substr(4), name.substr(1));
    }
    if (pattern.starts_with("[!a]")) {
        return name[0] != 'a' && MatchesText(pattern.substr(4), name.substr(1));
    }
    return (pattern[0] == '?' || pattern[0] == name[0]) && MatchesText(pattern.substr(1), name.substr(1));
}

using parts_t = std::vector<std::string_view>;

bool MatchesParts(const parts_t& pattern, std::size_t p, const parts_t& path, std::size_t n) {
    if (p == pattern.size()) {
        return n == path.size();
    }
    if (pattern[p] == "**") {
        const bool isLast = p + 1 == pattern.size();
        for (std::size_t skip = isLast ? 1 : 0; n + skip <= path.size(); ++skip) {
            if (MatchesParts(pattern, p + 1, path, n + skip)) {
                return true;
            }
        }
        return false;
    }
    return n < path.size() && MatchesText(pattern[p], path[n]) && MatchesParts(pattern, p + 1, path, n + 1);
}

bool Reference(std::string_view pattern, std::string_view path, bool isFolder) {
    if (pattern.ends_with('/')) {
        if (!isFolder) {
            return false;
        }
        pattern.remove_suffix(1);
    }
    if (pattern.find('/') == std::string_view::npos) {
        return MatchesText(pattern, NameOf(path));
    }
    pattern.remove_prefix(pattern.starts_with('/') ? 1 : 0);
    return MatchesParts(SplitLines(pattern, '/'), 0, SplitLines(path, '/'), 0);
}

class CGenerator {
public:
    explicit CGenerator(std::uint32_t seed) : random_(seed) {}

    std::size_t Number(std::size_t limit) { return random_() % limit; }

    std::string Name() {
        static const char* const letters[] = {"a", "b", "c"};
        std::string name;
        for (std::size_t i = 0; i <= Number(3); ++i) {
            name += letters[Number(3)];
        }
        return name;
    }
    std::string Path() {
        std::string path = Name();
        for (std::size_t i = Number(4); i > 0; --i) {
            path += "/" + Name();
        }
        return path;
    }
    std::string Pattern() {
        std::string pattern = Number(4) == 0 ? "/" : "";
        const std::size_t count = 1 + Number(4);
        for (std::size_t i = 0; i < count; ++i) {
            pattern += (i > 0 ? "/" : "") + (Number(4) == 0 ? "**" : Element());
        }
        return pattern + (Number(5) == 0 ? "/" : "");
    }

private:
    /// Without two asterisks in a row.
    std::string Element() {
        static const char* const pieces[] = {"a", "b", "c", "*", "?", "[ab]", "[!a]"};
        std::string element;
        for (std::size_t i = 0; i <= Number(3); ++i) {
            const std::string piece = pieces[Number(7)];
            element += piece == "*" && element.ends_with('*') ? "" : piece;
        }
        return element;
    }

    std::mt19937 random_;
};

std::uint32_t Seed() {
    const char* given = std::getenv("CLOUDBACKUP_TEST_SEED");
    return given != nullptr ? static_cast<std::uint32_t>(std::strtoul(given, nullptr, 10)) : std::random_device()();
}

TEST(PatternProperty, IsTheSameAsTheDefinition) {
    const std::uint32_t seed = Seed();
    SCOPED_TRACE("CLOUDBACKUP_TEST_SEED=" + std::to_string(seed));
    CGenerator generator(seed);
    int matches = 0;
    for (int i = 0; i < 200'000; ++i) {
        const std::string text = generator.Pattern();
        const std::string path = generator.Path();
        const bool isFolder = generator.Number(2) == 0;
        const bool expected = Reference(text, path, isFolder);
        matches += expected ? 1 : 0;
        ASSERT_EQ(CPattern::Parse(text)->Matches(path, NameOf(path), isFolder), expected)
            << "'" << text << "' on '" << path << "'";
    }
    EXPECT_GT(matches, 5'000) << "the generator gives hardly any match";
}

/// Whether a list of patterns leaves a path out, with the folders on the way to it.
bool IsLeftOut(const CPatternList& list, const std::string& path) {
    for (std::size_t end = path.find('/'); end != std::string::npos; end = path.find('/', end + 1)) {
        const std::string folder = path.substr(0, end);
        if (list.Judge(folder, NameOf(folder), true) == EVerdict::leave) {
            return true;
        }
    }
    return list.Judge(path, NameOf(path), false) == EVerdict::leave;
}

int RunShell(const std::string& command) { return std::system(command.c_str()); }

/// git says of each path, a file, whether it is left out.
std::string AskGit(const std::string& folder) {
    const std::string run = "cd '" + folder + "' && GIT_CONFIG_NOSYSTEM=1 HOME='" + folder + "' git ";
    RunShell(run + "-c core.quotePath=false check-ignore --no-index --stdin < ../paths > ../ignored");
    std::ifstream file(folder + "/../ignored");
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(PatternProperty, IsTheSameAsGit) {
    const std::uint32_t seed = Seed();
    SCOPED_TRACE("CLOUDBACKUP_TEST_SEED=" + std::to_string(seed));
    CGenerator generator(seed);
    const test::TempDir dir;
    const std::string work = dir / "work";
    ASSERT_EQ(RunShell("git init -q '" + work + "'"), 0) << "this test needs git (scripts/install-deps)";
    std::size_t leftOut = 0;
    for (int round = 0; round < 40; ++round) {
        std::string lines;
        for (int i = 0; i < 4; ++i) {
            lines += (generator.Number(3) == 0 ? "!" : "") + generator.Pattern() + "\n";
        }
        std::ofstream(work + "/.gitignore") << lines;
        CPatternList list;
        list.AddLines(lines);
        std::string paths;
        std::string expected;
        for (int i = 0; i < 200; ++i) {
            const std::string path = generator.Path();
            paths += path + "\n";
            if (IsLeftOut(list, path)) {
                expected += path + "\n";
                ++leftOut;
            }
        }
        std::ofstream(dir / "paths") << paths;
        ASSERT_EQ(expected, AskGit(work)) << lines;
    }
    EXPECT_GT(leftOut, 200U);
}

}  // namespace
}  // namespace agent
