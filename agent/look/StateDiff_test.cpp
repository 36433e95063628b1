#include "agent/look/StateDiff.h"

#include <gtest/gtest.h>

namespace {

using agent::CMetaState;
using agent::CPackedEntry;
using agent::EDifference;
using agent::EEntryType;
using agent::SChunk;
using agent::SDifference;
using agent::SEntry;
using agent::SSegment;

SEntry File(std::vector<SSegment> segments) {
    SEntry file;
    file.mode = 0644;
    file.size = 100;
    file.segments = std::move(segments);
    return file;
}

SEntry Folder() {
    SEntry folder;
    folder.type = EEntryType::directory;
    return folder;
}

/// Chunks of 50 bytes, one for each letter: the same letter is the same content.
CMetaState StateOf(const std::string& chunks, const std::vector<std::pair<std::string, SEntry>>& entries,
                   std::uint64_t begin = 0) {
    CMetaState state;
    agent::SBlockExternalId block;
    block.number32 = 1'000'000;
    state.AddBlock(block);
    for (std::size_t i = 0; i < chunks.size(); ++i) {
        SChunk chunk;
        chunk.streamOffset = begin + 50 * i;
        chunk.plainSize = 50;
        chunk.storedSize = 50;
        chunk.blockOffset = static_cast<std::uint32_t>(50 * i);
        chunk.sha256 = digest::Sha256(chunks.substr(i, 1));
        state.AddChunk(chunk);
    }
    for (const auto& [path, entry] : entries) {
        state.PutEntry(path, CPackedEntry(entry));
    }
    (void)state.Check();
    return state;
}

std::vector<std::string> Diff(const CMetaState& before, const CMetaState& after, const std::string& path = "") {
    std::vector<std::string> texts;
    agent::DiffStates(before, after, path, [&](const SDifference& difference) {
        static constexpr std::string_view letters = "+-MU";
        texts.push_back(letters[static_cast<std::size_t>(difference.change)] + difference.path);
        EXPECT_EQ(difference.before.has_value(), difference.change != EDifference::added);
        EXPECT_EQ(difference.after.has_value(), difference.change != EDifference::removed);
    });
    return texts;
}

using texts_t = std::vector<std::string>;

TEST(StateDiff, ContentIsWhatTheChunksSayNotWhereTheyLie) {
    const auto before = StateOf("ab", {{"", Folder()}, {"f", File({{0, 0, 100}})}});
    const auto moved = StateOf("xab", {{"", Folder()}, {"f", File({{0, 1050, 100}})}}, 1000);
    EXPECT_EQ(Diff(before, moved), texts_t());
    const auto other = StateOf("ac", {{"", Folder()}, {"f", File({{0, 0, 100}})}});
    EXPECT_EQ(Diff(before, other), texts_t({"Mf"}));
}

TEST(StateDiff, HowSegmentsDivideAChunkDoesNotCount) {
    const auto before = StateOf("ab", {{"", Folder()}, {"f", File({{0, 0, 100}})}});
    const auto after = StateOf("ab", {{"", Folder()}, {"f", File({{0, 0, 20}, {20, 20, 70}, {90, 90, 10}})}});
    EXPECT_EQ(Diff(before, after), texts_t());
    const auto hole = StateOf("ab", {{"", Folder()}, {"f", File({{0, 0, 20}, {30, 30, 70}})}});
    EXPECT_EQ(Diff(before, hole), texts_t({"Mf"}));
}

TEST(StateDiff, AddedAndRemovedInTheOrderOfAWalk) {
    const auto before = StateOf("", {{"", Folder()}, {"a", Folder()}, {"a/x", Folder()}, {"c", Folder()}});
    const auto after = StateOf("", {{"", Folder()}, {"a", Folder()}, {"a-b", Folder()}, {"c", Folder()}});
    EXPECT_EQ(Diff(before, after), texts_t({"-a/x", "+a-b"}));
    EXPECT_EQ(Diff(before, after, "a"), texts_t({"-a/x"}));
    EXPECT_EQ(Diff(before, CMetaState()), texts_t({"-", "-a", "-a/x", "-c"}));
    EXPECT_EQ(Diff(CMetaState(), CMetaState()), texts_t());
}

TEST(StateDiff, TypesTargetsAndDevices) {
    SEntry link = Folder();
    link.type = EEntryType::symlink;
    link.target = "x";
    SEntry other = link;
    other.target = "y";
    const auto a = StateOf("", {{"", Folder()}, {"l", link}});
    EXPECT_EQ(Diff(a, StateOf("", {{"", Folder()}, {"l", other}})), texts_t({"Ml"}));
    EXPECT_EQ(Diff(a, StateOf("", {{"", Folder()}, {"l", Folder()}})), texts_t({"Ml"}));
}

TEST(StateDiff, AttributesAlone) {
    SEntry now = File({{0, 0, 100}});
    now.ctime = {5, 5};  // changes with whatever is done to a file, so it says nothing
    now.inode = 7;
    const auto before = StateOf("ab", {{"", Folder()}, {"f", File({{0, 0, 100}})}});
    EXPECT_EQ(Diff(before, StateOf("ab", {{"", Folder()}, {"f", now}})), texts_t());
    now.mode = 0600;
    EXPECT_EQ(Diff(before, StateOf("ab", {{"", Folder()}, {"f", now}})), texts_t({"Uf"}));
}

TEST(StateDiff, DescribesAttributes) {
    SEntry before = File({});
    SEntry after = before;
    EXPECT_EQ(agent::DescribeAttributes(before, after), texts_t());
    after.mode = 04755;
    after.uid = 1;
    after.gid = 2;
    after.mtime = {1, 5};
    after.xattrs = {{"user.a", "b"}};
    EXPECT_EQ(agent::DescribeAttributes(before, after),
              texts_t({"mode 0644 -> 4755", "owner 0:0 -> 1:2",
                       "modified 1970-01-01T00:00:00Z -> 1970-01-01T00:00:01.000000005Z", "xattrs"}));
}

TEST(StateDiff, ADigestOfTheContentStandsForIt) {
    SEntry small = File({{0, 0, 100}});
    small.contentSha256 = digest::Sha256("s");
    const auto before = StateOf("ab", {{"", Folder()}, {"f", small}});
    EXPECT_EQ(Diff(before, StateOf("xyz", {{"", Folder()}, {"f", small}})), texts_t());
    small.contentSha256 = digest::Sha256("t");
    EXPECT_EQ(Diff(before, StateOf("ab", {{"", Folder()}, {"f", small}})), texts_t({"Mf"}));
}

}  // namespace
