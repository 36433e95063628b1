#include "agent/look/EntryFilter.h"

#include <gtest/gtest.h>

#include "agent/look/Versions.h"
#include "common/exc.h"

namespace {

using agent::CPathPatterns;
using agent::EEntryType;
using agent::ParseSizeRange;
using agent::SEntry;
using agent::SEntryFilter;
using agent::SSizeRange;

bool Matches(const std::string& pattern, const std::string& path, bool ignoreCase = false) {
    return CPathPatterns({pattern}, ignoreCase).Matches(path, false);
}

TEST(EntryFilter, ReadsSizes) {
    EXPECT_EQ(ParseSizeRange("+10M"), (SSizeRange{10U << 20U, ~std::uint64_t{0}}));
    EXPECT_EQ(ParseSizeRange("-1K"), (SSizeRange{0, 1024}));
    EXPECT_EQ(ParseSizeRange("517"), (SSizeRange{517, 517}));
    EXPECT_EQ(ParseSizeRange("+2T").least, std::uint64_t{2} << 40U);
    for (const char* text : {"", "+", "-", "K", "1k", "1.5M", "++1", "99999999999T"}) {
        EXPECT_THROW((void)ParseSizeRange(text), exc::CRuntimeExc) << text;
    }
}

TEST(EntryFilter, PatternsOfNames) {
    EXPECT_TRUE(Matches("*.txt", "/srv/a/b.txt"));
    EXPECT_FALSE(Matches("*.txt", "/srv/a.txt/b"));
    EXPECT_TRUE(Matches("b?[0-9]", "/srv/bx7"));
    EXPECT_FALSE(Matches("b?[0-9]", "/srv/bxy"));
    EXPECT_FALSE(Matches("*.TXT", "/srv/b.txt"));
    EXPECT_TRUE(Matches("*.TXT", "/srv/b.txt", true));
}

TEST(EntryFilter, PatternsOfPaths) {
    EXPECT_TRUE(Matches("/srv/*.txt", "/srv/a.txt"));
    EXPECT_FALSE(Matches("/srv/*.txt", "/srv/a/b.txt"));
    EXPECT_TRUE(Matches("/srv/**/b.txt", "/srv/a/c/b.txt"));
    EXPECT_TRUE(Matches("a/b.txt", "/srv/a/b.txt"));
    EXPECT_FALSE(Matches("a/b.txt", "/srv/xa/b.txt"));
}

TEST(EntryFilter, FirstLettersMeanNothingSpecial) {
    EXPECT_TRUE(Matches("!a", "/srv/!a"));
    EXPECT_FALSE(Matches("!a", "/srv/b"));
    EXPECT_TRUE(Matches("#a", "/srv/#a"));
    EXPECT_THROW(CPathPatterns({""}, false), exc::CRuntimeExc);
}

TEST(EntryFilter, ChoosesByTypeTimeAndSize) {
    SEntry file;
    file.size = 100;
    file.mtime = {1000, 5};
    SEntryFilter filter;
    EXPECT_TRUE(agent::Matches(filter, file));
    filter.types = {EEntryType::directory};
    EXPECT_FALSE(agent::Matches(filter, file));
    filter.types.insert(EEntryType::file);
    filter.newer = agent::STime{1000, 5};
    filter.older = agent::STime{1000, 5};
    filter.size = SSizeRange{100, 100};
    EXPECT_TRUE(agent::Matches(filter, file));
    filter.size = SSizeRange{101, 200};
    EXPECT_FALSE(agent::Matches(filter, file));
    filter.size.reset();
    filter.newer = agent::STime{1000, 6};
    EXPECT_FALSE(agent::Matches(filter, file));
    filter.newer.reset();
    filter.older = agent::STime{1000, 4};
    EXPECT_FALSE(agent::Matches(filter, file));
}

TEST(EntryFilter, ASizeIsOfFilesAlone) {
    SEntry folder;
    folder.type = EEntryType::directory;
    SEntryFilter filter;
    filter.size = SSizeRange{};
    EXPECT_FALSE(agent::Matches(filter, folder));
}

TEST(Versions, NumbersThatFollowEachOtherAreARange) {
    EXPECT_EQ(agent::FormatIds({}), "");
    EXPECT_EQ(agent::FormatIds({7}), "7");
    EXPECT_EQ(agent::FormatIds({1, 2, 3, 4, 7, 9, 10}), "1-4, 7, 9-10");
}

TEST(Versions, CheckpointsShareARootThatWasCarriedOn) {
    agent::SRoot first;
    first.path = "/a";
    first.storageId = guid::guid_t::FromStr("11111111-2222-3333-4444-555555555555");
    first.checkpoint = 1;
    first.headerSha256 = "aa";
    agent::SRoot second = first;
    second.checkpoint = 3;
    second.headerSha256 = "bb";
    std::vector<agent::SCheckpointInfo> list(3);
    for (std::size_t i = 0; i < list.size(); ++i) {
        list[i].id = i + 1;
        list[i].document.roots = {i < 2 ? first : second};
    }
    const auto versions = agent::ListVersions(list);
    ASSERT_EQ(versions.size(), 2U);
    EXPECT_EQ(versions[0].checkpoints, (std::vector<std::uint64_t>{1, 2}));
    EXPECT_EQ(versions[1].checkpoints, (std::vector<std::uint64_t>{3}));
    EXPECT_EQ(versions[1].root, second);
}

}  // namespace
