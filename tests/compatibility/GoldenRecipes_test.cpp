#include "tests/compatibility/GoldenFixture.h"

#include "common/alglib/zlib.h"
#include "common/util.h"
#include "tests/data/GoldenRepositories.h"

/// What is written today is what the golden repositories hold.
namespace test {
namespace {

constexpr const char* meaning =
    "\nWhat the library writes is no longer what a golden repository holds: the stored format has changed. If that was "
    "not meant, programs that are out there may not read what this one writes: undo it. If it was, add a recipe with "
    "a new name, its repository and its tests, describe the change in docs/format, and keep the old repository and "
    "the tests that read it: never replace it.";

/// The document with its inline contents plain: another zlib may compress them to other bytes.
std::string Inflated(std::string text) {
    const std::string begin = "InlineContent=\"";
    for (auto at = text.find(begin); at != std::string::npos; at = text.find(begin, at + 1)) {
        const std::size_t from = at + begin.size();
        const std::size_t size = text.find('"', from) - from;
        const auto plain =
            alglib::compress::CZlibUtil::Decompress(util::fromBase64(text.substr(from, size)), 1U << 20U);
        text.replace(from, size, std::string(plain->data(), plain->size()));
    }
    return text;
}

class GoldenRecipes : public GoldenTest, public testing::WithParamInterface<golden::SRecipe> {};

TEST_P(GoldenRecipes, WriteWhatIsKept) {
    Copy(GetParam().name);
    GetParam().make(local_ / "new");
    const auto kept = FilesUnder(folder_.GetPath());
    const auto written = FilesUnder(local_ / "new");
    ASSERT_FALSE(kept.empty());
    for (const auto& [path, bytes] : kept) {
        const auto found = written.find(path);
        ASSERT_NE(found, written.end()) << path << " is no longer written" << meaning;
        EXPECT_EQ(Inflated(found->second), Inflated(bytes)) << path << meaning;
    }
    EXPECT_EQ(written.size(), kept.size()) << meaning;
}

INSTANTIATE_TEST_SUITE_P(All, GoldenRecipes, testing::ValuesIn(golden::Recipes()),
                         [](const auto& param) { return param.param.name; });

}  // namespace
}  // namespace test
